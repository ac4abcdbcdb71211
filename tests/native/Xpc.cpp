// XPC, both ends of it within the process.
#include <Block.h>
#include <unistd.h>
#include <xpc/xpc.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "tests/native/Dispatch.h"
#include "tests/native/Doubles.h"

using native::As;
using native::Begin;

struct _xpc_type_s {
  const char* name;
};
struct _xpc_dictionary_s {
  const char* description;
};

extern "C" {
const struct _xpc_type_s _xpc_type_connection = {"connection"};
const struct _xpc_type_s _xpc_type_dictionary = {"dictionary"};
const struct _xpc_type_s _xpc_type_error = {"error"};
const struct _xpc_dictionary_s _xpc_error_connection_invalid = {"Connection invalid"};
const struct _xpc_dictionary_s _xpc_error_connection_interrupted = {"Connection interrupted"};
const struct _xpc_dictionary_s _xpc_error_termination_imminent = {"Process about to be terminated"};
const struct _xpc_dictionary_s _xpc_error_peer_code_signing_requirement = {"Peer forbidden"};
}

namespace native {
namespace {

bool isError(const void* object) {
  return object == XPC_ERROR_CONNECTION_INVALID || object == XPC_ERROR_CONNECTION_INTERRUPTED ||
         object == XPC_ERROR_TERMINATION_IMMINENT ||
         object == XPC_ERROR_PEER_CODE_SIGNING_REQUIREMENT;
}

xpc_object_t objectOf(const void* error) { return const_cast<void*>(error); }

/// Owns a copy of a block.
class Handler : public Object {
 public:
  explicit Handler(xpc_handler_t block) : Object("block"), _block(Block_copy(block)) {}
  void operator()(xpc_object_t event) const { _block(event); }

 private:
  ~Handler() override { Block_release(_block); }

  const xpc_handler_t _block;
};

/// Who waits for a reply.
struct Waiting {
  SerialQueue* queue;
  Handler* handler;
};

class Dictionary : public Object {
 public:
  Dictionary() : Object("XPC dictionary") {}

  std::map<std::string, std::string> strings;
  bool isReply = false;
  /// Of a message: who expects a reply; of a reply: to whom it goes.
  std::optional<Waiting> replyTo;

 protected:
  ~Dictionary() override { giveUp(); }

 private:
  /// A message that is let go without a reply tells whoever waits for one.
  void giveUp() {
    if (!replyTo) return;
    replyTo->queue->enqueue([waiting = *replyTo] {
      (*waiting.handler)(objectOf(XPC_ERROR_CONNECTION_INTERRUPTED));
      waiting.handler->release();
    });
    replyTo->queue->release();
  }
};

/// Any end of a connection. The runtime holds a reference from activation to the last event; so
/// does the other end.
class Connection : public Object {
 public:
  Connection(SerialQueue* queue, std::string service, bool isListener)
      : Object("XPC connection"),
        service(std::move(service)),
        isListener(isListener),
        _queue(queue) {}

  void setHandler(xpc_handler_t block) {
    if (_handler != nullptr) _handler->release();
    _handler = new Handler(block);
  }

  /// Joins two ends.
  static void join(Connection* one, Connection* other) {
    const std::lock_guard lock(one->_mutex);
    one->retain();
    other->retain();
    one->_other = other;
    other->_other = one;
  }

  void activate();
  void cancel();

  /// Takes a message for the handler; of a peer that fails the requirement, it gets an error in the
  /// message's place.
  void receive(Dictionary* message);
  /// While suspended, the handler is called for nothing, and nothing is sent (connection.h).
  void suspend() {
    const std::lock_guard lock(_mutex);
    ++_suspensions;
  }

  void resume() {
    std::vector<std::function<void()>> delayed;
    {
      const std::lock_guard lock(_mutex);
      if (_suspensions-- == 0) Crash("a connection was resumed that was not suspended");
      if (_suspensions == 0) delayed = std::exchange(_delayed, {});
    }
    for (const auto& work : delayed) work();
    flush();
  }

  /// Does something at once, or when the connection is resumed.
  void whenAwake(std::function<void()> work) {
    {
      const std::lock_guard lock(_mutex);
      if (_suspensions > 0) return _delayed.push_back(std::move(work));
    }
    work();
  }

  /// Hands a message to the other end, if there still is one.
  void send(Dictionary* message) {
    const std::lock_guard lock(_mutex);
    if (_other != nullptr) _other->receive(message);
  }
  int setRequirement(const std::string& requirement);
  bool isEnded() const { return _isEnded; }
  void deliver(xpc_object_t event);

  const std::string service;
  const bool isListener;
  pid_t pid = 0;
  uid_t euid = 0;
  au_asid_t asid = 0;

 protected:
  ~Connection() override {
    if (_suspensions > 0) Crash("a suspended connection was released");
    if (!service.empty() && !_isActive) Crash("a connection was released that was never activated");
    if (_handler != nullptr) _handler->release();
    _queue->release();
  }

 private:
  void start();
  void end();
  void part();
  void flush();
  void enqueueTurn();
  Dictionary* next();
  bool isTrusted() const;

  SerialQueue* const _queue;
  Handler* _handler = nullptr;
  Connection* _other = nullptr;
  std::optional<std::string> _requirement;
  std::deque<Dictionary*> _inbox;  ///< messages that were not handed over yet
  std::recursive_mutex _mutex;
  int _suspensions = 0;
  std::vector<std::function<void()>> _delayed;
  bool _isActive = false;
  std::atomic<bool> _isEnded = false;
};

/// Listeners by the name of their service.
struct Registry {
  std::mutex mutex;
  std::map<std::string, Connection*> listeners;
};

Registry& registry() {
  static auto* const only = new Registry;
  return *only;
}

void Connection::deliver(xpc_object_t event) {
  retain();
  if (!isError(event)) Object::of(event)->retain();
  _queue->enqueue([this, event] {
    if (_handler != nullptr) (*_handler)(event);
    if (!isError(event)) Object::of(event)->release();
    release();
  });
}

void Connection::activate() {
  {
    const std::lock_guard lock(_mutex);
    if (std::exchange(_isActive, true)) Crash("a connection was activated twice");
    if (_handler == nullptr) Crash("a connection was activated without a handler");
    retain();  // the runtime's
    if (_isEnded) return end();
  }
  start();
  flush();
}

void Connection::start() {
  if (isListener) {
    if (!TheMac().services.contains(service)) return cancel();
    const std::lock_guard lock(registry().mutex);
    registry().listeners[service] = this;
    return;
  }
  if (_other != nullptr) return;
  Connection* listener = nullptr;
  {
    const std::lock_guard lock(registry().mutex);
    const auto found = registry().listeners.find(service);
    if (found != registry().listeners.end()) listener = found->second;
  }
  if (listener == nullptr) return cancel();
  auto* peer = new Connection(new SerialQueue("peer"), "", false);
  peer->pid = getpid();
  peer->euid = geteuid();
  peer->asid = getsid(0);
  join(this, peer);
  listener->deliver(static_cast<Object*>(peer));
  peer->release();  // held by the event, by this end, and by whoever accepts it
}

void Connection::flush() {
  const std::lock_guard lock(_mutex);
  for (std::size_t i = 0; i < _inbox.size(); ++i) enqueueTurn();
}

void Connection::receive(Dictionary* message) {
  const std::lock_guard lock(_mutex);
  if (_isEnded) return;
  message->retain();
  _inbox.push_back(message);
  enqueueTurn();
}

/// Has the queue hand over the next message, if it may by then.
void Connection::enqueueTurn() {
  retain();
  _queue->enqueue([this] {
    if (Dictionary* message = next()) {
      (*_handler)(isTrusted() ? static_cast<Object*>(message)
                              : objectOf(XPC_ERROR_PEER_CODE_SIGNING_REQUIREMENT));
      message->release();
    }
    release();
  });
}

/// The next message, with its reference.
Dictionary* Connection::next() {
  const std::lock_guard lock(_mutex);
  if (!_isActive || _isEnded || _suspensions > 0 || _inbox.empty()) return nullptr;
  Dictionary* message = _inbox.front();
  _inbox.pop_front();
  return message;
}

bool Connection::isTrusted() const {
  return !_requirement ||
         _requirement->find('"' + TheMac().clientIdentity + '"') != std::string::npos;
}

int Connection::setRequirement(const std::string& requirement) {
  if (_requirement) Crash("a requirement was set twice");
  if (_isActive) Crash("a requirement was set after activation");
  if (requirement.empty() || requirement.find('(') != std::string::npos) return EINVAL;
  _requirement = requirement;
  return 0;
}

void Connection::cancel() {
  if (_isEnded.exchange(true)) return;
  if (isListener) {
    const std::lock_guard lock(registry().mutex);
    std::erase_if(registry().listeners, [this](const auto& entry) { return entry.second == this; });
  }
  const std::lock_guard lock(_mutex);
  for (Dictionary* message : std::exchange(_inbox, {})) message->release();
  if (_isActive) {
    end();
  } else {
    part();
  }
}

/// Ends the other end as well.
void Connection::part() {
  Connection* other = nullptr;
  {
    const std::lock_guard lock(_mutex);
    other = std::exchange(_other, nullptr);
  }
  if (other == nullptr) return;
  other->cancel();
  other->release();
}

/// The last event, after which nobody holds the handler, nor the runtime the connection.
void Connection::end() {
  whenAwake([this] {
    _queue->enqueue([this] {
      if (_handler != nullptr) {
        (*_handler)(objectOf(XPC_ERROR_CONNECTION_INVALID));
        std::exchange(_handler, nullptr)->release();
      }
      part();
      release();
    });
  });
}

}  // namespace
}  // namespace native

using native::Connection;
using native::Dictionary;

extern "C" {

xpc_object_t xpc_retain(xpc_object_t object) {
  if (!native::isError(object)) native::Object::of(object)->retain();
  return object;
}

void xpc_release(xpc_object_t object) {
  if (!native::isError(object)) native::Object::of(object)->release();
}

xpc_type_t xpc_get_type(xpc_object_t object) {
  if (native::isError(object)) return XPC_TYPE_ERROR;
  const bool isConnection = dynamic_cast<Connection*>(native::Object::of(object)) != nullptr;
  return isConnection ? XPC_TYPE_CONNECTION : XPC_TYPE_DICTIONARY;
}

xpc_connection_t xpc_connection_create_mach_service(const char* name, dispatch_queue_t queue,
                                                    uint64_t flags) {
  (void)Begin(__func__, name);
  native::SerialQueue* target = nullptr;
  if (queue != nullptr) {
    target = As<native::SerialQueue>(queue);
    target->retain();
  } else {
    target = new native::SerialQueue("connection");
  }
  const bool isListener = flags == XPC_CONNECTION_MACH_SERVICE_LISTENER;
  native::Object* connection = new Connection(target, name, isListener);
  return reinterpret_cast<xpc_connection_t>(connection);
}

void xpc_connection_set_event_handler(xpc_connection_t connection, xpc_handler_t handler) {
  (void)Begin(__func__);
  As<Connection>(connection)->setHandler(handler);
}

void xpc_connection_activate(xpc_connection_t connection) {
  (void)Begin(__func__);
  As<Connection>(connection)->activate();
}

void xpc_connection_cancel(xpc_connection_t connection) {
  (void)Begin(__func__);
  As<Connection>(connection)->cancel();
}

void xpc_connection_suspend(xpc_connection_t connection) {
  (void)Begin(__func__);
  As<Connection>(connection)->suspend();
}

void xpc_connection_resume(xpc_connection_t connection) {
  (void)Begin(__func__);
  As<Connection>(connection)->resume();
}

pid_t xpc_connection_get_pid(xpc_connection_t connection) {
  return As<Connection>(connection)->pid;
}

uid_t xpc_connection_get_euid(xpc_connection_t connection) {
  return As<Connection>(connection)->euid;
}

au_asid_t xpc_connection_get_asid(xpc_connection_t connection) {
  return As<Connection>(connection)->asid;
}

int xpc_connection_set_peer_code_signing_requirement(xpc_connection_t connection,
                                                     const char* requirement) {
  auto* peer = As<Connection>(connection);
  return Begin(__func__, requirement) ? peer->setRequirement(requirement) : ENOTSUP;
}

xpc_object_t xpc_dictionary_create(const char* const*, const xpc_object_t*, size_t) {
  return static_cast<native::Object*>(new Dictionary);
}

xpc_object_t xpc_dictionary_create_reply(xpc_object_t original) {
  auto* message = As<Dictionary>(original);
  if (!Begin(__func__) || !message->replyTo) return nullptr;
  auto* reply = new Dictionary;
  reply->isReply = true;
  reply->replyTo = std::exchange(message->replyTo, std::nullopt);
  return static_cast<native::Object*>(reply);
}

const char* xpc_dictionary_get_string(xpc_object_t dictionary, const char* key) {
  if (native::isError(dictionary)) return nullptr;
  const auto& strings = As<Dictionary>(dictionary)->strings;
  const auto found = strings.find(key);
  return found != strings.end() ? found->second.c_str() : nullptr;
}

void xpc_dictionary_set_string(xpc_object_t dictionary, const char* key, const char* string) {
  As<Dictionary>(dictionary)->strings[key] = string;
}

void xpc_connection_send_message(xpc_connection_t connection, xpc_object_t message) {
  auto* from = As<Connection>(connection);
  auto* dictionary = As<Dictionary>(message);
  (void)Begin(__func__);
  if (std::optional<native::Waiting> to = std::exchange(dictionary->replyTo, std::nullopt)) {
    dictionary->retain();
    from->whenAwake([dictionary, to] {
      to->queue->enqueue([dictionary, to] {
        (*to->handler)(static_cast<native::Object*>(dictionary));
        to->handler->release();
        dictionary->release();
      });
      to->queue->release();
    });
  } else if (dictionary->isReply) {
    native::Crash("a reply was sent twice");
  } else {
    auto* copy = new Dictionary;
    copy->strings = dictionary->strings;
    from->send(copy);
    copy->release();
  }
}

void xpc_connection_send_message_with_reply(xpc_connection_t connection, xpc_object_t message,
                                            dispatch_queue_t queue, xpc_handler_t handler) {
  auto* from = As<Connection>(connection);
  auto* reply = As<native::SerialQueue>(queue);
  reply->retain();
  auto* copy = new Dictionary;
  copy->strings = As<Dictionary>(message)->strings;
  copy->replyTo = native::Waiting{reply, new native::Handler(handler)};
  from->send(copy);
  copy->release();
}

}  // extern "C"
