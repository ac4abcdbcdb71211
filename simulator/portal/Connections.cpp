#include "simulator/portal/Connections.h"

#include <openssl/ssl.h>
#include <sys/socket.h>

#include <memory>

namespace portal {

struct Connections::Entry {
  Connections* owner;
  int socket;
};

int Connections::index() {
  static const int kIndex = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, &onFree);
  return kIndex;
}

void Connections::watch(SSL_CTX* context) {
  // A free application slot of the context leads its connections back to this object.
  SSL_CTX_set_app_data(context, this);
  SSL_CTX_set_info_callback(context, &onState);
}

void Connections::drop() {
  const std::lock_guard lock(_mutex);
  for (const int socket : _sockets) shutdown(socket, SHUT_RDWR);
}

void Connections::onState(const SSL* connection, int where, int) {
  if ((where & SSL_CB_HANDSHAKE_START) == 0 || SSL_get_ex_data(connection, index()) != nullptr)
    return;
  auto* const owner = static_cast<Connections*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection)));
  owner->add(const_cast<SSL*>(connection));
}

void Connections::add(SSL* connection) {
  auto entry = std::make_unique<Entry>(Entry{this, SSL_get_fd(connection)});
  const std::lock_guard lock(_mutex);
  if (SSL_set_ex_data(connection, index(), entry.get()) != 1) return;
  _sockets.insert(entry.release()->socket);
}

/// Runs before the socket is closed, so a number in the set never means another file.
void Connections::onFree(void*, void* data, CRYPTO_EX_DATA*, int, long, void*) {
  const std::unique_ptr<Entry> entry(static_cast<Entry*>(data));
  if (!entry) return;
  const std::lock_guard lock(entry->owner->_mutex);
  entry->owner->_sockets.erase(entry->socket);
}

}  // namespace portal
