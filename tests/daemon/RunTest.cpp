// Running the system's tools.
#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

#include "account/KioskRun.h"
#include "tests/daemon/MacTest.h"

namespace {

constexpr char kUntouched[] = "untouched";

class KioskRunTest : public MacTest {
 protected:
  KioskRunTest() { installProbe(); }

  /// The probe's output for these arguments; its status in `status`.
  std::string outputOf(const std::vector<std::string>& arguments) {
    std::string output = kUntouched;
    status = KioskRun(kProbe, arguments, &output);
    return output;
  }

  std::int32_t status = -2;
};

/// Leaves `free` descriptors to the process until the end of the scope.
class FewDescriptors {
 public:
  explicit FewDescriptors(int free) {
    getrlimit(RLIMIT_NOFILE, &_before);
    rlimit few = _before;
    few.rlim_cur = static_cast<rlim_t>(numberBefore(free));
    setrlimit(RLIMIT_NOFILE, &few);
  }
  ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &_before); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  // The first descriptor number with `free` unused ones below it.
  static int numberBefore(int free) {
    int number = 0;
    while (free > 0) {
      if (fcntl(number++, F_GETFD) < 0) --free;
    }
    return number;
  }

  rlimit _before = {};
};

}  // namespace

TEST_F(KioskRunTest, ReturnsTheStatusAndTheOutput) {
  EXPECT_EQ(outputOf({"tell", "hello", "0"}), "hello");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(outputOf({"tell", "goodbye", "3"}), "goodbye");
  EXPECT_EQ(status, 3);
  EXPECT_EQ(outputOf({"tell", "", "255"}), "");
  EXPECT_EQ(status, 255);
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskRunTest, GivesThePathAndTheArgumentsInOrder) {
  EXPECT_EQ(outputOf({"arguments", "a b", "", "-x", "\"q\"", "$HOME"}),
            "[/usr/local/probe]\n[a b]\n[]\n[-x]\n[\"q\"]\n[$HOME]");
}

TEST_F(KioskRunTest, KeepsBothStreamsInTheOrderOfWriting) {
  EXPECT_EQ(outputOf({"alternate"}), "one two three four");
}

TEST_F(KioskRunTest, SaysThatAMissingToolDidNotStart) {
  std::string output = kUntouched;
  EXPECT_EQ(KioskRun("/usr/local/bin/nothing", {"-a"}, &output), -1);
  EXPECT_EQ(output, kUntouched);
  EXPECT_EQ(mac.countErrors("nothing did not start: No such file or directory"), 1U);
  EXPECT_EQ(mac.log().size(), 1U);
}

TEST_F(KioskRunTest, SaysThatAFileThatIsNotExecutableDidNotStart) {
  mac.write("/usr/local/plain", "text", 0644);
  std::string output = kUntouched;
  EXPECT_EQ(KioskRun("/usr/local/plain", {}, &output), -1);
  EXPECT_EQ(output, kUntouched);
  EXPECT_EQ(mac.countErrors("plain did not start: Permission denied"), 1U);
}

TEST_F(KioskRunTest, SaysThatADirectoryDidNotStart) {
  std::string output = kUntouched;
  EXPECT_EQ(KioskRun("/usr/local", {}, &output), -1);
  EXPECT_EQ(output, kUntouched);
  EXPECT_EQ(mac.countErrors("local did not start: Permission denied"), 1U);
}

TEST_F(KioskRunTest, SaysThatAToolDidNotStartWithoutANullDevice) {
  mac.remove("/dev/null");
  EXPECT_EQ(outputOf({"tell", "hello"}), kUntouched);
  EXPECT_EQ(status, -1);
  EXPECT_EQ(mac.countErrors("probe did not start: No such file or directory"), 1U);
}

TEST_F(KioskRunTest, DoesNotSearchForATool) {
  std::string output = kUntouched;
  EXPECT_EQ(KioskRun("defaults", {"read"}, &output), -1);
  EXPECT_EQ(mac.countErrors("defaults did not start: No such file or directory"), 1U);
  EXPECT_TRUE(mac.journal().empty());
}

TEST_F(KioskRunTest, KeepsTheBeginningOfOutputThatDoesNotEnd) {
  constexpr std::size_t limit = std::size_t{128} << 20;
  const std::string kilobytes = std::to_string((limit >> 10) + 500);
  EXPECT_EQ(outputOf({"flood", kilobytes, "1"}).size(), limit - 1)
      << "the last line end is trimmed";
}

TEST_F(KioskRunTest, TakesSeveralMegabytesOfStandardError) {
  const std::string output = outputOf({"flood", "5000", "9"});
  EXPECT_EQ(status, 9);
  const std::string line = std::string(1023, 'x') + "\n";
  ASSERT_EQ(output.size(), 5000U * 1024 - 1) << "the last line end is trimmed";
  for (std::size_t at = 0; at < output.size(); at += 1024) {
    ASSERT_EQ(output.compare(at, 1023, line, 0, 1023), 0) << at;
  }
}

TEST_F(KioskRunTest, GivesAnEmptyStandardInput) {
  EXPECT_EQ(outputOf({"count-input"}), "0 bytes");
  EXPECT_EQ(status, 0);
}

TEST_F(KioskRunTest, TrimsWhiteSpaceAndLineEndsAtBothEndsOnly) {
  EXPECT_EQ(outputOf({"tell", "  yes\n"}), "yes");
  EXPECT_EQ(outputOf({"tell", "\r\n\t\v\f a \n b\t\n\r\n"}), "a \n b");
  EXPECT_EQ(outputOf({"tell", " \n\t "}), "");
}

TEST_F(KioskRunTest, TrimsUnicodeWhiteSpace) {
  EXPECT_EQ(outputOf({"tell", "\u00A0\u2003\u3000\u2028yes\u0085\u2029\u202F\u1680"}), "yes");
  EXPECT_EQ(outputOf({"tell", "\u200Bé\u200B"}), "\u200Bé\u200B") << "no space is not white space";
}

TEST_F(KioskRunTest, MakesNothingOfOutputThatIsNotUtf8) {
  EXPECT_EQ(outputOf({"tell", "good \xFF bad", "4"}), "");
  EXPECT_EQ(status, 4);
  EXPECT_EQ(outputOf({"tell", "cut off \xE2\x82"}), "");
  EXPECT_EQ(outputOf({"tell", "surrogate \xED\xA0\x80"}), "");
  EXPECT_EQ(outputOf({"tell", "h\u00E9llo \U0001F600"}), "h\u00E9llo \U0001F600");
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskRunTest, ReturnsTheNumberOfTheSignalThatEndedTheTool) {
  EXPECT_EQ(outputOf({"die", "9"}), "last words");
  EXPECT_EQ(status, SIGKILL);
  outputOf({"die", "15"});
  EXPECT_EQ(status, SIGTERM);
}

TEST_F(KioskRunTest, NeedsNoPlaceForTheOutput) {
  EXPECT_EQ(KioskRun(kProbe, {"flood", "200", "6"}), 6);
  EXPECT_EQ(KioskRun("/no/such/tool", {}), -1);
}

TEST_F(KioskRunTest, WaitsForTheEndOfAToolThatClosedItsOutput) {
  EXPECT_EQ(outputOf({"end-late", "7"}), "");
  EXPECT_EQ(status, 7);
}

TEST_F(KioskRunTest, HandsOnNoDescriptorButTheStandardOnes) {
  std::vector<int> open;
  for (int count = 0; count < 50; ++count) open.push_back(dup(STDERR_FILENO));
  open.push_back(dup2(STDERR_FILENO, 700));
  EXPECT_EQ(outputOf({"descriptors"}), "0 1 2");
  for (const int each : open) close(each);
}

TEST_F(KioskRunTest, WorksWhileTheParentsStandardInputIsClosed) {
  const int kept = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  EXPECT_EQ(outputOf({"descriptors"}), "0 1 2");
  EXPECT_EQ(outputOf({"count-input"}), "0 bytes");
  dup2(kept, STDIN_FILENO);
  close(kept);
}

TEST_F(KioskRunTest, StartsToolsWithoutBlockedOrIgnoredSignals) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  const auto handler = std::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(outputOf({"signals"}), "");
  EXPECT_EQ(status, 0);
  std::signal(SIGPIPE, handler);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(KioskRunTest, HandsOnEnvironmentAndWorkingDirectory) {
  setenv("KIOSK_RUN_TEST", "a value", 1);
  ASSERT_EQ(chdir("/Users/Shared"), 0);
  EXPECT_EQ(outputOf({"surroundings", "KIOSK_RUN_TEST"}), "a value /Users/Shared");
  unsetenv("KIOSK_RUN_TEST");
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_EQ(outputOf({"surroundings", "KIOSK_RUN_TEST"}), "(none) /");
}

TEST_F(KioskRunTest, IsNotDisturbedBySignals) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};  // without SA_RESTART
  struct sigaction before = {};
  sigaction(SIGALRM, &action, &before);
  const itimerval often = {{0, 500}, {0, 500}};
  const itimerval never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  EXPECT_EQ(outputOf({"flood", "3000", "5"}).size(), 3000U * 1024 - 1);
  EXPECT_EQ(status, 5);
  EXPECT_EQ(outputOf({"tell-late", "hello", "6"}), "hello");
  EXPECT_EQ(KioskRun(kProbe, {"end-late", "6"}), 6);
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
}

TEST_F(KioskRunTest, SaysThatAToolDidNotStartWithoutFreeDescriptorsAndRecovers) {
  {
    const FewDescriptors one(1);
    EXPECT_EQ(outputOf({"tell", "hello"}), kUntouched);
    EXPECT_EQ(status, -1);
  }
  EXPECT_EQ(mac.countErrors("probe did not start: Too many open files"), 1U);
  EXPECT_EQ(outputOf({"tell", "hello"}), "hello");
  EXPECT_EQ(status, 0);
}

TEST_F(KioskRunTest, LeavesNoDescriptorOpen) {
  const std::size_t before = OpenDescriptorCount();
  for (int run = 0; run < 5; ++run) {
    outputOf({"tell", "hello"});
    KioskRun("/no/such/tool", {});
    outputOf({"die", "9"});
  }
  {
    const FewDescriptors one(1);
    outputOf({"tell", "hello"});
  }
  EXPECT_EQ(OpenDescriptorCount(), before);
}

TEST_F(KioskRunTest, RunsManyToolsOfSeveralThreadsAtOnce) {
  constexpr int threadCount = 6;
  constexpr int runs = 15;
  const std::size_t before = OpenDescriptorCount();
  std::array<int, threadCount> right{};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([thread, &right] {
      for (int run = 0; run < runs; ++run) {
        const std::string text = std::to_string(thread) + " in run " + std::to_string(run);
        std::string output;
        const std::int32_t ended =
            KioskRun(kProbe, {"tell", text, std::to_string(thread)}, &output);
        if (ended == thread && output == text) ++right[static_cast<std::size_t>(thread)];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const int each : right) EXPECT_EQ(each, runs);
  EXPECT_EQ(OpenDescriptorCount(), before);
}

TEST_F(KioskRunTest, CheckedSaysNothingAboutSuccess) {
  EXPECT_TRUE(KioskRunChecked(kProbe, {"tell", "fine", "0"}));
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskRunTest, CheckedLogsToolFirstArgumentStatusAndOutput) {
  EXPECT_FALSE(KioskRunChecked(kProbe, {"tell", " no luck \n", "12"}));
  EXPECT_EQ(mac.countErrors("probe tell exited 12: no luck"), 1U);
  EXPECT_EQ(mac.log().size(), 1U);
}

TEST_F(KioskRunTest, CheckedLogsAnEmptyFirstArgumentWhenThereIsNone) {
  EXPECT_FALSE(KioskRunChecked(kProbe, {}));
  EXPECT_EQ(mac.countErrors("probe  exited 64: "), 1U);
}

TEST_F(KioskRunTest, CheckedLogsTheSignalThatEndedTheTool) {
  EXPECT_FALSE(KioskRunChecked(kProbe, {"die", "9"}));
  EXPECT_EQ(mac.countErrors("probe die exited 9: last words"), 1U);
}

TEST_F(KioskRunTest, CheckedLogsAToolThatDidNotStartTwice) {
  EXPECT_FALSE(KioskRunChecked("/no/such/tool", {"-a"}));
  EXPECT_EQ(mac.countErrors("tool did not start: No such file or directory"), 1U);
  EXPECT_EQ(mac.countErrors("tool -a exited -1: "), 1U);
  EXPECT_EQ(mac.log().size(), 2U);
}
