// Waiting for what another process or thread does.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

/// Waits until the condition holds; false when it does not within a minute.
inline bool Eventually(const std::function<bool()>& condition) {
  constexpr std::chrono::milliseconds kPause{5};
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(kPause);
  }
  return true;
}
