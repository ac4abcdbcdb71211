#include "tests/platform/World.h"

#include <unistd.h>

#include <filesystem>

#include "tests/native/Doubles.h"

namespace contract {

namespace fs = std::filesystem;

struct World::Impl {
  std::string folder;
};

World::World() : _impl(std::make_unique<Impl>()) {
  native::TheMac() = {};
  std::string name = (fs::temp_directory_path() / "native.XXXXXX").string();
  _impl->folder = mkdtemp(name.data());
}

World::~World() { fs::remove_all(_impl->folder); }

std::string World::folder() const { return _impl->folder; }

bool World::mayChange() { return true; }

void World::setTimeZone(const std::string& name) { native::TheMac().timeZone = name; }

void World::setComputerName(const std::optional<std::string>& name) {
  native::TheMac().computerName = name;
}

void World::addUser(const std::string& name, uid_t uid, const std::string& uuid) {
  native::TheMac().users[name] = {uid, uuid, "unknown"};
}

void World::removeUser(const std::string& name) { native::TheMac().users.erase(name); }

bool World::hasPassword(const std::string& user, const std::string& password) {
  return native::TheMac().users.at(user).password == password;
}

void World::disableDefaultLogLevel() { native::TheMac().disabledLevels.insert(0); }

void World::setNetworkPreferences(const Json& preferences) {
  native::TheMac().networkPreferences = preferences;
}

Json World::networkPreferences() { return native::TheMac().networkPreferences; }

std::vector<Logged> World::logged() {
  std::vector<Logged> messages;
  for (const native::LogEntry& entry : native::TheMac().log) {
    EXPECT_EQ(entry.format, "%{public}s");
    EXPECT_TRUE(entry.isPublic);
    messages.push_back({entry.level == 0x10, entry.subsystem, entry.category, entry.text});
  }
  return messages;
}

bool World::registerService() {
  native::TheMac().services.insert(kService);
  return true;
}

bool World::signClient(const std::string& identifier) {
  native::TheMac().clientIdentity = identifier;
  return true;
}

std::optional<std::int32_t> World::auditSession() { return getsid(0); }

}  // namespace contract
