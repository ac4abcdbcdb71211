#include "simulator/mac/LaunchJob.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>

#include "simulator/mac/JsonFields.h"
#include "simulator/mac/Limits.h"

namespace simmac {
namespace {

using platform::MacTree;

std::optional<std::chrono::seconds> Seconds(const Json& list, const char* key) {
  const auto value = list.find(key);
  if (value == list.end() || !value->is_number_integer()) return std::nullopt;
  constexpr std::int64_t kDay = 86'400;
  return std::chrono::seconds(std::clamp<std::int64_t>(value->get<std::int64_t>(), 0, kDay));
}

std::vector<std::string> Texts(const Json& list, const char* key, std::size_t limit) {
  std::vector<std::string> texts;
  const auto value = list.find(key);
  if (value == list.end()) return texts;
  if (value->is_string()) return {value->get<std::string>()};
  if (!value->is_array()) return texts;
  for (const Json& text : *value) {
    if (text.is_string() && texts.size() < limit) texts.push_back(text.get<std::string>());
  }
  return texts;
}

std::vector<std::string> Arguments(const Json& list) {
  std::vector<std::string> arguments = Texts(list, "ProgramArguments", kMaxJobArguments);
  const std::string program = TextOf(list, "Program");
  if (arguments.empty() && !program.empty()) arguments.push_back(program);
  return arguments;
}

std::vector<std::string> MachServices(const Json& list) {
  std::vector<std::string> names;
  const auto services = list.find("MachServices");
  if (services == list.end() || !services->is_object()) return names;
  for (const auto& [name, settings] : services->items()) {
    // A name becomes a file's name, so it must not lead elsewhere.
    const bool plain = !name.empty() && name.find('/') == std::string::npos;
    if (plain && names.size() < kMaxMachServices) names.push_back(name);
  }
  return names;
}

KeepAlive ParseKeepAlive(const Json& list) {
  if (FlagOf(list, "KeepAlive")) return KeepAlive::kAlways;
  const auto value = list.find("KeepAlive");
  if (value == list.end() || !value->is_object()) return KeepAlive::kNever;
  const auto successful = value->find("SuccessfulExit");
  if (successful == value->end() || !successful->is_boolean()) return KeepAlive::kNever;
  return successful->get<bool>() ? KeepAlive::kAfterSuccess : KeepAlive::kAfterFailure;
}

bool IsTrusted(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == 0 &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::vector<std::string> PropertyListNames(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code error;
  std::filesystem::directory_iterator entries(folder, error);
  for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
    if (entries->path().extension() == ".plist") names.push_back(entries->path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

std::optional<LaunchJob> ParseLaunchJob(const Json& list) {
  if (!list.is_object()) return std::nullopt;
  LaunchJob job;
  job.label = TextOf(list, "Label");
  job.arguments = Arguments(list);
  job.machServices = MachServices(list);
  job.keepAlive = ParseKeepAlive(list);
  // A job that is kept alive is started at load whether it says so or not.
  job.runAtLoad = FlagOf(list, "RunAtLoad") || job.keepAlive != KeepAlive::kNever;
  job.throttle = Seconds(list, "ThrottleInterval");
  job.exitTimeOut = Seconds(list, "ExitTimeOut");
  job.standardOutPath = TextOf(list, "StandardOutPath");
  job.standardErrorPath = TextOf(list, "StandardErrorPath");
  job.abandonsProcessGroup = FlagOf(list, "AbandonProcessGroup");
  job.sessionTypes = Texts(list, "LimitLoadToSessionType", kMaxJobArguments);
  const bool usable =
      !job.label.empty() && job.label.find('/') == std::string::npos && !job.arguments.empty();
  return usable ? std::optional(job) : std::nullopt;
}

std::vector<LaunchJob> LoadLaunchJobs(const MacTree& mac, const std::string& folder) {
  std::vector<LaunchJob> jobs;
  for (const std::string& name : PropertyListNames(mac.path(folder))) {
    const std::string path = folder + "/" + name;
    if (jobs.size() == kMaxJobs || !IsTrusted(mac.path(path))) continue;
    const std::optional<Json> list = mac.readPropertyList(path);
    const std::optional<LaunchJob> job = list ? ParseLaunchJob(*list) : std::nullopt;
    if (job) jobs.push_back(*job);
  }
  return jobs;
}

}  // namespace simmac
