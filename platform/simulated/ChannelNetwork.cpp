#include "platform/simulated/ChannelNetwork.h"

#include <asio/executor_work_guard.hpp>
#include <map>
#include <mutex>
#include <thread>

#include "platform/simulated/Limits.h"

namespace platform {
namespace {

asio::io_context* start() {
  auto* const context = new asio::io_context(1);
  std::thread([context] {
    const auto guard = asio::make_work_guard(*context);
    context->run();
  }).detach();
  return context;
}

/// How many connections there are. Like the event loop, it outlives everything.
struct ConnectionCount {
  std::mutex mutex;
  std::size_t all = 0;
  std::map<pid_t, std::size_t> byProcess;
  std::map<uid_t, std::size_t> byUser;
};

template <class Key>
std::size_t numberOf(const std::map<Key, std::size_t>& counts, Key key) {
  const auto found = counts.find(key);
  return found != counts.end() ? found->second : 0;
}

template <class Key>
void takeOneOff(std::map<Key, std::size_t>& counts, Key key) {
  const auto found = counts.find(key);
  if (--found->second == 0) counts.erase(found);
}

ConnectionCount& connectionCount() {
  static auto* const shared = new ConnectionCount();
  return *shared;
}

}  // namespace

asio::io_context& ChannelNetwork() {
  static asio::io_context* const shared = start();
  return *shared;
}

std::unique_ptr<ConnectionTicket> ConnectionTicket::take(pid_t pid, uid_t uid) {
  ConnectionCount& count = connectionCount();
  const std::lock_guard lock(count.mutex);
  if (count.all >= kMaximumConnections ||
      numberOf(count.byProcess, pid) >= kMaximumConnectionsPerProcess ||
      numberOf(count.byUser, uid) >= kMaximumConnectionsPerUser) {
    return nullptr;
  }
  ++count.byProcess[pid];
  ++count.byUser[uid];
  ++count.all;
  return std::unique_ptr<ConnectionTicket>(new ConnectionTicket(pid, uid));
}

ConnectionTicket::~ConnectionTicket() {
  ConnectionCount& count = connectionCount();
  const std::lock_guard lock(count.mutex);
  takeOneOff(count.byProcess, _pid);
  takeOneOff(count.byUser, _uid);
  --count.all;
}

}  // namespace platform
