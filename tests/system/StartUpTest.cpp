// Starting the real kioskd: its version, and every refusal with its exact line.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "tests/system/SystemTest.h"

namespace {

constexpr char kBanner[] =
    "[BrindlexKioskHelper] BrindlexKioskHelper 2026.10.15 on com.brindlex.stream.kioskd\n";
constexpr char kNotRegistered[] =
    "[BrindlexKioskHelper] mach service com.brindlex.stream.kioskd is not registered with launchd; "
    "run only as the LaunchDaemon\n";
constexpr char kHelpers[] = "/Applications/Brindlex.app/Contents/Helpers";

class StartUpTest : public SystemTest {
 protected:
  void expectRefusal(const Finished& finished, const std::string& line) {
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.output, std::string(kBanner) + "[BrindlexKioskHelper] " + line + "\n");
    EXPECT_EQ(mac.countErrors(line), 1U);
    EXPECT_EQ(mac.countLog("BrindlexKioskHelper 2026.10.15 on com.brindlex.stream.kioskd"), 1U);
  }
  // Every check passed: what ends it is that it was started by hand.
  void expectAccepted(const Finished& finished) {
    EXPECT_EQ(finished.status, 1);
    EXPECT_NE(finished.output.find(kNotRegistered), std::string::npos) << finished.output;
    EXPECT_EQ(finished.output.find("refusing to run"), std::string::npos) << finished.output;
  }
  void own(const std::string& path, uid_t uid, gid_t gid) {
    ASSERT_EQ(chown(mac.at(path).c_str(), uid, gid), 0);
  }
  void setMode(const std::string& path, mode_t mode) {
    ASSERT_EQ(chmod(mac.at(path).c_str(), mode), 0);
  }
};

TEST_F(StartUpTest, PrintsItsVersionWhateverFollows) {
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{kHelper, "--version"}, {kHelper, "--version", "--help"}}) {
    const Finished finished = run(command);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.output, "2026.10.15\n");
  }
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(StartUpTest, RunsAsTheDaemonWhenVersionIsNotTheFirstArgument) {
  expectAccepted(run({kHelper, "--help", "--version"}));
  expectAccepted(run({kHelper, "--Version"}));
}

TEST_F(StartUpTest, EndsWhenItsServiceIsNotRegistered) {
  const Finished finished = run({kHelper});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.output.find(kBanner), 0U);
  EXPECT_NE(finished.output.find("[BrindlexKioskHelper] started: not enrolled\n"),
            std::string::npos);
  EXPECT_TRUE(finished.output.ends_with(kNotRegistered)) << finished.output;
  EXPECT_EQ(
      mac.countErrors("mach service com.brindlex.stream.kioskd is not registered with launchd; "
                      "run only as the LaunchDaemon"),
      1U);
}

TEST_F(StartUpTest, RefusesAUserWhoIsNotRoot) {
  expectRefusal(run({kHelper}, "admin"), "must run as root, from the LaunchDaemon");
}

TEST_F(StartUpTest, RefusesAPathThatIsTooLong) {
  std::string longPath = "/Applications";
  while (longPath.size() < 1024) longPath += "/.";
  expectRefusal(run({longPath + "/Brindlex.app/Contents/Helpers/kioskd"}),
                "refusing to run: the helper's own path is not absolute");
}

TEST_F(StartUpTest, AcceptsAPathOfRedundantParts) {
  expectAccepted(run({"//Applications/.//Brindlex.app/Contents/MacOS/../Helpers/kioskd"}));
}

TEST_F(StartUpTest, RefusesAPathThatCannotBeExamined) {
  // The kernel goes through the link, the standardised path does not.
  mac.remove("/private/tmp/elsewhere");
  std::filesystem::create_directories(mac.at("/private/tmp/elsewhere/inner"));
  std::filesystem::copy(mac.at("/Applications/Brindlex.app"),
                        mac.at("/private/tmp/elsewhere/B.app"),
                        std::filesystem::copy_options::recursive);
  std::filesystem::create_symlink("/private/tmp/elsewhere/inner", mac.at("/Applications/way"));
  expectRefusal(run({"/Applications/way/../B.app/Contents/Helpers/kioskd"}),
                "refusing to run: cannot stat /Applications/B.app: No such file or directory");
}

TEST_F(StartUpTest, RefusesALinkAnywhereOnThePath) {
  std::filesystem::create_symlink("Brindlex.app", mac.at("/Applications/Link.app"));
  expectRefusal(run({"/Applications/Link.app/Contents/Helpers/kioskd"}),
                "refusing to run: /Applications/Link.app is a symbolic link");
}

TEST_F(StartUpTest, RefusesAnExecutableThatIsALink) {
  std::filesystem::create_symlink("kioskd", mac.at(std::string(kHelpers) + "/other"));
  expectRefusal(run({std::string(kHelpers) + "/other"}),
                "refusing to run: " + std::string(kHelpers) + "/other is a symbolic link");
}

TEST_F(StartUpTest, RefusesAnEntryOfAnotherOwner) {
  own(kHelpers, 501, 20);
  expectRefusal(run({kHelper}),
                "refusing to run: " + std::string(kHelpers) + " is owned by uid 501, not root");
}

TEST_F(StartUpTest, RefusesAWorldWritableEntry) {
  setMode("/Applications", 0757);
  expectRefusal(run({kHelper}), "refusing to run: /Applications is world-writable");
}

TEST_F(StartUpTest, RefusesAWorldWritableRoot) {
  setMode("/", 0757);
  expectRefusal(run({kHelper}), "refusing to run: / is world-writable");
}

TEST_F(StartUpTest, RefusesAnEntryThatAnOrdinaryGroupMayWrite) {
  own("/Applications", 0, 20);
  setMode("/Applications", 0775);
  expectRefusal(run({kHelper}), "refusing to run: /Applications is writable by group 20");
}

TEST_F(StartUpTest, AcceptsAnEntryThatAdministratorsMayWrite) {
  own("/Applications", 0, 80);
  setMode("/Applications", 0775);
  expectAccepted(run({kHelper}));
}

TEST_F(StartUpTest, IsRestartedByLaunchdAfterItWasKilled) {
  boot();
  const pid_t first = daemonPid();
  killDaemon();
  EXPECT_TRUE(Eventually([&] {
    return daemonPid() != first && ask({{"cmd", "status"}})["ok"] == true;
  }));
}

}  // namespace
