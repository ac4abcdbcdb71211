#include "tests/fuzz/world/World.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/PropertyList.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/virtual/VirtualTime.h"

namespace {

constexpr char kHelper[] = "/Applications/Brindlex.app/Contents/Helpers/kioskd";
constexpr char kApplication[] = "/Applications/Brindlex.app/Contents/MacOS/Brindlex";
constexpr char kInformation[] = "/Applications/Brindlex.app/Contents/Info.plist";
constexpr char kInformationText[] =
    "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
    "<key>CFBundleExecutable</key><string>Brindlex</string>"
    "<key>CFBundleShortVersionString</key><string>1.0</string></dict></plist>";
constexpr char kZoneTable[] = "/usr/share/zoneinfo/zone.tab";
constexpr char kNetwork[] = "/Library/Preferences/SystemConfiguration/preferences.plist";
constexpr char kPasswd[] = "/etc/passwd";

// The original root, and the made one as it is seen from there.
int g_outside = -1;
std::string g_folder;

void LeaveWorld() {
  if (fchdir(g_outside) != 0 || chroot(".") != 0) return;
  std::error_code ignored;
  std::filesystem::remove_all(g_folder, ignored);
}

/// One service that is on, of "en0", and one that is off.
Json NetworkPreferences() {
  const auto service = [](const char* adapter, bool active) {
    Json made = {{"Interface", {{"DeviceName", adapter}, {"Hardware", "Ethernet"}}},
                 {"IPv4", {{"ConfigMethod", "DHCP"}}}};
    if (!active) made["__INACTIVE__"] = 1;
    return made;
  };
  const auto link = [](const char* id) {
    return Json{{"__LINK__", std::string("/NetworkServices/") + id}};
  };
  return {{"CurrentSet", "/Sets/S"},
          {"NetworkServices", {{"A", service("en0", true)}, {"B", service("bridge0", false)}}},
          {"Sets", {{"S", {{"Network", {{"Service", {{"A", link("A")}, {"B", link("B")}}}}}}}}},
          {"System", {{"System", {{"ComputerName", "Terminal"}}}}}};
}

void WriteNetworkPreferences() {
  std::string error;
  const auto text =
      platform::PropertyListWrite(NetworkPreferences(), platform::PropertyListFormat::kXml, error);
  WorldWrite(kNetwork, text.value_or(""));
}

void EmptyFolder(const std::string& folder) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
    std::filesystem::remove_all(entry.path(), ignored);
  }
}

}  // namespace

World& TheWorld() {
  static World world;
  return world;
}

void EnterWorld() {
  g_folder = std::filesystem::temp_directory_path() / "kioskd-fuzz-XXXXXX";
  g_outside = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool entered = mkdtemp(g_folder.data()) != nullptr && chroot(g_folder.c_str()) == 0;
  FuzzExpect(entered, "the harness runs as root");
  std::atexit(LeaveWorld);
  WorldWrite(kHelper, "");
  WorldWrite(kApplication, "");
  WorldWrite(kInformation, kInformationText);
  WorldWrite(kZoneTable, "DE\t+5230+01322\tEurope/Berlin\nUS\t+404251-0740023\tAmerica/New_York\n");
  virtual_time::SetExecutablePath(kHelper);
}

void ResetWorld() {
  TheWorld() = World();
  for (const char* folder : {"/Library", "/Users", "/private"}) {
    EmptyFolder(folder);
    std::filesystem::create_directory(folder);
  }
  for (const char* folder :
       {"/Library/Application Support", "/Library/LaunchAgents", "/Library/Preferences",
        "/private/etc", "/private/var", "/private/var/simulated"}) {
    std::filesystem::create_directory(folder);
  }
  WriteNetworkPreferences();
  SetKioskAccount(false);
}

void SetKioskAccount(bool exists) {
  std::string users = "root:x:0:0:System Administrator:/var/root:/bin/sh\n";
  if (exists) users += "BrindlexKiosk:x:502:20:Brindlex:/Users/BrindlexKiosk:/bin/zsh\n";
  WorldWrite(kPasswd, users);
}

bool KioskAccountExists() {
  return WorldRead(kPasswd).value_or("").find("BrindlexKiosk") != std::string::npos;
}

Json PictureOfTheMac() {
  const World& world = TheWorld();
  Json picture = {{"account", KioskAccountExists()},
                  {"administrator", world.isAdministrator},
                  {"autoLogin", Json()},
                  {"session", world.hasSession},
                  {"timeouts", world.timeouts},
                  {"repeatsPower", world.repeatsPower},
                  {"password", Json()}};
  if (world.autoLoginUser) picture["autoLogin"] = *world.autoLoginUser;
  if (const auto bytes = WorldRead(kWorldPasswordFile)) {
    picture["password"] = std::vector<unsigned char>(bytes->begin(), bytes->end());
  }
  for (const char* folder : {"/Library/LaunchAgents", "/Users", kWorldStateDir}) {
    Json names = Json::array();
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(folder, none)) {
      if (entry.path() != kWorldStateFile) names.push_back(entry.path().filename().string());
    }
    picture[folder] = names;
  }
  return picture;
}

void BlockFile(const char* path, bool blocked) {
  const bool isBlocked = std::filesystem::is_directory(path);
  if (blocked == isBlocked) return;
  std::filesystem::remove(path);
  if (blocked) std::filesystem::create_directory(path);
}

std::optional<std::string> WorldRead(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void WorldWrite(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}
