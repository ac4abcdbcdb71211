// Queues, delayed work and the timer: libdispatch. Work travels as the context of the functions
// that take one, so that it is moved and never copied.
#include "platform/Queue.h"

#include <dispatch/dispatch.h>

#include <algorithm>

#include "platform/macos/DispatchQueue.h"

namespace platform {
namespace {

using Work = std::function<void()>;

void* contextOf(Work work) { return new Work(std::move(work)); }

void runOnce(void* context) {
  const std::unique_ptr<Work> work(static_cast<Work*>(context));
  (*work)();
}

void run(void* context) { (*static_cast<Work*>(context))(); }

void drop(void* context) { delete static_cast<Work*>(context); }

/// A hundred years: a later time is no time to libdispatch, which would lose the work.
constexpr std::uint64_t kLongest = 100ULL * 365 * 24 * 3600 * 1'000'000'000;

/// The clock of libdispatch runs evenly, the monotonic one is slewed to the right time: by half a
/// thousandth at most (adjtime(2)), and work must not come before its time by that clock.
dispatch_time_t inNanoseconds(std::uint64_t delayNs) {
  return dispatch_time(
      DISPATCH_TIME_NOW,
      static_cast<std::int64_t>(std::min(delayNs, kLongest) + std::min(delayNs, kLongest) / 1000));
}

}  // namespace

Queue::Impl::Impl(const char* label) : queue(dispatch_queue_create(label, DISPATCH_QUEUE_SERIAL)) {}
Queue::Impl::~Impl() { dispatch_release(queue); }

Queue::Queue(const std::string& label) : _impl(std::make_shared<Impl>(label.c_str())) {}

void Queue::async(std::function<void()> work) const {
  dispatch_async_f(_impl->queue, contextOf(std::move(work)), runOnce);
}

void Queue::sync(const std::function<void()>& work) const {
  dispatch_sync_f(_impl->queue, const_cast<Work*>(&work), run);
}

void Queue::after(std::uint64_t delayNs, std::function<void()> work) const {
  dispatch_after_f(inNanoseconds(delayNs), _impl->queue, contextOf(std::move(work)), runOnce);
}

struct Timer::Impl {
  Impl(dispatch_queue_t queue, Work work)
      : source(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue)) {
    dispatch_set_context(source, contextOf(std::move(work)));
    // The source outlives this object while its handler runs, and takes the work with it then.
    dispatch_set_finalizer_f(source, drop);
    dispatch_source_set_event_handler_f(source, run);
    dispatch_source_set_timer(source, DISPATCH_TIME_FOREVER, DISPATCH_TIME_FOREVER, 0);
    dispatch_activate(source);
  }
  ~Impl() {
    dispatch_source_cancel(source);
    dispatch_release(source);
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  const dispatch_source_t source;
};

Timer::Timer(const Queue& queue, std::function<void()> handler)
    : _impl(std::make_shared<Impl>(queue.impl()->queue, std::move(handler))) {}
Timer::~Timer() = default;
Timer::Timer(Timer&&) noexcept = default;
Timer& Timer::operator=(Timer&&) noexcept = default;

void Timer::arm(std::uint64_t delayNs, std::uint64_t leewayNs) {
  dispatch_source_set_timer(_impl->source, inNanoseconds(delayNs), DISPATCH_TIME_FOREVER, leewayNs);
}

void ParkMainThread() { dispatch_main(); }

}  // namespace platform
