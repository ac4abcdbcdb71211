#include <gtest/gtest.h>

#include "core/KioskJson.h"

namespace {

TEST(Reply, IsSentAsCompactJson) {
  EXPECT_EQ(KioskReplyText({{"ok", true}, {"account", "kiosk"}}),
            R"({"account":"kiosk","ok":true})");
}

TEST(Reply, IsABareFailureWhenItHasNoText) {
  EXPECT_EQ(KioskReplyText({{"ok", true}, {"terminalName", "\xff"}}), R"({"ok":false})");
}

}  // namespace
