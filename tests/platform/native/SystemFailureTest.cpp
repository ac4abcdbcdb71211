// Calendar.h, Crypto.h, Host.h, Process.h, Storage.h and Text.h where native calls fail.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/Calendar.h"
#include "platform/Crypto.h"
#include "platform/Host.h"
#include "platform/Process.h"
#include "platform/PropertyList.h"
#include "platform/Storage.h"
#include "platform/Text.h"
#include "tests/native/Doubles.h"
#include "tests/platform/World.h"

namespace platform {
namespace {

TEST(CalendarFailure, OfAnyCallGivesAValidTime) {
  for (const char* function : {"CFTimeZoneCopySystem", "CFCalendarCreateWithIdentifier",
                               "CFCalendarDecomposeAbsoluteTime"}) {
    native::Fail(function);
    const CivilTime time = CalendarCivilTime(1767225599);
    EXPECT_EQ(time.year, 1970) << function;
    EXPECT_EQ(time.month, 1) << function;
    EXPECT_EQ(time.day, 1) << function;
    EXPECT_EQ(time.weekday, 5) << function;
    EXPECT_EQ(native::LiveObjects(), "") << function;
  }
  EXPECT_EQ(CalendarCivilTime(1767225599).year, 2025);
}

TEST(CalendarFailure, OfTheNamesGivesNone) {
  native::Fail("CFTimeZoneCopyKnownNames");
  EXPECT_TRUE(CalendarKnownTimeZones().empty());
}

TEST(CryptoFailure, IsReported) {
  native::Fail("SecRandomCopyBytes");
  char byte = 0;
  EXPECT_FALSE(CryptoRandomBytes(&byte, 1));
  EXPECT_TRUE(CryptoRandomBytes(&byte, 1));
}

class HostFailure : public contract::World {
 protected:
  HostFailure() {
    std::string error;
    const Json information = {{"CFBundleExecutable", "Kiosk"}, {"CFBundleShortVersionString", "1"}};
    contract::WriteFile(folder() + "/Contents/Info.plist",
                        *PropertyListWrite(information, PropertyListFormat::kXml, error));
    contract::WriteFile(folder() + "/Contents/MacOS/Kiosk", "");
  }
};

TEST_F(HostFailure, OfTheBundleGivesNone) {
  for (const char* function : {"CFURLCreateFromFileSystemRepresentation", "CFBundleCreate"}) {
    native::Fail(function);
    EXPECT_FALSE(HostBundleAt(folder())) << function;
    EXPECT_EQ(native::LiveObjects(), "") << function;
  }
  EXPECT_FALSE(HostBundleAt(""));
}

TEST_F(HostFailure, OfAPartLeavesItOut) {
  for (const char* function : {"CFBundleCopyExecutableURL", "CFURLGetFileSystemRepresentation"}) {
    native::Fail(function);
    const std::optional<HostBundle> bundle = HostBundleAt(folder());
    ASSERT_TRUE(bundle) << function;
    EXPECT_EQ(bundle->executablePath, std::nullopt) << function;
    EXPECT_EQ(bundle->shortVersion, "1") << function;
  }
  native::Fail("CFBundleCopyInfoDictionaryForURL");
  const std::optional<HostBundle> bundle = HostBundleAt(folder());
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->executablePath, folder() + "/Contents/MacOS/Kiosk");
  EXPECT_EQ(bundle->shortVersion, std::nullopt);
}

TEST_F(HostFailure, OfTheSecondBundleObjectLeavesTheExecutableOut) {
  native::Fail("CFBundleCreate", 2);
  const std::optional<HostBundle> bundle = HostBundleAt(folder());
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->executablePath, std::nullopt);
}

TEST_F(HostFailure, OfTheComputersNameGivesNone) {
  setComputerName("Foyer");
  native::Fail("SCDynamicStoreCopyComputerName");
  EXPECT_EQ(HostComputerName(), std::nullopt);
}

TEST_F(HostFailure, OfTheExecutablesPathGivesNone) {
  native::Fail("_NSGetExecutablePath");
  EXPECT_EQ(HostExecutablePath(4096), std::nullopt);
}

TEST(ProcessFailure, IsReported) {
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  for (const char* function : {"posix_spawnattr_getflags", "posix_spawnattr_setflags"}) {
    native::Fail(function);
    EXPECT_EQ(ProcessInheritStandardStreamsOnly(&attributes, nullptr), EINVAL) << function;
  }
  posix_spawnattr_destroy(&attributes);
}

TEST(ProcessFlags, AreAddedToThoseThatAreSet) {
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  ASSERT_EQ(posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK), 0);
  EXPECT_EQ(ProcessInheritStandardStreamsOnly(&attributes, nullptr), 0);
  short flags = 0;
  ASSERT_EQ(posix_spawnattr_getflags(&attributes, &flags), 0);
  EXPECT_EQ(flags & POSIX_SPAWN_SETSIGMASK, POSIX_SPAWN_SETSIGMASK);
  posix_spawnattr_destroy(&attributes);
}

class StorageFailure : public contract::World {
 protected:
  StorageFailure() : _file(open((folder() + "/f").c_str(), O_WRONLY | O_CREAT, 0600)) {}
  ~StorageFailure() override { close(_file); }

  const int _file;
};

TEST_F(StorageFailure, IsReportedAndNotHiddenByALesserFlush) {
  native::Fail("F_FULLFSYNC");
  EXPECT_EQ(StorageFlush(_file), -1);
  EXPECT_EQ(errno, EIO);
}

TEST_F(StorageFailure, OfAFileSystemThatKnowsNoBetterFallsBack) {
  native::TheMac().hasFullFlush = false;
  EXPECT_EQ(StorageFlush(_file), 0);
  EXPECT_EQ(StorageFlush(-1), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(TextFailure, LeavesTheTextAsItIs) {
  for (const char* function : {"CFStringCreateWithCharacters", "CFStringCreateMutableCopy"}) {
    native::Fail(function);
    EXPECT_EQ(TextUpperCase("abc"), "abc") << function;
  }
  native::Fail("CFStringCreateWithCharacters");
  EXPECT_EQ(TextComposedCharacterStart(u"e\u0301", 1), 1u);
}

}  // namespace
}  // namespace platform
