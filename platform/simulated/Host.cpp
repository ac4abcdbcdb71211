#include "platform/Host.h"

#include <sys/stat.h>

#include "platform/simulated/MacFiles.h"
#include "platform/simulated/TextMember.h"

namespace platform {
namespace {

/// The value under `key` when `object` is an object that has it, else null.
Json member(const Json& object, const char* key) {
  if (!object.is_object()) return nullptr;
  const auto found = object.find(key);
  return found == object.end() ? Json() : *found;
}

Json propertyListAt(const std::string& path) {
  return MacTree().readPropertyList(path).value_or(Json());
}

bool isA(mode_t type, const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && (status.st_mode & S_IFMT) == type;
}

std::optional<std::string> bundleExecutable(const std::string& bundle, const Json& information) {
  const std::optional<std::string> name = TextMember(information, "CFBundleExecutable");
  if (!name) return std::nullopt;
  std::string path = bundle + "/Contents/MacOS/" + *name;
  if (!isA(S_IFREG, path)) return std::nullopt;
  return path;
}

}  // namespace

std::optional<std::string> HostComputerName() {
  const Json system = member(propertyListAt(kMacNetworkPreferences), "System");
  return TextMember(member(system, "System"), "ComputerName");
}

std::string HostOperatingSystemVersionString() {
  const Json information = propertyListAt(kMacSystemVersion);
  const std::optional<std::string> version = TextMember(information, "ProductVersion");
  const std::optional<std::string> build = TextMember(information, "ProductBuildVersion");
  if (!version || !build) return "Version Unknown";
  return "Version " + *version + " (Build " + *build + ")";
}

std::optional<HostBundle> HostBundleAt(const std::string& path) {
  if (!isA(S_IFDIR, path)) return std::nullopt;
  const Json information = propertyListAt(path + "/Contents/Info.plist");
  return HostBundle{.executablePath = bundleExecutable(path, information),
                    .shortVersion = TextMember(information, "CFBundleShortVersionString")};
}

}  // namespace platform
