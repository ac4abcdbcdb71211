#include "tests/year/Reckoning.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr double kGridSeconds = 60;
constexpr double kNormalInterval = 30;
constexpr double kLongestInterval = 600;
constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr std::uint64_t kRetryNs = 900 * kSecond;
constexpr std::uint64_t kFreshNs = 150 * kSecond;
// A check-in that comes late because the portal is slow, and the grid's coarseness.
constexpr double kSlackSeconds = kGridSeconds + 30;

constexpr char kDeferred[] = "OS updates deferred: ";
constexpr char kLive[] = "OS updates deferred: a stream session is live";
constexpr char kSignedIn[] = "OS updates deferred: someone is signed in at the terminal";
constexpr char kOpen[] = " window is open; installing";
constexpr char kNeedRestart[] = "OS updates need a restart";
constexpr char kClosed[] =
    "OS updates need a restart, but the window has closed; it waits for the next restart";
constexpr char kInUse[] =
    "OS updates need a restart, but the terminal is in use; it waits for the next restart";
constexpr char kRestarting[] = "OS updates need a restart; restarting inside the window";

std::string OpenLine(long day) { return "OS updates: the " + DateText(day) + kOpen; }

bool IsAttempt(const std::string& line) {
  return line.starts_with(kDeferred) || line.ends_with(kOpen);
}

}  // namespace

Reckoning::Reckoning(const Zone& zone, double wallSeconds, Complaint complain)
    : _zone(zone), _complain(std::move(complain)), _wallAhead(wallSeconds) {}

void Reckoning::switchedOn(std::uint64_t monotonicNs) {
  _on = true;
  _interval = kNormalInterval;
  _dueNs = monotonicNs;
  _busyUntilNs = 0;
  _attemptNs.reset();
  _reportNs.reset();
  ++_tally["boots"];
}

void Reckoning::switchedOff() {
  _on = false;
  _dueNs.reset();
  if (_window) _window->presentlyOn = 0;
}

void Reckoning::reported(bool live, bool signedIn, std::uint64_t monotonicNs) {
  _live = live;
  _signedIn = signedIn;
  _reportNs = monotonicNs;
}

std::optional<std::string> Reckoning::inUse(std::uint64_t monotonicNs) const {
  const bool isFresh = _reportNs && monotonicNs - *_reportNs <= kFreshNs;
  if (!isFresh || (!_live && !_signedIn)) return std::nullopt;
  return _live ? kLive : kSignedIn;
}

std::optional<long> Reckoning::openAt(double wall) const {
  return OpenWindow(_policy, LocalMinuteOf(_zone, wall));
}

// --- the windows
// -----------------------------------------------------------------------------------

void Reckoning::passTo(double elapsedSeconds) {
  while (_elapsed < elapsedSeconds) {
    const double step = std::min(kGridSeconds, elapsedSeconds - _elapsed);
    _elapsed += step;
    look(step);
  }
}

// Which window is open now, after so many seconds as the Mac is.
void Reckoning::look(double seconds) {
  const std::optional<long> day = openAt(wallSeconds());
  if (_window && _window->day != day) close();
  if (!day) return;
  if (!_window) {
    _window = {.day = *day, .wasDone = day == _doneDay, .opened = wallSeconds()};
    seconds = 0;
  }
  if (!_on) return;
  _window->presentlyOn += seconds;
  _window->onSeconds = std::max(_window->onSeconds, _window->presentlyOn);
  _window->slowest = std::max(_window->slowest, _interval);
}

void Reckoning::close() {
  const std::string fate = this->fate(*_window);
  if (fate.empty()) {
    _complain("the window of " + DateText(_window->day) + ", open since " +
              LocalText(_zone, _window->opened) + ", is not accounted for: the Mac was on for " +
              std::to_string(_window->onSeconds) + " s of it, " +
              std::to_string(_window->checkIns) + " check-ins, " + std::to_string(_window->held) +
              " held back, " + std::to_string(_window->runs) + " runs, " +
              std::to_string(_window->deferrals) + " deferrals");
  }
  ++_tally["windows " + fate];
  ++_tally["windows"];
  _window.reset();
}

// What became of a window, the one thing that is so; empty when nothing or too much is.
std::string Reckoning::fate(const Window& window) const {
  if (window.runs > 1 || (window.wasDone && window.runs != 0)) return "";
  if (window.runs == 1) return "served";
  if (window.wasDone) return "open again after their run";
  if (window.deferrals > 0) return "deferred";
  if (window.checkIns > 0) {
    return window.held == window.checkIns ? "too soon after an attempt" : "";
  }
  if (window.onSeconds == 0) return "while off";
  return window.onSeconds <= window.slowest + kSlackSeconds ? "shorter than a check-in" : "";
}

void Reckoning::yearEnds() {
  // A window that is open still may yet have its run.
  _window.reset();
}

// --- the check-ins
// ---------------------------------------------------------------------------------

void Reckoning::note(const Happening& happening, double elapsedSeconds) {
  passTo(elapsedSeconds);
  if (std::abs(happening.wallSeconds - wallSeconds()) > 0.001) _complain("the test lost the time");
  if (happening.kind == Happening::Kind::kLog) return wrote(happening);
  if (_expected) _complain("the log does not say: " + *_expected);
  _expected.reset();
  if (happening.answered && _offered.isValid) _policy = _offered;
  look(0);
  if (!_inCommand) return checkedIn(happening);
  _busyUntilNs = happening.monotonicNs;
}

void Reckoning::checkedIn(const Happening& checkIn) {
  const std::uint64_t due = std::max(_dueNs.value_or(0), _busyUntilNs);
  if (!_dueNs || checkIn.beganNs != due) {
    _complain("a check-in came " + std::to_string(static_cast<double>(checkIn.beganNs) / 1e9) +
              " s after the boot and not " + std::to_string(static_cast<double>(due) / 1e9));
  }
  _interval = checkIn.answered ? kNormalInterval : std::min(2 * _interval, kLongestInterval);
  _dueNs = checkIn.monotonicNs + static_cast<std::uint64_t>(_interval) * kSecond;
  ++_tally[checkIn.answered ? "check-ins answered" : "check-ins not answered"];
  expectAttempt(checkIn);
}

// A check-in inside a window is followed by an attempt, or there is a reason why not.
void Reckoning::expectAttempt(const Happening& checkIn) {
  if (!_window) return;
  ++_window->checkIns;
  if (_window->day == _doneDay) return;
  if (_attemptNs && checkIn.monotonicNs < *_attemptNs + kRetryNs) {
    ++_window->held;
    return;
  }
  _attemptNs = checkIn.monotonicNs;
  _expected = inUse(checkIn.monotonicNs).value_or(OpenLine(_window->day));
}

void Reckoning::settled(std::uint64_t monotonicNs, std::optional<std::uint64_t> dueInNs) {
  if (_expected) _complain("the log does not say: " + *_expected);
  if (_restartWord) _complain("the log does not say what becomes of the restart");
  if (_installing) _complain("a run has no end");
  _expected.reset();
  _busyUntilNs = monotonicNs;
  if (!_on) return;
  if (!dueInNs || monotonicNs + *dueInNs != std::max(*_dueNs, monotonicNs)) {
    _complain("the next check-in is not due when it should be");
  } else if (*dueInNs > static_cast<std::uint64_t>(kLongestInterval) * kSecond) {
    _complain("the next check-in is more than ten minutes away");
  }
}

// --- the log
// ---------------------------------------------------------------------------------------

void Reckoning::wrote(const Happening& line) {
  if (IsAttempt(line.text)) {
    wroteOfAttempt(line.text);
  } else if (line.text.starts_with(kNeedRestart)) {
    wroteOfRestart(line);
  } else if (_installing) {
    installEnded(line);
  }
}

void Reckoning::wroteOfAttempt(const std::string& line) {
  if (line != _expected) _complain("the log should not say: " + line);
  _expected.reset();
  if (!_window) return;
  if (line.ends_with(kOpen)) return installBegan(_window->day);
  ++_window->deferrals;
  ++_tally[line == kLive ? "deferrals: live" : "deferrals: signed in"];
}

void Reckoning::wroteOfRestart(const Happening& line) {
  const bool isRight = _restartWord && line.text == wordOnRestart(line);
  if (!isRight) _complain("the log should not say: " + line.text);
  _restartWord = false;
  ++_tally[line.text == kClosed  ? "restarts: closed"
           : line.text == kInUse ? "restarts: in use"
                                 : "restarts: made"];
}

void Reckoning::installBegan(long day) {
  ++_window->runs;
  _installing = day;
}

// The lines on a run: how the list went, and how the installation did.
void Reckoning::installEnded(const Happening& line) {
  const bool listFailed = line.text.starts_with("softwareupdate -l exited");
  const bool failed = listFailed || line.text.starts_with("softwareupdate -i -a exited");
  const bool nothing = line.text == "OS updates: 0 pending";
  const bool installed = line.text.starts_with("OS updates installed");
  if (!failed && !nothing && !installed) return;
  ++_tally[failed ? "runs that fail" : nothing ? "runs without updates" : "runs that install"];
  _restartWord = installed && TheAround().updateNeedsRestart;
  _doneDay = std::exchange(_installing, std::nullopt);
  // Only the last window that had its run is remembered: after a run for the day before, to which
  // the clock was set back, this one is open for one anew.
  if (_window && _window->day != _doneDay) _window->wasDone = false;
  _busyUntilNs = line.monotonicNs;
}

std::string Reckoning::wordOnRestart(const Happening& line) const {
  if (openAt(line.wallSeconds) != _doneDay) return kClosed;
  return inUse(line.monotonicNs) ? kInUse : kRestarting;
}
