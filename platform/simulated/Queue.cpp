#include "platform/Queue.h"

#include <unistd.h>

#include <algorithm>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>
#include <chrono>
#include <future>

namespace platform {
namespace {

/// Threads that all queues share. Work may block: as long as no more than two queues are kept busy
/// by long work (a child process, an update), the others go on without delay.
constexpr std::size_t kPoolThreads = 4;

/// Longest delay, about 146 years: keeps an absolute time from overflowing.
constexpr std::uint64_t kLongestDelayNs = std::uint64_t{1} << 62;

/// Started on first use and never destroyed: its threads may be running while the process exits.
asio::thread_pool& pool() {
  static auto* const shared = new asio::thread_pool(kPoolThreads);
  return *shared;
}

std::chrono::nanoseconds delay(std::uint64_t ns) {
  return std::chrono::nanoseconds(static_cast<std::int64_t>(std::min(ns, kLongestDelayNs)));
}

}  // namespace

using Strand = asio::strand<asio::thread_pool::executor_type>;

struct Queue::Impl {
  Strand strand = asio::make_strand(pool().get_executor());
};

// The label is of use to a debugger that knows queues; a strand has no thread to put it on.
Queue::Queue(const std::string& /*label*/) : _impl(std::make_shared<Impl>()) {}

void Queue::async(std::function<void()> work) const { asio::post(_impl->strand, std::move(work)); }

void Queue::sync(const std::function<void()>& work) const {
  // Shared, because set_value may still be returning when the waiter has gone on.
  const auto finished = std::make_shared<std::promise<void>>();
  async([&work, finished] {
    work();
    finished->set_value();
  });
  finished->get_future().wait();
}

void Queue::after(std::uint64_t delayNs, std::function<void()> work) const {
  auto timer = std::make_shared<asio::steady_timer>(_impl->strand, delay(delayNs));
  timer->async_wait([timer, work = std::move(work)](const std::error_code&) { work(); });
}

struct Timer::Impl {
  Impl(const Queue& queue, std::function<void()> work)
      : timer(queue.impl()->strand), handler(std::move(work)) {}

  asio::steady_timer timer;
  std::function<void()> handler;
  std::uint64_t generation = 0;  ///< counts arms; a firing of an earlier one is void
};

Timer::Timer(const Queue& queue, std::function<void()> handler)
    : _impl(std::make_shared<Impl>(queue, std::move(handler))) {}
Timer::~Timer() = default;
Timer::Timer(Timer&&) noexcept = default;
Timer& Timer::operator=(Timer&&) noexcept = default;

// The firing holds the timer weakly: a timer that is gone when its firing comes up stays silent,
// and its destructor takes the wait back. The leeway is a permission that is not used here.
void Timer::arm(std::uint64_t delayNs, std::uint64_t /*leewayNs*/) {
  const std::uint64_t generation = ++_impl->generation;
  _impl->timer.expires_after(delay(delayNs));
  _impl->timer.async_wait(
      [weak = std::weak_ptr<Impl>(_impl), generation](const std::error_code& error) {
        const std::shared_ptr<Impl> impl = weak.lock();
        if (error || impl == nullptr || impl->generation != generation) return;
        impl->handler();
      });
}

void ParkMainThread() {
  for (;;) (void)pause();  // returns after each handled signal
}

}  // namespace platform
