// The installer's and the uninstaller's scripts, inside a simulated Mac into which the shell and
// its tools were copied. What the simulated Mac does not have are scripts of the test.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "tests/support/Child.h"
#include "tests/support/MacFolder.h"

namespace {

namespace fs = std::filesystem;

constexpr char kAgent[] = "/Library/LaunchAgents/com.brindlex.stream.kiosk.plist";
constexpr char kDaemon[] = "/Library/LaunchDaemons/com.brindlex.stream.kioskd.plist";
constexpr char kState[] = "/Library/Application Support/Brindlex/Kiosk/state.json";
constexpr char kApplication[] = "/Applications/Brindlex.app";
constexpr char kPasswordFile[] = "/private/etc/kcpassword";

class Packaging : public testing::Test {
 protected:
  Packaging() {
    for (const char* program : {"/bin/sh", "/bin/ls", "/bin/rm", "/bin/grep", "/bin/sed",
                                "/bin/chown", "/bin/chmod", "/bin/sleep", "/usr/bin/id"}) {
      bring(program);
    }
    tool("/usr/bin/sw_vers", "echo 13.6");
    tool("/usr/sbin/pkgutil", "echo \"$@\" >>/pkgutil.log");
    for (const char* script : {"preinstall", "postinstall", "uninstall"}) {
      fs::copy_file(fs::path(KIOSKD_INSTALLER) / script, mac.at("/" + std::string(script)));
    }
  }

  /// Copies a program and the libraries that it needs.
  void bring(const std::string& program) {
    copy(program);
    std::istringstream lines(RunToEnd({"/usr/bin/ldd", program}).output);
    for (std::string line; std::getline(lines, line);) {
      const std::size_t start = line.find('/');
      if (start != std::string::npos) copy(line.substr(start, line.find(' ', start) - start));
    }
  }

  void copy(const std::string& path) {
    if (mac.exists(path)) return;
    fs::create_directories(fs::path(mac.at(path)).parent_path());
    fs::copy_file(fs::canonical(path), mac.at(path));
  }

  void tool(const std::string& path, const std::string& script) {
    mac.write(path, "#!/bin/sh\n" + script + "\n", 0755);
  }

  Finished run(const std::vector<std::string>& command) const {
    std::vector<std::string> whole = {"/usr/bin/env", "PATH=/usr/bin:/bin:/usr/sbin:/sbin",
                                      "/usr/sbin/chroot", mac.root(), "/bin/sh"};
    whole.insert(whole.end(), command.begin(), command.end());
    return RunToEnd(whole);
  }

  Finished preinstall() const { return run({"/preinstall", "/Brindlex.pkg", "/", "/"}); }

  void expectRefused(const std::string& reason) const {
    const Finished finished = preinstall();
    EXPECT_NE(finished.status, 0);
    EXPECT_NE(finished.output.find("Brindlex cannot be installed: " + reason), std::string::npos)
        << finished.output;
  }

  /// What the daemon leaves behind on an enrolled terminal.
  void enrol() {
    mac.write(kState, R"({"generatedUID":"U","password":"p","token":"t"})", 0600);
    mac.write(kAgent, "");
    mac.write(kPasswordFile, "");
    ASSERT_EQ(run({"-c",
                   "defaults write /Library/Preferences/com.apple.loginwindow "
                   "autoLoginUser BrindlexKiosk"})
                  .status,
              0);
  }

  std::string autoLoginUser() const {
    return run({"-c", "defaults read /Library/Preferences/com.apple.loginwindow autoLoginUser"})
        .output;
  }

  MacFolder mac;
};

TEST_F(Packaging, InstallsOnAMacThatTheDaemonWouldAccept) {
  const Finished finished = preinstall();
  EXPECT_EQ(finished.status, 0) << finished.output;
  EXPECT_EQ(finished.output, "");
}

TEST_F(Packaging, TakesFoldersThatAdministratorsMayWrite) {
  ASSERT_EQ(chown(mac.at("/Applications").c_str(), 0, 80), 0);
  ASSERT_EQ(chmod(mac.at("/Applications").c_str(), 0775), 0);
  EXPECT_EQ(preinstall().status, 0);
}

TEST_F(Packaging, RefusesAnOldSystem) {
  tool("/usr/bin/sw_vers", "echo 12.7.1");
  expectRefused("it needs macOS 13 or later, and this is 12.7.1.");
}

TEST_F(Packaging, RefusesAnotherVolume) {
  const Finished finished = run({"/preinstall", "/Brindlex.pkg", "/", "/Volumes/Other"});
  EXPECT_NE(finished.status, 0);
  EXPECT_NE(finished.output.find("not on /Volumes/Other"), std::string::npos);
}

TEST_F(Packaging, RefusesPlacesThatTheDaemonWouldRefuse) {
  const std::string applications = mac.at("/Applications");
  ASSERT_EQ(chmod(applications.c_str(), 0757), 0);
  expectRefused("everybody may write to /Applications.");
  ASSERT_EQ(chmod(applications.c_str(), 0775), 0);
  ASSERT_EQ(chown(applications.c_str(), 0, 20), 0);
  expectRefused("group 20 may write to /Applications.");
  ASSERT_EQ(chmod(applications.c_str(), 0755), 0);
  ASSERT_EQ(chown(applications.c_str(), 501, 0), 0);
  expectRefused("/Applications is owned by uid 501, not root.");
  ASSERT_EQ(chown(applications.c_str(), 0, 0), 0);
  mac.remove(kApplication);
  fs::create_symlink("/private/tmp", mac.at(kApplication));
  expectRefused("/Applications/Brindlex.app is a symbolic link.");
}

TEST_F(Packaging, StartsTheDaemonAndTightensTheFiles) {
  // The daemon ends a moment after it was told to; the next start is refused once more.
  tool("/bin/launchctl",
       "echo \"$@\" >>/launchctl.log\n"
       "case $1 in\n"
       "print) [ ! -e /ending ] || exit 113; echo >/ending ;;\n"
       "bootstrap) [ -e /refused ] || { echo >/refused; exit 5; } ;;\n"
       "esac");
  ASSERT_EQ(chmod(mac.at(kApplication).c_str(), 0777), 0);
  ASSERT_EQ(chmod(mac.at(kDaemon).c_str(), 0666), 0);
  const Finished finished = run({"/postinstall", "/Brindlex.pkg", "/", "/"});
  EXPECT_EQ(finished.status, 0) << finished.output;
  EXPECT_EQ(mac.read("/launchctl.log"),
            "bootout system/com.brindlex.stream.kioskd\n"
            "print system/com.brindlex.stream.kioskd\n"
            "print system/com.brindlex.stream.kioskd\n"
            "bootstrap system /Library/LaunchDaemons/com.brindlex.stream.kioskd.plist\n"
            "bootstrap system /Library/LaunchDaemons/com.brindlex.stream.kioskd.plist\n");
  EXPECT_EQ(mac.modeAndOwner(kDaemon), "0644 0:0");
  EXPECT_EQ(mac.modeAndOwner(kApplication), "0755 0:0");
}

TEST_F(Packaging, DoesNotUninstallAnEnrolledTerminal) {
  enrol();
  const Finished finished = run({"/uninstall"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_NE(finished.output.find("This terminal is enrolled."), std::string::npos);
  for (const char* path : {kState, kAgent, kDaemon, kApplication, kPasswordFile}) {
    EXPECT_TRUE(mac.exists(path)) << path;
  }
  EXPECT_EQ(autoLoginUser(), "BrindlexKiosk\n");
}

TEST_F(Packaging, UninstallsARevokedTerminal) {
  mac.write(kState, R"({"authBaseUrl":"https://portal.example"})", 0600);
  const Finished finished = run({"/uninstall"});
  EXPECT_EQ(finished.status, 0) << finished.output;
  for (const char* path : {"/Library/Application Support/Brindlex", kDaemon, kApplication}) {
    EXPECT_FALSE(mac.exists(path)) << path;
  }
  EXPECT_EQ(finished.output.find("The account"), std::string::npos);
  EXPECT_EQ(mac.read("/pkgutil.log"), "--forget com.brindlex.stream.kioskd\n");
}

TEST_F(Packaging, DoesNotUninstallWhereTheAccountCouldNotBeDeleted) {
  mac.write(kState, R"({"generatedUID":"U","password":"p"})", 0600);
  const Finished finished = run({"/uninstall"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_NE(finished.output.find("could not be deleted"), std::string::npos);
  EXPECT_TRUE(mac.exists(kState));
}

TEST_F(Packaging, PutsThePowerSettingsBackByForce) {
  ASSERT_EQ(run({"-c", "pmset -a displaysleep 5 sleep 5"}).status, 0);
  mac.write(kState,
            R"({"powerBefore":{"displaysleep":42,"sleep":0},"powerRepeatArmed":true,"token":"t"})",
            0600);
  const Finished finished = run({"/uninstall", "--force"});
  EXPECT_EQ(finished.status, 0) << finished.output;
  const Json power = mac.readJson("/private/var/simulated/power.json");
  EXPECT_EQ(power["settings"]["displaysleep"], 42);
  EXPECT_EQ(power["settings"]["sleep"], 0);
  EXPECT_EQ(mac.countRuns("/usr/bin/pmset", {"repeat", "cancel"}), 1U);
}

TEST_F(Packaging, UninstallsAnEnrolledTerminalByForceAndNamesWhatStays) {
  enrol();
  const Finished finished = run({"/uninstall", "--force"});
  EXPECT_EQ(finished.status, 0) << finished.output;
  for (const char* path : {kState, kAgent, kDaemon, kApplication, kPasswordFile}) {
    EXPECT_FALSE(mac.exists(path)) << path;
  }
  EXPECT_NE(autoLoginUser(), "BrindlexKiosk\n");
  EXPECT_NE(finished.output.find("The account BrindlexKiosk stays."), std::string::npos);
}

TEST_F(Packaging, LeavesTheAutomaticLoginOfAnotherAccount) {
  ASSERT_EQ(
      run({"-c", "defaults write /Library/Preferences/com.apple.loginwindow autoLoginUser me"})
          .status,
      0);
  mac.write(kPasswordFile, "theirs");
  EXPECT_EQ(run({"/uninstall"}).status, 0);
  EXPECT_EQ(autoLoginUser(), "me\n");
  EXPECT_EQ(mac.read(kPasswordFile), "theirs");
}

TEST_F(Packaging, ExplainsHowToUninstall) {
  const Finished finished = run({"/uninstall", "--help"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_NE(finished.output.find("usage: sudo uninstall [--force]"), std::string::npos);
  EXPECT_TRUE(mac.exists(kDaemon));
}

}  // namespace
