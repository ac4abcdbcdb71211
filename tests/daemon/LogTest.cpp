// What the daemon logs, where, and at which level.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "core/KioskLog.h"
#include "tests/daemon/DaemonTest.h"

namespace {

constexpr char kLoggingFile[] = "/private/var/simulated/logging.json";
constexpr char kSystemLog[] = "/private/var/log/system.log";
constexpr char kErrorFile[] = "/private/tmp/standard-error";

// Sends standard error to a file for as long as it lives.
class StandardErrorInAFile {
 public:
  StandardErrorInAFile() : _saved(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    const int file = open(kErrorFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(file, STDERR_FILENO);
    close(file);
  }
  ~StandardErrorInAFile() {
    dup2(_saved, STDERR_FILENO);
    close(_saved);
  }
  StandardErrorInAFile(const StandardErrorInAFile&) = delete;
  StandardErrorInAFile& operator=(const StandardErrorInAFile&) = delete;

 private:
  int _saved;
};

class Log : public DaemonTest {
 protected:
  std::string standardError() const { return mac.read(kErrorFile); }

 private:
  StandardErrorInAFile _standardError;
};

TEST_F(Log, WritesInformationAtTheDefaultLevel) {
  KioskLog("all is well");
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Default", "all is well"}}));
}

TEST_F(Log, WritesErrorsAtTheErrorLevel) {
  KioskLogError("all is lost");
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Error", "all is lost"}}));
}

TEST_F(Log, NamesItsSubsystemAndCategory) {
  KioskLog("here");
  const std::string expected =
      " Default com.brindlex.stream.kioskd daemon[" + std::to_string(getpid()) + "]: here\n";
  EXPECT_TRUE(mac.read(kSystemLog).ends_with(expected)) << mac.read(kSystemLog);
}

TEST_F(Log, WritesEveryMessageToStandardErrorWithoutItsLevel) {
  KioskLog("all is well");
  KioskLogError("all is lost");
  EXPECT_EQ(standardError(),
            "[BrindlexKioskHelper] all is well\n[BrindlexKioskHelper] all is lost\n");
}

TEST_F(Log, KeepsInformationOnStandardErrorWhenTheSystemLogDropsIt) {
  mac.write(kLoggingFile, R"({"Default": false, "Error": true})");
  KioskLog("all is well");
  KioskLogError("all is lost");
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Error", "all is lost"}}));
  EXPECT_EQ(standardError(),
            "[BrindlexKioskHelper] all is well\n[BrindlexKioskHelper] all is lost\n");
}

TEST_F(Log, KeepsErrorsOnStandardErrorWhenTheSystemLogDropsThem) {
  mac.write(kLoggingFile, R"({"Default": true, "Error": false})");
  KioskLog("all is well");
  KioskLogError("all is lost");
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Default", "all is well"}}));
  EXPECT_EQ(standardError(),
            "[BrindlexKioskHelper] all is well\n[BrindlexKioskHelper] all is lost\n");
}

TEST_F(Log, FollowsAChangeOfTheSystemLogsLevelsAtOnce) {
  KioskLog("one");
  mac.write(kLoggingFile, R"({"Default": false})");
  KioskLog("two");
  mac.remove(kLoggingFile);
  KioskLog("three");
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Default", "one"}, {"Default", "three"}}));
}

TEST_F(Log, LeavesPercentSignsInArgumentsAlone) {
  KioskLog("%@ and %s", "100% %d %@ %n %%", std::string("%s%s%s"));
  EXPECT_EQ(mac.countLog("100% %d %@ %n %% and %s%s%s"), 1U);
  EXPECT_EQ(standardError(), "[BrindlexKioskHelper] 100% %d %@ %n %% and %s%s%s\n");
}

TEST_F(Log, PrintsEveryKindOfArgument) {
  KioskLog("%d %u %ld %lu %llu %.0f %02x %s %@.", -5, 7U, -6000000000L, 6000000000UL,
           std::numeric_limits<unsigned long long>::max(), 23.6, 10U, "text", std::string("more"));
  EXPECT_EQ(mac.countLog("-5 7 -6000000000 6000000000 18446744073709551615 24 0a text more."), 1U);
}

TEST_F(Log, PrintsTheLargestNumbersWhole) {
  KioskLog("%ld %.0f", std::numeric_limits<std::int64_t>::min(), 1e300);
  ASSERT_EQ(mac.log().size(), 1U);
  const std::string text = mac.log().front().text;
  EXPECT_TRUE(text.starts_with("-9223372036854775808 1000000000000000")) << text;
  EXPECT_EQ(text.size(), 21U + 301U);
}

TEST_F(Log, PutsArgumentsNextToEachOtherAndAtTheEnds) {
  KioskLog("%@%@%d", "a", "b", 3);
  EXPECT_EQ(mac.countLog("ab3"), 1U);
}

TEST_F(Log, WritesAnEmptyArgumentAsNothing) {
  KioskLogError("refused: %@", "");
  EXPECT_EQ(mac.countErrors("refused: "), 1U);
}

TEST_F(Log, WritesALongMessageWhole) {
  const std::string text(1 << 20, 'x');
  KioskLog("%@", text);
  EXPECT_EQ(mac.countLog(text), 1U);
  EXPECT_EQ(standardError(), "[BrindlexKioskHelper] " + text + "\n");
}

TEST_F(Log, KeepsLinesOfSeveralThreadsWhole) {
  constexpr int kThreads = 4;
  constexpr int kLines = 50;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      for (int line = 0; line < kLines; ++line) KioskLog("thread %d line %d", thread, line);
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::string onStandardError = standardError();
  for (int thread = 0; thread < kThreads; ++thread) {
    const std::string text = "thread " + std::to_string(thread) + " line " + std::to_string(7);
    EXPECT_EQ(mac.countLog(text), 1U);
    EXPECT_NE(onStandardError.find("[BrindlexKioskHelper] " + text + "\n"), std::string::npos);
  }
  EXPECT_EQ(mac.log().size(), std::size_t{kThreads * kLines});
}

}  // namespace
