#include <csignal>

#include "tests/client/ChannelTest.h"
#include "tests/client/KnownReplies.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class PasswordOnATerminal : public ChannelTest {
 protected:
  ChildSetup typing(const std::vector<std::string>& arguments) const {
    ChildSetup started = setup(arguments);
    started.typing = true;
    return started;
  }
};

TEST_F(PasswordOnATerminal, IsAskedForAndNotShown) {
  script({Replies(kUnlocked)});
  Child child(typing({"unlock"}));
  ASSERT_TRUE(child.says("Password: "));
  EXPECT_FALSE(child.echoes());
  child.type("abcd\n");
  const ChildResult result = child.wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "Password: ");
  EXPECT_EQ(result.echo, "\r\n");
  EXPECT_TRUE(child.echoes());
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"unlock","password":"abcd"})"));
}

TEST_F(PasswordOnATerminal, CanBeCorrectedWhileItIsTyped) {
  script({Replies(kUnlocked)});
  Child child(typing({"unlock"}));
  ASSERT_TRUE(child.says("Password: "));
  child.type("wrong\025abX\177cd\n");
  EXPECT_EQ(child.wait().status, 0);
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"unlock","password":"abcd"})"));
}

TEST_F(PasswordOnATerminal, MayBeLeftOut) {
  script({Replies(kUnlocked)});
  Child child(typing({"unlock"}));
  ASSERT_TRUE(child.says("Password: "));
  child.type("\004");
  const ChildResult result = child.wait();
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.errors, HasSubstr("kioskctl: No password was given.\n"));
  EXPECT_TRUE(child.echoes());
  EXPECT_EQ(connections(), 0);
}

TEST_F(PasswordOnATerminal, LeavesNothingOfALineThatIsTooLong) {
  script({Replies(kUnlocked)});
  Child child(typing({"unlock"}));
  ASSERT_TRUE(child.says("Password: "));
  child.type(std::string(1500, 'x') + "\n");
  const ChildResult result = child.wait();
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.echo, Not(HasSubstr("x")));
  EXPECT_TRUE(child.echoes());
}

TEST_F(PasswordOnATerminal, GivesTheEchoBackWhenASignalEndsTheProgram) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    script({Replies(kUnlocked)});
    Child child(typing({"unlock"}));
    ASSERT_TRUE(child.says("Password: "));
    child.signal(number);
    EXPECT_EQ(child.wait().status, -1) << number;
    EXPECT_TRUE(child.echoes()) << number;
  }
}

TEST_F(PasswordOnATerminal, IsAskedForAgainAfterAStop) {
  script({Replies(kUnlocked)});
  Child child(typing({"unlock"}));
  ASSERT_TRUE(child.says("Password: "));
  child.signal(SIGTSTP);
  ASSERT_TRUE(child.says("Password: \n"));
  child.signal(SIGCONT);
  ASSERT_TRUE(child.says("Password: \nPassword: "));
  EXPECT_FALSE(child.echoes());
  child.type("abcd\n");
  EXPECT_EQ(child.wait().status, 0);
  EXPECT_TRUE(child.echoes());
}

TEST_F(PasswordOnATerminal, IsAskedForByMaintenanceWithoutAnUnlock) {
  script({Replies(R"({"ok":true})")});
  Child child(typing({"maintenance"}));
  ASSERT_TRUE(child.says("Password: "));
  EXPECT_FALSE(child.echoes());
  child.type("abcd\n");
  EXPECT_EQ(child.wait().status, 0);
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"maintenance","password":"abcd"})"));
}

}  // namespace
