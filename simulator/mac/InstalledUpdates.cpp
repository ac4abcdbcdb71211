#include "simulator/mac/InstalledUpdates.h"

#include <algorithm>

#include "simulator/mac/JsonFields.h"
#include "simulator/mac/Limits.h"
#include "simulator/mac/SettingsFile.h"

namespace simmac {
namespace {

using platform::MacTree;

constexpr char kAtNextBoot[] = "atNextBoot";

/// Takes the update off the offers. False when it is on none, because somebody took it away.
bool TakeOffOffer(Json& catalogue, const std::string& label) {
  const Json& offers = FieldOf(catalogue, "updates");
  if (!offers.is_array()) return false;
  Json left = Json::array();
  for (const Json& each : offers) {
    if (TextOf(each, "label") != label) left.push_back(each);
  }
  if (left.size() == offers.size()) return false;
  catalogue["updates"] = left;
  return true;
}

void AddToInstalled(Json& catalogue, const std::string& label) {
  std::vector<std::string> labels = TextsOf(catalogue, "installed");
  labels.push_back(label);
  const std::size_t most = std::min(labels.size(), kMaxUpdates);
  labels.erase(labels.begin(), labels.end() - static_cast<std::ptrdiff_t>(most));
  catalogue["installed"] = labels;
}

}  // namespace

bool NoteInstalled(const MacTree& mac, const SoftwareUpdate& update) {
  const bool atOnce = update.replacesSystem && !update.needsBoot();
  if (atOnce && !WriteSystemVersion(mac, {update.version, update.build})) return false;
  return ChangeSettings(mac, kUpdateCatalogue, [&update](Json& catalogue) {
    if (!TakeOffOffer(catalogue, update.label)) return;
    AddToInstalled(catalogue, update.label);
    if (!update.replacesSystem) return;
    catalogue.erase(kAtNextBoot);
    if (!update.needsBoot()) return;
    catalogue[kAtNextBoot] = {{"version", update.version}, {"build", update.build}};
  });
}

std::optional<SystemVersion> FinishUpdates(const MacTree& mac) {
  const Json system = ObjectOf(ReadSettings(mac, kUpdateCatalogue), kAtNextBoot);
  const SystemVersion installed{TextOf(system, "version"), TextOf(system, "build")};
  if (installed.version.empty() || !WriteSystemVersion(mac, installed)) return std::nullopt;
  const bool noted =
      ChangeSettings(mac, kUpdateCatalogue, [](Json& catalogue) { catalogue.erase(kAtNextBoot); });
  return noted ? std::optional(ReadSystemVersion(mac)) : std::nullopt;
}

}  // namespace simmac
