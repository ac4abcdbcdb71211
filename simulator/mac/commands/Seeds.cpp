#include "simulator/mac/commands/Seeds.h"

#include <cctype>

#include "simulator/mac/Accounts.h"

namespace simmac {
namespace {

Json Interface(const std::string& device, const std::string& hardware, const std::string& name) {
  return {{"DeviceName", device},
          {"Hardware", hardware},
          {"Type", "Ethernet"},
          {"UserDefinedName", name}};
}

Json Service(const Json& interface) {
  return {{"IPv4", {{"ConfigMethod", "DHCP"}}},
          {"IPv6", {{"ConfigMethod", "Automatic"}}},
          {"Interface", interface},
          {"Proxies", {{"ExceptionsList", {"*.local", "169.254/16"}}, {"FTPPassive", 1}}},
          {"SMB", Json::object()},
          {"UserDefinedName", interface["UserDefinedName"]}};
}

/// A computer's name as a host name: spaces become hyphens, other signs go.
std::string LocalHostName(const std::string& computerName) {
  std::string name;
  for (const char c : computerName) {
    if (std::isalnum(static_cast<unsigned char>(c)))
      name += c;
    else if (c == ' ' || c == '-')
      name += '-';
  }
  return name;
}

Json ServiceSet(const std::vector<std::string>& services) {
  Json links = Json::object();
  for (const std::string& uuid : services) links[uuid]["__LINK__"] = "/NetworkServices/" + uuid;
  return {{"Network", {{"Global", {{"IPv4", {{"ServiceOrder", services}}}}}, {"Service", links}}},
          {"UserDefinedName", "Automatic"}};
}

}  // namespace

Json NetworkPreferencesSeed(const std::string& computerName) {
  const std::vector<std::string> uuids = {NewUuid(), NewUuid(), NewUuid()};
  const std::string set = NewUuid();
  Json ethernet = Service(Interface("en0", "Ethernet", "Ethernet"));
  ethernet["DNS"]["ServerAddresses"] = {"192.0.2.53"};
  Json disabled = Service(Interface("bridge0", "Ethernet", "Thunderbolt Bridge"));
  disabled["DNS"] = Json::object();
  disabled["__INACTIVE__"] = 1;
  return {{"CurrentSet", "/Sets/" + set},
          {"Model", "Macmini9,1"},
          {"NetworkServices",
           {{uuids[0], ethernet},
            {uuids[1], Service(Interface("en1", "AirPort", "Wi-Fi"))},
            {uuids[2], disabled}}},
          {"Sets", {{set, ServiceSet(uuids)}}},
          {"System",
           {{"Network", {{"HostNames", {{"LocalHostName", LocalHostName(computerName)}}}}},
            {"System", {{"ComputerName", computerName}, {"ComputerNameEncoding", 0}}}}},
          {"__VERSION__", 20191120}};
}

Json SystemVersionSeed(const std::string& version, const std::string& build) {
  return {{"ProductBuildVersion", build}, {"ProductCopyright", "1983-2024 Apple Inc."},
          {"ProductName", "macOS"},       {"ProductUserVisibleVersion", version},
          {"ProductVersion", version},    {"iOSSupportVersion", "17.6"}};
}

Json BundleSeed(const std::string& version) {
  return {{"CFBundleExecutable", "Brindlex"},
          {"CFBundleIdentifier", "com.brindlex.stream"},
          {"CFBundleInfoDictionaryVersion", "6.0"},
          {"CFBundleName", "Brindlex"},
          {"CFBundlePackageType", "APPL"},
          {"CFBundleShortVersionString", version},
          {"CFBundleVersion", version}};
}

}  // namespace simmac
