#include "tests/support/virtual/VirtualTime.h"

#include <cstdlib>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "platform/Clock.h"
#include "platform/Host.h"
#include "platform/Queue.h"
#include "tests/support/virtual/Boot.h"

namespace {

// Where the monotonic clock stands some moments after a boot.
constexpr std::uint64_t kBootedNs = 20 * virtual_time::kSecondNs;

struct Delayed {
  const void* timer;  // the timer that it belongs to, if any
  std::function<void()> work;
};

struct World {
  std::uint64_t nowNs = 1'000 * virtual_time::kSecondNs;
  double wallSeconds = 1'790'000'000.25;
  std::deque<std::function<void()>> ready;
  std::multimap<std::uint64_t, Delayed> delayed;
  std::uint64_t leewayNs = 0;
  std::optional<std::string> executablePath = "/usr/local/bin/test";
};

World& TheWorld() {
  static World world;
  return world;
}

void MoveClocks(std::uint64_t ns) {
  TheWorld().nowNs += ns;
  TheWorld().wallSeconds += static_cast<double>(ns) / static_cast<double>(virtual_time::kSecondNs);
}

// Work that the clock has reached joins the queue in the order in which it became due.
void CollectDue() {
  World& world = TheWorld();
  while (!world.delayed.empty() && world.delayed.begin()->first <= world.nowNs) {
    world.ready.push_back(std::move(world.delayed.begin()->second.work));
    world.delayed.erase(world.delayed.begin());
  }
}

void Disarm(const void* timer) {
  std::erase_if(TheWorld().delayed,
                [timer](const auto& entry) { return entry.second.timer == timer; });
}

}  // namespace

namespace virtual_time {

void RunReady() {
  CollectDue();
  World& world = TheWorld();
  while (!world.ready.empty()) {
    const std::function<void()> work = std::move(world.ready.front());
    world.ready.pop_front();
    work();
    CollectDue();
  }
}

void Advance(std::uint64_t ns) {
  World& world = TheWorld();
  const std::uint64_t end = world.nowNs + ns;
  RunReady();
  while (!world.delayed.empty() && world.delayed.begin()->first <= end) {
    MoveClocks(world.delayed.begin()->first - world.nowNs);
    RunReady();
  }
  // Work may itself have taken (virtual) time beyond the end.
  if (world.nowNs < end) MoveClocks(end - world.nowNs);
  RunReady();
}

void ShiftWallClock(double seconds) { TheWorld().wallSeconds += seconds; }

std::optional<std::uint64_t> NanosecondsUntilNext() {
  const World& world = TheWorld();
  if (world.delayed.empty()) return std::nullopt;
  const std::uint64_t due = world.delayed.begin()->first;
  return due > world.nowNs ? due - world.nowNs : 0;
}

std::uint64_t LastLeewayNs() { return TheWorld().leewayNs; }

std::size_t PendingCount() { return TheWorld().delayed.size(); }

void Boot() {
  TheWorld().ready.clear();
  TheWorld().delayed.clear();
  TheWorld().nowNs = kBootedNs;
}

void SetExecutablePath(const std::optional<std::string>& path) { TheWorld().executablePath = path; }

}  // namespace virtual_time

namespace platform {

struct Queue::Impl {
  std::string label;
};

Queue::Queue(const std::string& label) : _impl(std::make_shared<Impl>(Impl{label})) {}

void Queue::async(std::function<void()> work) const { TheWorld().ready.push_back(std::move(work)); }

void Queue::sync(const std::function<void()>& work) const {
  virtual_time::RunReady();
  work();
}

void Queue::after(std::uint64_t delayNs, std::function<void()> work) const {
  TheWorld().delayed.emplace(TheWorld().nowNs + delayNs, Delayed{nullptr, std::move(work)});
}

struct Timer::Impl {
  explicit Impl(std::function<void()> work) : handler(std::move(work)) {}
  ~Impl() { Disarm(this); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  std::function<void()> handler;
};

Timer::Timer(const Queue&, std::function<void()> handler)
    : _impl(std::make_shared<Impl>(std::move(handler))) {}
Timer::~Timer() = default;
Timer::Timer(Timer&&) noexcept = default;
Timer& Timer::operator=(Timer&&) noexcept = default;

void Timer::arm(std::uint64_t delayNs, std::uint64_t leewayNs) {
  TheWorld().leewayNs = leewayNs;
  Disarm(_impl.get());
  TheWorld().delayed.emplace(TheWorld().nowNs + delayNs,
                             Delayed{_impl.get(), [weak = std::weak_ptr(_impl)] {
                                       if (const auto impl = weak.lock()) impl->handler();
                                     }});
}

void ParkMainThread() { std::abort(); }

std::uint64_t ClockMonotonicNs() { return TheWorld().nowNs; }

double ClockSecondsSince1970() { return TheWorld().wallSeconds; }

void ClockSleep(std::uint64_t ns) { MoveClocks(ns); }

std::optional<std::string> HostExecutablePath(std::size_t bufferSize) {
  const std::optional<std::string>& path = TheWorld().executablePath;
  return path && path->size() < bufferSize ? path : std::nullopt;
}

}  // namespace platform
