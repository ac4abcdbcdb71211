#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <asio/post.hpp>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <vector>

#include "platform/Channel.h"
#include "platform/simulated/ChannelNetwork.h"
#include "tests/platform/ChannelService.h"
#include "tests/platform/simulated/ChannelPeerSide.h"
#include "tests/platform/simulated/SimulatedRoot.h"

namespace platform {
namespace {

using namespace std::string_literals;

using contract::Entry;
using contract::Eventually;
using contract::FrameBytes;
using contract::PeerSide;

using contract::ChannelService;
using contract::Service;

constexpr auto& kSocket = Service::kSocket;
constexpr std::uint8_t kMessage = 1;
constexpr std::uint8_t kRequest = 2;

class ChannelSocket : public contract::SimulatedRoot {
 protected:
  ChannelSocket() { Service::sign("com.brindlex.stream"); }
  ~ChannelSocket() override { _service->end(); }

  static std::string request(std::uint32_t number, const std::string& text) {
    return FrameBytes(kRequest, number, Entry("text", text));
  }

  static std::string reply(std::uint32_t number, const std::string& text) {
    return FrameBytes(3, number, Entry("text", text)).substr(4);
  }

  /// Sends bytes that no peer may send and expects the connection to end without an event.
  void expectRefused(const std::string& bytes) {
    const std::size_t before = _service->errors().size();
    const PeerSide client(kSocket);
    EXPECT_TRUE(client.write(bytes));
    EXPECT_TRUE(client.isClosed());
    EXPECT_TRUE(Eventually([&] { return _service->errors().size() == before + 1; }));
    EXPECT_EQ(_service->errors().back(), ChannelError::kConnectionInvalid);
    EXPECT_TRUE(_service->texts().empty());
  }

  const Service _launchd;
  const std::shared_ptr<ChannelService> _service = std::make_shared<ChannelService>();
};

TEST_F(ChannelSocket, DeliversFramesHoweverTheyAreCut) {
  _service->listen();
  const PeerSide client(kSocket);
  const std::string frames = request(1, "one") + request(2, "two");
  for (const char byte : frames) ASSERT_TRUE(client.write(std::string(1, byte)));
  EXPECT_EQ(client.readFrame(), reply(1, "one"));
  EXPECT_EQ(client.readFrame(), reply(2, "two"));
  ASSERT_TRUE(client.write(request(3, "three") + request(4, "four")));
  EXPECT_EQ(client.readFrame(), reply(3, "three"));
  EXPECT_EQ(client.readFrame(), reply(4, "four"));
}

TEST_F(ChannelSocket, DeliversWhatWasSentBeforeThePeerLeft) {
  _service->listen();
  {
    const PeerSide client(kSocket);
    ASSERT_TRUE(client.write(FrameBytes(kMessage, 0, Entry("text", "last words"))));
  }
  EXPECT_TRUE(Eventually([this] { return _service->ended == 1; }));
  EXPECT_EQ(_service->texts(), std::vector<std::string>{"last words"});
}

TEST_F(ChannelSocket, TakesEmptyDictionariesAndEmptyTexts) {
  _service->listen();
  const PeerSide client(kSocket);
  ASSERT_TRUE(client.write(FrameBytes(kRequest, 1, "") + request(2, "")));
  EXPECT_EQ(client.readFrame(), reply(1, ""));
  EXPECT_EQ(client.readFrame(), reply(2, ""));
  EXPECT_EQ(_service->texts(), (std::vector<std::string>{"(none)", ""}));
}

TEST_F(ChannelSocket, CutsRepliesAtTheirFirstZeroByte) {
  _service->holds = true;
  _service->listen();
  const PeerSide client(kSocket);
  ASSERT_TRUE(client.write(request(9, "a")));
  ASSERT_TRUE(Eventually([this] { return _service->texts().size() == 1; }));
  {
    const std::lock_guard lock(_service->mutex);
    std::optional<ChannelReply> made = _service->held[0].createReply();
    ASSERT_TRUE(made);
    made->setString("text", "replaced");
    made->setString("text", std::string("short\0long", 10));
    _service->peer(0).send(*made);
    _service->peer(0).send(*made);  // a reply is sent once
    _service->held.clear();
  }
  EXPECT_EQ(client.readFrame(), reply(9, "short"));
  _service->holds = false;
  ASSERT_TRUE(client.write(request(10, "b")));
  EXPECT_EQ(client.readFrame(), reply(10, "b"));
}

TEST_F(ChannelSocket, SendsAReplyBeforeTheSenderGoesOn) {
  _service->holds = true;
  _service->listen();
  const PeerSide client(kSocket);
  ASSERT_TRUE(client.write(request(1, "now")));
  ASSERT_TRUE(Eventually([this] { return _service->texts().size() == 1; }));
  std::promise<void> mayGoOn;
  asio::post(ChannelNetwork(), [held = mayGoOn.get_future().share()] { held.wait(); });
  {
    const std::lock_guard lock(_service->mutex);
    ChannelService::answer(_service->peer(0), _service->held[0]);
  }
  EXPECT_EQ(client.readFrame(), reply(1, "now")) << "though the network's thread is held up";
  mayGoOn.set_value();
}

TEST_F(ChannelSocket, EndsAConnectionThatBreaksTheRules) {
  _service->listen();
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

TEST_F(ChannelSocket, TakesTheLongestFrameAndAnswersIt) {
  _service->listen();
  const std::string text(1024 * 1024 - 5 - 6, 'x');
  const PeerSide client(kSocket);
  std::thread writer([&] { EXPECT_TRUE(client.write(request(1, text))); });
  EXPECT_EQ(client.readFrame(), reply(1, text));
  writer.join();
}

/// Suites of peers that the requirement keeps out: each writes or removes the signature first.
class ChannelRequirement : public ChannelSocket {
 protected:
  void expectKeptOut() {
    _service->requirement = contract::kRequirement;
    _service->listen();
    const PeerSide client(kSocket);
    EXPECT_TRUE(client.write(request(1, "a") + request(2, "b")));
    EXPECT_TRUE(client.isClosed());
    EXPECT_TRUE(Eventually([this] { return _service->ended == 1; }));
    EXPECT_EQ(_service->errors(),
              (std::vector<ChannelError>{ChannelError::kPeerCodeSigningRequirement,
                                         ChannelError::kConnectionInvalid}));
    EXPECT_TRUE(_service->texts().empty());
    EXPECT_EQ(_service->requirementError, 0);
  }
};

TEST_F(ChannelRequirement, KeepsOutAnotherSignature) {
  Service::sign("com.other");
  expectKeptOut();
}

TEST_F(ChannelRequirement, KeepsOutUnsignedCode) {
  std::filesystem::remove(Service::kSignature);
  expectKeptOut();
}

TEST_F(ChannelRequirement, KeepsOutAProcessThatCannotBeSeen) {
  std::filesystem::remove_all("/proc/" + std::to_string(getpid()));
  expectKeptOut();
}

TEST_F(ChannelRequirement, KeepsOutASignatureThatIsAPipe) {
  std::filesystem::remove(Service::kSignature);
  ASSERT_EQ(mkfifo(Service::kSignature, 0600), 0);
  expectKeptOut();
}

TEST_F(ChannelRequirement, KeepsOutASignatureThatIsALink) {
  std::filesystem::rename(Service::kSignature, "/elsewhere");
  std::filesystem::create_symlink("/elsewhere", Service::kSignature);
  expectKeptOut();
}

TEST_F(ChannelRequirement, KeepsOutASignatureThatIsTooLong) {
  contract::WriteFile(Service::kSignature,
                      R"({"identifier": "com.brindlex.stream"})" + std::string(16 * 1024, ' '));
  expectKeptOut();
}

TEST_F(ChannelRequirement, KeepsOutASignatureThatAnybodyMayWrite) {
  ASSERT_EQ(chmod(Service::kSignature, 0666), 0);
  expectKeptOut();
}

TEST_F(ChannelRequirement, ReportsAMalformedRequirement) {
  _service->requirement = "anchor apple (";
  _service->activates = false;
  _service->listen();
  const PeerSide client(kSocket);
  (void)_service->peer(0);
  EXPECT_EQ(_service->requirementError, EINVAL);
}

TEST_F(ChannelRequirement, FailsOnDemand) {
  setFaults(R"([{"target": "channel.setCodeSigningRequirement", "status": 13}])");
  _service->requirement = contract::kRequirement;
  _service->activates = false;
  _service->listen();
  const PeerSide client(kSocket);
  (void)_service->peer(0);
  EXPECT_EQ(_service->requirementError, 13);
}

TEST_F(ChannelSocket, ForgetsAPeerThatIsNeverActivated) {
  ChannelListener listener(contract::kService, _service->listenerQueue);
  listener.setEventHandler([](const ChannelListenerEvent&) {});
  listener.activate();
  EXPECT_TRUE(PeerSide(kSocket).isClosed());
}

TEST_F(ChannelSocket, StopsReadingFromAPeerWithManyUnansweredRequests) {
  _service->holds = true;
  _service->listen();
  const PeerSide client(kSocket);
  std::string frames;
  for (std::uint32_t i = 0; i < 100; ++i) frames += request(i, "x");
  ASSERT_TRUE(client.write(frames));
  ASSERT_TRUE(Eventually([this] { return _service->texts().size() == 64; }));
  const PeerSide other(kSocket);  // nobody else is held up
  ASSERT_TRUE(other.write(request(1, "y")));
  ASSERT_TRUE(Eventually([this] { return _service->texts().size() == 65; }));
  const std::vector<std::string> delivered = _service->texts();
  EXPECT_EQ(std::count(delivered.begin(), delivered.end(), "x"), 64);
  _service->holds = false;
  const ChannelPeer first = _service->peer(0);
  {
    const std::lock_guard lock(_service->mutex);
    for (const ChannelMessage& message : _service->held) ChannelService::answer(first, message);
    _service->held.clear();  // the other peer's message goes unanswered, which counts as well
  }
  // In which order replies come that were given at once from several threads is up to chance.
  std::set<std::string> expected;
  std::set<std::string> received;
  for (std::uint32_t i = 0; i < 100; ++i) {
    expected.insert(reply(i, "x"));
    received.insert(client.readFrame().value_or(""));
  }
  EXPECT_EQ(received, expected);
}

TEST_F(ChannelSocket, StopsReadingFromAPeerWithManyPendingBytes) {
  _service->holds = true;
  _service->listen();
  const PeerSide client(kSocket);
  const std::string frame = FrameBytes(kMessage, 0, Entry("text", std::string(500'000, 'x')));
  std::thread writer([&] {
    for (int i = 0; i < 6; ++i) EXPECT_TRUE(client.write(frame));
  });
  ASSERT_TRUE(Eventually([this] { return _service->texts().size() == 3; }));
  for (std::size_t delivered = 3; delivered < 6; ++delivered) {
    EXPECT_EQ(_service->texts().size(), delivered);
    {
      const std::lock_guard lock(_service->mutex);
      _service->held.erase(_service->held.begin());
    }
    EXPECT_TRUE(Eventually([&] { return _service->texts().size() == delivered + 1; }));
  }
  writer.join();
  const std::lock_guard lock(_service->mutex);
  _service->held.clear();
}

TEST_F(ChannelSocket, DropsAPeerThatNeverReadsItsReplies) {
  _service->listen();
  const PeerSide client(kSocket);
  const std::string frame = request(1, std::string(200'000, 'x'));
  for (int i = 0; i < 100 && client.write(frame); ++i) {
  }
  EXPECT_TRUE(Eventually([this] { return _service->ended == 1; }));
  const PeerSide other(kSocket);
  ASSERT_TRUE(other.write(request(2, "y")));
  EXPECT_EQ(other.readFrame(), reply(2, "y"));
}

TEST_F(ChannelSocket, IsNotHeldUpByHalfFrames) {
  _service->listen();
  std::vector<PeerSide> halves;
  for (int i = 0; i < 60; ++i) {
    halves.emplace_back(kSocket);
    ASSERT_TRUE(halves.back().write(request(1, std::string(1000, 'x')).substr(0, 900)));
  }
  const PeerSide whole(kSocket);
  ASSERT_TRUE(whole.write(request(2, "whole")));
  EXPECT_EQ(whole.readFrame(), reply(2, "whole"));
}

TEST_F(ChannelSocket, LetsAThousandConnectionsOfOneProcessHoldUpNobodyElse) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = limit.rlim_max;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  _service->listen();
  std::vector<PeerSide> crowd;
  for (int i = 0; i < 1000; ++i) crowd.emplace_back(kSocket);
  EXPECT_TRUE(crowd.back().isClosed());
  EXPECT_TRUE(Eventually([this] { return _service->accepted == 64; }));
  const pid_t child = fork();
  if (child == 0) {
    const PeerSide other(kSocket);
    _exit(other.write(request(5, "other")) && other.readFrame() == reply(5, "other") ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(_service->accepted, 65u);
  crowd.clear();
  EXPECT_TRUE(Eventually([this] { return _service->ended == 65; }));
  const PeerSide later(kSocket);  // the places are free again
  ASSERT_TRUE(later.write(request(6, "later")));
  EXPECT_EQ(later.readFrame(), reply(6, "later"));
}

TEST_F(ChannelSocket, GoesOnWhenDescriptorsWereShort) {
  _service->listen();
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const PeerSide client(kSocket);
  (void)_service->peer(0);
  PeerSide waiting(kSocket);
  (void)_service->peer(1);
  const int lowest = dup(_launchd.socket());
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

TEST_F(ChannelSocket, MarksInheritedDescriptorsCloseOnExec) {
  _service->listen();
  EXPECT_EQ(fcntl(_launchd.socket(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(_launchd.proc(), F_GETFD), FD_CLOEXEC);
}

TEST_F(ChannelSocket, ReportsAServiceThatIsNotRegistered) {
  const std::string name = contract::kService;
  for (const std::string& services : {std::string(), "other.service=3"s, name, name + "=x",
                                      name + "=-1", name + "=9999", ",,=,"s}) {
    setenv("SIMULATED_MAC_SERVICES", services.c_str(), 1);
    std::promise<bool> invalid;
    ChannelListener listener(contract::kService, _service->listenerQueue);
    listener.setEventHandler([&](const ChannelListenerEvent& event) {
      const auto* error = std::get_if<ChannelError>(&event);
      invalid.set_value(error != nullptr && *error == ChannelError::kConnectionInvalid);
    });
    listener.activate();
    EXPECT_TRUE(invalid.get_future().get()) << services;
  }
}

TEST_F(ChannelSocket, SurvivesRandomBytes) {
  _service->listen();
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
