// The order of native calls, and what follows when they fail.
#include <cerrno>

#include "platform/Queue.h"
#include "tests/native/Doubles.h"
#include "tests/platform/ChannelClient.h"
#include "tests/platform/ChannelService.h"

namespace platform {
namespace {

using contract::ChannelClient;
using contract::ChannelService;
using contract::Eventually;

/// The calls of XPC so far that set a connection up or end it.
std::vector<std::string> connectionCalls() {
  std::vector<std::string> calls;
  for (const std::string& call : native::Calls()) {
    if (call.starts_with("xpc_connection_") && !call.starts_with("xpc_connection_send")) {
      calls.push_back(call);
    }
  }
  return calls;
}

class ChannelFailure : public contract::World {
 protected:
  ChannelFailure() {
    registerService();
    signClient("com.brindlex.stream");
  }
  ~ChannelFailure() override { _service->end(); }

  const std::shared_ptr<ChannelService> _service = std::make_shared<ChannelService>();
};

TEST_F(ChannelFailure, OfTheRequirementIsReportedAsItsNumber) {
  native::Fail("xpc_connection_set_peer_code_signing_requirement");
  _service->requirement = "anchor apple generic";
  _service->activates = false;
  _service->listen();
  ChannelClient client;
  (void)_service->peer(0);
  EXPECT_EQ(_service->requirementError, ENOTSUP);
}

TEST_F(ChannelFailure, OfTheReplyGivesNone) {
  _service->holds = true;
  _service->listen();
  ChannelClient client;
  auto reply = client.request("a");
  ASSERT_TRUE(Eventually([&] { return _service->texts().size() == 1; }));
  native::Fail("xpc_dictionary_create_reply");
  {
    const std::lock_guard lock(_service->mutex);
    EXPECT_FALSE(_service->held[0].createReply());
  }
  _service->letGo();
  EXPECT_EQ(reply.get(), std::nullopt);  // and its sender is told
}

TEST_F(ChannelFailure, OfTextsThatAreTooLongIsAnAbsentText) {
  _service->listen();
  ChannelClient client;
  EXPECT_EQ(client.request(std::string(1024 * 1024, 'x')).get()->size(), 1024u * 1024);
  EXPECT_EQ(client.request(std::string(1024 * 1024 + 1, 'x')).get(), "");
  EXPECT_EQ(_service->texts().back(), "(none)");
}

TEST_F(ChannelFailure, KeepsTheOrderOfCallsOfAListener) {
  native::ForgetCalls();
  _service->listen();
  EXPECT_EQ(
      connectionCalls(),
      (std::vector<std::string>{"xpc_connection_create_mach_service(com.brindlex.stream.contract)",
                                "xpc_connection_set_event_handler", "xpc_connection_activate"}));
}

TEST_F(ChannelFailure, SetsAPeersRequirementBeforeItsHandlerAndActivatesItLast) {
  _service->requirement = "anchor apple generic";
  _service->listen();
  ChannelClient client;
  (void)_service->peer(0);
  const std::vector<std::string> calls = connectionCalls();
  ASSERT_GE(calls.size(), 3u);
  EXPECT_EQ(std::vector<std::string>(calls.end() - 3, calls.end()),
            (std::vector<std::string>{
                "xpc_connection_set_peer_code_signing_requirement(anchor apple generic)",
                "xpc_connection_set_event_handler", "xpc_connection_activate"}));
}

TEST(TimerCalls, PassTheLeewayOn) {
  const Queue queue("timer");
  native::ForgetCalls();
  queue.sync([&] {
    Timer timer(queue, [] {});
    timer.arm(3'600'000'000'000, 1'000'000'000);
  });
  const std::vector<std::string> calls = native::Calls();
  const std::vector<std::string> expected = {
      "dispatch_sync_f", "dispatch_source_create", "dispatch_source_set_timer(forever)",
      "dispatch_source_set_timer(leeway 1000000000)", "dispatch_source_cancel"};
  EXPECT_EQ(calls, expected);
}

TEST(QueueCalls, NameTheQueue) {
  native::ForgetCalls();
  const Queue queue("com.brindlex.stream.kioskd.work");
  EXPECT_EQ(native::Calls(),
            std::vector<std::string>{"dispatch_queue_create(com.brindlex.stream.kioskd.work)"});
}

// Other platforms may have connections share a thread, which a handler must not keep busy then.
TEST_F(ChannelFailure, OfAHandlerToReturnHoldsUpNobodyElse) {
  _service->activates = false;
  _service->listen();
  ChannelClient busy;
  std::promise<void> release;
  std::promise<void> entered;
  const ChannelPeer peer = _service->peer(0);
  peer.setEventHandler([&, peer](const ChannelPeerEvent& event) {
    if (const auto* message = std::get_if<ChannelMessage>(&event)) {
      entered.set_value();
      release.get_future().wait();
      ChannelService::answer(peer, *message);
    } else {
      ++_service->ended;
    }
  });
  _service->activates = true;
  _service->activate(peer);
  auto late = busy.request("second");
  entered.get_future().wait();
  ChannelClient other;
  EXPECT_EQ(other.request("third").get(), "third");
  release.set_value();
  EXPECT_EQ(late.get(), "second");
}

}  // namespace
}  // namespace platform
