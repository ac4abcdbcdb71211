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
};

ConnectionCount& connectionCount() {
  static auto* const shared = new ConnectionCount();
  return *shared;
}

}  // namespace

asio::io_context& ChannelNetwork() {
  static asio::io_context* const shared = start();
  return *shared;
}

std::unique_ptr<ConnectionTicket> ConnectionTicket::take(pid_t pid) {
  ConnectionCount& count = connectionCount();
  const std::lock_guard lock(count.mutex);
  if (count.all >= kMaximumConnections) return nullptr;
  std::size_t& ofProcess = count.byProcess[pid];
  if (ofProcess >= kMaximumConnectionsPerProcess) return nullptr;
  ++ofProcess;
  ++count.all;
  return std::unique_ptr<ConnectionTicket>(new ConnectionTicket(pid));
}

ConnectionTicket::~ConnectionTicket() {
  ConnectionCount& count = connectionCount();
  const std::lock_guard lock(count.mutex);
  const auto found = count.byProcess.find(_pid);
  if (--found->second == 0) count.byProcess.erase(found);
  --count.all;
}

}  // namespace platform
