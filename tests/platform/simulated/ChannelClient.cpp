#include "tests/platform/ChannelClient.h"

#include "tests/platform/simulated/ChannelPeerSide.h"
#include "tests/platform/simulated/SimulatedRoot.h"

namespace contract {
namespace {

constexpr std::uint8_t kMessage = 1;
constexpr std::uint8_t kRequest = 2;
constexpr std::uint8_t kReply = 3;

}  // namespace

struct ChannelClient::Impl {
  PeerSide peer{Service::kSocket};
  std::uint32_t number = 0;
};

ChannelClient::ChannelClient() : _impl(std::make_unique<Impl>()) {}
ChannelClient::~ChannelClient() = default;

void ChannelClient::send(const std::string& text) {
  (void)_impl->peer.write(FrameBytes(kMessage, 0, Entry("text", text)));
}

std::future<std::optional<std::string>> ChannelClient::request(const std::string& text) {
  const std::uint32_t number = ++_impl->number;
  (void)_impl->peer.write(FrameBytes(kRequest, number, Entry("text", text)));
  return std::async(std::launch::deferred, [this, number]() -> std::optional<std::string> {
    const std::optional<std::string> frame = _impl->peer.readFrame();
    if (!frame) return std::nullopt;
    // What stands between the entry's key and its last byte.
    const std::string head = FrameBytes(kReply, number, std::string("text\0", 5)).substr(4);
    EXPECT_TRUE(frame->starts_with(head));
    return frame->substr(head.size(), frame->size() - head.size() - 1);
  });
}

bool ChannelClient::isEnded() { return _impl->peer.isClosed(); }

void ChannelClient::close() { _impl->peer.close(); }

}  // namespace contract
