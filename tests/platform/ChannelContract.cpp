#include <unistd.h>

#include <atomic>
#include <mutex>

#include "platform/Channel.h"
#include "tests/platform/ChannelClient.h"
#include "tests/platform/ChannelService.h"
#include "tests/platform/World.h"

namespace platform {
namespace {

using contract::ChannelClient;
using contract::ChannelService;
using contract::Eventually;

using Texts = std::vector<std::string>;

constexpr char kIdentifier[] = "com.brindlex.stream";

class Channel : public contract::World {
 protected:
  void SetUp() override {
    if (!registerService() || !signClient(kIdentifier)) GTEST_SKIP() << "not started as a service";
  }
  void TearDown() override { _service->end(); }

  const std::shared_ptr<ChannelService> _service = std::make_shared<ChannelService>();
};

TEST_F(Channel, AnswersARequest) {
  _service->listen();
  ChannelClient client;
  EXPECT_EQ(client.request("hello").get(), "hello");
}

TEST_F(Channel, KnowsItsPeer) {
  _service->listen();
  ChannelClient client;
  EXPECT_EQ(client.request("hello").get(), "hello");
  const ChannelPeer peer = _service->peer(0);
  EXPECT_EQ(peer.pid(), getpid());
  EXPECT_EQ(peer.euid(), geteuid());
  if (const auto session = auditSession()) {
    EXPECT_EQ(peer.asid(), *session);
  }
}

TEST_F(Channel, DeliversMessagesInOrder) {
  _service->listen();
  ChannelClient client;
  Texts sent;
  for (int i = 0; i < 200; ++i) {
    sent.push_back(std::to_string(i));
    client.send(sent.back());
  }
  sent.push_back("last");
  EXPECT_EQ(client.request("last").get(), "last");
  EXPECT_EQ(_service->texts(), sent);
}

TEST_F(Channel, GivesNoReplyToAMessageThatExpectsNone) {
  _service->holds = true;
  _service->listen();
  ChannelClient client;
  client.send("a");
  auto reply = client.request("b");
  ASSERT_TRUE(Eventually([&] { return _service->texts().size() == 2; }));
  const std::lock_guard lock(_service->mutex);
  EXPECT_FALSE(_service->held[0].createReply());
  EXPECT_TRUE(_service->held[1].createReply());
  EXPECT_FALSE(_service->held[1].createReply());
}

TEST_F(Channel, TakesEmptyTexts) {
  _service->listen();
  ChannelClient client;
  EXPECT_EQ(client.request("").get(), "");
  EXPECT_EQ(_service->texts(), Texts{""});
}

TEST_F(Channel, TakesLongTexts) {
  _service->listen();
  ChannelClient client;
  const std::string text(200'000, 'x');
  EXPECT_EQ(client.request(text).get(), text);
}

TEST_F(Channel, CutsRepliesAtTheirFirstZeroByte) {
  _service->holds = true;
  _service->listen();
  ChannelClient client;
  auto reply = client.request("a");
  ASSERT_TRUE(Eventually([&] { return _service->texts().size() == 1; }));
  {
    const std::lock_guard lock(_service->mutex);
    std::optional<ChannelReply> made = _service->held[0].createReply();
    ASSERT_TRUE(made);
    made->setString("text", "replaced");
    made->setString("text", std::string("short\0long", 10));
    _service->peer(0).send(*made);
  }
  EXPECT_EQ(reply.get(), "short");
}

TEST_F(Channel, DeliversNothingBeforeActivation) {
  _service->activates = false;
  _service->listen();
  ChannelClient client;
  auto reply = client.request("early");
  const ChannelPeer peer = _service->peer(0);
  _service->listenerQueue.sync([] {});
  EXPECT_TRUE(_service->texts().empty());
  _service->activate(peer);
  EXPECT_EQ(reply.get(), "early");
}

TEST_F(Channel, TakesNoMoreMessagesWhileManyAreHeld) {
  _service->holds = true;
  _service->listen();
  ChannelClient client;
  for (int i = 0; i < 100; ++i) client.send(std::to_string(i));
  ASSERT_TRUE(Eventually([&] { return _service->texts().size() == 64; }));
  ChannelClient other;  // nobody else is held up
  other.send("other");
  ASSERT_TRUE(Eventually([&] { return _service->texts().size() == 65; }));
  _service->holds = false;
  _service->letGo();
  EXPECT_EQ(client.request("last").get(), "last");
  EXPECT_EQ(_service->texts().size(), 102u);
}

TEST_F(Channel, TakesNoMoreMessagesWhileManyRepliesAreOwed) {
  _service->activates = false;
  _service->listen();
  ChannelClient client;
  const ChannelPeer peer = _service->peer(0);
  std::mutex mutex;
  std::vector<ChannelReply> owed;
  peer.setEventHandler([&, service = _service](const ChannelPeerEvent& event) {
    const auto* message = std::get_if<ChannelMessage>(&event);
    if (message == nullptr) {
      ++service->ended;
      return;
    }
    const std::lock_guard lock(mutex);
    owed.push_back(*message->createReply());  // and lets go of the message
  });
  _service->activate(peer);
  std::vector<std::future<std::optional<std::string>>> replies;
  for (int i = 0; i < 100; ++i) replies.push_back(client.request("x"));
  const auto count = [&] {
    const std::lock_guard lock(mutex);
    return owed.size();
  };
  ASSERT_TRUE(Eventually([&] { return count() == 64; }));
  {
    const std::lock_guard lock(mutex);
    owed.front().setString("text", "first");
    peer.send(owed.front());
  }
  EXPECT_EQ(replies[0].get(), "first");
  ASSERT_TRUE(Eventually([&] { return count() == 65; }));
  {
    const std::lock_guard lock(mutex);
    owed.clear();
  }
  ASSERT_TRUE(Eventually([&] { return count() == 35; }));
  const std::lock_guard lock(mutex);
  owed.clear();
}

TEST_F(Channel, DeliversFromAPeerThatSatisfiesTheRequirement) {
  _service->requirement = contract::kRequirement;
  _service->listen();
  ChannelClient client;
  EXPECT_EQ(client.request("trusted").get(), "trusted");
  EXPECT_EQ(_service->requirementError, 0);
}

TEST_F(Channel, DeliversNothingFromAPeerThatFailsTheRequirement) {
  if (!signClient("com.other")) GTEST_SKIP() << "signed once and for all";
  _service->requirement = contract::kRequirement;
  _service->listen();
  ChannelClient client;
  client.send("a");
  auto reply = client.request("b");
  ASSERT_TRUE(Eventually([&] { return !_service->errors().empty(); }));
  EXPECT_EQ(_service->errors().front(), ChannelError::kPeerCodeSigningRequirement);
  EXPECT_TRUE(client.isEnded());
  EXPECT_TRUE(_service->texts().empty());
  EXPECT_EQ(_service->requirementError, 0);
}

TEST_F(Channel, ReportsAMalformedRequirement) {
  _service->requirement = "anchor apple (";
  _service->activates = false;
  _service->listen();
  ChannelClient client;
  (void)_service->peer(0);
  EXPECT_NE(_service->requirementError, 0);
}

TEST_F(Channel, ReportsAPeerThatLeavesOnceAndLetsGoOfTheHandler) {
  _service->activates = false;
  _service->listen();
  const auto held = std::make_shared<int>(0);
  {
    ChannelClient client;
    const ChannelPeer peer = _service->peer(0);
    _service->setHandler(peer, held);
    _service->activate(peer);
  }
  EXPECT_TRUE(Eventually([&] { return held.use_count() == 1; }));
  EXPECT_EQ(_service->errors(), std::vector<ChannelError>{ChannelError::kConnectionInvalid});
}

TEST_F(Channel, EndsAConnectionThatIsCancelled) {
  _service->listen();
  ChannelClient client;
  EXPECT_EQ(client.request("a").get(), "a");
  _service->peer(0).cancel();
  _service->peer(0).cancel();
  EXPECT_TRUE(client.isEnded());
  EXPECT_TRUE(Eventually([&] { return _service->ended == 1; }));
  EXPECT_EQ(_service->errors().size(), 1u);
}

TEST_F(Channel, EndsARefusedConnectionThatWasNeverActivated) {
  _service->activates = false;
  _service->listen();
  ChannelClient client;
  _service->peer(0).cancel();
  EXPECT_TRUE(client.isEnded());
}

TEST_F(Channel, TakesRepliesToAPeerThatHasLeft) {
  _service->holds = true;
  _service->listen();
  {
    ChannelClient client;
    auto reply = client.request("a");
    ASSERT_TRUE(Eventually([&] { return _service->texts().size() == 1; }));
  }
  EXPECT_TRUE(Eventually([&] { return _service->ended == 1; }));
  const std::lock_guard lock(_service->mutex);
  ChannelService::answer(_service->peer(0), _service->held[0]);
}

TEST_F(Channel, TurnsAwayPeersThatNobodyTakes) {
  ChannelListener listener(contract::kService, _service->listenerQueue);
  listener.activate();
  ChannelClient client;
  EXPECT_TRUE(client.isEnded());
}

TEST_F(Channel, CallsNoHandlerOfAListenerThatHasGone) {
  std::atomic<int> events = 0;
  const Queue& queue = _service->listenerQueue;
  for (const bool activates : {true, false}) {
    ChannelListener listener(contract::kService, queue);
    listener.setEventHandler([&](const ChannelListenerEvent&) { ++events; });
    if (activates) listener.activate();
  }
  ChannelListener(contract::kService, queue);  // one that never had a handler
  for (int i = 0; i < 10; ++i) queue.sync([] {});
  EXPECT_EQ(events, 0);
}

TEST_F(Channel, ReportsAServiceThatIsNotRegistered) {
  std::promise<bool> isInvalid;
  ChannelListener listener("com.brindlex.stream.unknown", _service->listenerQueue);
  listener.setEventHandler([&](const ChannelListenerEvent& event) {
    const auto* error = std::get_if<ChannelError>(&event);
    isInvalid.set_value(error != nullptr && *error == ChannelError::kConnectionInvalid);
  });
  listener.activate();
  EXPECT_TRUE(isInvalid.get_future().get());
}

}  // namespace
}  // namespace platform
