#include "simulator/portal/Connections.h"

#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>

#include "simulator/portal/Limits.h"

namespace portal {
namespace {

/// The bytes of the record that this header begins, itself included.
std::size_t RecordSize(const unsigned char* header) {
  return SSL3_RT_HEADER_LENGTH + std::size_t{header[3]} * 256 + header[4];
}

}  // namespace

struct Connections::Entry {
  Connections* owner;
  int socket;
  std::size_t received;  ///< bytes since the last request was whole
  std::size_t allowed = kMaxRequestBytes;
};

thread_local Connections::Entry* Connections::_current = nullptr;

Connections::Answering::Answering(Connections& owner) : _owner(owner) {
  if (_current != nullptr) {
    _current->received = 0;
    _current->allowed = kMaxRequestBytes;
  }
  _owner.setDeadline(Clock::time_point::max());
}

Connections::Answering::~Answering() { _owner.setDeadline(Clock::now() + _owner._patience); }

Connections::Connections(std::chrono::milliseconds patience)
    : _patience(patience), _watch([this] { watchClock(); }) {}

Connections::~Connections() {
  {
    const std::lock_guard lock(_mutex);
    _ending = true;
  }
  _ended.notify_all();
  _watch.join();
}

int Connections::index() {
  static const int kIndex = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, &onFree);
  return kIndex;
}

void Connections::watch(SSL_CTX* context) {
  // A free application slot of the context leads its connections back to this object.
  SSL_CTX_set_app_data(context, this);
  SSL_CTX_set_info_callback(context, &onState);
  SSL_CTX_set_msg_callback(context, &onRecord);
}

void Connections::allow(std::size_t bytes) {
  if (_current != nullptr) _current->allowed = kMaxRequestBytes + bytes;
}

void Connections::drop() {
  const std::lock_guard lock(_mutex);
  for (const auto& [socket, deadline] : _deadlines) shutdown(socket, SHUT_RDWR);
}

void Connections::refuse() {
  {
    const std::lock_guard lock(_mutex);
    _refusing = true;
  }
  drop();
}

void Connections::admit() {
  const std::lock_guard lock(_mutex);
  _refusing = false;
}

void Connections::onState(const SSL* connection, int where, int) {
  if ((where & SSL_CB_HANDSHAKE_START) == 0 || SSL_get_ex_data(connection, index()) != nullptr)
    return;
  auto* const owner = static_cast<Connections*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection)));
  owner->add(const_cast<SSL*>(connection));
}

void Connections::add(SSL* connection) {
  auto entry = std::make_unique<Entry>(Entry{this, SSL_get_fd(connection), 0});
  const std::lock_guard lock(_mutex);
  if (SSL_set_ex_data(connection, index(), entry.get()) != 1) return;
  _current = entry.release();
  _deadlines[_current->socket] = Clock::now() + _patience;
  if (_refusing) shutdown(_current->socket, SHUT_RDWR);
}

/// Counts below HTTP, where nothing that a peer may send too much of is left out.
void Connections::onRecord(int written, int, int type, const void* data, std::size_t length,
                           SSL* connection, void*) {
  auto* const entry = static_cast<Entry*>(SSL_get_ex_data(connection, index()));
  if (written != 0 || type != SSL3_RT_HEADER || length < SSL3_RT_HEADER_LENGTH || entry == nullptr)
    return;
  entry->received += RecordSize(static_cast<const unsigned char*>(data));
  if (entry->received > entry->allowed) shutdown(entry->socket, SHUT_RDWR);
}

/// Runs before the socket is closed, so a number in the map never means another file.
void Connections::onFree(void*, void* data, CRYPTO_EX_DATA*, int, long, void*) {
  const std::unique_ptr<Entry> entry(static_cast<Entry*>(data));
  if (!entry) return;
  if (_current == entry.get()) _current = nullptr;
  const std::lock_guard lock(entry->owner->_mutex);
  entry->owner->_deadlines.erase(entry->socket);
}

void Connections::setDeadline(Clock::time_point deadline) {
  if (_current == nullptr) return;
  const std::lock_guard lock(_mutex);
  _deadlines[_current->socket] = deadline;
}

/// @return when to look again: no deadline that is set later comes before
Connections::Clock::time_point Connections::endLate(Clock::time_point now) {
  Clock::time_point next = now + _patience;
  for (auto& [socket, deadline] : _deadlines) {
    if (deadline <= now) {
      shutdown(socket, SHUT_RDWR);
      deadline = Clock::time_point::max();
    }
    next = std::min(next, deadline);
  }
  return next;
}

void Connections::watchClock() {
  std::unique_lock lock(_mutex);
  while (!_ending) _ended.wait_until(lock, endLate(Clock::now()));
}

}  // namespace portal
