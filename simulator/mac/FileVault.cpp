#include "simulator/mac/FileVault.h"

namespace simmac {
namespace {

constexpr char kOff[] = "FileVault is Off.";

}  // namespace

std::string FileVaultStatus(const platform::MacTree& mac) {
  const std::optional<Json> file = mac.readJson(platform::kMacFileVault);
  if (!file || !file->is_object()) return kOff;
  const auto status = file->find("status");
  return status != file->end() && status->is_string() ? status->get<std::string>() : kOff;
}

bool FileVaultIsOn(const platform::MacTree& mac) {
  const std::string status = FileVaultStatus(mac);
  // A line about an enablement to come may follow the state.
  return status.substr(0, status.find('\n')) != kOff;
}

}  // namespace simmac
