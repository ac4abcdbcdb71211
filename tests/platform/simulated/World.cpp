#include "tests/platform/World.h"

#include <unistd.h>

#include <filesystem>
#include <regex>
#include <sstream>

#include "platform/simulated/MacFiles.h"
#include "tests/platform/simulated/SimulatedRoot.h"

namespace contract {
namespace {

namespace fs = std::filesystem;

/// The head of a time-zone file's block (RFC 8536): its numbers of transitions, of kinds of time
/// (1) and of bytes of their names (4).
std::string head(char transitions) {
  return std::string("TZif2") + std::string(15 + 12, '\0') + std::string(3, '\0') + transitions +
         std::string("\0\0\0\1\0\0\0\4", 8);
}

/// A time-zone file that has one transition, at the epoch, and a POSIX rule for what follows.
std::string zone(const std::string& rule) {
  const std::string utc("\0\0\0\0\0\0UTC\0", 10);
  return head(0) + utc + head(1) + std::string(8 + 1, '\0') + utc + "\n" + rule + "\n";
}

}  // namespace

struct World::Impl {
  Root root;
  std::unique_ptr<Service> service;
};

World::World() : _impl(std::make_unique<Impl>()) { unsetenv("TZ"); }
World::~World() = default;

std::string World::folder() const { return "/private/tmp"; }

bool World::mayChange() { return true; }

void World::setTimeZone(const std::string& name) {
  const char* rule = name == "Asia/Kolkata" ? "IST-5:30" : "CET-1CEST,M3.5.0,M10.5.0/3";
  WriteFile("/usr/share/zoneinfo/" + name, zone(rule));
  WriteFile("/usr/share/zoneinfo/zone.tab",
            "# table\nDE\t+5230+01322\tEurope/Berlin\tmost of Germany\n"
            "IN\t+2232+08822\tAsia/Kolkata\n");
  fs::remove("/private/etc/localtime");
  fs::create_symlink("/usr/share/zoneinfo/" + name, "/private/etc/localtime");
}

void World::setComputerName(const std::optional<std::string>& name) {
  Json preferences = Json::object();
  if (name) preferences["System"]["System"]["ComputerName"] = *name;
  setNetworkPreferences(preferences);
}

void World::addUser(const std::string& name, uid_t uid, const std::string& uuid) {
  EXPECT_TRUE(platform::MacTree().writeUser({.name = name,
                                             .realName = name,
                                             .uid = uid,
                                             .gid = 20,
                                             .home = "/Users/" + name,
                                             .shell = "/bin/zsh",
                                             .generatedUid = uuid,
                                             .passwordHash = std::nullopt}));
}

void World::removeUser(const std::string& name) {
  EXPECT_TRUE(platform::MacTree().removeUser(name));
}

bool World::hasPassword(const std::string& user, const std::string& password) {
  const auto record = platform::MacTree().userNamed(user);
  return record && record->passwordHash &&
         platform::MacPasswordMatches(password, *record->passwordHash);
}

void World::disableDefaultLogLevel() {
  WriteFile("/private/var/simulated/logging.json", R"({"Default": false})");
}

void World::setNetworkPreferences(const Json& preferences) {
  WriteFile(platform::kMacNetworkPreferences, "");
  EXPECT_TRUE(platform::MacTree().writePropertyList(platform::kMacNetworkPreferences, preferences,
                                                    platform::PropertyListFormat::kXml, 0644));
}

Json World::networkPreferences() {
  return platform::MacTree().readPropertyList(platform::kMacNetworkPreferences).value_or(Json());
}

std::vector<Logged> World::logged() {
  const std::regex line(R"(\S+ (Default|Error) (\S+) (\S+)\[\d+\]: (.*))");
  std::vector<Logged> messages;
  std::istringstream lines(ReadFile("/private/var/log/system.log"));
  for (std::string text; std::getline(lines, text);) {
    std::smatch parts;
    if (!std::regex_match(text, parts, line)) ADD_FAILURE() << text;
    messages.push_back({parts[1] == "Error", parts[2], parts[3], parts[4]});
  }
  return messages;
}

bool World::registerService() {
  _impl->service = std::make_unique<Service>();
  return true;
}

bool World::signClient(const std::string& identifier) {
  Service::sign(identifier);
  return true;
}

std::optional<std::int32_t> World::auditSession() { return getsid(0); }

}  // namespace contract
