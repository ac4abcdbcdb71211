// The open TLS connections of a server, so that they can be ended from outside.
#pragma once

#include <openssl/types.h>

#include <mutex>
#include <set>

namespace portal {

/// Keeps account of the connections of an `SSL_CTX`, from the first byte of the handshake until
/// OpenSSL lets go of them. Every method may be called on any thread.
class Connections {
 public:
  /// Begins to watch. Must outlive every connection of the context.
  void watch(SSL_CTX* context);

  /// Shuts every open connection down; whoever reads or writes one notices.
  void drop();

 private:
  struct Entry;
  static int index();
  static void onState(const SSL* connection, int where, int result);
  static void onFree(void* parent, void* entry, CRYPTO_EX_DATA* data, int index, long number,
                     void* pointer);
  void add(SSL* connection);

  std::mutex _mutex;
  std::set<int> _sockets;
};

}  // namespace portal
