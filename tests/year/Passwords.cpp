#include "tests/year/Passwords.h"

#include <algorithm>

namespace {

constexpr double kLockOutSeconds = 300;
constexpr int kAttempts = 5;

}  // namespace

std::string Passwords::answer(bool right, double wallSeconds, double elapsedSeconds) {
  if (_until > wallSeconds) {
    _until = std::min(_until, wallSeconds + kLockOutSeconds);
    const double openBy = elapsedSeconds + (_until - wallSeconds);
    _openBy = std::min(_openBy.value_or(openBy), openBy);
    return "locked";
  }
  return right ? "" : "wrong_password";
}

void Passwords::answered(const std::string& answer, double wallSeconds, double elapsedSeconds) {
  if (answer.empty()) {
    _failures = 0;
    _until = 0;
  }
  if (answer != "wrong_password") return;
  if (++_failures < kAttempts) return;
  _failures = 0;
  _until = wallSeconds + kLockOutSeconds;
  _openBy = elapsedSeconds + kLockOutSeconds;
  ++_lockOuts;
}
