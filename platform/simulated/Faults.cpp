#include "platform/simulated/Faults.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "platform/simulated/Descriptor.h"
#include "platform/simulated/MacFiles.h"
#include "platform/simulated/TextMember.h"

namespace platform {
namespace {

constexpr mode_t kFaultsMode = 0666;

std::optional<std::int64_t> integer(const Json& fault, const char* key) {
  const auto found = fault.find(key);
  if (found == fault.end() || !found->is_number_integer()) return std::nullopt;
  return found->get<std::int64_t>();
}

std::optional<int> smallNumber(const Json& fault, const char* key) {
  const std::optional<std::int64_t> value = integer(fault, key);
  if (!value) return std::nullopt;
  return static_cast<int>(*value);
}

bool argumentsMatch(const Json& fault, const std::vector<std::string>& arguments) {
  const auto wanted = fault.find("arguments");
  if (wanted == fault.end()) return true;
  if (!wanted->is_array() || wanted->size() > arguments.size()) return false;
  return std::equal(wanted->begin(), wanted->end(), arguments.begin());
}

bool matches(const Json& fault, const std::string& target,
             const std::vector<std::string>& arguments) {
  return fault.is_object() && TextMember(fault, "target") == target &&
         integer(fault, "times") != 0 && argumentsMatch(fault, arguments);
}

/// Held while the file is read and its uses are counted.
Descriptor lockFaults() {
  Descriptor lock(open(kMacFaultsLock, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFaultsMode));
  if (!lock.valid()) return lock;
  if (RetryInterrupted([&] { return flock(lock.get(), LOCK_EX); }) != 0) return Descriptor();
  return lock;
}

/// The object of the fault to be done, its use counted; nothing when there is none.
std::optional<Json> takeMatch(const std::string& target,
                              const std::vector<std::string>& arguments) {
  const Descriptor lock = lockFaults();
  if (!lock.valid()) return std::nullopt;
  const MacTree mac;
  std::optional<Json> faults = mac.readJson(kMacFaults);
  if (!faults || !faults->is_array()) return std::nullopt;
  const auto found = std::find_if(faults->begin(), faults->end(), [&](const Json& fault) {
    return matches(fault, target, arguments);
  });
  if (found == faults->end()) return std::nullopt;
  const Json fault = *found;
  if (const std::optional<std::int64_t> times = integer(fault, "times")) {
    (*found)["times"] = *times - 1;
    // A use that cannot be counted is one use too many, which a test sees.
    (void)mac.replace(kMacFaults, faults->dump(2, ' ', false, Json::error_handler_t::replace),
                      kFaultsMode);
  }
  return fault;
}

}  // namespace

std::string Fault::serviceErrorText() const {
  return errorOutput.value_or("The operation couldn't be completed.");
}

std::optional<Fault> TakeFault(const std::string& target,
                               const std::vector<std::string>& arguments) {
  if (access(kMacFaults, F_OK) != 0) return std::nullopt;  // the usual case costs one call
  const std::optional<Json> fault = takeMatch(target, arguments);
  if (!fault) return std::nullopt;
  std::this_thread::sleep_for(std::chrono::milliseconds(integer(*fault, "delayMs").value_or(0)));
  const auto effect = fault->find("effect");
  return Fault{.status = smallNumber(*fault, "status"),
               .output = TextMember(*fault, "output"),
               .errorOutput = TextMember(*fault, "errorOutput"),
               .signal = smallNumber(*fault, "signal"),
               .effect = effect != fault->end() && *effect == true};
}

std::optional<Fault> TakeServiceFault(const std::string& service,
                                      const std::vector<std::string>& arguments) {
  std::optional<Fault> fault = TakeFault(service, arguments);
  if (fault && fault->serviceError() == 0) return std::nullopt;
  return fault;
}

}  // namespace platform
