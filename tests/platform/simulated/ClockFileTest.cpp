// The clock that simmac moves.
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "platform/simulated/ClockFile.h"
#include "tests/platform/simulated/SimulatedRoot.h"

namespace platform {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

class ClockFile : public contract::SimulatedRoot {
 protected:
  static void write(const std::string& contents, mode_t mode = 0644) {
    (void)unlink(kMacClock);
    contract::WriteFile(kMacClock, contents);
    ASSERT_EQ(chmod(kMacClock, mode), 0);
  }

  static std::uint64_t fileSays() { return ReadClockAhead(kMacClock); }
};

class ClockAhead : public ClockFile {
 protected:
  /// A process's clock never goes back, so one that is moved is not left to the next test.
  static void inAProcessOfItsOwn(const std::function<void()>& test) {
    (void)std::fflush(stdout);
    const pid_t process = fork();
    if (process == 0) {
      test();
      (void)std::fflush(stdout);
      _exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(process, &status, 0), process);
    EXPECT_EQ(status, 0);
  }

  static void writeSeconds(std::uint64_t seconds) {
    write(R"({"aheadSeconds": )" + std::to_string(seconds) + "}");
  }

  static std::uint64_t hostNs(clockid_t clock) {
    timespec time{};
    (void)clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * kSecond +
           static_cast<std::uint64_t>(time.tv_nsec);
  }

  /// By how much the monotonic clock is ahead, to the second: between its distances to the host's
  /// clock before and after it.
  static std::uint64_t monotonic() {
    for (;;) {
      const std::uint64_t before = hostNs(CLOCK_BOOTTIME);
      const std::uint64_t time = ClockMonotonicNs();
      const std::uint64_t after = hostNs(CLOCK_BOOTTIME);
      if (after - before < kSecond) return (time - before) / kSecond;
    }
  }

  static std::uint64_t wall() {
    for (;;) {
      const std::uint64_t before = hostNs(CLOCK_REALTIME);
      const double time = ClockSecondsSince1970();
      const std::uint64_t after = hostNs(CLOCK_REALTIME);
      const double distance = time - static_cast<double>(before) / 1e9;
      // The double's own error must not make a second less of it.
      if (after - before < kSecond / 2) return static_cast<std::uint64_t>(distance + 0.001);
    }
  }
};

TEST_F(ClockFile, SaysHowFarAheadTheClockIs) {
  EXPECT_EQ(fileSays(), 0U);
  write(R"({"aheadSeconds": 960})");
  EXPECT_EQ(fileSays(), 960U);
  write(R"({"aheadSeconds": 315360000, "remark": ["mine"]})");
  EXPECT_EQ(fileSays(), kMaximumClockAheadSeconds);
}

TEST_F(ClockFile, SaysNothingWhenItIsMalformed) {
  const std::string tooLong = R"({"aheadSeconds": 5)" + std::string(2000, ' ') + "}";
  for (const std::string& contents :
       {std::string(), std::string("{"), std::string("[]"), std::string("960"), std::string("null"),
        std::string(R"({"ahead": 960})"), std::string(R"({"aheadSeconds": -1})"),
        std::string(R"({"aheadSeconds": 1.5})"), std::string(R"({"aheadSeconds": "960"})"),
        std::string(R"({"aheadSeconds": 315360001})"),
        std::string(R"({"aheadSeconds": 99999999999999999999})"), tooLong,
        std::string("\xff\0{", 3)}) {
    write(contents);
    EXPECT_EQ(fileSays(), 0U) << contents;
  }
}

TEST_F(ClockFile, IsNotBelievedWhenAnybodyElseMayHaveWrittenIt) {
  const std::string contents = R"({"aheadSeconds": 960})";
  for (const mode_t mode : {0646U, 0664U, 0666U}) {
    write(contents, mode);
    EXPECT_EQ(fileSays(), 0U) << mode;
  }
  write(contents);
  ASSERT_EQ(chown(kMacClock, 501, 20), 0);
  EXPECT_EQ(fileSays(), 0U);
  write(contents);
  EXPECT_EQ(fileSays(), 960U);
}

TEST_F(ClockFile, IsNoLinkAndNothingButAFile) {
  const std::string target = "/private/tmp/clock";
  contract::WriteFile(target, R"({"aheadSeconds": 960})");
  ASSERT_EQ(symlink(target.c_str(), kMacClock), 0);
  EXPECT_EQ(fileSays(), 0U);
  ASSERT_EQ(unlink(kMacClock), 0);
  ASSERT_EQ(link(target.c_str(), kMacClock), 0);
  EXPECT_EQ(fileSays(), 0U);
  ASSERT_EQ(unlink(kMacClock), 0);
  ASSERT_EQ(mkfifo(kMacClock, 0644), 0);
  EXPECT_EQ(fileSays(), 0U);
  ASSERT_EQ(unlink(kMacClock), 0);
  ASSERT_EQ(mkdir(kMacClock, 0755), 0);
  EXPECT_EQ(fileSays(), 0U);
}

TEST_F(ClockAhead, IsThatOfBothClocksAtOnce) {
  inAProcessOfItsOwn([] {
    EXPECT_EQ(monotonic(), 0U);
    EXPECT_EQ(wall(), 0U);
    writeSeconds(960);
    EXPECT_EQ(monotonic(), 960U);
    EXPECT_EQ(wall(), 960U);
    writeSeconds(2000);
    EXPECT_EQ(wall(), 2000U);
    EXPECT_EQ(monotonic(), 2000U);
  });
}

TEST_F(ClockAhead, NeverShrinks) {
  inAProcessOfItsOwn([] {
    writeSeconds(500);
    EXPECT_EQ(monotonic(), 500U);
    writeSeconds(400);
    EXPECT_EQ(monotonic(), 500U);
    write("{");
    EXPECT_EQ(monotonic(), 500U);
    ASSERT_EQ(unlink(kMacClock), 0);
    EXPECT_EQ(monotonic(), 500U);
    EXPECT_EQ(wall(), 500U);
  });
}

TEST_F(ClockAhead, IgnoresAFileThatIsNotBelieved) {
  inAProcessOfItsOwn([] {
    write(R"({"aheadSeconds": 960})", 0666);
    EXPECT_EQ(monotonic(), 0U);
    // The same file counts as soon as it may be believed.
    ASSERT_EQ(chmod(kMacClock, 0644), 0);
    EXPECT_EQ(monotonic(), 960U);
  });
}

void watchMonotonicClock(const std::atomic<bool>& done) {
  for (std::uint64_t last = 0; !done;) {
    const std::uint64_t time = ClockMonotonicNs();
    EXPECT_GE(time, last);
    last = time;
  }
}

TEST_F(ClockAhead, KeepsTheMonotonicClockGoingForwardWhileItChanges) {
  inAProcessOfItsOwn([] {
    std::atomic<bool> done = false;
    std::vector<std::thread> watchers;
    for (int i = 0; i < 3; ++i) watchers.emplace_back([&done] { watchMonotonicClock(done); });
    for (std::uint64_t i = 0; i < 200; ++i) writeSeconds(i % 2 == 0 ? i : 0);
    done = true;
    for (std::thread& watcher : watchers) watcher.join();
    EXPECT_LT(monotonic(), 200U);
  });
}

}  // namespace
}  // namespace platform
