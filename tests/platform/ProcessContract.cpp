// Process.h, Storage.h and Crypto.h.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <set>

#include "platform/Crypto.h"
#include "platform/Process.h"
#include "platform/Storage.h"
#include "tests/platform/World.h"

extern char** environ;  // no header of a Mac declares it (environ(7))

namespace platform {
namespace {

TEST(Process, LetsAChildInheritTheStandardStreamsOnly) {
  const int leaky = open("/dev/null", O_RDONLY);  // not close-on-exec, by intent
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  for (const int end : ends) ASSERT_EQ(fcntl(end, F_SETFD, FD_CLOEXEC), 0);
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_t actions;
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDERR_FILENO);
  ASSERT_EQ(ProcessInheritStandardStreamsOnly(&attributes, &actions), 0);
  std::string script = "for d in 0 1 2 3 4 5 6 7 8 9; do (: <&$d) 2>/dev/null && echo -n $d; done";
  char shell[] = "sh";
  char option[] = "-c";
  char* arguments[] = {shell, option, script.data(), nullptr};
  pid_t child = -1;
  ASSERT_EQ(posix_spawn(&child, "/bin/sh", &actions, &attributes, arguments, environ), 0);
  close(ends[1]);
  std::string output;
  for (char c = 0; read(ends[0], &c, 1) == 1;) output += c;
  EXPECT_EQ(output, "012");
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  close(ends[0]);
  close(leaky);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
}

class Storage : public contract::World {};

TEST_F(Storage, FlushesFilesAndFolders) {
  const int file = open((folder() + "/file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const int directory = open(folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  EXPECT_EQ(StorageFlush(file), 0);
  EXPECT_EQ(StorageFlush(directory), 0);
  close(file);
  close(directory);
  EXPECT_EQ(StorageFlush(-1), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(Crypto, GivesDifferentBytesEachTime) {
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    std::string bytes(16, '\0');
    ASSERT_TRUE(CryptoRandomBytes(bytes.data(), bytes.size()));
    seen.insert(bytes);
  }
  EXPECT_EQ(seen.size(), 100u);
  EXPECT_TRUE(CryptoRandomBytes(nullptr, 0));
}

std::string hex(const std::array<unsigned char, 32>& digest) {
  std::string text;
  for (const unsigned char byte : digest) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return text;
}

TEST(Crypto, DigestsAsPublished) {  // the examples of FIPS 180-2, appendix B, and the empty text
  EXPECT_EQ(hex(CryptoSha256("")),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(hex(CryptoSha256("abc")),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hex(CryptoSha256("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(hex(CryptoSha256(std::string(1'000'000, 'a'))),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Crypto, ComparesWholeTexts) {
  EXPECT_TRUE(CryptoEqual("", ""));
  EXPECT_TRUE(CryptoEqual(std::string_view("a\0b", 3), std::string_view("a\0b", 3)));
  EXPECT_FALSE(CryptoEqual(std::string_view("a\0b", 3), std::string_view("a\0c", 3)));
  EXPECT_FALSE(CryptoEqual("abc", "abd"));
  EXPECT_FALSE(CryptoEqual("abc", "xbc"));
  EXPECT_FALSE(CryptoEqual("abc", "ab"));
  EXPECT_FALSE(CryptoEqual("", "a"));
}

}  // namespace
}  // namespace platform
