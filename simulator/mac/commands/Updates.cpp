#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "simulator/mac/JsonFields.h"
#include "simulator/mac/Limits.h"
#include "simulator/mac/SettingsFile.h"
#include "simulator/mac/SystemVersion.h"
#include "simulator/mac/UpdateCatalogue.h"
#include "simulator/mac/commands/Commands.h"

namespace simmac {
namespace {

using platform::MacTree;

constexpr mode_t kMode = 0644;

/// The catalogue as it is, a new Mac's when there is no file; nothing when it is none.
std::optional<Json> ReadCatalogue(const MacTree& mac) {
  if (access(mac.path(kUpdateCatalogue).c_str(), F_OK) != 0) return UpdateCatalogueSeed();
  std::optional<Json> catalogue = mac.readJson(kUpdateCatalogue);
  if (!catalogue || !catalogue->is_object()) return std::nullopt;
  const Json& updates = FieldOf(*catalogue, "updates");
  return updates.is_null() || updates.is_array() ? catalogue : std::nullopt;
}

int NoCatalogue(const MacTree& mac) {
  return Refuse(mac.path(kUpdateCatalogue) +
                " is no catalogue of updates; \"updates MAC clear\" replaces it.");
}

/// Changes a catalogue that is one. `change` says why it will not, if it will not.
int ChangeCatalogue(const MacTree& mac, const std::function<std::string(Json&)>& change) {
  const std::optional<Json> before = ReadCatalogue(mac);
  if (!before) return NoCatalogue(mac);
  std::string problem;
  const bool written = ChangeSettings(mac, kUpdateCatalogue, [&](Json& catalogue) {
    if (catalogue.empty()) catalogue = *before;
    problem = change(catalogue);
  });
  if (!problem.empty()) return Refuse(problem);
  return written ? 0 : Refuse("The updates of " + mac.path("") + " cannot be written.");
}

void PrintLine(const std::string& line) { (void)std::printf("%s\n", line.c_str()); }

std::string Described(const SoftwareUpdate& update) {
  std::string text = update.label + ": " + update.title;
  if (!update.version.empty()) text += ", version " + update.version;
  text += ", " + std::to_string(update.size) + " KiB";
  if (!update.action.empty()) text += ", " + update.action;
  if (update.deferred) text += ", deferred";
  if (update.asksPassword || update.failureStatus) text += ", fails";
  return text;
}

/// How the catalogue differs from a new Mac's, apart from the updates.
void PrintSettings(const Json& catalogue) {
  const Json seed = UpdateCatalogueSeed();
  for (const auto& [key, value] : catalogue.items()) {
    const bool shown = key == "updates" || key == "installed" || key == "atNextBoot";
    if (shown || FieldOf(seed, key.c_str()) == value) continue;
    PrintLine(key + ": " + value.dump(-1, ' ', false, Json::error_handler_t::replace));
  }
}

/// What stands among the updates and is none.
std::size_t Unusable(const Json& catalogue, const UpdateCatalogue& parsed) {
  const Json& updates = FieldOf(catalogue, "updates");
  return (updates.is_array() ? updates.size() : 0) - parsed.updates.size();
}

void PrintCatalogue(const MacTree& mac, const Json& catalogue) {
  const UpdateCatalogue parsed = ParseUpdateCatalogue(catalogue);
  PrintLine("the Mac has " + ReadSystemVersion(mac).text());
  const Json next = ObjectOf(catalogue, "atNextBoot");
  const SystemVersion system{TextOf(next, "version"), TextOf(next, "build")};
  if (!system.version.empty()) PrintLine("from the next boot on: " + system.text());
  PrintSettings(catalogue);
  if (parsed.updates.empty()) PrintLine("no updates");
  for (const SoftwareUpdate& update : parsed.updates) PrintLine("on offer: " + Described(update));
  const std::size_t unusable = Unusable(catalogue, parsed);
  if (unusable > 0) PrintLine("not usable: " + std::to_string(unusable));
  for (const std::string& label : TextsOf(catalogue, "installed")) PrintLine("installed: " + label);
}

std::string Offer(Json& catalogue, const Json& update) {
  Json& updates = catalogue["updates"];
  if (updates.is_null()) updates = Json::array();
  const std::string label = TextOf(update, "label");
  const bool taken = std::any_of(updates.begin(), updates.end(), [&label](const Json& each) {
    return TextOf(each, "label") == label;
  });
  if (taken) return "The update " + label + " is on offer already.";
  if (updates.size() >= kMaxUpdates) return "There are too many updates on offer.";
  updates.push_back(update);
  return "";
}

}  // namespace

int ShowUpdates(const std::string& root, bool json) {
  if (!IsMac(root)) return 1;
  const MacTree mac(root);
  const std::optional<Json> catalogue = ReadCatalogue(mac);
  if (!catalogue) return NoCatalogue(mac);
  if (json)
    PrintLine(catalogue->dump(2, ' ', false, Json::error_handler_t::replace));
  else
    PrintCatalogue(mac, *catalogue);
  return 0;
}

int AddUpdate(const std::string& root, const Json& update) {
  if (!IsMac(root)) return 1;
  return ChangeCatalogue(MacTree(root),
                         [&update](Json& catalogue) { return Offer(catalogue, update); });
}

int SetUpdates(const std::string& root, const Json& keys) {
  if (!IsMac(root)) return 1;
  return ChangeCatalogue(MacTree(root), [&keys](Json& catalogue) {
    catalogue.merge_patch(keys);
    return std::string();
  });
}

int ClearUpdates(const std::string& root) {
  if (!IsMac(root)) return 1;
  const MacTree mac(root);
  const std::string text = UpdateCatalogueSeed().dump(2) + "\n";
  if (mac.replace(kUpdateCatalogue, text, kMode)) return 0;
  return Refuse("The updates of " + root + " cannot be written.");
}

}  // namespace simmac
