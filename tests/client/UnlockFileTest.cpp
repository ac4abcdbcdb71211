#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/client/ChannelTest.h"
#include "tests/client/KnownReplies.h"

namespace {

using testing::HasSubstr;

constexpr const char* kNotOurs = " is not the file that kioskctl keeps the unlock in; remove it.\n";
constexpr const char* kUnlockFirst = "kioskctl: Unlock first: kioskctl unlock\n";

std::string Content(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

class UnlockFile : public ChannelTest {
 protected:
  /// Expects that what lies at the file's place is neither believed nor replaced nor removed, and
  /// that the daemon hears nothing.
  void expectUntouched() {
    script({Replies(kUnlocked)});
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"time", "show"}, {"maintenance"}, {"unlock"}, {"unlock", "--forget"}}) {
      const ChildResult result = run(arguments, "abcd\n");
      EXPECT_EQ(result.status, 1);
      EXPECT_EQ(result.output, "");
      EXPECT_THAT(result.errors, HasSubstr(kNotOurs));
    }
    EXPECT_EQ(connections(), 0);
    struct stat about {};
    EXPECT_EQ(lstat(unlockFile().c_str(), &about), 0);
  }

  /// Expects that a file at the place counts as none and is gone then.
  void expectDropped(const std::string& content) {
    keepUnlock(content);
    EXPECT_EQ(run({"time", "show"}).errors, kUnlockFirst) << content;
    EXPECT_NE(access(unlockFile().c_str(), F_OK), 0) << content;
  }

  std::string beside(const std::string& name) const {
    return std::filesystem::path(unlockFile()).replace_filename(name);
  }
};

TEST_F(UnlockFile, IsForItsOwnerOnlyAndHoldsTheTokenAndItsEnd) {
  script({Replies(kUnlocked)});
  for (const std::string mask : {"0", "0777"}) {
    ChildSetup started = setup({"-c", "umask " + mask + "; exec " KIOSKCTL_PATH " unlock"});
    started.arguments[0] = "/bin/sh";
    started.input = "abcd\n";
    EXPECT_EQ(RunChild(started).status, 0);
    struct stat about {};
    ASSERT_EQ(lstat(unlockFile().c_str(), &about), 0);
    EXPECT_TRUE(S_ISREG(about.st_mode));
    EXPECT_EQ(about.st_mode & 07777, 0600U);
    EXPECT_EQ(about.st_uid, geteuid());
    EXPECT_THAT(Content(unlockFile()), HasSubstr("0123456789abcdef0123456789abcdef"));
    EXPECT_THAT(Content(unlockFile()), HasSubstr("endsAt"));
  }
}

TEST_F(UnlockFile, LeavesNothingElseBehind) {
  script({Replies(kUnlocked)});
  EXPECT_EQ(run({"unlock"}, "abcd\n").status, 0);
  int files = 0;
  const std::filesystem::path folder = std::filesystem::path(unlockFile()).parent_path();
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    files += entry.is_regular_file() ? 1 : 0;
  }
  EXPECT_EQ(files, 1);
}

TEST_F(UnlockFile, IsReplacedByTheNextUnlock) {
  script({Replies(kUnlocked), Replies(R"({"ok":true})")});
  keepUnlock();
  EXPECT_EQ(run({"unlock"}, "abcd\n").status, 0);
  EXPECT_EQ(run({"proxy", "none"}).status, 0);
  EXPECT_THAT(requests().at(1), HasSubstr("0123456789abcdef"));
}

TEST_F(UnlockFile, IsOfOneTerminalSessionAndLiesInTheTemporaryFolderWhereThereIsNoOther) {
  script({Replies(kUnlocked), Replies(R"({"ok":true,"lastSync":null})")});
  // The shell leads a session of its own, so that its process id is in the name.
  const std::string commands =
      "f=/tmp/kioskctl-$(id -u)-$$\n" KIOSKCTL_PATH " unlock && stat -c %a $f && " KIOSKCTL_PATH
      " time show && " KIOSKCTL_PATH " unlock --forget && test ! -e $f";
  for (const char* const folder : {"", "relative"}) {
    ChildSetup started = setup({"--wait", "/bin/sh", "-c", commands});
    started.arguments[0] = "/usr/bin/setsid";
    started.environment["XDG_RUNTIME_DIR"] = folder;
    started.input = "abcd\n";
    const ChildResult result = RunChild(started);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.output, HasSubstr(".\n600\n"));
    script({Replies(kUnlocked), Replies(R"({"ok":true,"lastSync":null})")});
  }
  EXPECT_EQ(run({"time", "show"}).errors, kUnlockFirst);
}

TEST_F(UnlockFile, IsNotALink) {
  std::ofstream(beside("target")) << R"({"endsAt":1e15,"unlockToken":"planted"})";
  ASSERT_EQ(chmod(beside("target").c_str(), 0600), 0);
  ASSERT_EQ(symlink(beside("target").c_str(), unlockFile().c_str()), 0);
  expectUntouched();
  EXPECT_THAT(Content(beside("target")), HasSubstr("planted"));
}

TEST_F(UnlockFile, IsNotADanglingLink) {
  ASSERT_EQ(symlink(beside("target").c_str(), unlockFile().c_str()), 0);
  expectUntouched();
  EXPECT_NE(access(beside("target").c_str(), F_OK), 0);
}

TEST_F(UnlockFile, HasNoSecondName) {
  keepUnlock();
  ASSERT_EQ(link(unlockFile().c_str(), beside("second").c_str()), 0);
  expectUntouched();
}

TEST_F(UnlockFile, IsNotAFolderOrAPipe) {
  ASSERT_EQ(mkdir(unlockFile().c_str(), 0700), 0);
  expectUntouched();
  ASSERT_EQ(rmdir(unlockFile().c_str()), 0);
  ASSERT_EQ(mkfifo(unlockFile().c_str(), 0600), 0);
  expectUntouched();
}

TEST_F(UnlockFile, IsNotAnotherUsers) {
  if (geteuid() != 0) GTEST_SKIP() << "Only root can give a file to somebody else.";
  keepUnlock();
  ASSERT_EQ(chown(unlockFile().c_str(), 1, 1), 0);
  expectUntouched();
}

TEST_F(UnlockFile, IsNotBelievedOnceOthersMayReadIt) {
  script({Replies(kUnlocked)});
  keepUnlock();
  for (const mode_t mode : {0640U, 0604U, 0602U, 0700U, 04600U}) {
    ASSERT_EQ(chmod(unlockFile().c_str(), mode), 0);
    const ChildResult result = run({"time", "show"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr(" has lost its mode 0600; unlock again.\n"));
  }
  EXPECT_EQ(connections(), 0);
  EXPECT_EQ(run({"unlock"}, "abcd\n").status, 0);
  EXPECT_EQ(run({"proxy", "none"}).status, 0);
}

TEST_F(UnlockFile, IsDroppedWhenItsTimeIsUp) {
  script({Replies(kUnlocked)});
  expectDropped(R"({"endsAt":0,"unlockToken":"secret"})");
  EXPECT_EQ(connections(), 0);
}

TEST_F(UnlockFile, IsDroppedWhenItMakesNoSense) {
  script({Replies(kUnlocked)});
  for (const std::string& content :
       {std::string(), std::string("{"), std::string("[]"), std::string("{}"),
        std::string(R"({"endsAt":1e15})"), std::string(R"({"unlockToken":"secret"})"),
        std::string(R"({"endsAt":1e15,"unlockToken":7})"),
        std::string(R"({"endsAt":"x","unlockToken":"secret"})"),
        R"({"endsAt":1e15,"unlockToken":"secret"})" + std::string(4096, ' ')}) {
    expectDropped(content);
  }
  EXPECT_EQ(connections(), 0);
}

TEST_F(UnlockFile, NeedsAFolder) {
  script({Replies(kUnlocked)});
  ChildSetup started = setup({"unlock"});
  started.environment["XDG_RUNTIME_DIR"] = beside("missing");
  started.input = "abcd\n";
  const ChildResult result = RunChild(started);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.errors, HasSubstr("kioskctl: The unlock cannot be kept: "));
  EXPECT_THAT(result.errors, HasSubstr(": No such file or directory.\n"));
  EXPECT_EQ(requests().size(), 1U);
}

}  // namespace
