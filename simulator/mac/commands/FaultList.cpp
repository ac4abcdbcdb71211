#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Descriptor.h"
#include "simulator/mac/JsonFields.h"
#include "simulator/mac/commands/Commands.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

using platform::MacTree;

constexpr mode_t kListMode = 0666;

/// The lock under which the list is changed.
Descriptor LockFaults(const MacTree& mac) {
  Descriptor lock = OpenFile(mac.path(platform::kMacFaultsLock), O_RDWR | O_CREAT, kListMode);
  if (lock.valid()) (void)RetryInterrupted([&] { return flock(lock.get(), LOCK_EX); });
  return lock;
}

/// Services of the platform that ask for faults; the tools do all.
constexpr const char* kServices[] = {
    "channel.setCodeSigningRequirement",
    "crypto.randomBytes",
    "directory.changePassword",
    "directory.deleteRecord",
    "directory.openLocal",
    "directory.userRecord",
    "directory.userUuid",
    "network.addProtocolType",
    "network.apply",
    "network.commit",
    "network.copyProtocol",
    "network.create",
    "network.currentSet",
    "network.lock",
    "network.services",
    "network.setConfiguration",
    "network.setEnabled",
    "network.unlock",
    "propertyList.write",
};

bool IsTarget(const std::string& target) {
  const bool service = std::count(std::begin(kServices), std::end(kServices), target) > 0;
  const bool tool = std::any_of(Tools().begin(), Tools().end(), [&target](const Tool& each) {
    return each.journaled && target == each.path;
  });
  return service || tool;
}

/// The faults as they are; an empty list when there is no file, nothing when it is not a list.
std::optional<Json> ReadFaults(const MacTree& mac) {
  if (access(mac.path(platform::kMacFaults).c_str(), F_OK) != 0) return Json::array();
  std::optional<Json> list = mac.readJson(platform::kMacFaults);
  return list && list->is_array() ? list : std::nullopt;
}

int NotAList(const MacTree& mac) {
  return Refuse(mac.path(platform::kMacFaults) +
                " is not a list of faults; \"fault MAC clear\" removes it.");
}

}  // namespace

int AddFault(const std::string& root, const Json& fault) {
  if (!IsMac(root)) return 1;
  const MacTree mac(root);
  const Descriptor lock = LockFaults(mac);
  std::optional<Json> list = ReadFaults(mac);
  if (!list) return NotAList(mac);
  const std::string target = TextOf(fault, "target");
  // A program that comes later may ask for it, so it is taken all the same.
  if (!IsTarget(target))
    (void)Refuse("Nothing in a Mac is known to ask for faults of " + target + ".");
  list->push_back(fault);
  const std::string text = list->dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  if (mac.replace(platform::kMacFaults, text, kListMode)) return 0;
  return Refuse("The faults of " + root + " cannot be written.");
}

int ListFaults(const std::string& root) {
  if (!IsMac(root)) return 1;
  const MacTree mac(root);
  const std::optional<Json> list = ReadFaults(mac);
  if (!list) return NotAList(mac);
  (void)std::printf("%s\n", list->dump(2).c_str());
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
