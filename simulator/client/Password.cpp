#include "simulator/client/Password.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>

#include "simulator/client/Limits.h"

namespace client {
namespace {

constexpr int kHeldSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP};

/// How reading a line ended.
enum class LineEnd { kComplete, kNone, kTooLong, kSignal };

/// A terminal without echo. Signals that would leave it so are held back meanwhile; they can be
/// waited for, and arrive once the echo is back.
class QuietTerminal {
 public:
  QuietTerminal();
  ~QuietTerminal();
  QuietTerminal(const QuietTerminal&) = delete;
  QuietTerminal& operator=(const QuietTerminal&) = delete;

  /// Whether the echo is off.
  bool quiet() const { return _quiet; }

  /// Readable when a signal is held back.
  int signals() const { return _signals; }

 private:
  bool silence();

  sigset_t _before{};
  termios _modes{};
  int _signals = -1;
  bool _quiet = false;
};

QuietTerminal::QuietTerminal() {
  sigset_t held;
  sigemptyset(&held);
  (void)sigprocmask(SIG_BLOCK, nullptr, &_before);  // fails for a bad first argument only
  for (const int number : kHeldSignals) {
    // One that is blocked anyway would stay held for ever.
    if (sigismember(&_before, number) == 0) sigaddset(&held, number);
  }
  (void)sigprocmask(SIG_BLOCK, &held, nullptr);
  // Without the descriptor a signal waits for the end of the line, which does no harm.
  _signals = signalfd(-1, &held, SFD_CLOEXEC);
  _quiet = silence();
}

bool QuietTerminal::silence() {
  if (tcgetattr(STDIN_FILENO, &_modes) != 0) return false;
  termios quiet = _modes;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  quiet.c_lflag |= ICANON | ECHONL;
  return tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
}

QuietTerminal::~QuietTerminal() {
  // What is left of a line that was too long is part of a password: nobody else may read it.
  if (_quiet) (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &_modes);
  if (_signals >= 0) (void)close(_signals);
  (void)sigprocmask(SIG_SETMASK, &_before, nullptr);
}

/// Waits for input; false when a signal came first.
bool WaitForInput(int signals) {
  pollfd entries[] = {{STDIN_FILENO, POLLIN, 0}, {signals, POLLIN, 0}};
  while (poll(entries, 2, -1) < 0 && errno == EINTR) {
  }
  return entries[1].revents == 0;
}

/// Byte for byte, so that what follows the line stays for others.
LineEnd ReadLine(int signals, std::string& line) {
  for (;;) {
    if (!WaitForInput(signals)) return LineEnd::kSignal;
    char byte = '\0';
    const ssize_t got = read(STDIN_FILENO, &byte, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return line.empty() ? LineEnd::kNone : LineEnd::kComplete;
    if (byte == '\n') return LineEnd::kComplete;
    if (line.size() == kMaximumPasswordBytes) return LineEnd::kTooLong;
    line.push_back(byte);
  }
}

/// Begins anew after a signal that did not end the program.
std::optional<LineEnd> ReadFromTerminal(std::string& line) {
  for (;;) {
    const QuietTerminal terminal;
    if (!terminal.quiet()) return std::nullopt;
    std::cerr << "Password: " << std::flush;
    line.clear();
    const LineEnd end = ReadLine(terminal.signals(), line);
    if (end != LineEnd::kSignal) return end;
    std::cerr << std::endl;
  }
}

}  // namespace

std::optional<std::string> PasswordRead(const Session& session) {
  std::string line;
  const std::optional<LineEnd> end =
      isatty(STDIN_FILENO) == 1 ? ReadFromTerminal(line) : ReadLine(-1, line);
  if (!end) {
    session.complain("The terminal's echo cannot be turned off.");
    return std::nullopt;
  }
  if (*end == LineEnd::kComplete) return line;
  session.complain(*end == LineEnd::kTooLong ? "A password has at most " +
                                                   std::to_string(kMaximumPasswordBytes) + " bytes."
                                             : "No password was given.");
  return std::nullopt;
}

}  // namespace client
