#include "simulator/mac/UpdateCatalogue.h"

#include <algorithm>
#include <array>
#include <utility>

#include "simulator/mac/JsonFields.h"
#include "simulator/mac/Limits.h"

namespace simmac {
namespace {

constexpr std::array<std::pair<const char*, ProgressStyle>, 4> kProgressStyles = {
    {{"lines", ProgressStyle::kLines},
     {"returns", ProgressStyle::kReturns},
     {"together", ProgressStyle::kTogether},
     {"none", ProgressStyle::kNone}}};

ProgressStyle ParseProgress(const std::string& name) {
  const auto* found = std::find_if(kProgressStyles.begin(), kProgressStyles.end(),
                                   [&name](const auto& each) { return name == each.first; });
  return found == kProgressStyles.end() ? ProgressStyle::kLines : found->second;
}

std::optional<int> StatusOf(const Json& object, const char* key) {
  constexpr std::int64_t kHighest = 255;
  const Json& field = FieldOf(object, key);
  const std::int64_t status = IntegerOf(object, key);
  const bool valid = field.is_number_integer() && status >= 0 && status <= kHighest;
  return valid ? std::optional(static_cast<int>(status)) : std::nullopt;
}

std::int64_t SizeOf(const Json& object, const char* key) {
  return std::clamp<std::int64_t>(IntegerOf(object, key), 0, kMaxUpdateSize);
}

std::chrono::milliseconds DurationOf(const Json& object, const char* key) {
  return std::clamp(std::chrono::milliseconds(IntegerOf(object, key)), std::chrono::milliseconds(0),
                    std::chrono::milliseconds(kMaxUpdateDuration));
}

std::string ParseAction(const std::string& action) {
  return action == "restart" || action == "shut down" ? action : "";
}

void ParseFailure(const Json& failure, SoftwareUpdate& update) {
  if (!failure.is_object()) return;
  update.failureStatus = StatusOf(failure, "status").value_or(1);
  update.failureText = TextOf(failure, "text");
}

std::optional<SoftwareUpdate> ParseUpdate(const Json& object) {
  SoftwareUpdate update;
  update.label = TextOf(object, "label");
  if (update.label.empty()) return std::nullopt;
  update.title = TextOf(object, "title");
  if (update.title.empty()) update.title = update.label;
  update.version = TextOf(object, "version");
  update.build = TextOf(object, "build");
  update.unit = TextOf(object, "unit") == "K" ? "K" : "KiB";
  update.action = ParseAction(TextOf(object, "action"));
  update.size = SizeOf(object, "size");
  update.recommended = FlagOf(object, "recommended", true);
  update.deferred = FlagOf(object, "deferred");
  update.replacesSystem = FlagOf(object, "macos") && !update.version.empty();
  update.restartNotice = FlagOf(object, "restartNotice");
  update.asksPassword = FlagOf(object, "password");
  update.duration = DurationOf(object, "durationMs");
  ParseFailure(FieldOf(object, "failure"), update);
  return update;
}

std::vector<SoftwareUpdate> ParseUpdates(const Json& list) {
  std::vector<SoftwareUpdate> updates;
  if (!list.is_array()) return updates;
  for (const Json& each : list) {
    if (updates.size() == kMaxUpdates) break;
    if (std::optional<SoftwareUpdate> update = ParseUpdate(each)) updates.push_back(*update);
  }
  return updates;
}

std::string ModernText(const SoftwareUpdate& update) {
  std::string fields = "Title: " + update.title + ", Version: " + update.version +
                       ", Size: " + std::to_string(update.size) + update.unit +
                       ", Recommended: " + (update.recommended ? "YES" : "NO") + ", ";
  if (!update.action.empty()) fields += "Action: " + update.action + ", ";
  if (update.deferred) fields += "Deferred: YES";
  return "* Label: " + update.label + "\n\t" + fields + "\n";
}

std::string OldText(const SoftwareUpdate& update) {
  const std::string version = update.version.empty() ? " " : update.version;
  std::string fields = update.title + " (" + version + "), " + std::to_string(update.size) + "K";
  if (update.recommended) fields += " [recommended]";
  if (!update.action.empty()) fields += " [" + update.action + "]";
  return std::string(update.recommended ? "   * " : "   - ") + update.label + "\n\t" + fields +
         "\n";
}

}  // namespace

Json UpdateCatalogueSeed() {
  return {{"format", "modern"},
          {"progress", "lines"},
          {"reachable", true},
          {"updates", Json::array()},
          {"installed", Json::array()}};
}

UpdateCatalogue ParseUpdateCatalogue(const Json& catalogue) {
  UpdateCatalogue parsed;
  parsed.oldFormat = TextOf(catalogue, "format") == "old";
  parsed.progress = ParseProgress(TextOf(catalogue, "progress"));
  parsed.reachable = FlagOf(catalogue, "reachable", true);
  parsed.scanError = TextOf(catalogue, "scanError");
  parsed.scan = DurationOf(catalogue, "scanMs");
  parsed.noise = TextsOf(catalogue, "noise");
  parsed.listStatus = StatusOf(catalogue, "listStatus");
  parsed.installStatus = StatusOf(catalogue, "installStatus");
  if (FieldOf(catalogue, "freeSpace").is_number_integer()) {
    parsed.freeSpace = SizeOf(catalogue, "freeSpace");
  }
  parsed.updates = ParseUpdates(FieldOf(catalogue, "updates"));
  return parsed;
}

std::string UpdateListText(const UpdateCatalogue& catalogue, const SoftwareUpdate& update) {
  return catalogue.oldFormat ? OldText(update) : ModernText(update);
}

}  // namespace simmac
