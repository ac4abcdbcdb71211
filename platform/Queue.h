// Serial queues, delayed work, a re-armable timer and the parked main thread.
// Native counterpart: libdispatch (dispatch/queue.h, dispatch/source.h).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace platform {

/// A serial queue: work submitted to it runs one piece at a time, in order of submission, on some
/// thread of the process. A Queue is a handle: copies name the same queue. All members may be
/// called from any thread. Work must not throw.
class Queue {
 public:
  /// Makes a new queue. `label` names it in debuggers and crash reports.
  /// Native: dispatch_queue_create(label, DISPATCH_QUEUE_SERIAL).
  explicit Queue(const std::string& label);

  /// Runs `work` later; returns at once. Native: dispatch_async.
  void async(std::function<void()> work) const;

  /// Runs `work` after everything submitted before it and returns when it has finished. Must not be
  /// called from work that runs on this queue. Native: dispatch_sync.
  void sync(const std::function<void()>& work) const;

  /// Submits `work` once `delayNs` nanoseconds have passed by ClockMonotonicNs, and while a Mac
  /// sleeps, later: the native clock stands still then. Native: dispatch_after.
  void after(std::uint64_t delayNs, std::function<void()> work) const;

  struct Impl;
  /// The implementation behind the handle, for the other services of the same platform.
  const std::shared_ptr<Impl>& impl() const { return _impl; }

 private:
  std::shared_ptr<Impl> _impl;
};

/// A one-shot timer that fires on a queue and can be armed again at any time. Move-only; destroying
/// it cancels a pending firing. Members are called on the timer's own queue.
/// Native: a DISPATCH_SOURCE_TYPE_TIMER source.
class Timer {
 public:
  /// Makes a disarmed timer whose `handler` runs on `queue`.
  Timer(const Queue& queue, std::function<void()> handler);
  ~Timer();
  Timer(Timer&&) noexcept;
  Timer& operator=(Timer&&) noexcept;
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  /// Fires once, `delayNs` nanoseconds from now or up to `leewayNs` later; replaces an earlier
  /// pending firing. Native: dispatch_source_set_timer with DISPATCH_TIME_FOREVER as the interval.
  void arm(std::uint64_t delayNs, std::uint64_t leewayNs);

 private:
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

/// Gives the main thread to the queues for the rest of the process's life.
/// Native: dispatch_main.
[[noreturn]] void ParkMainThread();

}  // namespace platform
