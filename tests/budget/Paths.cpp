// The daemon's two hottest paths, for an instruction counter to look at: each runs as often as
// asked in a function of its own name. Says how many allocations one run takes.
//
// usage: budget_paths status|save COUNT
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "tests/support/MacFolder.h"

template <void (KioskDaemon::*Member)()>
struct RevealSave {
  friend void Save(KioskDaemon& daemon) { (daemon.*Member)(); }
};
void Save(KioskDaemon& daemon);
template struct RevealSave<&KioskDaemon::save>;

namespace {

constexpr std::size_t kStateBytes = 4096;
constexpr char kRequest[] = R"({"cmd":"status"})";

thread_local long allocations = 0;

std::shared_ptr<KioskDaemon> StartedDaemon(const MacFolder& mac) {
  mac.writeState({{"filler", std::string(kStateBytes, 'x')}});
  auto daemon = std::make_shared<KioskDaemon>();
  daemon->queue().sync([&] { daemon->start(); });
  return daemon;
}

}  // namespace

void* operator new(std::size_t size) {
  ++allocations;
  void* const memory = std::malloc(size);
  if (memory == nullptr) std::abort();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

// What a peer's "status" takes between the channel's message and its reply.
extern "C" [[gnu::noinline]] void BudgetedStatus(const KioskDaemon& daemon, int count) {
  for (; count > 0; --count) {
    const std::optional<Json> request = KioskJsonParse(kRequest);
    if (KioskMember(*request, "cmd") != "status" || daemon.statusText(0).empty()) std::abort();
  }
}

extern "C" [[gnu::noinline]] void BudgetedSave(KioskDaemon& daemon, int count) {
  for (; count > 0; --count) Save(daemon);
}

int main(int count, char** values) {
  if (count != 3) return 64;
  const std::string path = values[1];
  const int times = std::atoi(values[2]);
  MacFolder mac;
  mac.enter();
  const std::shared_ptr<KioskDaemon> daemon = StartedDaemon(mac);
  const long before = allocations;
  if (path == "status") BudgetedStatus(*daemon, times);
  if (path == "save") BudgetedSave(*daemon, times);
  std::printf("allocations %ld\n", (allocations - before) / times);
}
