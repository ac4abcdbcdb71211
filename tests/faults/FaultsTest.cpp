#include "tests/faults/FaultsTest.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <sstream>

#include "platform/PropertyList.h"

namespace {

constexpr char kStandardError[] = "/private/var/log/attempt.stderr.log";
constexpr char kPrefix[] = "[BrindlexKioskHelper] ";
constexpr char kSocketKind[] = "socket";
constexpr mode_t kEverybody = 0666;

// What the watched process tells of its attempts.
struct Told {
  bool worked = false;
  bool workedAgain = false;
};

class Shared {
 public:
  Shared()
      : _told(new (mmap(nullptr, sizeof(Told), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                        -1, 0)) Told) {}
  ~Shared() { munmap(_told, sizeof(Told)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  Told* operator->() const { return _told; }

 private:
  Told* _told;
};

void RedirectStandardError() {
  const int file = open(kStandardError, O_WRONLY | O_CREAT | O_APPEND, kEverybody);
  dup2(file, STDERR_FILENO);
  close(file);
}

// The operation's life in the watched process: two attempts, each with a mark at its end.
std::function<void()> Attempts(const Operation& operation, const Shared& told) {
  return [&] {
    RedirectStandardError();
    operation.prepare();
    Mark();
    told->worked = operation.attempt();
    Mark();
    told->workedAgain = operation.attempt();
    Mark();
  };
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line.starts_with(kPrefix) ? line.substr(sizeof kPrefix - 1) : line);
  }
  return lines;
}

bool IsTemporary(const std::string& name) { return name.find(".tmp.") != std::string::npos; }

// An interrupted call is no failure. Only of close nobody may make sure: its descriptor is gone.
bool MustBeMadeAgain(const SystemCall& call, const Failure& failure) {
  return failure.error == EINTR && call.number != SYS_close;
}

// Nothing that a file needs before it gets its name may fail in silence.
bool MustBeTold(const SystemCall& call, const Failure& failure) {
  if (MustBeMadeAgain(call, failure)) return false;
  return call.number == SYS_renameat || IsTemporary(call.file);
}

}  // namespace

// --- failing calls
// --------------------------------------------------------------------------------

std::vector<SystemCall> FaultsTest::callsOf(const Operation& operation) {
  operation.reset();
  mac.write(kStandardError, "", kEverybody);
  const Shared told;
  WatchedProcess process(processes, Attempts(operation, told));
  EXPECT_TRUE(process.runToMark());
  clearRecords();
  EXPECT_TRUE(process.runToMark());
  _openAfterSuccess = processes.openFiles(process.pid());
  EXPECT_TRUE(told->worked);
  operation.expectDone();
  for (const SystemCall& call : process.calls()) {
    if (call.occurrence == 0 && !IsJudged(call)) {
      ADD_FAILURE() << call.description() << ": how may it fail?";
    }
  }
  return process.calls();
}

void FaultsTest::failEveryCall(const Operation& operation) {
  const std::vector<SystemCall> calls = callsOf(operation);
  ASSERT_GT(calls.size(), 10U) << "nothing was seen";
  for (const SystemCall& call : calls) {
    for (const Failure& failure : PlausibleFailures(call)) failOnce(operation, call, failure);
  }
  RecordProperty("failures", std::to_string(_done));
}

void FaultsTest::failOnce(const Operation& operation, const SystemCall& call,
                          const Failure& failure) {
  SCOPED_TRACE(call.description() + ": " + failure.description());
  operation.reset();
  const Shared told;
  WatchedProcess process(processes, Attempts(operation, told));
  ASSERT_TRUE(process.runToMark());
  clearRecords();
  mac.write(kStandardError, "", kEverybody);
  ASSERT_TRUE(process.runToMark(Interference{call, failure})) << mac.read(kStandardError);
  // Another thread's turns are not the same every time.
  EXPECT_TRUE(process.interfered() || call.beside);
  operation.expectOldOrNew();
  expectNoLeftovers(operation);
  expectSaid(operation, call, failure, told->worked);
  EXPECT_EQ(process.remainingChildren(), std::set<pid_t>());
  expectNothingElseOpen(process.pid(), 1);
  ASSERT_TRUE(process.runToMark());
  EXPECT_TRUE(told->workedAgain);
  operation.expectDone();
  expectNoLeftovers(operation);
  expectNothingElseOpen(process.pid(), 0);
  EXPECT_EQ(process.runToEnd(), 0);
  ++_done;
}

// Of connections there may be fewer, since one that came to nothing is not kept, or one more, which
// is found to be broken when the next one is wanted.
void FaultsTest::expectNothingElseOpen(pid_t process, int brokenConnections) const {
  std::vector<std::string> open = processes.openFiles(process);
  std::vector<std::string> expected = _openAfterSuccess;
  EXPECT_LE(std::ranges::count(open, kSocketKind),
            std::ranges::count(expected, kSocketKind) + brokenConnections);
  std::erase(open, kSocketKind);
  std::erase(expected, kSocketKind);
  EXPECT_EQ(open, expected);
}

void FaultsTest::expectNoLeftovers(const Operation& operation) const {
  for (const std::string& folder : operation.folders) {
    if (!mac.exists(folder)) continue;
    for (const std::string& name : mac.list(folder)) {
      EXPECT_FALSE(IsTemporary(name)) << folder << "/" << name;
    }
  }
}

// What was said is in the system log and on standard error, whichever of them could be written.
void FaultsTest::expectSaid(const Operation& operation, const SystemCall& call,
                            const Failure& failure, bool worked) const {
  const std::vector<LogLine> log = mac.log();
  const std::vector<std::string> printed = LinesOf(mac.read(kStandardError));
  std::vector<std::string> errors;
  for (const LogLine& line : log) {
    const bool unreached = line.text.find(": not reached (") != std::string::npos;
    if (line.level == "Error" || unreached) errors.push_back(line.text);
  }
  if (!errors.empty() || !worked) {
    EXPECT_TRUE(operation.maySay(errors, failure, call)) << testing::PrintToString(printed);
    EXPECT_EQ(log.size(), printed.size()) << testing::PrintToString(printed);
  }
  const bool claimed = worked && operation.tellsSuccess;
  EXPECT_TRUE(!MustBeTold(call, failure) || (errors.size() == 1 && !claimed));
  EXPECT_TRUE(!MustBeMadeAgain(call, failure) || (worked && errors.empty()));
  if (worked && errors.empty()) operation.expectWorked();
}

// --- kills
// ----------------------------------------------------------------------------------------

void FaultsTest::killAtEveryCall(const Operation& operation) {
  const std::vector<SystemCall> calls = callsOf(operation);
  ASSERT_GT(calls.size(), 10U) << "nothing was seen";
  const bool everywhere = std::getenv("KIOSKD_KILLS") != nullptr;
  for (const SystemCall& call : calls) {
    const bool other = everywhere && !PlausibleFailures(call).empty();
    if (other || ChangesTheMac(call)) killOnce(operation, call);
  }
  killOnce(operation, calls.back());
  RecordProperty("kills", std::to_string(_done));
}

void FaultsTest::killOnce(const Operation& operation, const SystemCall& call) {
  SCOPED_TRACE("killed at " + call.description());
  operation.reset();
  pid_t killed = 0;
  {
    const Shared told;
    WatchedProcess process(processes, Attempts(operation, told));
    killed = process.pid();
    ASSERT_TRUE(process.runToMark());
    clearRecords();
    EXPECT_FALSE(process.runToMark(Interference{call, std::nullopt}) && !call.beside);
  }
  operation.expectOldOrNew();
  expectOnlyLeftoversOf(killed, operation);
  recover();
  expectKiosk();
  expectOnlyLeftoversOf(killed, operation);
  ++_done;
}

// A process that is killed while it writes cannot take away what it wrote; the next one has
// another name for its own.
void FaultsTest::expectOnlyLeftoversOf(pid_t process, const Operation& operation) const {
  const std::string suffix = ".tmp." + std::to_string(process);
  std::size_t left = 0;
  for (const std::string& folder : operation.folders) {
    if (!mac.exists(folder)) continue;
    for (const std::string& name : mac.list(folder)) {
      if (!IsTemporary(name)) continue;
      EXPECT_TRUE(name.ends_with(suffix)) << folder << "/" << name;
      ++left;
    }
  }
  EXPECT_LE(left, 1U);
}

// A daemon starts and checks in.
void FaultsTest::recover() {
  answerEnrolled({{"branding", ProjectionOf({hills, sea})}});
  const pid_t child = fork();
  if (child == 0) {
    RedirectStandardError();
    restartDaemon();
    _exit(checkIn() == KioskCheckInOutcome::kEnrolled ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0) << mac.read(kStandardError);
}

void FaultsTest::expectKiosk() {
  const Json state = mac.state();
  ASSERT_TRUE(state.is_object()) << mac.read(kStateFile);
  EXPECT_EQ(state.value("provisioned", false), true) << state << mac.read(kStandardError);
  for (const char* key : {"token", "generatedUID", "password"}) {
    EXPECT_EQ(state.value(key, ""), enrolledState()[key]) << key;
  }
  EXPECT_EQ(state.value("generatedUID", ""), generatedUid());
  EXPECT_TRUE(storedPasswordFits());
  EXPECT_EQ(autoLoginUser(), kAccount);
  EXPECT_EQ(autoLoginPassword(), state.value("password", ""));
  const Json agent = platform::PropertyListParse(mac.read(kLaunchAgent)).value_or(Json());
  ASSERT_TRUE(agent.is_object()) << mac.read(kLaunchAgent);
  EXPECT_EQ(agent["ProgramArguments"], (Json{kApplication, "--kiosk-shell"}));
  EXPECT_TRUE(platform::PropertyListParse(mac.read(kSetupAssistant)));
  branding().expectDone();
}
