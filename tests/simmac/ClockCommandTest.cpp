#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "platform/simulated/ClockFile.h"
#include "tests/simmac/TestMac.h"

namespace simmac {
namespace {

using platform::kMacClock;

class ClockCommand : public SimulatedMacTest {
 protected:
  /// What the command says of the distance to the host; its time is only looked at.
  static std::string ahead(const RunResult& result) {
    static const std::regex line(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ, (.*) ahead of the host\n)");
    std::smatch parts;
    return std::regex_match(result.out, parts, line) ? parts[1].str() : result.out + result.err;
  }

  static std::string advance(const TestMac& mac, const std::string& by) {
    return ahead(mac.simmac("clock", {"--advance", by}));
  }

  static std::uint64_t seconds(const TestMac& mac) {
    return platform::ReadClockAhead(mac.path(kMacClock));
  }
};

TEST_F(ClockCommand, ShowsTheHostsTimeOnANewMac) {
  const TestMac mac;
  EXPECT_EQ(ahead(mac.simmac("clock")), "0 s");
  EXPECT_NE(access(mac.path(kMacClock).c_str(), F_OK), 0);
}

TEST_F(ClockCommand, MovesTheClockAheadOfWhereItWas) {
  const TestMac mac;
  EXPECT_EQ(advance(mac, "16m"), "16 min");
  EXPECT_EQ(seconds(mac), 960U);
  EXPECT_EQ(advance(mac, "2h"), "2 h 16 min");
  EXPECT_EQ(advance(mac, "30s"), "2 h 16 min 30 s");
  EXPECT_EQ(advance(mac, "1d"), "1 d 2 h 16 min 30 s");
  EXPECT_EQ(advance(mac, "0s"), "1 d 2 h 16 min 30 s");
  EXPECT_EQ(ahead(mac.simmac("clock")), "1 d 2 h 16 min 30 s");
  EXPECT_EQ(Json::parse(mac.read(kMacClock)), Json({{"aheadSeconds", 94590}}));
}

TEST_F(ClockCommand, ShowsTheTimeThatItMovedTo) {
  const TestMac mac;
  const auto year = [](const RunResult& shown) { return std::stoi(shown.out); };
  const int before = year(mac.simmac("clock"));
  EXPECT_GE(year(mac.simmac("clock", {"--advance", "3649d"})), before + 9);
}

TEST_F(ClockCommand, RefusesWhatIsNoDuration) {
  const TestMac mac;
  for (const char* text : {"", "16", "m", "-5m", "+5m", "5 m", "5mm", "1h30m", "1.5h", "5w", "0x5s",
                           "1000000001s", "99999999999999999999s"}) {
    const RunResult result = mac.simmac("clock", {std::string("--advance=") + text});
    EXPECT_EQ(result.status, 2) << text;
  }
  EXPECT_EQ(mac.simmac("clock", {"--advance", "5x"}).err,
            "simmac: --advance: A duration is like 90s, 16m, 2h or 1d; --help tells more.\n");
  EXPECT_EQ(seconds(mac), 0U);
}

TEST_F(ClockCommand, StopsAtTenYears) {
  const TestMac mac;
  EXPECT_EQ(advance(mac, "3650d"), "3650 d");
  const RunResult beyond = mac.simmac("clock", {"--advance", "1s"});
  EXPECT_EQ(beyond.status, 1);
  EXPECT_EQ(beyond.err, "simmac: A clock is ahead by ten years at most.\n");
  EXPECT_EQ(advance(mac, "0d"), "3650 d");
  EXPECT_EQ(mac.simmac("clock", {"--advance", "1000000000d"}).status, 1);
}

TEST_F(ClockCommand, CountsAFileThatNobodyBelievesAsNothing) {
  const TestMac mac;
  mac.write(kMacClock, R"({"aheadSeconds": 50})");
  ASSERT_EQ(chmod(mac.path(kMacClock).c_str(), 0666), 0);
  EXPECT_EQ(ahead(mac.simmac("clock")), "0 s");
  EXPECT_EQ(advance(mac, "7s"), "7 s");
  mac.write(kMacClock, "{");
  EXPECT_EQ(ahead(mac.simmac("clock")), "0 s");
  EXPECT_EQ(advance(mac, "8s"), "8 s");
}

TEST_F(ClockCommand, IsExplained) {
  const TestMac mac;
  const RunResult help = mac.simmac("clock", {"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("--advance"), std::string::npos);
  EXPECT_EQ(RunProgram({SIMMAC_EXECUTABLE, "clock", "/nonexistent"}).status, 1);
}

}  // namespace
}  // namespace simmac
