// The open TLS connections of a server, so that they can be ended from outside and do not last for
// ever.
#pragma once

#include <openssl/types.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <thread>

namespace portal {

/// Keeps account of the connections of an `SSL_CTX`, from the first byte of the handshake until
/// OpenSSL lets go of them. A connection that stays too long without a whole request, or sends too
/// much before it is one, is ended. Every method may be called on any thread.
class Connections {
 public:
  /// Marks the time in which the request of this thread's connection is answered, which is not the
  /// peer's. A request counts as whole as soon as it begins.
  class Answering {
   public:
    explicit Answering(Connections& owner);
    ~Answering();
    Answering(const Answering&) = delete;
    Answering& operator=(const Answering&) = delete;

   private:
    Connections& _owner;
  };

  /// @param patience how long a connection may last without a whole request, from its beginning or
  ///        from the answer before
  explicit Connections(std::chrono::milliseconds patience);
  ~Connections();
  Connections(const Connections&) = delete;
  Connections& operator=(const Connections&) = delete;

  /// Begins to watch. Must outlive every connection of the context, each of which is served on one
  /// thread, one at a time.
  void watch(SSL_CTX* context);

  /// Lets the request of this thread's connection, until it is whole, be so much larger than
  /// others.
  /// @param bytes beyond `kMaxRequestBytes`
  static void allow(std::size_t bytes);

  /// Shuts every open connection down; whoever reads or writes one notices.
  void drop();

  /// As `drop`, and every new connection likewise until `admit` is called.
  void refuse();
  void admit();

 private:
  using Clock = std::chrono::steady_clock;
  struct Entry;

  static int index();
  static void onState(const SSL* connection, int where, int result);
  static void onRecord(int written, int version, int type, const void* data, std::size_t length,
                       SSL* connection, void* pointer);
  static void onFree(void* parent, void* entry, CRYPTO_EX_DATA* data, int index, long number,
                     void* pointer);
  void add(SSL* connection);
  void setDeadline(Clock::time_point deadline);
  Clock::time_point endLate(Clock::time_point now);
  void watchClock();

  static thread_local Entry* _current;  ///< the connection that this thread serves

  const std::chrono::milliseconds _patience;
  std::mutex _mutex;  ///< guards the members below, but for the thread
  std::condition_variable _ended;
  std::map<int, Clock::time_point> _deadlines;  ///< by socket
  bool _refusing = false;
  bool _ending = false;
  std::thread _watch;
};

}  // namespace portal
