#include "simulator/mac/SettingsFile.h"

#include <fcntl.h>

#include "simulator/mac/Descriptor.h"

namespace simmac {

Json ReadSettings(const platform::MacTree& mac, const std::string& path) {
  std::optional<Json> settings = mac.readJson(path);
  return settings && settings->is_object() ? std::move(*settings) : Json::object();
}

bool ChangeSettings(const platform::MacTree& mac, const std::string& path,
                    const std::function<void(Json&)>& change) {
  constexpr mode_t kMode = 0644;
  // The file is replaced whole, so a lock on it would be one on the old file: the folder's serves.
  const Descriptor folder = OpenFile(mac.path(platform::kMacSimulated), O_RDONLY | O_DIRECTORY);
  if (!folder.valid() || !TakeLock(folder.get())) return false;
  Json settings = ReadSettings(mac, path);
  const Json before = settings;
  change(settings);
  if (settings == before) return true;
  // Texts from a command line need not be UTF-8.
  return mac.replace(path, settings.dump(2, ' ', false, Json::error_handler_t::replace) + "\n",
                     kMode);
}

}  // namespace simmac
