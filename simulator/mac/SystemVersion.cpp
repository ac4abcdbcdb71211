#include "simulator/mac/SystemVersion.h"

#include "simulator/mac/JsonFields.h"

namespace simmac {
namespace {

Json ReadList(const platform::MacTree& mac) {
  std::optional<Json> list = mac.readPropertyList(platform::kMacSystemVersion);
  return list && list->is_object() ? std::move(*list) : Json::object();
}

}  // namespace

SystemVersion ReadSystemVersion(const platform::MacTree& mac) {
  const Json list = ReadList(mac);
  return {TextOf(list, "ProductVersion"), TextOf(list, "ProductBuildVersion")};
}

bool WriteSystemVersion(const platform::MacTree& mac, const SystemVersion& system) {
  constexpr mode_t kMode = 0644;
  Json list = ReadList(mac);
  list["ProductVersion"] = list["ProductUserVisibleVersion"] = system.version;
  if (!system.build.empty()) list["ProductBuildVersion"] = system.build;
  return mac.writePropertyList(platform::kMacSystemVersion, list,
                               platform::PropertyListFormat::kXml, kMode);
}

}  // namespace simmac
