#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Descriptor.h"
#include "simulator/mac/commands/Commands.h"

namespace simmac {
namespace {

using platform::MacTree;

constexpr mode_t kEverybody = 0666;

/// The lock under which the list is changed.
Descriptor LockFaults(const MacTree& mac) {
  Descriptor lock = OpenFile(mac.path(platform::kMacFaultsLock), O_RDWR | O_CREAT, kEverybody);
  if (lock.valid()) (void)RetryInterrupted([&] { return flock(lock.get(), LOCK_EX); });
  return lock;
}

Json ReadFaults(const MacTree& mac) {
  const Json list = mac.readJson(platform::kMacFaults).value_or(Json::array());
  return list.is_array() ? list : Json::array();
}

}  // namespace

int AddFault(const std::string& root, const Json& fault) {
  if (!IsMac(root)) return 1;
  const MacTree mac(root);
  const Descriptor lock = LockFaults(mac);
  Json list = ReadFaults(mac);
  list.push_back(fault);
  const std::string text = list.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  if (mac.replace(platform::kMacFaults, text, kEverybody)) return 0;
  return Refuse("The faults of " + root + " cannot be written.");
}

int ListFaults(const std::string& root) {
  if (!IsMac(root)) return 1;
  (void)std::printf("%s\n", ReadFaults(MacTree(root)).dump(2).c_str());
  return 0;
}

int ClearFaults(const std::string& root) {
  if (!IsMac(root)) return 1;
  const MacTree mac(root);
  const Descriptor lock = LockFaults(mac);
  if (unlink(mac.path(platform::kMacFaults).c_str()) == 0 || errno == ENOENT) return 0;
  return Refuse("The faults of " + root + " cannot be removed.");
}

}  // namespace simmac
