#include <filesystem>

#include "simulator/client/SessionReporter.h"
#include "tests/client/ChannelTest.h"

namespace {

using client::Json;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::SizeIs;

constexpr const char* kLive = R"({"cmd":"session.report","live":true,"signedIn":true})";
constexpr const char* kSignedIn = R"({"cmd":"session.report","live":false,"signedIn":true})";
constexpr const char* kIdle = R"({"cmd":"session.report","live":false,"signedIn":false})";
constexpr const char* kOk = R"({"ok":true})";

class SessionReporter : public ChannelTest {
 protected:
  std::string file() const { return _folder.path("session"); }
  void tell(const std::string& text) const { std::ofstream(file()) << text; }

  /// What the reporter has to say after so many seconds.
  Json after(int time) {
    return _reporter->step(std::chrono::steady_clock::time_point(seconds(time))).value_or(Json());
  }

  void start() {
    _connection.emplace(channel());
    _reporter.emplace(*_connection, file());
  }

  static Json line(const std::string& report, const std::string& outcome) {
    return {{"report", report}, {"outcome", outcome}};
  }

 private:
  TemporaryFolder _folder;
  std::optional<client::Connection> _connection;
  std::optional<client::SessionReporter> _reporter;
};

TEST_F(SessionReporter, ReportsAnIdleTerminalWhereNoFileTellsOtherwise) {
  script({Replies(kOk)});
  start();
  EXPECT_EQ(after(100), line("idle", "ok"));
  EXPECT_THAT(requests(), ElementsAre(kIdle));
}

TEST_F(SessionReporter, RepeatsAReportEveryHalfMinuteAndTellsOfItOnce) {
  script({Replies(kOk)});
  start();
  EXPECT_EQ(after(100), line("idle", "ok"));
  for (int time = 101; time < 130; ++time) EXPECT_TRUE(after(time).is_null());
  EXPECT_THAT(requests(), SizeIs(1));
  EXPECT_TRUE(after(130).is_null());
  EXPECT_TRUE(after(131).is_null());
  EXPECT_THAT(requests(), ElementsAre(kIdle, kIdle));
  EXPECT_TRUE(after(160).is_null());
  EXPECT_THAT(requests(), SizeIs(3));
  EXPECT_EQ(connections(), 1);
}

TEST_F(SessionReporter, ReportsAChangeAtOnce) {
  script({Replies(kOk)});
  start();
  tell("live\n");
  EXPECT_EQ(after(100), line("live", "ok"));
  tell("signed-in");
  EXPECT_EQ(after(101), line("signed-in", "ok"));
  tell("idle\n\n");
  EXPECT_EQ(after(102), line("idle", "ok"));
  tell("live\n");
  EXPECT_EQ(after(103), line("live", "ok"));
  std::filesystem::remove(file());
  EXPECT_EQ(after(104), line("idle", "ok"));
  EXPECT_THAT(requests(), ElementsAre(kLive, kSignedIn, kIdle, kLive, kIdle));
}

TEST_F(SessionReporter, IsNotMisledByAFileThatSaysNothing) {
  script({Replies(kOk)});
  start();
  tell("live");
  EXPECT_EQ(after(100), line("live", "ok"));
  for (const std::string& text : {std::string(), std::string("liv"), std::string("Idle"),
                                  std::string("idle "), "idle\n" + std::string(100, 'x')}) {
    tell(text);
    EXPECT_TRUE(after(101).is_null());
  }
  std::filesystem::remove(file());
  std::filesystem::create_symlink("/dev/null", file());
  EXPECT_TRUE(after(102).is_null());
  std::filesystem::remove(file());
  std::filesystem::create_directory(file());
  EXPECT_TRUE(after(103).is_null());
  std::filesystem::remove(file());
  ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
  EXPECT_TRUE(after(104).is_null());
  EXPECT_THAT(requests(), ElementsAre(kLive));
}

TEST_F(SessionReporter, TellsWhatTheDaemonSaysWhenThatChanges) {
  const std::string foreign = R"({"ok":false,"error":"not_permitted"})";
  script({Replies(foreign), Replies(foreign), Replies(kOk), Replies(R"({"ok":false})"),
          Replies("hello")});
  start();
  EXPECT_EQ(after(100), line("idle", "not_permitted"));
  EXPECT_TRUE(after(129).is_null());
  EXPECT_TRUE(after(130).is_null());
  EXPECT_EQ(after(160), line("idle", "ok"));
  EXPECT_EQ(after(190), line("idle", "refused"));
  EXPECT_EQ(after(220), line("idle", "no_answer"));
  EXPECT_THAT(requests(), SizeIs(5));
}

TEST_F(SessionReporter, TriesAgainSoonWhenNobodyAnswers) {
  start();
  EXPECT_EQ(after(100), line("idle", "no_answer"));
  EXPECT_TRUE(after(101).is_null());
  EXPECT_TRUE(after(102).is_null());
  script({Replies(kOk)});
  EXPECT_TRUE(after(103).is_null());
  EXPECT_EQ(after(104), line("idle", "ok"));
  EXPECT_THAT(requests(), ElementsAre(kIdle));
}

TEST_F(SessionReporter, ReportsAtOnceToADaemonThatWasStartedAnew) {
  script({Replies(kOk)});
  start();
  tell("live");
  EXPECT_EQ(after(100), line("live", "ok"));
  script({Replies(R"({"ok":false,"error":"starting"})")});
  EXPECT_EQ(after(101), line("live", "starting"));
  EXPECT_THAT(requests(), ElementsAre(kLive));
}

TEST_F(SessionReporter, GoesOnAfterADaemonThatClosesTheConnection) {
  script({Closes(), Replies(kOk)});
  start();
  EXPECT_EQ(after(100), line("idle", "no_answer"));
  EXPECT_EQ(after(102), line("idle", "ok"));
  EXPECT_EQ(connections(), 2);
}

}  // namespace
