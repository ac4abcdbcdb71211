#include "simulator/portal/PasswordInput.h"

#include <openssl/crypto.h>
#include <openssl/ui.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>

#include "simulator/portal/Limits.h"

namespace portal {
namespace {

/// UTF-8 takes four bytes for a character at most.
constexpr std::size_t kMaxPasswordBytes = 4 * kMaxExitPassword;

std::optional<std::string> ReadTyped(std::string& problem) {
  std::array<char, kMaxPasswordBytes + 1> typed{};
  problem = "no password was typed, or not the same one twice";
  const int failure =
      UI_UTIL_read_pw_string(typed.data(), static_cast<int>(typed.size()), "Password: ", 1);
  std::string password = failure == 0 ? typed.data() : "";
  OPENSSL_cleanse(typed.data(), typed.size());
  if (password.empty()) return std::nullopt;
  return password;
}

std::optional<std::string> ReadFirstLine(std::string& problem) {
  std::string line;
  problem = "standard input has no password, or one that is too long";
  while (line.size() <= kMaxPasswordBytes) {
    char next = 0;
    const ssize_t count = read(STDIN_FILENO, &next, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count > 0 && next != '\n') {
      line += next;
      continue;
    }
    return line.empty() ? std::nullopt : std::optional<std::string>(line);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> ReadPassword(std::string& problem) {
  return isatty(STDIN_FILENO) == 1 ? ReadTyped(problem) : ReadFirstLine(problem);
}

}  // namespace portal
