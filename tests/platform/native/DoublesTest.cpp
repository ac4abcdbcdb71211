// That the doubles see what the tests rely on them to see.
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>
#include <gtest/gtest.h>
#include <xpc/xpc.h>

#include "tests/native/Doubles.h"

namespace {

CFStringRef newString() { return CFStringCreateWithBytes(nullptr, nullptr, 0, 0x08000100, 0); }

TEST(Doubles, NameWhatWasNotReleased) {
  const CFStringRef string = newString();
  CFRetain(kCFBooleanTrue);
  EXPECT_EQ(native::LiveObjects(), "1 x CFBoolean, 1 x CFString");
  CFRelease(kCFBooleanTrue);
  CFRelease(string);
  EXPECT_EQ(native::LiveObjects(), "");
}

TEST(DoublesDeathTest, EndTheTestAtAnOverRelease) {
  EXPECT_DEATH(
      {
        const CFStringRef string = newString();
        CFRelease(string);
        CFRelease(string);
      },
      "heap-use-after-free");
  EXPECT_DEATH(CFRelease(kCFBooleanTrue), "released once too often");
}

TEST(DoublesDeathTest, EndTheTestAtAUseAfterRelease) {
  EXPECT_DEATH(
      {
        const CFStringRef string = newString();
        CFRelease(string);
        (void)CFStringGetLength(string);
      },
      "heap-use-after-free");
}

TEST(DoublesDeathTest, EndTheTestWhereAMacWouldCrash) {
  EXPECT_DEATH(CFRelease(nullptr), "A Mac would crash here");
  EXPECT_DEATH((void)CFDataGetLength(reinterpret_cast<CFDataRef>(newString())),
               "a CFString was misused");
  EXPECT_DEATH(
      {
        const dispatch_queue_t queue = dispatch_queue_create("q", DISPATCH_QUEUE_SERIAL);
        dispatch_release(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue));
      },
      "never been activated");
  EXPECT_DEATH(xpc_release(xpc_connection_create_mach_service("s", nullptr, 0)),
               "released that was never activated");
}

TEST(Doubles, FailTheCallThatWasNamed) {
  native::Fail("CFStringCreateWithBytes", 2);
  const CFStringRef first = newString();
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(native::FailuresLeft(), std::vector<std::string>{"CFStringCreateWithBytes"});
  EXPECT_EQ(newString(), nullptr);
  EXPECT_TRUE(native::FailuresLeft().empty());
  CFRelease(first);
}

}  // namespace
