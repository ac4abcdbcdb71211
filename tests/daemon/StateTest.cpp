// The state file, its directory, and the status that is published from it.
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <ostream>
#include <string>

#include "tests/daemon/DaemonTest.h"

namespace {

constexpr char kVendorDir[] = "/Library/Application Support/Brindlex";
constexpr char kElsewhere[] = "/private/tmp/elsewhere";
const std::string kIsNoDirectory = std::string(kStateDir) + " is not a directory";
const std::string kIsUnreadable = std::string(kStateFile) + " is unreadable; starting unenrolled";

class State : public DaemonTest {
 protected:
  // Ending a maintenance is a change of the state that every start can be made to make.
  void startAndSave(Json state) {
    state["maintenance"] = true;
    startDaemon(state);
  }
};

TEST_F(State, StartsUnenrolledWithoutAFileAndSaysNothingAboutIt) {
  restartDaemon();
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Default", "started: not enrolled"}}));
  EXPECT_EQ(status()["enrolled"], Json(0));
  EXPECT_FALSE(mac.exists(kStateFile));
}

TEST_F(State, TakesAFileThatCannotBeReadForNone) {
  mkdir(kVendorDir, 0755);
  mkdir(kStateDir, 0711);
  mkdir(kStateFile, 0700);
  restartDaemon();
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Default", "started: not enrolled"}}));
}

TEST_F(State, TakesAFileThatIsNoRegularOneForNone) {
  mac.writeState(Json::object());
  for (const mode_t type : {mode_t{S_IFIFO}, mode_t{S_IFCHR}}) {
    ASSERT_EQ(unlink(kStateFile), 0);
    ASSERT_EQ(mknod(kStateFile, type | S_IRUSR, makedev(1, 5)), 0) << "/dev/zero never ends";
    const std::size_t lines = mac.log().size();
    restartDaemon();
    ASSERT_EQ(mac.log().size(), lines + 1);
    EXPECT_EQ(mac.log().back().text, "started: not enrolled");
  }
}

TEST_F(State, ReadsNoFileThatIsTooLong) {
  mac.writeState({{"provisioned", true}});
  ASSERT_EQ(truncate(kStateFile, (off_t{64} << 20) + 1), 0);
  restartDaemon();
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Default", "started: not enrolled"}}));
}

TEST_F(State, MakesItsDirectoriesWhateverTheProcesssMask) {
  const mode_t before = umask(077);
  restartDaemon();
  umask(before);
  EXPECT_EQ(mac.modeAndOwner(kVendorDir), "0755 0:0");
  EXPECT_EQ(mac.modeAndOwner(kStateDir), "0711 0:0");
}

TEST_F(State, MakesItsDirectories) {
  restartDaemon();
  EXPECT_EQ(mac.modeAndOwner(kVendorDir), "0755 0:0");
  EXPECT_EQ(mac.modeAndOwner(kStateDir), "0711 0:0");
}

TEST_F(State, RepairsTheDirectorysModeAndOwner) {
  mac.writeState(Json::object());
  ASSERT_EQ(chown(kStateDir, 501, 20), 0);
  ASSERT_EQ(chmod(kStateDir, 0755), 0);
  restartDaemon();
  EXPECT_EQ(mac.modeAndOwner(kStateDir), "0711 0:0");
}

TEST_F(State, RepairsTheDirectorysOwnerAlone) {
  mac.writeState(Json::object());
  ASSERT_EQ(chmod(kStateDir, 0711), 0);
  ASSERT_EQ(chown(kStateDir, 501, 0), 0);
  restartDaemon();
  EXPECT_EQ(mac.modeAndOwner(kStateDir), "0711 0:0");
}

TEST_F(State, RepairsTheDirectorysGroupAlone) {
  mac.writeState(Json::object());
  ASSERT_EQ(chmod(kStateDir, 0711), 0);
  ASSERT_EQ(chown(kStateDir, 0, 20), 0);
  restartDaemon();
  EXPECT_EQ(mac.modeAndOwner(kStateDir), "0711 0:0");
}

TEST_F(State, RepairsTheDirectorysSpecialBits) {
  mac.writeState(Json::object());
  ASSERT_EQ(chmod(kStateDir, 03711), 0);
  restartDaemon();
  EXPECT_EQ(mac.modeAndOwner(kStateDir), "0711 0:0");
}

TEST_F(State, SaysNothingAboutADirectoryThatItRepaired) {
  mac.writeState(Json::object());
  ASSERT_EQ(chmod(kStateDir, 0777), 0);
  restartDaemon();
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Default", "started: not enrolled"}}));
}

TEST_F(State, SaysSoWhenALinkIsInTheDirectorysPlace) {
  mac.write(std::string(kElsewhere) + "/state.json", R"({"maintenance": true})");
  ASSERT_EQ(chmod(kElsewhere, 0755), 0);
  ASSERT_EQ(chown(kElsewhere, 501, 20), 0);
  mkdir(kVendorDir, 0755);
  ASSERT_EQ(symlink(kElsewhere, kStateDir), 0);
  restartDaemon();
  EXPECT_EQ(mac.countErrors(kIsNoDirectory), 1U);
  EXPECT_EQ(mac.countErrors("cannot open " + std::string(kStateDir) +
                            " without following a link: Not a directory"),
            1U);
  EXPECT_EQ(mac.modeAndOwner(kElsewhere), "0755 501:20");
  EXPECT_EQ(mac.modeAndOwner(kStateDir), "0777 0:0");  // still the link
  EXPECT_EQ(mac.readJson(std::string(kElsewhere) + "/state.json"), (Json{{"maintenance", true}}));
  EXPECT_EQ(status()["maintenance"], false);
  EXPECT_EQ(mac.countLog("started: not enrolled"), 1U);
}

TEST_F(State, SaysSoWhenAFileIsInTheDirectorysPlace) {
  mac.write(kStateDir, "a file", 0600);
  restartDaemon();
  EXPECT_EQ(mac.countErrors(kIsNoDirectory), 1U);
  EXPECT_EQ(mac.read(kStateDir), "a file");
  EXPECT_EQ(mac.modeAndOwner(kStateDir), "0600 0:0");
  EXPECT_EQ(mac.countLog("started: not enrolled"), 1U);
  EXPECT_EQ(status()["ok"], true);
}

TEST_F(State, SaysSoWhenTheDirectoryCannotBeMade) {
  mac.remove("/Library/Application Support");
  restartDaemon();
  EXPECT_EQ(mac.countErrors(kIsNoDirectory), 1U);
  EXPECT_EQ(status()["ok"], true);
}

struct BadFile {
  const char* name;
  std::string content;
};

void PrintTo(const BadFile& file, std::ostream* out) { *out << file.name; }

class UnreadableState : public DaemonTest, public testing::WithParamInterface<BadFile> {};

TEST_P(UnreadableState, StartsUnenrolledAndSaysSoOnce) {
  mac.write(kStateFile, GetParam().content, 0600);
  restartDaemon();
  EXPECT_EQ(mac.countErrors(kIsUnreadable), 1U);
  EXPECT_EQ(mac.countLog("started: not enrolled"), 1U);
  EXPECT_EQ(status()["enrolled"], Json(0));
  EXPECT_EQ(virtual_time::PendingCount(), 0U);
}

TEST_P(UnreadableState, StaysInPlaceUntilTheNextSave) {
  mac.write(kStateFile, GetParam().content, 0600);
  restartDaemon();
  EXPECT_EQ(mac.read(kStateFile), GetParam().content);
  daemon->queue().sync([this] { daemon->provision(); });
  EXPECT_EQ(mac.state()["provisioned"], true);
}

const std::string kDeep =
    R"({"token": "t", "x": )" + std::string(100'000, '[') + std::string(100'000, ']') + "}";

INSTANTIATE_TEST_SUITE_P(
    Files, UnreadableState,
    testing::Values(
        BadFile{"Array", R"([{"token": "t"}])"}, BadFile{"Number", "5"}, BadFile{"Null", "null"},
        BadFile{"Text", R"("token")"}, BadFile{"Empty", ""}, BadFile{"Blank", " \n"},
        BadFile{"Garbage",
                "\x7f"
                "ELF\x01"},
        BadFile{"Truncated", R"({"token": "t")"}, BadFile{"Continued", R"({"token": "t"} {})"},
        BadFile{"NotUtf8", "{\"token\": \"\xff\"}"},
        BadFile{"TooLargeANumber", R"({"token": "t", "x": 1e999})"}, BadFile{"TooDeep", kDeep}),
    [](const auto& file) { return std::string(file.param.name); });

TEST_F(State, TakesAnObjectOfTheDeepestNestingThatItKnows) {
  mac.write(kStateFile, R"({"terminalName": "Lobby", "x": )" + std::string(511, '[') +
                            std::string(511, ']') + "}");
  restartDaemon();
  EXPECT_EQ(status()["terminalName"], "Lobby");
}

TEST_F(State, TakesATokenThatIsNoTextOrEmptyForNone) {
  for (const Json& token :
       {Json(""), Json(5), Json(true), Json(), Json::array({"t"}), Json{{"t", "t"}}}) {
    startDaemon({{"token", token}});
    EXPECT_EQ(status()["enrolled"], Json(0)) << token;
    EXPECT_EQ(virtual_time::PendingCount(), 0U) << token;
  }
  EXPECT_EQ(portal.requests().size(), 0U);
  EXPECT_EQ(mac.countLog("started: not enrolled"), 6U);
}

TEST_F(State, PublishesEnrolledAsANumber) {
  startSettled();
  EXPECT_EQ(status()["enrolled"], Json(1));
  EXPECT_TRUE(status()["enrolled"].is_number_integer());
}

TEST_F(State, ReadsNumbersAndBooleansAsFlagsAndNothingElse) {
  for (const Json& value : {Json(true), Json(1), Json(-1), Json(0.5), Json(1e300)}) {
    startDaemon({{"provisioned", value}});
    EXPECT_EQ(status()["provisioned"], Json(true)) << value;
  }
  for (const Json& value : {Json(false), Json(0), Json(0.0), Json("true"), Json("1"), Json(),
                            Json::array({true}), Json{{"a", true}}}) {
    startDaemon({{"provisioned", value}});
    EXPECT_EQ(status()["provisioned"], Json(false)) << value;
  }
}

TEST_F(State, PublishesTheTerminalNameOrAnEmptyText) {
  startDaemon({{"terminalName", "Lobby"}});
  EXPECT_EQ(status()["terminalName"], "Lobby");
  startDaemon({{"terminalName", 5}});
  EXPECT_EQ(status()["terminalName"], "");
}

TEST_F(State, PublishesTheStoredSignInOptions) {
  const Json signIn = {{"microsoft", false}, {"email", true}, {"extraHosts", {"a.example"}}};
  startDaemon({{"signIn", signIn}});
  EXPECT_EQ(status()["signIn"], signIn);
}

TEST_F(State, PublishesTheDefaultSignInOptionsWhenNoneAreStored) {
  const Json defaults = {{"microsoft", true}, {"email", false}, {"extraHosts", Json::array()}};
  startDaemon();
  EXPECT_EQ(status()["signIn"], defaults);
  for (const Json& value : {Json::array({1}), Json("text"), Json()}) {
    startDaemon({{"signIn", value}});
    EXPECT_EQ(status()["signIn"], defaults) << value;
  }
}

TEST_F(State, PublishesTheLastError) {
  startDaemon({{"lastError", "filevault_on"}});
  EXPECT_EQ(status()["error"], "filevault_on");
}

TEST_F(State, PublishesNoErrorWhenThereIsNone) {
  for (const Json& value : {Json(""), Json(5), Json()}) {
    startDaemon({{"lastError", value}});
    EXPECT_FALSE(status().contains("error")) << value;
  }
}

TEST_F(State, PublishesTheUserIdOfItsOwnAccount) {
  startProvisioned();
  const Json uid = daemon->published()->value("uid", Json());
  EXPECT_EQ(uid, Json(kioskUid()));
  EXPECT_NE(kioskUid(), 0U);
}

TEST_F(State, PublishesNoUserIdWithoutAnAccount) {
  startDaemon();
  EXPECT_FALSE(daemon->published()->contains("uid"));
}

TEST_F(State, ReplacesTheSnapshotAndLeavesTheEarlierOneAsItWas) {
  startSettled();
  const auto before = daemon->published();
  answerEnrolled({{"name", "Lobby"}});
  virtual_time::RunReady();
  EXPECT_EQ((*before)["terminalName"], "");
  EXPECT_EQ((*daemon->published())["terminalName"], "Lobby");
}

TEST_F(State, SavesCompactJsonWithSortedKeys) {
  mac.write(kStateFile,
            "{\"zebra\": 1, \"maintenance\": true,\n \"alpha\": {\"b\": 1, \"a\": [1, 2.5]}}");
  restartDaemon();
  EXPECT_EQ(mac.read(kStateFile), R"({"alpha":{"a":[1,2.5],"b":1},"maintenance":false,"zebra":1})");
}

TEST_F(State, SavesWithModeAndOwnerOfItsOwn) {
  mac.writeState({{"maintenance", true}});
  ASSERT_EQ(chmod(kStateFile, 0666), 0);
  ASSERT_EQ(chown(kStateFile, 501, 20), 0);
  restartDaemon();
  EXPECT_EQ(mac.state()["maintenance"], false);
  EXPECT_EQ(mac.modeAndOwner(kStateFile), "0600 0:0");
}

TEST_F(State, LeavesNothingButTheFileInItsDirectory) {
  startAndSave(Json::object());
  EXPECT_EQ(mac.list(kStateDir), std::vector<std::string>{"state.json"});
}

TEST_F(State, KeepsKeysThatItDoesNotKnow) {
  startAndSave({{"later", {{"version", 2}}}});
  EXPECT_EQ(mac.state()["later"], (Json{{"version", 2}}));
}

TEST_F(State, KeepsValuesOfAWrongTypeInTheFile) {
  startAndSave({{"token", 5}, {"terminalName", Json::array()}});
  EXPECT_EQ(mac.state()["token"], 5);
  EXPECT_EQ(mac.state()["terminalName"], Json::array());
}

TEST_F(State, ReplacesALinkInTheFilesPlace) {
  mac.write(kElsewhere, R"({"maintenance": true})");
  mac.writeState(Json::object());
  mac.remove(kStateFile);
  ASSERT_EQ(symlink(kElsewhere, kStateFile), 0);
  restartDaemon();
  EXPECT_EQ(mac.modeAndOwner(kStateFile), "0600 0:0");
  EXPECT_EQ(mac.state(), (Json{{"maintenance", false}}));
  EXPECT_EQ(mac.readJson(kElsewhere), (Json{{"maintenance", true}}));
}

TEST_F(State, PublishesWhatItCouldNotWrite) {
  startSettled();
  mac.remove(kStateFile);
  mac.write(std::string(kStateFile) + "/in-the-way", "");
  answerEnrolled({{"name", "Lobby"}});
  virtual_time::RunReady();
  EXPECT_EQ(status()["terminalName"], "Lobby");
  EXPECT_EQ(mac.countErrors("cannot write state.json: Is a directory"), 1U);
}

TEST_F(State, WritesAgainOnceTheFileCanBeWritten) {
  startSettled();
  mac.remove(kStateFile);
  mac.write(std::string(kStateFile) + "/in-the-way", "");
  answerEnrolled({{"name", "Lobby"}});
  virtual_time::RunReady();
  mac.remove(kStateFile);
  answerEnrolled({{"name", "Lobby"}, {"exitPassword", "1234"}});
  runNextCheckIn();
  EXPECT_EQ(mac.state()["terminalName"], "Lobby");
  EXPECT_EQ(mac.state()["exitPassword"], "1234");
}

}  // namespace
