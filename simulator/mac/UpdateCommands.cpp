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

/// What an update is.
void AddNature(CLI::App& add, OfferArguments& given) {
  add.add_option("--label", given.label, "What it is installed by")
      ->required()
      ->check(CLI::Validator(
          [](const std::string& label) {
            return label.empty() ? std::string("An update has a label") : std::string();
          },
          ""));
  add.add_option("--title", given.title, "Its name for people; the label when not given");
  CLI::Option* version = add.add_option("--version", given.version, "Its version");
  CLI::Option* macos = add.add_flag("--macos", given.macos,
                                    "It is macOS itself: the Mac has its version once it is whole");
  macos->needs(version);
  add.add_option("--build", given.build, "The build that it brings")->needs(macos);
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

struct CatalogueArguments {
  std::optional<std::string> format, progress, reachable, scanError;
  std::optional<std::int64_t> scanMs, freeSpace;
  std::optional<int> listStatus, installStatus;
  std::vector<std::string> noise;
};

Json KeysOf(const CatalogueArguments& given) {
  Json keys = Json::object();
  Put(keys, "format", given.format);
  Put(keys, "progress", given.progress);
  if (given.reachable) keys["reachable"] = *given.reachable == "yes";
  Put(keys, "scanError", given.scanError);
  Put(keys, "scanMs", given.scanMs);
  Put(keys, "freeSpace", given.freeSpace);
  Put(keys, "listStatus", given.listStatus);
  Put(keys, "installStatus", given.installStatus);
  if (!given.noise.empty()) keys["noise"] = given.noise;
  return keys;
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
  set.add_option("--noise", given.noise, "The next line of noise on standard error")
      ->allow_extra_args(false);
  set.add_option("--free-space", given.freeSpace, "KiB free on the disk")
      ->check(CLI::Range(std::int64_t{0}, kMaxUpdateSize));
  set.add_option("--list-status", given.listStatus, "Exit status of every list")
      ->check(CLI::Range(0, kHighestStatus));
  set.add_option("--install-status", given.installStatus, "Exit status of every install")
      ->check(CLI::Range(0, kHighestStatus));
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
