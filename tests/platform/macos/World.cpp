// A Mac that is in use: it is looked at and left as it is.
#include "tests/platform/World.h"

#include <cstdlib>
#include <filesystem>

namespace contract {

struct World::Impl {
  std::string folder;
};

World::World() : _impl(std::make_unique<Impl>()) {
  std::string name = (std::filesystem::temp_directory_path() / "contract.XXXXXX").string();
  _impl->folder = mkdtemp(name.data());
}

World::~World() { std::filesystem::remove_all(_impl->folder); }

std::string World::folder() const { return _impl->folder; }

bool World::mayChange() { return false; }

// Never called: the suites that call them are skipped.
void World::setTimeZone(const std::string& /*name*/) { std::abort(); }
void World::setComputerName(const std::optional<std::string>& /*name*/) { std::abort(); }
void World::addUser(const std::string&, uid_t, const std::string&) { std::abort(); }
void World::removeUser(const std::string& /*name*/) { std::abort(); }
bool World::hasPassword(const std::string&, const std::string&) { std::abort(); }
void World::disableDefaultLogLevel() { std::abort(); }
void World::setNetworkPreferences(const Json& /*preferences*/) { std::abort(); }
Json World::networkPreferences() { std::abort(); }
std::vector<Logged> World::logged() { std::abort(); }

// launchd knows the service when it was launchd that started this program; `run` beside this file
// sees to that, and signs it.
bool World::registerService() {
  const char* service = std::getenv("XPC_SERVICE_NAME");
  return service != nullptr && std::string(service) == kService;
}

bool World::signClient(const std::string& identifier) {
  return identifier == "com.brindlex.stream";
}

std::optional<std::int32_t> World::auditSession() { return std::nullopt; }

}  // namespace contract
