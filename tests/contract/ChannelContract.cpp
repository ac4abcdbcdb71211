#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <future>
#include <map>
#include <mutex>
#include <vector>

#include "platform/Channel.h"
#include "tests/contract/ChannelPeerSide.h"
#include "tests/contract/SimulatedRoot.h"

namespace platform {
namespace {

using contract::Entry;
using contract::Eventually;
using contract::FrameBytes;
using contract::PeerSide;

constexpr char kSocket[] = "/private/var/run.socket";
constexpr char kRequirement[] = "identifier \"com.brindlex.stream\"";
constexpr std::uint8_t kMessage = 1;
constexpr std::uint8_t kRequest = 2;

/// A service "test.service" whose peers are this process. Its events are recorded; a request is
/// answered by its own "text".
class Channel : public contract::SimulatedRoot {
 protected:
  Channel() {
    makeProcess(getpid());
    _socket = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(std::begin(kSocket), std::end(kSocket), address.sun_path);
    EXPECT_EQ(bind(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(_socket, 4096), 0);
    _proc = open("/proc", O_RDONLY | O_DIRECTORY);
    setenv("SIMULATED_MAC_PROC", std::to_string(_proc).c_str(), 1);
    setenv("SIMULATED_MAC_SERVICES", ("other=99,test.service=" + std::to_string(_socket)).c_str(),
           1);
  }

  ~Channel() override {
    _listenerQueue.sync([this] {
      _listener.reset();
      for (const ChannelPeer& peer : _peers) peer.cancel();
    });
    EXPECT_TRUE(Eventually([this] { return _ended == _accepted; }));
    _listenerQueue.sync([this] { _peers.clear(); });
    close(_socket);
    close(_proc);
  }

  /// What the kernel would say of a process: that its executable is /client, which is signed.
  static void makeProcess(pid_t pid) {
    contract::WriteFile("/client.signature", R"({"identifier": "com.brindlex.stream"})");
    const std::string folder = "/proc/" + std::to_string(pid);
    std::filesystem::create_directories(folder);
    std::filesystem::create_symlink("/client", folder + "/exe");
  }

  void listen() {
    _listener.emplace("test.service", _listenerQueue);
    _listener->setEventHandler([this](const ChannelListenerEvent& event) {
      if (const auto* peer = std::get_if<ChannelPeer>(&event)) welcome(*peer);
    });
    _listener->activate();
  }

  void welcome(const ChannelPeer& peer) {
    _peers.push_back(peer);
    if (_requirement) {
      _requirementError = peer.setCodeSigningRequirement(*_requirement);
    }
    peer.setEventHandler([this, peer](const ChannelPeerEvent& event) { handle(peer, event); });
    ++_accepted;
    if (_activates) peer.activate();
  }

  void handle(const ChannelPeer& peer, const ChannelPeerEvent& event) {
    if (const auto* error = std::get_if<ChannelError>(&event)) {
      const std::lock_guard lock(_mutex);
      _errors.push_back(*error);
      if (*error == ChannelError::kConnectionInvalid) ++_ended;
      return;
    }
    const auto& message = std::get<ChannelMessage>(event);
    {
      const std::lock_guard lock(_mutex);
      _texts.push_back(message.string("text").value_or("(none)"));
      if (_holds) _held.push_back(message);
    }
    if (!_holds) answer(peer, message);
  }

  static void answer(const ChannelPeer& peer, const ChannelMessage& message) {
    std::optional<ChannelReply> reply = message.createReply();
    if (!reply) return;
    reply->setString("text", message.string("text").value_or(""));
    peer.send(*reply);
  }

  std::vector<std::string> texts() {
    const std::lock_guard lock(_mutex);
    return _texts;
  }

  std::vector<ChannelError> errors() {
    const std::lock_guard lock(_mutex);
    return _errors;
  }

  void letGoOfTheFirst() {
    const std::lock_guard lock(_mutex);
    _held.erase(_held.begin());
  }

  ChannelPeer peer(std::size_t index) {
    EXPECT_TRUE(Eventually([&] { return _accepted > index; }));
    std::optional<ChannelPeer> found;
    _listenerQueue.sync([&] { found = _peers[index]; });
    return *found;
  }

  static std::string request(std::uint32_t number, const std::string& text) {
    return FrameBytes(kRequest, number, Entry("text", text));
  }

  static std::string reply(std::uint32_t number, const std::string& text) {
    return FrameBytes(3, number, Entry("text", text)).substr(4);
  }

  /// Sends bytes that no peer may send and expects the connection to end without an event.
  void expectRefused(const std::string& bytes) {
    const std::size_t before = errors().size();
    const PeerSide client(kSocket);
    EXPECT_TRUE(client.write(bytes));
    EXPECT_TRUE(client.isClosed());
    EXPECT_TRUE(Eventually([&] { return errors().size() == before + 1; }));
    EXPECT_EQ(errors().back(), ChannelError::kConnectionInvalid);
    EXPECT_TRUE(texts().empty());
  }

  int _socket = -1;
  int _proc = -1;
  const Queue _listenerQueue{"listener"};
  std::optional<ChannelListener> _listener;
  std::vector<ChannelPeer> _peers;  ///< used on the listener's queue
  std::optional<std::string> _requirement;
  std::atomic<int> _requirementError = 0;
  bool _activates = true;
  std::atomic<bool> _holds = false;
  std::atomic<std::size_t> _accepted = 0;
  std::atomic<std::size_t> _ended = 0;

  std::mutex _mutex;
  std::vector<std::string> _texts;
  std::vector<ChannelError> _errors;
  std::vector<ChannelMessage> _held;
};

TEST_F(Channel, AnswersARequest) {
  listen();
  const PeerSide client(kSocket);
  ASSERT_TRUE(client.write(request(7, "hello")));
  EXPECT_EQ(client.readFrame(), reply(7, "hello"));
}

TEST_F(Channel, KnowsItsPeer) {
  listen();
  const PeerSide client(kSocket);
  const ChannelPeer peer = this->peer(0);
  EXPECT_EQ(peer.pid(), getpid());
  EXPECT_EQ(peer.euid(), geteuid());
  EXPECT_EQ(peer.asid(), getsid(0));
}

TEST_F(Channel, DeliversFramesHoweverTheyAreCut) {
  listen();
  const PeerSide client(kSocket);
  const std::string frames = request(1, "one") + request(2, "two");
  for (const char byte : frames) ASSERT_TRUE(client.write(std::string(1, byte)));
  EXPECT_EQ(client.readFrame(), reply(1, "one"));
  EXPECT_EQ(client.readFrame(), reply(2, "two"));
  ASSERT_TRUE(client.write(request(3, "three") + request(4, "four")));
  EXPECT_EQ(client.readFrame(), reply(3, "three"));
  EXPECT_EQ(client.readFrame(), reply(4, "four"));
}

TEST_F(Channel, DeliversWhatWasSentBeforeThePeerLeft) {
  listen();
  {
    const PeerSide client(kSocket);
    ASSERT_TRUE(client.write(FrameBytes(kMessage, 0, Entry("text", "last words"))));
  }
  EXPECT_TRUE(Eventually([this] { return _ended == 1; }));
  EXPECT_EQ(texts(), std::vector<std::string>{"last words"});
}

TEST_F(Channel, GivesNoReplyToAMessageThatExpectsNone) {
  _holds = true;
  listen();
  const PeerSide client(kSocket);
  ASSERT_TRUE(client.write(FrameBytes(kMessage, 1, Entry("text", "a")) + request(2, "b")));
  ASSERT_TRUE(Eventually([this] { return texts().size() == 2; }));
  const std::lock_guard lock(_mutex);
  EXPECT_FALSE(_held[0].createReply());
  EXPECT_TRUE(_held[1].createReply());
  EXPECT_FALSE(_held[1].createReply());
  _held.clear();
}

TEST_F(Channel, TakesEmptyDictionariesAndEmptyTexts) {
  listen();
  const PeerSide client(kSocket);
  ASSERT_TRUE(client.write(FrameBytes(kRequest, 1, "") + request(2, "")));
  EXPECT_EQ(client.readFrame(), reply(1, ""));
  EXPECT_EQ(client.readFrame(), reply(2, ""));
  EXPECT_EQ(texts(), (std::vector<std::string>{"(none)", ""}));
}

TEST_F(Channel, CutsRepliesAtTheirFirstZeroByte) {
  _holds = true;
  listen();
  const PeerSide client(kSocket);
  ASSERT_TRUE(client.write(request(9, "a")));
  ASSERT_TRUE(Eventually([this] { return texts().size() == 1; }));
  {
    const std::lock_guard lock(_mutex);
    std::optional<ChannelReply> made = _held[0].createReply();
    ASSERT_TRUE(made);
    made->setString("text", "replaced");
    made->setString("text", std::string("short\0long", 10));
    peer(0).send(*made);
    peer(0).send(*made);  // a reply is sent once
    _held.clear();
  }
  EXPECT_EQ(client.readFrame(), reply(9, "short"));
  _holds = false;
  ASSERT_TRUE(client.write(request(10, "b")));
  EXPECT_EQ(client.readFrame(), reply(10, "b"));
}

TEST_F(Channel, EndsAConnectionThatBreaksTheRules) {
  listen();
  expectRefused(std::string("\0\0\0\0", 4));                       // no kind
  expectRefused(std::string("\4\0\0\0\1\0\0\0", 8));               // no number
  expectRefused(std::string("\xFF\xFF\xFF\xFF", 4));               // no end
  expectRefused(std::string("\1\0\x10\0", 4));                     // one byte over the limit
  expectRefused(FrameBytes(0, 1, Entry("a", "b")));                // no such kind
  expectRefused(FrameBytes(3, 1, Entry("a", "b")));                // a reply to nothing
  expectRefused(FrameBytes(kRequest, 1, "a"));                     // no zero byte
  expectRefused(FrameBytes(kRequest, 1, std::string("a\0b", 3)));  // none at the end
  expectRefused(FrameBytes(kRequest, 1, std::string("a\0", 2)));   // a key without a value
}

TEST_F(Channel, TakesTheLongestFrameAndAnswersIt) {
  listen();
  const std::string text(1024 * 1024 - 5 - 6, 'x');
  const PeerSide client(kSocket);
  std::thread writer([&] { EXPECT_TRUE(client.write(request(1, text))); });
  EXPECT_EQ(client.readFrame(), reply(1, text));
  writer.join();
}

TEST_F(Channel, ReadsNothingBeforeActivation) {
  _activates = false;
  listen();
  const PeerSide client(kSocket);
  ASSERT_TRUE(client.write(request(1, "early")));
  const ChannelPeer peer = this->peer(0);
  _listenerQueue.sync([] {});
  EXPECT_TRUE(texts().empty());
  peer.activate();
  EXPECT_EQ(client.readFrame(), reply(1, "early"));
}

TEST_F(Channel, DeliversFromAPeerThatSatisfiesTheRequirement) {
  _requirement = kRequirement;
  listen();
  const PeerSide client(kSocket);
  ASSERT_TRUE(client.write(request(1, "trusted")));
  EXPECT_EQ(client.readFrame(), reply(1, "trusted"));
  EXPECT_EQ(_requirementError, 0);
}

/// Suites of peers that the requirement keeps out: each writes or removes the signature first.
class ChannelRequirement : public Channel {
 protected:
  void expectKeptOut() {
    _requirement = kRequirement;
    listen();
    const PeerSide client(kSocket);
    EXPECT_TRUE(client.write(request(1, "a") + request(2, "b")));
    EXPECT_TRUE(client.isClosed());
    EXPECT_TRUE(Eventually([this] { return _ended == 1; }));
    EXPECT_EQ(errors(), (std::vector<ChannelError>{ChannelError::kPeerCodeSigningRequirement,
                                                   ChannelError::kConnectionInvalid}));
    EXPECT_TRUE(texts().empty());
    EXPECT_EQ(_requirementError, 0);
  }
};

TEST_F(ChannelRequirement, KeepsOutAnotherSignature) {
  contract::WriteFile("/client.signature", R"({"identifier": "com.other"})");
  expectKeptOut();
}

TEST_F(ChannelRequirement, KeepsOutUnsignedCode) {
  std::filesystem::remove("/client.signature");
  expectKeptOut();
}

TEST_F(ChannelRequirement, KeepsOutAProcessThatCannotBeSeen) {
  std::filesystem::remove_all("/proc/" + std::to_string(getpid()));
  expectKeptOut();
}

TEST_F(ChannelRequirement, KeepsOutASignatureThatIsAPipe) {
  std::filesystem::remove("/client.signature");
  ASSERT_EQ(mkfifo("/client.signature", 0600), 0);
  expectKeptOut();
}

TEST_F(ChannelRequirement, KeepsOutASignatureThatIsALink) {
  std::filesystem::rename("/client.signature", "/elsewhere");
  std::filesystem::create_symlink("/elsewhere", "/client.signature");
  expectKeptOut();
}

TEST_F(ChannelRequirement, KeepsOutASignatureThatIsTooLong) {
  contract::WriteFile("/client.signature",
                      R"({"identifier": "com.brindlex.stream"})" + std::string(16 * 1024, ' '));
  expectKeptOut();
}

TEST_F(ChannelRequirement, KeepsOutASignatureThatAnybodyMayWrite) {
  ASSERT_EQ(chmod("/client.signature", 0666), 0);
  expectKeptOut();
}

TEST_F(ChannelRequirement, ReportsAMalformedRequirement) {
  _requirement = "anchor apple (";
  _activates = false;
  listen();
  const PeerSide client(kSocket);
  (void)peer(0);
  EXPECT_EQ(_requirementError, EINVAL);
}

TEST_F(ChannelRequirement, FailsOnDemand) {
  setFaults(R"([{"target": "channel.setCodeSigningRequirement", "status": 13}])");
  _requirement = kRequirement;
  _activates = false;
  listen();
  const PeerSide client(kSocket);
  (void)peer(0);
  EXPECT_EQ(_requirementError, 13);
}

TEST_F(Channel, ReportsAPeerThatLeavesOnceAndLetsGoOfTheHandler) {
  listen();
  const auto held = std::make_shared<int>(0);
  _activates = false;
  {
    const PeerSide client(kSocket);
    const ChannelPeer peer = this->peer(0);
    peer.setEventHandler(
        [this, peer, held](const ChannelPeerEvent& event) { handle(peer, event); });
    peer.activate();
  }
  EXPECT_TRUE(Eventually([&] { return held.use_count() == 1; }));
  EXPECT_EQ(errors(), std::vector<ChannelError>{ChannelError::kConnectionInvalid});
}

TEST_F(Channel, EndsAConnectionThatIsCancelled) {
  listen();
  const PeerSide client(kSocket);
  peer(0).cancel();
  peer(0).cancel();
  EXPECT_TRUE(client.isClosed());
  EXPECT_TRUE(Eventually([this] { return _ended == 1; }));
  EXPECT_EQ(errors().size(), 1u);
}

TEST_F(Channel, ForgetsAPeerThatIsNeverActivated) {
  _listener.emplace("test.service", _listenerQueue);
  _listener->setEventHandler([](const ChannelListenerEvent&) {});
  _listener->activate();
  EXPECT_TRUE(PeerSide(kSocket).isClosed());
}

TEST_F(Channel, TakesRepliesToAPeerThatHasLeft) {
  _holds = true;
  listen();
  {
    const PeerSide client(kSocket);
    ASSERT_TRUE(client.write(request(1, "a")));
    ASSERT_TRUE(Eventually([this] { return texts().size() == 1; }));
  }
  EXPECT_TRUE(Eventually([this] { return _ended == 1; }));
  const std::lock_guard lock(_mutex);
  answer(peer(0), _held[0]);
  _held.clear();
}

TEST_F(Channel, StopsReadingFromAPeerWithManyUnansweredRequests) {
  _holds = true;
  listen();
  const PeerSide client(kSocket);
  std::string frames;
  for (std::uint32_t i = 0; i < 100; ++i) frames += request(i, "x");
  ASSERT_TRUE(client.write(frames));
  ASSERT_TRUE(Eventually([this] { return texts().size() == 64; }));
  const PeerSide other(kSocket);  // nobody else is held up
  ASSERT_TRUE(other.write(request(1, "y")));
  ASSERT_TRUE(Eventually([this] { return texts().size() == 65; }));
  const std::vector<std::string> delivered = texts();
  EXPECT_EQ(std::count(delivered.begin(), delivered.end(), "x"), 64);
  _holds = false;
  const ChannelPeer first = peer(0);
  {
    const std::lock_guard lock(_mutex);
    for (const ChannelMessage& message : _held) answer(first, message);
    _held.clear();  // the other peer's message goes unanswered, which counts as well
  }
  for (std::uint32_t i = 0; i < 100; ++i) EXPECT_EQ(client.readFrame(), reply(i, "x"));
}

TEST_F(Channel, StopsReadingFromAPeerWithManyPendingBytes) {
  _holds = true;
  listen();
  const PeerSide client(kSocket);
  const std::string frame = FrameBytes(kMessage, 0, Entry("text", std::string(500'000, 'x')));
  std::thread writer([&] {
    for (int i = 0; i < 6; ++i) EXPECT_TRUE(client.write(frame));
  });
  ASSERT_TRUE(Eventually([this] { return texts().size() == 3; }));
  for (std::size_t delivered = 3; delivered < 6; ++delivered) {
    EXPECT_EQ(texts().size(), delivered);
    letGoOfTheFirst();
    EXPECT_TRUE(Eventually([&] { return texts().size() == delivered + 1; }));
  }
  writer.join();
  const std::lock_guard lock(_mutex);
  _held.clear();
}

TEST_F(Channel, DropsAPeerThatNeverReadsItsReplies) {
  listen();
  const PeerSide client(kSocket);
  const std::string frame = request(1, std::string(200'000, 'x'));
  for (int i = 0; i < 100 && client.write(frame); ++i) {
  }
  EXPECT_TRUE(Eventually([this] { return _ended == 1; }));
  const PeerSide other(kSocket);
  ASSERT_TRUE(other.write(request(2, "y")));
  EXPECT_EQ(other.readFrame(), reply(2, "y"));
}

TEST_F(Channel, IsNotHeldUpByHalfFrames) {
  listen();
  std::vector<PeerSide> halves;
  for (int i = 0; i < 60; ++i) {
    halves.emplace_back(kSocket);
    ASSERT_TRUE(halves.back().write(request(1, std::string(1000, 'x')).substr(0, 900)));
  }
  const PeerSide whole(kSocket);
  ASSERT_TRUE(whole.write(request(2, "whole")));
  EXPECT_EQ(whole.readFrame(), reply(2, "whole"));
}

TEST_F(Channel, LetsAThousandConnectionsOfOneProcessHoldUpNobodyElse) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = limit.rlim_max;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  listen();
  std::vector<PeerSide> crowd;
  for (int i = 0; i < 1000; ++i) crowd.emplace_back(kSocket);
  EXPECT_TRUE(crowd.back().isClosed());
  EXPECT_EQ(_accepted, 64u);
  const pid_t child = fork();
  if (child == 0) {
    const PeerSide other(kSocket);
    _exit(other.write(request(5, "other")) && other.readFrame() == reply(5, "other") ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  crowd.clear();
  EXPECT_TRUE(Eventually([this] { return _ended == 65; }));
  const PeerSide later(kSocket);  // the places are free again
  ASSERT_TRUE(later.write(request(6, "later")));
  EXPECT_EQ(later.readFrame(), reply(6, "later"));
}

TEST_F(Channel, GoesOnWhenDescriptorsWereShort) {
  listen();
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const PeerSide client(kSocket);
  (void)peer(0);
  PeerSide waiting(kSocket);
  (void)peer(1);
  const int lowest = dup(_socket);
  close(lowest);
  rlimit few = limit;
  few.rlim_cur = static_cast<rlim_t>(lowest) + 1;  // room for the peer's end, not for ours
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  const PeerSide late(kSocket);
  ASSERT_TRUE(late.write(request(3, "late")));
  ASSERT_TRUE(client.write(request(1, "served")));
  EXPECT_EQ(client.readFrame(), reply(1, "served"));
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(late.readFrame(), reply(3, "late"));
}

TEST_F(Channel, MarksInheritedDescriptorsCloseOnExec) {
  listen();
  EXPECT_EQ(fcntl(_socket, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(_proc, F_GETFD), FD_CLOEXEC);
}

TEST_F(Channel, ReportsAServiceThatIsNotRegistered) {
  for (const char* services : {"", "other.service=3", "test.service", "test.service=x",
                               "test.service=-1", "test.service=9999", ",,=,"}) {
    setenv("SIMULATED_MAC_SERVICES", services, 1);
    std::promise<bool> invalid;
    ChannelListener listener("test.service", _listenerQueue);
    listener.setEventHandler([&](const ChannelListenerEvent& event) {
      const auto* error = std::get_if<ChannelError>(&event);
      invalid.set_value(error != nullptr && *error == ChannelError::kConnectionInvalid);
    });
    listener.activate();
    EXPECT_TRUE(invalid.get_future().get()) << services;
  }
}

TEST_F(Channel, SurvivesRandomBytes) {
  listen();
  unsigned seed = 1;
  for (int round = 0; round < 300; ++round) {
    std::string bytes;
    for (int i = 0; i < 40; ++i) bytes += static_cast<char>(rand_r(&seed) % 7);
    PeerSide(kSocket).write(bytes);
  }
  bool served = false;
  ASSERT_TRUE(Eventually([&] {  // places may still be taken by the peers above
    const PeerSide again(kSocket);
    served = again.write(request(1, "fine")) && again.readFrame() == reply(1, "fine");
    return served;
  }));
}

}  // namespace
}  // namespace platform
