// The objects of the libdispatch double, for XPC, which delivers on queues.
#pragma once

#include <dispatch/dispatch.h>

#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "tests/native/Object.h"

namespace native {

/// A serial queue. A thread works for it while there is work, and holds a reference meanwhile.
class SerialQueue : public Object {
 public:
  explicit SerialQueue(const char* label) : Object("dispatch queue"), _label(label) {}

  void enqueue(std::function<void()> work);
  bool isCurrent();

 private:
  void drain();

  const std::string _label;
  std::mutex _mutex;
  std::deque<std::function<void()>> _work;
  bool _isDraining = false;
  std::thread::id _thread;
};

inline dispatch_queue_t HandleOf(SerialQueue* queue) {
  return reinterpret_cast<dispatch_queue_t>(static_cast<Object*>(queue));
}

}  // namespace native
