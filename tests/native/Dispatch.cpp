#include "tests/native/Dispatch.h"

#include <unistd.h>

#include <condition_variable>
#include <future>
#include <map>
#include <utility>
#include <vector>

#include "tests/native/Doubles.h"

using native::As;
using native::Begin;

namespace native {
namespace {

constexpr std::uint64_t kForever = DISPATCH_TIME_FOREVER;

std::uint64_t now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);  // stands still while the machine sleeps
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(time.tv_nsec);
}

/// Work that becomes due, kept by a thread of its own. Never destroyed.
class Schedule {
 public:
  /// `due` runs on the schedule's thread; `drop` gives it up.
  struct Entry {
    std::function<void()> due;
    std::function<void()> drop;
    const void* owner;
  };

  static Schedule& only() {
    static auto* const schedule = new Schedule;
    return *schedule;
  }

  void add(std::uint64_t deadline, Entry entry) {
    const std::lock_guard lock(_mutex);
    if (!std::exchange(_isRunning, true)) std::thread([this] { run(); }).detach();
    _entries.emplace(deadline, std::move(entry));
    _changed.notify_one();
  }

  /// Gives up the entries of an owner, or all that have none.
  void drop(const void* owner) {
    std::vector<Entry> dropped;
    {
      const std::lock_guard lock(_mutex);
      std::erase_if(_entries, [&](const auto& entry) {
        if (entry.second.owner != owner) return false;
        dropped.push_back(entry.second);
        return true;
      });
    }
    for (const Entry& entry : dropped) entry.drop();
  }

 private:
  void run() {
    std::unique_lock lock(_mutex);
    for (;;) {
      if (_entries.empty()) {
        _changed.wait(lock);
      } else if (const std::uint64_t deadline = _entries.begin()->first; deadline > now()) {
        const std::uint64_t wait = std::min<std::uint64_t>(deadline - now(), 1'000'000'000);
        _changed.wait_for(lock, std::chrono::nanoseconds(wait));
      } else {
        const Entry entry = std::move(_entries.extract(_entries.begin()).mapped());
        lock.unlock();
        entry.due();
        lock.lock();
      }
    }
  }

  std::mutex _mutex;
  std::condition_variable _changed;
  std::multimap<std::uint64_t, Entry> _entries;
  bool _isRunning = false;
};

/// A timer. While it is armed the schedule holds a reference, until it fires or is cancelled.
class TimerSource : public Object {
 public:
  explicit TimerSource(SerialQueue* queue) : Object("dispatch source"), _queue(queue) {
    queue->retain();
  }

  void setContext(void* context) { _context = context; }
  void setFinalizer(dispatch_function_t finalizer) { _finalizer = finalizer; }
  void setHandler(dispatch_function_t handler) { _handler = handler; }
  void activate() { _isActive = true; }

  void arm(dispatch_time_t start) {
    const std::uint64_t generation = ++_generation;
    Schedule::only().drop(this);
    if (start == kForever || _isCancelled) return;
    retain();
    Schedule::only().add(start,
                         {[this, generation] { fire(generation); }, [this] { release(); }, this});
  }

  void cancel() {
    _isCancelled = true;
    Schedule::only().drop(this);
  }

 protected:
  void dispose() override {
    if (!_isActive) Crash("a source was released that had never been activated");
    if (!_isCancelled) Crash("a source was released that had not been cancelled");
    if (_finalizer != nullptr && _context != nullptr) {
      _queue->enqueue([finalizer = _finalizer, context = _context] { finalizer(context); });
    }
    _queue->release();
    delete this;
  }

 private:
  /// Takes over the schedule's reference.
  void fire(std::uint64_t generation) {
    _queue->enqueue([this, generation] {
      if (_isActive && !_isCancelled && generation == _generation) _handler(_context);
      release();
    });
  }

  SerialQueue* const _queue;
  void* _context = nullptr;
  dispatch_function_t _finalizer = nullptr;
  dispatch_function_t _handler = nullptr;
  std::atomic<bool> _isActive = false;
  std::atomic<bool> _isCancelled = false;
  std::atomic<std::uint64_t> _generation = 0;
};

}  // namespace

void SerialQueue::enqueue(std::function<void()> work) {
  const std::lock_guard lock(_mutex);
  _work.push_back(std::move(work));
  if (std::exchange(_isDraining, true)) return;
  retain();
  std::thread([this] { drain(); }).detach();
}

bool SerialQueue::isCurrent() {
  const std::lock_guard lock(_mutex);
  return _isDraining && _thread == std::this_thread::get_id();
}

void SerialQueue::drain() {
  std::unique_lock lock(_mutex);
  _thread = std::this_thread::get_id();
  while (!_work.empty()) {
    std::function<void()> work = std::move(_work.front());
    _work.pop_front();
    lock.unlock();
    work();
    work = nullptr;
    lock.lock();
  }
  _isDraining = false;
  lock.unlock();
  release();
}

void ForgetDelayedWork() { Schedule::only().drop(nullptr); }

}  // namespace native

/// Known by its address.
struct dispatch_source_type_s {
  char unused;
};

extern "C" {

const struct dispatch_source_type_s _dispatch_source_type_timer = {};

dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t attribute) {
  if (attribute != DISPATCH_QUEUE_SERIAL) native::Crash("a queue that is not serial");
  (void)Begin(__func__, label);
  return native::HandleOf(new native::SerialQueue(label));
}

void dispatch_release(dispatch_object_t object) { native::Object::of(object)->release(); }

void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
  (void)Begin(__func__);
  As<native::SerialQueue>(queue)->enqueue([=] { work(context); });
}

void dispatch_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
  (void)Begin(__func__);
  auto* serial = As<native::SerialQueue>(queue);
  if (serial->isCurrent()) native::Crash("a queue waits for itself");
  std::promise<void> done;
  serial->enqueue([&, work, context] {
    work(context);
    done.set_value();
  });
  done.get_future().wait();
}

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) {
  if (when != DISPATCH_TIME_NOW || delta < 0) native::Crash("not as in use");
  const std::uint64_t time = native::now() + static_cast<std::uint64_t>(delta);
  return time > static_cast<std::uint64_t>(INT64_MAX) ? native::kForever : time;
}

void dispatch_after_f(dispatch_time_t when, dispatch_queue_t queue, void* context,
                      dispatch_function_t work) {
  (void)Begin(__func__);
  if (when == native::kForever) native::Crash("dispatch_after never comes");
  auto* serial = As<native::SerialQueue>(queue);
  serial->retain();
  const auto due = [=] {
    serial->enqueue([=] { work(context); });
    serial->release();
  };
  // The work itself is lost with the process.
  static auto* const lost = new std::vector<void*>;
  native::Schedule::only().add(when, {due,
                                      [=] {
                                        lost->push_back(context);
                                        serial->release();
                                      },
                                      nullptr});
}

dispatch_source_t dispatch_source_create(dispatch_source_type_t type, uintptr_t, uintptr_t,
                                         dispatch_queue_t queue) {
  if (type != DISPATCH_SOURCE_TYPE_TIMER) native::Crash("another source than a timer");
  (void)Begin(__func__);
  auto* source = new native::TimerSource(As<native::SerialQueue>(queue));
  return reinterpret_cast<dispatch_source_t>(static_cast<native::Object*>(source));
}

void dispatch_set_context(dispatch_object_t object, void* context) {
  As<native::TimerSource>(object)->setContext(context);
}

void dispatch_set_finalizer_f(dispatch_object_t object, dispatch_function_t finalizer) {
  As<native::TimerSource>(object)->setFinalizer(finalizer);
}

void dispatch_source_set_event_handler_f(dispatch_source_t source, dispatch_function_t handler) {
  As<native::TimerSource>(source)->setHandler(handler);
}

void dispatch_activate(dispatch_object_t object) { As<native::TimerSource>(object)->activate(); }

void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, uint64_t interval,
                               uint64_t leeway) {
  if (interval != native::kForever) native::Crash("a timer that repeats");
  (void)Begin(__func__, start == native::kForever ? "forever" : "leeway " + std::to_string(leeway));
  As<native::TimerSource>(source)->arm(start);
}

void dispatch_source_cancel(dispatch_source_t source) {
  (void)Begin(__func__);
  As<native::TimerSource>(source)->cancel();
}

void dispatch_main(void) {
  if (getpid() != gettid()) native::Crash("dispatch_main was called off the main thread");
  for (;;) pause();
}

}  // extern "C"
