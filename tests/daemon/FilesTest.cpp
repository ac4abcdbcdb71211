// Reading files and writing them safely.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <set>
#include <thread>

#include "account/KioskFiles.h"
#include "tests/daemon/FileTrouble.h"
#include "tests/daemon/MacTest.h"

namespace {

namespace fs = std::filesystem;

constexpr char kFolder[] = "/Users/Shared/folder";
constexpr char kFile[] = "/Users/Shared/folder/file";

class KioskFilesTest : public MacTest {
 protected:
  KioskFilesTest() : temporary(".file.tmp." + std::to_string(getpid())) {
    fs::create_directory(kFolder);
    openBefore = OpenDescriptorCount();
  }
  ~KioskFilesTest() override { EXPECT_EQ(OpenDescriptorCount(), openBefore); }

  bool write(const std::string& data = "new") const {
    return KioskWriteFile(kFile, data, 0600, 0, 0);
  }

  /// The refusal of a path that has a link or something else in the way.
  void expectRefused(const std::string& path, const std::string& reason) const {
    const std::size_t lines = mac.log().size();
    EXPECT_FALSE(KioskOpenDirectory(path)) << path;
    ASSERT_EQ(mac.log().size(), lines + 1);
    EXPECT_EQ(mac.log().back(),
              (LogLine{"Error", "cannot open " + path + " without following a link: " + reason}));
  }

  /// One failed write of the file: what it logged, and that it left nothing behind.
  void expectNotWritten(const std::string& line, const std::vector<std::string>& left = {}) const {
    EXPECT_EQ(mac.countErrors(line), 1U) << line;
    EXPECT_EQ(mac.log().size(), 1U);
    EXPECT_EQ(mac.list(kFolder), left);
  }

  /// The folder's entries as the directory itself yields them.
  static std::vector<std::string> namesInOrder() {
    std::vector<std::string> names;
    DIR* stream = opendir(kFolder);
    while (const dirent* entry = readdir(stream)) names.emplace_back(entry->d_name);
    closedir(stream);
    std::erase_if(names, [](const std::string& name) { return name == "." || name == ".."; });
    return names;
  }

  const std::string temporary;
  std::size_t openBefore = 0;
};

/// A disk of 16 KiB is at the folder.
class SmallDiskTest : private OwnMounts, public KioskFilesTest {
 protected:
  void SetUp() override {
    if (!permitted) GTEST_SKIP() << "mounting is not permitted here";
    ASSERT_TRUE(disk.mountAt(kFolder));
  }

  SmallDisk disk;
};

}  // namespace

TEST_F(KioskFilesTest, OpensADirectoryForReadingAndClosesItWithTheHandle) {
  const KioskDescriptor directory = KioskOpenDirectory(kFolder);
  ASSERT_TRUE(directory);
  struct stat info = {};
  ASSERT_EQ(fstat(directory.get(), &info), 0);
  EXPECT_EQ(info.st_ino, mac.info(kFolder).st_ino);
  EXPECT_EQ(fcntl(directory.get(), F_GETFL) & O_ACCMODE, O_RDONLY);
  EXPECT_EQ(fcntl(directory.get(), F_GETFD), FD_CLOEXEC);
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskFilesTest, OpensTheRootAndPathsWithSuperfluousSlashes) {
  for (const char* path : {"/", "//Users///Shared/folder", "/Users/Shared/folder/"}) {
    EXPECT_TRUE(KioskOpenDirectory(path)) << path;
  }
}

TEST_F(KioskFilesTest, RefusesALinkAtEveryPlaceOfThePath) {
  const std::string path = "/Users/Shared/folder/a/b/c";
  for (const char* part : {"/a", "/a/b", "/a/b/c"}) {
    fs::create_directories(path);
    EXPECT_TRUE(KioskOpenDirectory(path));
    ReplaceByLink(mac, kFolder + std::string(part));
    expectRefused(path, "Not a directory");
    fs::remove_all(kFolder);
  }
}

TEST_F(KioskFilesTest, RefusesTheLinksAtTheRoot) {
  expectRefused("/etc/ssl", "Not a directory");
  expectRefused("/tmp", "Not a directory");
}

TEST_F(KioskFilesTest, RefusesAFileInTheWay) {
  mac.write(kFile, "");
  expectRefused(kFile, "Not a directory");
  expectRefused(kFile + std::string("/more"), "Not a directory");
}

TEST_F(KioskFilesTest, RefusesAMissingDirectory) {
  expectRefused("/Users/Shared/nothing", "No such file or directory");
  expectRefused("/nothing/at/all", "No such file or directory");
}

TEST_F(KioskFilesTest, WritesContentModeAndOwner) {
  const std::string data("a\0b\n", 4);
  EXPECT_TRUE(KioskWriteFile(kFile, data, 0644, kUser, kStaff));
  EXPECT_EQ(mac.read(kFile), data);
  EXPECT_EQ(mac.modeAndOwner(kFile), "0644 501:20");
  EXPECT_EQ(mac.list(kFolder), std::vector<std::string>{"file"});
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskFilesTest, WritesNothingAndMuch) {
  EXPECT_TRUE(write(""));
  EXPECT_EQ(mac.read(kFile), "");
  const std::string much(std::size_t{5} << 20, 'm');
  EXPECT_TRUE(write(much));
  EXPECT_EQ(mac.read(kFile), much);
}

TEST_F(KioskFilesTest, SetsTheModeWhateverTheMask) {
  const mode_t before = umask(0077);
  EXPECT_TRUE(KioskWriteFile(kFile, "", 0644, 0, 0));
  EXPECT_EQ(mac.modeAndOwner(kFile), "0644 0:0");
  umask(0);
  EXPECT_TRUE(KioskWriteFile(kFile, "", 0600, 0, 0));
  EXPECT_EQ(mac.modeAndOwner(kFile), "0600 0:0");
  umask(before);
}

TEST_F(KioskFilesTest, WritesIntoADirectoryThatIsOpen) {
  const KioskDescriptor directory = KioskOpenDirectory(kFolder);
  fs::rename(kFolder, "/Users/Shared/elsewhere");
  EXPECT_TRUE(KioskWriteAt(directory.get(), "file", "new", 0600, kUser, kStaff));
  EXPECT_EQ(mac.read("/Users/Shared/elsewhere/file"), "new");
  EXPECT_EQ(mac.modeAndOwner("/Users/Shared/elsewhere/file"), "0600 501:20");
}

TEST_F(KioskFilesTest, ReplacesTheFileInsteadOfWritingIntoIt) {
  mac.write(kFile, "old", 0666);
  fs::create_hard_link(kFile, "/Users/Shared/old");
  EXPECT_TRUE(write());
  EXPECT_EQ(mac.read(kFile), "new");
  EXPECT_EQ(mac.modeAndOwner(kFile), "0600 0:0");
  EXPECT_EQ(mac.read("/Users/Shared/old"), "old");
}

TEST_F(KioskFilesTest, ReplacesALinkInsteadOfFollowingIt) {
  mac.write("/Users/Shared/victim", "precious");
  fs::create_symlink("/Users/Shared/victim", kFile);
  EXPECT_TRUE(KioskWriteFile(kFile, "new", 0644, kUser, kStaff));
  EXPECT_TRUE(S_ISREG(mac.info(kFile).st_mode));
  EXPECT_EQ(mac.modeAndOwner(kFile), "0644 501:20");
  EXPECT_EQ(mac.read(kFile), "new");
  EXPECT_EQ(mac.read("/Users/Shared/victim"), "precious");
}

TEST_F(KioskFilesTest, ReplacesALinkToNowhere) {
  fs::create_symlink("/Users/Shared/nothing", kFile);
  EXPECT_TRUE(write());
  EXPECT_TRUE(S_ISREG(mac.info(kFile).st_mode));
  EXPECT_FALSE(mac.exists("/Users/Shared/nothing"));
}

TEST_F(KioskFilesTest, RemovesAStaleTemporaryFile) {
  mac.write(std::string(kFolder) + "/" + temporary, "a longer text of a crash", 0400);
  EXPECT_TRUE(write());
  EXPECT_EQ(mac.read(kFile), "new");
  EXPECT_EQ(mac.list(kFolder), std::vector<std::string>{"file"});
}

TEST_F(KioskFilesTest, RemovesALinkAtTheTemporaryName) {
  mac.write("/Users/Shared/victim", "precious");
  fs::create_symlink("/Users/Shared/victim", std::string(kFolder) + "/" + temporary);
  EXPECT_TRUE(write());
  EXPECT_EQ(mac.read(kFile), "new");
  EXPECT_EQ(mac.read("/Users/Shared/victim"), "precious");
  EXPECT_EQ(mac.list(kFolder), std::vector<std::string>{"file"});
}

TEST_F(KioskFilesTest, LeavesTemporaryFilesOfOtherProcessesAlone) {
  mac.write(std::string(kFolder) + "/.file.tmp.1", "theirs");
  EXPECT_TRUE(write());
  EXPECT_EQ(mac.list(kFolder), (std::vector<std::string>{".file.tmp.1", "file"}));
}

TEST_F(KioskFilesTest, SaysThatADirectoryIsAtTheTemporaryName) {
  mac.write(kFile, "old");
  fs::create_directory(std::string(kFolder) + "/" + temporary);
  EXPECT_FALSE(write());
  expectNotWritten("cannot create " + temporary + ": File exists", {temporary, "file"});
  EXPECT_EQ(mac.read(kFile), "old");
}

TEST_F(KioskFilesTest, SaysThatADirectoryIsAtTheFinalName) {
  fs::create_directory(kFile);
  EXPECT_FALSE(write());
  expectNotWritten("cannot write file: Is a directory", {"file"});
}

TEST_F(KioskFilesTest, SaysThatTheDirectoryIsGone) {
  const KioskDescriptor directory = KioskOpenDirectory(kFolder);
  fs::remove(kFolder);
  EXPECT_FALSE(KioskWriteAt(directory.get(), "file", "new", 0600, 0, 0));
  EXPECT_EQ(mac.countErrors("cannot create " + temporary + ": No such file or directory"), 1U);
}

TEST_F(KioskFilesTest, SaysThatTheNameIsTooLong) {
  const std::string name(250, 'n');
  EXPECT_FALSE(KioskWriteFile(kFolder + ("/" + name), "new", 0600, 0, 0));
  expectNotWritten("cannot create ." + name + ".tmp." + std::to_string(getpid()) +
                   ": File name too long");
}

TEST_F(KioskFilesTest, WritesNothingBelowALink) {
  ReplaceByLink(mac, kFolder);
  EXPECT_FALSE(write());
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Error",
                                              "cannot open /Users/Shared/folder without following "
                                              "a link: Not a directory"}}));
  EXPECT_TRUE(mac.list("/Users/Shared/folder-moved").empty());
}

TEST_F(KioskFilesTest, WritesNothingIntoAMissingDirectory) {
  fs::remove(kFolder);
  EXPECT_FALSE(write());
  EXPECT_EQ(mac.countErrors("cannot open /Users/Shared/folder without following a link: No such "
                            "file or directory"),
            1U);
  EXPECT_FALSE(mac.exists(kFolder));
}

TEST_F(KioskFilesTest, WritesAFileOfTheRootDirectory) {
  EXPECT_TRUE(KioskWriteFile("/file", "new", 0600, 0, 0));
  EXPECT_EQ(mac.read("/file"), "new");
}

TEST_F(KioskFilesTest, TreatsAShortWriteAsAFullDisk) {
  mac.write(kFile, "old");
  {
    const FileSizeLimit limit(4096);
    EXPECT_FALSE(write(std::string(5000, 'x')));
  }
  expectNotWritten("cannot write file: No space left on device", {"file"});
  EXPECT_EQ(mac.read(kFile), "old");
}

TEST_F(KioskFilesTest, SaysThatTheDirectoryIsNotItsOwn) {
  const AsUser user;
  EXPECT_FALSE(KioskWriteFile(kFile, "new", 0600, kUser, kStaff));
  expectNotWritten("cannot create " + temporary + ": Permission denied");
}

TEST_F(KioskFilesTest, RemovesTheTemporaryFileWhenTheOwnerCannotBeSet) {
  mac.write(kFile, "old");
  ASSERT_EQ(chown(kFolder, kUser, kStaff), 0);
  {
    const AsUser user;
    EXPECT_FALSE(write());
  }
  expectNotWritten("cannot write file: Operation not permitted", {"file"});
  EXPECT_EQ(mac.read(kFile), "old");
}

TEST_F(SmallDiskTest, SaysThatTheDiskIsFull) {
  mac.write(kFile, "old");
  mac.write(std::string(kFolder) + "/filling", std::string(16384, 'f'));
  EXPECT_FALSE(write(std::string(100, 'x')));
  expectNotWritten("cannot write file: No space left on device", {"file", "filling"});
  EXPECT_EQ(mac.read(kFile), "old");
}

TEST_F(SmallDiskTest, SaysThatTheDiskHasRoomForAPartOnly) {
  EXPECT_FALSE(write(std::string(20000, 'x')));
  expectNotWritten("cannot write file: No space left on device");
}

TEST_F(SmallDiskTest, SaysThatTheDiskCannotBeWritten) {
  mac.write(kFile, "old");
  ASSERT_TRUE(disk.makeReadOnly());
  EXPECT_FALSE(write());
  expectNotWritten("cannot create " + temporary + ": Read-only file system", {"file"});
  EXPECT_EQ(mac.read(kFile), "old");
}

TEST_F(KioskFilesTest, ShowsReadersTheOldOrTheNewContentWhole) {
  constexpr std::size_t size = 200'000;
  ASSERT_TRUE(write(std::string(size, 'a')));
  std::atomic<bool> done = false;
  std::size_t broken = 0;
  std::set<char> seen;
  std::thread reader([&] {
    do {
      const std::optional<std::string> content = KioskReadFile(kFile);
      const bool whole = content && content->size() == size &&
                         content->find_first_not_of(content->front()) == std::string::npos;
      if (whole) {
        seen.insert(content->front());
      } else {
        ++broken;
      }
    } while (!done);
  });
  for (int round = 0; round < 40; ++round) {
    EXPECT_TRUE(write(std::string(size, static_cast<char>('a' + round % 26))));
  }
  done = true;
  reader.join();
  EXPECT_EQ(broken, 0U);
  EXPECT_FALSE(seen.empty());
}

TEST_F(KioskFilesTest, ReadsAWholeFile) {
  std::string content(100'000, 'c');
  content[50] = '\0';
  mac.write(kFile, content);
  EXPECT_EQ(KioskReadFile(kFile), content);
  mac.write(kFile, "");
  EXPECT_EQ(KioskReadFile(kFile), "");
}

TEST_F(KioskFilesTest, ReadsNothingFromWhatIsNoFile) {
  EXPECT_EQ(KioskReadFile(kFile), std::nullopt);
  EXPECT_EQ(KioskReadFile(kFolder), std::nullopt);
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskFilesTest, ReadsAFileOfTheDirectoryUpToTheLimit) {
  const KioskDescriptor directory = KioskOpenDirectory(kFolder);
  const std::string content("a\0b\n", 4);
  mac.write(kFile, content);
  EXPECT_EQ(KioskReadAt(directory.get(), "file", 5), content);
  EXPECT_EQ(KioskReadAt(directory.get(), "file", 4), content);
  EXPECT_EQ(KioskReadAt(directory.get(), "file", 3), std::nullopt);
  EXPECT_EQ(KioskReadAt(directory.get(), "file", 0), std::nullopt);
  mac.write(kFile, "");
  EXPECT_EQ(KioskReadAt(directory.get(), "file", 0), "");
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskFilesTest, ReadsALargeFileOfTheDirectoryWhole) {
  const KioskDescriptor directory = KioskOpenDirectory(kFolder);
  const std::string content(100'000, 'c');
  mac.write(kFile, content);
  EXPECT_EQ(KioskReadAt(directory.get(), "file", content.size()), content);
  EXPECT_EQ(KioskReadAt(directory.get(), "file", content.size() - 1), std::nullopt);
}

TEST_F(KioskFilesTest, ReadsFromTheDirectoryThatIsOpenAndNotFromItsPath) {
  const KioskDescriptor directory = KioskOpenDirectory(kFolder);
  mac.write(kFile, "mine");
  fs::rename(kFolder, "/Users/Shared/elsewhere");
  mac.write(kFile, "another");
  EXPECT_EQ(KioskReadAt(directory.get(), "file", 100), "mine");
}

TEST_F(KioskFilesTest, ReadsNothingOfTheDirectoryButRegularFiles) {
  const KioskDescriptor directory = KioskOpenDirectory(kFolder);
  const auto read = [&](const char* name) { return KioskReadAt(directory.get(), name, 100); };
  mac.write("/Users/Shared/target", "content");
  fs::create_symlink("/Users/Shared/target", std::string(kFolder) + "/link");
  fs::create_directory(std::string(kFolder) + "/directory");
  ASSERT_EQ(mkfifo((std::string(kFolder) + "/pipe").c_str(), 0644), 0);
  for (const char* name : {"link", "directory", "pipe", "missing"}) {
    EXPECT_EQ(read(name), std::nullopt) << name;
  }
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskFilesTest, ListsTheEntriesOfADirectoryInItsOrder) {
  const std::vector<std::string> names{"...", ".hidden", "a\nb", "directory", "file", "link"};
  for (const char* name : {".hidden", "...", "a\nb", "file"}) {
    mac.write(kFolder + ("/" + std::string(name)), "");
  }
  fs::create_directory(std::string(kFolder) + "/directory");
  fs::create_symlink("/nothing", std::string(kFolder) + "/link");
  const KioskDescriptor directory = KioskOpenDirectory(kFolder);
  EXPECT_EQ(KioskListDir(directory.get()), namesInOrder());
  std::vector<std::string> sorted = KioskListDir(directory.get());
  std::ranges::sort(sorted);
  EXPECT_EQ(sorted, names);
}

TEST_F(KioskFilesTest, ListsADirectoryOfManyEntriesAndAnEmptyOne) {
  const KioskDescriptor directory = KioskOpenDirectory(kFolder);
  EXPECT_TRUE(KioskListDir(directory.get()).empty());
  for (int i = 0; i < 2000; ++i) mac.write(kFile + std::to_string(i), "");
  EXPECT_EQ(KioskListDir(directory.get()).size(), 2000U);
  EXPECT_EQ(KioskListDir(directory.get()), namesInOrder());
}

TEST_F(KioskFilesTest, LeavesTheDirectoryThatItListsOpenAndInItsPlace) {
  for (int i = 0; i < 50; ++i) mac.write(kFile + std::to_string(i), "");
  const KioskDescriptor directory = KioskOpenDirectory(kFolder);
  EXPECT_EQ(KioskListDir(directory.get()).size(), 50U);
  EXPECT_EQ(lseek(directory.get(), 0, SEEK_CUR), 0);
  EXPECT_EQ(KioskListDir(directory.get()).size(), 50U);
  EXPECT_TRUE(KioskWriteAt(directory.get(), "more", "", 0600, 0, 0));
  EXPECT_EQ(KioskListDir(directory.get()).size(), 51U);
}

TEST_F(KioskFilesTest, ListsNothingOfWhatCannotBeRead) {
  mac.write(kFile, "");
  const KioskDescriptor file(open(kFile, O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(KioskListDir(file.get()).empty());
  EXPECT_TRUE(KioskListDir(-1).empty());
  const KioskDescriptor gone = KioskOpenDirectory(kFolder);
  fs::remove_all(kFolder);
  EXPECT_TRUE(KioskListDir(gone.get()).empty());
  EXPECT_EQ(fcntl(gone.get(), F_GETFD), FD_CLOEXEC);
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskFilesTest, RemovesAFileOrALinkButNotItsTarget) {
  mac.write("/Users/Shared/victim", "precious");
  fs::create_symlink("/Users/Shared/victim", kFile);
  KioskRemoveFile(kFile);
  EXPECT_FALSE(mac.exists(kFile));
  EXPECT_EQ(mac.read("/Users/Shared/victim"), "precious");
  KioskRemoveFile("/Users/Shared/victim");
  EXPECT_FALSE(mac.exists("/Users/Shared/victim"));
}

TEST_F(KioskFilesTest, SaysNothingAboutRemovingWhatIsNotThere) {
  KioskRemoveFile(kFile);
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskFilesTest, SaysWhyAFileCannotBeRemoved) {
  KioskRemoveFile(kFolder);
  EXPECT_EQ(mac.countErrors("cannot remove /Users/Shared/folder: Is a directory"), 1U);
  EXPECT_EQ(mac.log().size(), 1U);
}
