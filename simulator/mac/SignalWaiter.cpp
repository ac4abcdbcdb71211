#include "simulator/mac/SignalWaiter.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

namespace simmac {
namespace {

int MillisecondsUntil(std::optional<Clock::time_point> deadline) {
  if (!deadline) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
  constexpr decltype(left) kLongest = 1 << 30;
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, kLongest));
}

}  // namespace

SignalWaiter::SignalWaiter(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : signals) sigaddset(&set, number);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  _descriptor = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

std::optional<int> SignalWaiter::wait(std::optional<Clock::time_point> deadline) {
  while (true) {
    signalfd_siginfo info{};
    if (read(_descriptor.get(), &info, sizeof info) == sizeof info) {
      _value = info.ssi_int;
      return static_cast<int>(info.ssi_signo);
    }
    if (deadline && Clock::now() >= *deadline) return std::nullopt;
    pollfd source{_descriptor.get(), POLLIN, 0};
    (void)poll(&source, 1, MillisecondsUntil(deadline));
  }
}

}  // namespace simmac
