#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "simulator/client/ErrorTexts.h"

namespace {

using testing::EndsWith;

TEST(ErrorText, ExplainsEveryCodeOfTheDaemon) {
  for (const std::string code : {"account_create_failed",
                                 "account_exists",
                                 "account_password_failed",
                                 "already_enrolled",
                                 "authorization_required",
                                 "autologin_failed",
                                 "autologin_in_use",
                                 "bad_request",
                                 "busy",
                                 "claimed",
                                 "expired",
                                 "failed",
                                 "filevault_on",
                                 "home_failed",
                                 "invalid",
                                 "invalid_code",
                                 "launch_agent_failed",
                                 "locked",
                                 "not_enrolled",
                                 "not_installed",
                                 "not_pending",
                                 "not_permitted",
                                 "not_provisioned",
                                 "not_unlocked",
                                 "pairing_failed",
                                 "revoked",
                                 "starting",
                                 "sync_failed",
                                 "unknown_adapter",
                                 "unknown_code",
                                 "unknown_command",
                                 "unreachable",
                                 "wake_unavailable",
                                 "wrong_password"}) {
    EXPECT_THAT(client::ErrorText(code), EndsWith(". (" + code + ")"));
  }
}

TEST(ErrorText, ShowsAnUnknownCodeAsItIsButForControlCharacters) {
  EXPECT_EQ(client::ErrorText("new_error"), "new_error");
  EXPECT_EQ(client::ErrorText("a\033b"), "a?b");
}

}  // namespace
