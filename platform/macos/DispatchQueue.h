// What a queue is made of, for the services that hand work to one.
#pragma once

#include <dispatch/dispatch.h>

#include "platform/Queue.h"

namespace platform {

/// Owns a serial dispatch queue.
struct Queue::Impl {
  explicit Impl(const char* label);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  const dispatch_queue_t queue;
};

}  // namespace platform
