#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

#include "platform/Json.h"
#include "simulator/mac/CommandLine.h"
#include "simulator/mac/Limits.h"
#include "simulator/mac/commands/Commands.h"

namespace simmac {
namespace {

constexpr int kHighestStatus = 255;
constexpr std::int64_t kLongest = std::chrono::milliseconds(kMaxUpdateDuration).count();

/// Puts `value` under `key` when it was given.
template <typename Value>
void Put(Json& object, const char* key, const std::optional<Value>& value) {
  if (value) object[key] = *value;
}

struct OfferArguments {
  std::string label;
  std::optional<std::string> title, version, build, unit, action, failureText;
  std::optional<std::int64_t> size, durationMs;
  std::optional<int> failureStatus;
  bool macos = false;
  bool notRecommended = false;
  bool deferred = false;
  bool restartNotice = false;
  bool password = false;
};

Json UpdateOf(const OfferArguments& given) {
  Json update = {{"label", given.label}};
  Put(update, "title", given.title);
  Put(update, "version", given.version);
  Put(update, "build", given.build);
  Put(update, "size", given.size);
  Put(update, "unit", given.unit);
  Put(update, "action", given.action);
  Put(update, "durationMs", given.durationMs);
  if (given.macos) update["macos"] = true;
  if (given.notRecommended) update["recommended"] = false;
  if (given.deferred) update["deferred"] = true;
  if (given.restartNotice) update["restartNotice"] = true;
  if (given.password) update["password"] = true;
  if (given.failureStatus || given.failureText) {
    update["failure"] = {{"status", given.failureStatus.value_or(1)},
                         {"text", given.failureText.value_or("")}};
  }
  return update;
}

/// Why the list, which has lines, cannot show a text; empty when it can.
std::string CheckLine(const std::string& text) {
  const bool line = std::none_of(text.begin(), text.end(), [](char each) {
    return std::iscntrl(static_cast<unsigned char>(each)) != 0;
  });
  return line ? "" : "There is a control character in it";
}

std::string CheckLabel(const std::string& text) {
  return text.empty() ? "An update has a label" : CheckLine(text);
}

/// What an update is.
void AddNature(CLI::App& add, OfferArguments& given) {
  add.add_option("--label", given.label, "What it is installed by")->required()->check(CheckLabel);
  add.add_option("--title", given.title, "Its name for people; the label when not given")
      ->check(CheckLine);
  CLI::Option* version =
      add.add_option("--version", given.version, "Its version")->check(CheckLine);
  CLI::Option* macos = add.add_flag("--macos", given.macos,
                                    "It is macOS itself: the Mac has its version once it is whole");
  macos->needs(version);
  add.add_option("--build", given.build, "The build that it brings")
      ->needs(macos)
      ->check(CheckLine);
  add.add_option("--size", given.size, "KiB")->check(CLI::Range(std::int64_t{0}, kMaxUpdateSize));
  add.add_option("--unit", given.unit, "What stands behind the size in the list: KiB or K")
      ->check(CLI::IsMember({"KiB", "K"}));
  add.add_option("--action", given.action, "What follows: none, restart or \"shut down\"")
      ->check(CLI::IsMember({"none", "restart", "shut down"}));
  add.add_flag("--not-recommended", given.notRecommended, "The list does not recommend it");
  add.add_flag("--deferred", given.deferred, "Only its label installs it");
}

/// How its installation goes.
void AddCourse(CLI::App& add, OfferArguments& given) {
  add.add_flag("--restart-notice", given.restartNotice,
               "It asks for a restart that the list does not mention");
  add.add_option("--duration-ms", given.durationMs, "Milliseconds that its installation takes")
      ->check(CLI::Range(std::int64_t{0}, kLongest));
  add.add_option("--failure-status", given.failureStatus, "It fails with this exit status")
      ->check(CLI::Range(0, kHighestStatus));
  add.add_option("--failure-text", given.failureText, "What it says on standard error then");
  add.add_flag("--password", given.password, "It fails at a prompt for a password");
}

void AddOffer(CLI::App& updates, Request& request) {
  auto& given = Keep<OfferArguments>();
  CLI::App* add = updates.add_subcommand("add", "Put an update on offer");
  AddNature(*add, given);
  AddCourse(*add, given);
  add->callback([&request, &given] {
    request.action = [&given](const auto& root) { return AddUpdate(root, UpdateOf(given)); };
  });
}

/// Numbers that can be taken back are texts; they are taken back by an empty one, as noise is.
struct CatalogueArguments {
  std::optional<std::string> format, progress, reachable, scanError;
  std::optional<std::int64_t> scanMs;
  std::optional<std::string> freeSpace, listStatus, installStatus;
  std::optional<std::vector<std::string>> noise;
};

std::optional<std::int64_t> NumberOf(const std::string& text) {
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/// Accepts a number from 0 to `highest`, and nothing at all.
auto NumberOrNothing(std::int64_t highest) {
  return [highest](const std::string& text) -> std::string {
    const std::int64_t number = text.empty() ? 0 : NumberOf(text).value_or(-1);
    if (number >= 0 && number <= highest) return "";
    return "Value " + text + " not in range 0 to " + std::to_string(highest);
  };
}

/// Puts the number under `key` when it was given; null, which takes the key away, for nothing.
void PutNumber(Json& object, const char* key, const std::optional<std::string>& text) {
  if (!text) return;
  const std::optional<std::int64_t> number = NumberOf(*text);
  object[key] = number ? Json(*number) : Json();
}

Json NoiseOf(std::vector<std::string> lines) {
  lines.erase(std::remove(lines.begin(), lines.end(), ""), lines.end());
  return lines.empty() ? Json() : Json(lines);
}

Json KeysOf(const CatalogueArguments& given) {
  Json keys = Json::object();
  Put(keys, "format", given.format);
  Put(keys, "progress", given.progress);
  if (given.reachable) keys["reachable"] = *given.reachable == "yes";
  Put(keys, "scanError", given.scanError);
  Put(keys, "scanMs", given.scanMs);
  PutNumber(keys, "freeSpace", given.freeSpace);
  PutNumber(keys, "listStatus", given.listStatus);
  PutNumber(keys, "installStatus", given.installStatus);
  if (given.noise) keys["noise"] = NoiseOf(*given.noise);
  return keys;
}

/// What the tool finds out by itself unless it is told.
void AddOverrides(CLI::App& set, CatalogueArguments& given) {
  set.add_option("--free-space", given.freeSpace, "KiB free on the disk; empty: enough")
      ->check(NumberOrNothing(kMaxUpdateSize));
  set.add_option("--list-status", given.listStatus,
                 "Exit status of every list; empty: as the list goes")
      ->check(NumberOrNothing(kHighestStatus));
  set.add_option("--install-status", given.installStatus,
                 "Exit status of every install; empty: as the install goes")
      ->check(NumberOrNothing(kHighestStatus));
}

void AddCatalogueOptions(CLI::App& set, CatalogueArguments& given) {
  set.add_option("--format", given.format, "How the list looks: modern or old")
      ->check(CLI::IsMember({"modern", "old"}));
  set.add_option("--progress", given.progress,
                 "What a download's readings are: lines, returns, together or none")
      ->check(CLI::IsMember({"lines", "returns", "together", "none"}));
  set.add_option("--reachable", given.reachable, "Whether there is a network: yes or no")
      ->check(CLI::IsMember({"yes", "no"}));
  set.add_option("--scan-error", given.scanError, "What scans fail with; empty: they do not");
  set.add_option("--scan-ms", given.scanMs, "Milliseconds that a scan takes")
      ->check(CLI::Range(std::int64_t{0}, kLongest));
  const auto keep = [&given](const std::vector<std::string>& lines) { given.noise = lines; };
  set.add_option_function<std::vector<std::string>>(
         "--noise", keep, "The next line of noise on standard error; empty: no noise")
      ->allow_extra_args(false);
  AddOverrides(set, given);
}

void AddCatalogue(CLI::App& updates, Request& request) {
  auto& given = Keep<CatalogueArguments>();
  CLI::App* set = updates.add_subcommand("set", "Change how softwareupdate behaves");
  AddCatalogueOptions(*set, given);
  set->callback([&request, &given] {
    const Json keys = KeysOf(given);
    if (keys.empty()) throw CLI::RequiredError("An option");
    request.action = [keys](const auto& root) { return SetUpdates(root, keys); };
  });
}

struct ShowUpdatesArguments {
  bool json = false;
};

}  // namespace

void AddUpdates(CLI::App& app, Request& request) {
  bool& json = Keep<ShowUpdatesArguments>().json;
  CLI::App* updates =
      AddCommand(app, request, "updates", "Show a Mac's software updates, or change them");
  updates->add_flag("--json", json, "As the JSON object that it is");
  updates->require_subcommand(0, 1);
  AddOffer(*updates, request);
  AddCatalogue(*updates, request);
  updates->add_subcommand("clear", "Offer nothing, as a new Mac does")->callback([&request] {
    request.action = ClearUpdates;
  });
  updates->callback([updates, &request, &json] {
    if (!updates->get_subcommands().empty()) return;
    request.action = [&json](const auto& root) { return ShowUpdates(root, json); };
  });
}

}  // namespace simmac
