#include "simulator/client/PairDisplay.h"

#include <chrono>
#include <iostream>
#include <string_view>
#include <thread>
#include <vector>

#include "simulator/client/LargeText.h"
#include "simulator/client/PairOutcome.h"
#include "simulator/client/Printable.h"

namespace client {
namespace {

constexpr const char* kReverse = "\033[7m";
constexpr const char* kNormal = "\033[0m";
constexpr std::string_view kMargin = "  ";

/// Whether `width` columns fit; a terminal that does not tell its width is taken to be wide.
bool Fits(std::size_t width) { return width <= Screen::columns().value_or(width); }

/// Turns the blocks of a row into spaces in reverse video, which every terminal and every character
/// set can show.
std::string Paint(std::string_view row) {
  std::string painted;
  char last = ' ';
  for (const char block : row) {
    if (block != last) painted += block == '#' ? kReverse : kNormal;
    painted += ' ';
    last = block;
  }
  return last == '#' ? painted + kNormal : painted;
}

std::string Spaced(const std::string& code) {
  std::string text;
  for (const char letter : code) text.append(text.empty() ? "" : " ").push_back(letter);
  return text;
}

std::string Clock(int seconds) {
  const std::string rest = std::to_string(seconds % 60);
  return std::to_string(seconds / 60) + ":" + (rest.size() < 2 ? "0" : "") + rest;
}

void ShowLarge(const std::string& code) {
  const std::optional<std::vector<std::string>> rows = LargeText(code);
  std::cout << "\nEnter this code in the portal:\n\n";
  if (rows && Fits(rows->front().size() + kMargin.size())) {
    for (const std::string& row : *rows) std::cout << kMargin << Paint(row) << '\n';
    std::cout << '\n';
  }
  std::cout << kMargin << Spaced(Printable(code)) << "\n\n" << std::flush;
}

}  // namespace

PairDisplay::PairDisplay(bool silent) : _screen(silent) {}

bool PairDisplay::works() const { return _screen.works(); }

void PairDisplay::sentence(const std::string& text) const { _screen.sentence(text); }

void PairDisplay::code(const std::string& code) const {
  if (_screen.mode() == Screen::Mode::kTerminal) {
    ShowLarge(code);
  } else {
    sentence("Pairing code: " + Printable(code));
  }
}

void PairDisplay::endLine() { _screen.endLine(); }

void PairDisplay::remaining(int seconds) {
  const std::string text = "The code is valid for " + Clock(seconds) + ".";
  if (_screen.mode() == Screen::Mode::kTerminal) {
    _screen.overwrite(_note.empty() ? text : text + " " + _note);
    return;
  }
  const int minutes = (seconds + 59) / 60;
  if (minutes != _shownMinutes) sentence(text);
  _shownMinutes = minutes;
}

void PairDisplay::note(const std::string& sentence) {
  if (sentence == _note) return;
  _note = sentence;
  if (_screen.mode() == Screen::Mode::kPlain && !_note.empty()) this->sentence(_note);
}

void PairDisplay::restart(int seconds) {
  if (_screen.mode() != Screen::Mode::kTerminal) {
    sentence(PairRestartText(seconds));
    return;
  }
  for (; seconds > 0; --seconds) {
    _screen.overwrite(PairRestartText(seconds));
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  _screen.overwrite(PairRestartText(0));
  endLine();
}

}  // namespace client
