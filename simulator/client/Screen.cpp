#include "simulator/client/Screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string_view>

namespace client {
namespace {

constexpr const char* kLineStart = "\r\033[K";

bool IsTerminal() {
  const char* const type = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && type != nullptr && std::string_view(type) != "dumb";
}

Screen::Mode ModeFor(bool silent) {
  if (silent) return Screen::Mode::kSilent;
  return IsTerminal() ? Screen::Mode::kTerminal : Screen::Mode::kPlain;
}

}  // namespace

Screen::Screen(bool silent) : _mode(ModeFor(silent)) {}

void Screen::sentence(const std::string& text) const {
  if (_mode != Mode::kSilent) std::cout << text << std::endl;
}

void Screen::overwrite(const std::string& text) {
  std::cout << kLineStart << text << std::flush;
  _lineOpen = true;
}

void Screen::endLine() {
  if (_lineOpen) std::cout << std::endl;
  _lineOpen = false;
}

bool Screen::works() const { return std::cout.good(); }

std::optional<std::size_t> Screen::columns() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return std::nullopt;
  return size.ws_col;
}

}  // namespace client
