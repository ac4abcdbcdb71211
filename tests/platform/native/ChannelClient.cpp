#include "tests/platform/ChannelClient.h"

#include <xpc/xpc.h>

#include "tests/platform/World.h"

namespace contract {
namespace {

using Reply = std::optional<std::string>;

Reply textOf(xpc_object_t reply) {
  if (xpc_get_type(reply) != XPC_TYPE_DICTIONARY) return std::nullopt;
  const char* text = xpc_dictionary_get_string(reply, "text");
  return text != nullptr ? Reply(text) : std::nullopt;
}

xpc_object_t messageOf(const std::string& text) {
  const xpc_object_t message = xpc_dictionary_create(nullptr, nullptr, 0);
  xpc_dictionary_set_string(message, "text", text.c_str());
  return message;
}

}  // namespace

struct ChannelClient::Impl {
  const dispatch_queue_t queue = dispatch_queue_create("client", DISPATCH_QUEUE_SERIAL);
  const xpc_connection_t connection = xpc_connection_create_mach_service(kService, queue, 0);
  const std::shared_ptr<std::promise<void>> ended = std::make_shared<std::promise<void>>();
  const std::shared_future<void> end = ended->get_future().share();
};

ChannelClient::ChannelClient() : _impl(std::make_unique<Impl>()) {
  const std::shared_ptr<std::promise<void>> ended = _impl->ended;
  xpc_connection_set_event_handler(_impl->connection, ^(xpc_object_t event) {
    if (event == XPC_ERROR_CONNECTION_INVALID) ended->set_value();
  });
  xpc_connection_activate(_impl->connection);
}

ChannelClient::~ChannelClient() {
  close();
  _impl->end.wait();
  xpc_release(_impl->connection);
  dispatch_release(_impl->queue);
}

void ChannelClient::send(const std::string& text) {
  const xpc_object_t message = messageOf(text);
  xpc_connection_send_message(_impl->connection, message);
  xpc_release(message);
}

std::future<Reply> ChannelClient::request(const std::string& text) {
  const auto promise = std::make_shared<std::promise<Reply>>();
  const xpc_object_t message = messageOf(text);
  xpc_connection_send_message_with_reply(_impl->connection, message, _impl->queue,
                                         ^(xpc_object_t reply) {
                                           promise->set_value(textOf(reply));
                                         });
  xpc_release(message);
  return promise->get_future();
}

bool ChannelClient::isEnded() {
  return _impl->end.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
}

void ChannelClient::close() { xpc_connection_cancel(_impl->connection); }

}  // namespace contract
