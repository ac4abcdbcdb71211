// Hostile peers of every kind at once, and one that only wants to know the status.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "tests/hostile/HostileRoles.h"
#include "tests/system/SystemTest.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMebibyte = std::size_t{1} << 20;
// Ordinary users; one of them has the unsigned peers.
constexpr unsigned kUsers[] = {601, 602, 603};
constexpr unsigned kUnsignedUser = 604;
constexpr std::size_t kUnsignedProcesses = 2;
constexpr int kQuestions = 100;                 // once all are at it
constexpr std::size_t kStatusReplyBytes = 512;  // with all that a queue keeps beside it

// What the peers below can have the daemon hold. Buffers grow by doubling, hence twice.
constexpr std::size_t kHeldByOneUser =
    2 * kHalfFrames * kHalfFrameBytes + kUnreadConnections * kUnreadRequests * kStatusReplyBytes +
    4 * kMebibyte  // the one that is dropped for what it owes
    + 2 * kLargeConnections * kLargeRequests * kLargeRequestBytes;
// What the library keeps of freed memory for its threads, and what a check-in takes.
constexpr std::size_t kSlack = 48 * kMebibyte;
constexpr std::size_t kMostGrowth = std::size(kUsers) * kHeldByOneUser + kSlack;

/// What the kernel says of a process.
struct Resources {
  std::size_t descriptors = 0;
  std::size_t threads = 0;
  std::size_t residentBytes = 0;
  std::size_t peakBytes = 0;
};

std::size_t NumberOf(const std::string& status, const std::string& key) {
  const std::size_t at = status.find(key + ":");
  return at == std::string::npos ? 0 : std::stoul(status.substr(at + key.size() + 1));
}

Resources ResourcesOf(pid_t pid) {
  const std::string folder = "/proc/" + std::to_string(pid);
  std::ostringstream status;
  status << std::ifstream(folder + "/status").rdbuf();
  std::error_code ignored;
  const auto descriptors =
      std::distance(fs::directory_iterator(folder + "/fd", ignored), fs::directory_iterator());
  return {static_cast<std::size_t>(descriptors), NumberOf(status.str(), "Threads"),
          NumberOf(status.str(), "VmRSS") * 1024, NumberOf(status.str(), "VmHWM") * 1024};
}

class Crowd : public SystemTest {
 protected:
  Crowd() {
    // The application's signature lies beside the test's own executable in the Mac; the hostile
    // peer gets one, too, and its copy gets none.
    const fs::path test = fs::read_symlink("/proc/self/exe");
    const fs::path own = KIOSKD_HOSTILE_PEER;
    mac.write(own.string() + ".signature", mac.read(test.string() + ".signature"));
    fs::copy_file(own, mac.at(kUnsigned));
  }

  void start(const std::string& program, const std::string& role, unsigned user) {
    _peers.push_back(std::make_unique<Child>(
        std::vector<std::string>{program, role, std::to_string(user), mac.at(kSocket)},
        mac.at("/private/tmp/" + role + std::to_string(_peers.size()))));
  }

  void startAll() {
    for (const unsigned user : kUsers) {
      // The idle ones last: the others shall find places.
      for (const char* role : {"half", "unread", "large", "oversized", "deep", "idle", "idle"}) {
        start(KIOSKD_HOSTILE_PEER, role, user);
      }
    }
    for (std::size_t i = 0; i < kUnsignedProcesses; ++i) {
      start(mac.at(kUnsigned), "knock", kUnsignedUser);
    }
  }

  bool areAllReady() const {
    return std::all_of(_peers.begin(), _peers.end(),
                       [](const auto& each) { return each->output() == "ready\n"; });
  }

  void endAll() { _peers.clear(); }

  /// Has the work queue wait for the portal until `letPortalGo`.
  ChannelClient occupyWorkQueue() const {
    portal.admin({"misbehave", "slow", "--delay-ms", "12000", "--path", "/api/kiosk/pair"});
    ChannelClient waiting = peer();
    waiting.sendFrame(kMessageWithReply, 1, {{"request", R"({"cmd": "pair.begin"})"}});
    return waiting;
  }

  void letPortalGo() const { portal.admin({"misbehave", "none"}); }

  void expectAnswers(ChannelClient& kept, const Json& answer) const {
    EXPECT_EQ(kept.ask(status), answer);
    EXPECT_EQ(ask(status), answer);
  }

  /// Has all of them act while the status is asked for, on a connection that is kept and on new
  /// ones; with a work queue that is busy until all that they hold is held.
  void askAmongAll(const Json& answer) {
    ChannelClient kept = peer();
    ChannelClient waiting = occupyWorkQueue();
    startAll();
    EXPECT_TRUE(Eventually([&] {
      expectAnswers(kept, answer);
      return HasFailure() || areAllReady();
    })) << "not all of them hold what they want to";
    letPortalGo();
    for (int asked = 0; asked < kQuestions && !HasFailure(); ++asked) expectAnswers(kept, answer);
    EXPECT_EQ(run({kKioskctl, "--json", "status"}).status, 0);
    EXPECT_TRUE(waiting.receive()) << "a command is answered as well";
  }

  std::size_t countRejections() const {
    const std::vector<LogLine> lines = mac.log();
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(), [](const LogLine& line) {
          return line.level == "Error" && line.text.starts_with("pid ") &&
                 line.text.ends_with(" failed the code signing requirement; rejected");
        }));
  }

  static constexpr char kUnsigned[] = "/private/tmp/hostile_peer";
  const Json status = {{"cmd", "status"}};

 private:
  std::vector<std::unique_ptr<Child>> _peers;
};

TEST_F(Crowd, OfAllKindsAtOnceKeepsNobodyFromTheStatusAndLeavesNothingBehind) {
  boot();
  ask({{"cmd", "pair.begin"}});  // from now on there is all that speaking with a portal takes
  const Json answer = ask(status);
  const pid_t daemon = daemonPid();
  const Resources before = ResourcesOf(daemon);
  const std::size_t linesBefore = mac.log().size();

  askAmongAll(answer);
  const Resources among = ResourcesOf(daemon);
  EXPECT_LE(among.peakBytes - before.residentBytes, kMostGrowth);
  RecordProperty("KiBAtMost", static_cast<int>(among.peakBytes / 1024));
  // A line for each unsigned peer that spoke, and not a word of all the others.
  EXPECT_TRUE(Eventually([&] { return countRejections() == kUnsignedProcesses * kKnocks; }))
      << countRejections();
  EXPECT_EQ(mac.log().size() - linesBefore, kUnsignedProcesses * kKnocks);

  endAll();
  EXPECT_TRUE(Eventually([&] { return ResourcesOf(daemon).descriptors <= before.descriptors; }))
      << ResourcesOf(daemon).descriptors << " descriptors, before " << before.descriptors;
  EXPECT_EQ(ResourcesOf(daemon).threads, before.threads);
  EXPECT_EQ(ask(status), answer);
  EXPECT_EQ(daemonPid(), daemon) << "it neither crashed nor was it killed";
}

}  // namespace
