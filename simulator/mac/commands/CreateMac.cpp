#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Accounts.h"
#include "simulator/mac/PowerRequest.h"
#include "simulator/mac/PowerSettings.h"
#include "simulator/mac/SettingsFile.h"
#include "simulator/mac/TimeSettings.h"
#include "simulator/mac/UpdateCatalogue.h"
#include "simulator/mac/commands/Commands.h"
#include "simulator/mac/commands/LibraryCache.h"
#include "simulator/mac/commands/Seeds.h"
#include "simulator/mac/commands/Tree.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

namespace fs = std::filesystem;
using platform::MacGroup;
using platform::MacTree;
using platform::MacUser;
using platform::PropertyListFormat;

constexpr char kBundle[] = "/Applications/Brindlex.app/Contents";
constexpr char kDaemonList[] = "com.brindlex.stream.kioskd.plist";
constexpr char kDefaultZone[] = "/usr/share/zoneinfo/America/Los_Angeles";

/// A program of the application bundle.
struct Program {
  const char* source;  ///< name beside simmac
  const char* path;    ///< inside the bundle
  const char* identifier;
};

constexpr Program kPrograms[] = {
    {"kioskd", "/Helpers/kioskd", "com.brindlex.stream.kioskd"},
    {"kiosk-app", "/MacOS/Brindlex", "com.brindlex.stream"},
    {"kioskctl", "/MacOS/kioskctl", "com.brindlex.stream"},
};

struct Folder {
  const char* path;
  mode_t mode;
};

constexpr Folder kFolders[] = {
    {"/", 0755},
    {"/Applications", 0755},
    {"/Library/Application Support", 0755},
    {"/Library/LaunchAgents", 0755},
    {"/Library/LaunchDaemons", 0755},
    {"/Library/Preferences/SystemConfiguration", 0755},
    {"/System/Library/CoreServices", 0755},
    {"/Users/Shared", 01777},
    {"/bin", 0755},
    {"/private/etc/ssl", 0755},
    {"/private/tmp", 01777},
    {"/private/var/db/dslocal", 0700},
    {"/private/var/db/dslocal/nodes/Default/users", 0700},
    {"/private/var/db/dslocal/nodes/Default/groups", 0700},
    {"/private/var/log", 0755},
    {"/private/var/root", 0750},
    {"/private/var/run", 0755},
    // Whoever runs a tool journals and takes faults, so everybody may write here.
    {"/private/var/simulated", 0777},
    {"/private/var/simulated/gui", 0755},
    {"/private/var/tmp", 01777},
    {"/sbin", 0755},
    {"/usr/bin", 0755},
    {"/usr/sbin", 0755},
};

std::string OwnFolder() {
  std::error_code error;
  return fs::read_symlink("/proc/self/exe", error).parent_path();
}

std::optional<std::string> ReadHostFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return file ? std::optional(text.str()) : std::nullopt;
}

void MakeFolders(TreeBuilder& tree) {
  for (const Folder& folder : kFolders) tree.directory(folder.path, folder.mode);
  for (const char* name : {"etc", "tmp", "var"}) {
    tree.link(std::string("/") + name, std::string("private/") + name);
  }
  tree.device("/dev/null", 1, 3);
  tree.device("/dev/zero", 1, 5);
  tree.device("/dev/urandom", 1, 9);
}

void MakeEtc(TreeBuilder& tree, const CreateOptions& options) {
  std::string authorities;
  for (const std::string& path : options.trust) {
    const std::optional<std::string> text = ReadHostFile(path);
    if (!text) tree.fail("The certificate authorities " + path + " cannot be read");
    authorities += text.value_or("");
  }
  tree.file(platform::kMacCertificateAuthorities, authorities);
  tree.file("/private/etc/hosts", "127.0.0.1\tlocalhost\n::1\tlocalhost\n");
  tree.file("/private/etc/nsswitch.conf", "passwd: files\ngroup: files\nhosts: files dns\n");
  tree.link(platform::kMacLocalTime, kDefaultZone);
}

void MakeSimulatedFiles(TreeBuilder& tree) {
  constexpr mode_t kEverybody = 0666;
  tree.file(platform::kMacJournal, "", kEverybody);
  tree.file(platform::kMacFaultsLock, "", kEverybody);
  tree.file(platform::kMacFileVault, "{\"status\": \"FileVault is Off.\"}\n");
  tree.file(kPowerSettings, PowerSettingsSeed().dump(2) + "\n");
  tree.file(kTimeSettings, TimeSettingsSeed().dump(2) + "\n");
  tree.file(kUpdateCatalogue, UpdateCatalogueSeed().dump(2) + "\n");
  tree.file(platform::kMacSystemLog, "", kEverybody);
}

void WriteList(TreeBuilder& tree, const std::string& path, const Json& list) {
  constexpr mode_t kMode = 0644;
  if (!MacTree(tree.root()).writePropertyList(path, list, PropertyListFormat::kXml, kMode)) {
    tree.fail(tree.root() + path + " cannot be written");
  }
}

void MakePropertyLists(TreeBuilder& tree, const CreateOptions& options) {
  tree.directory(kBundle);
  if (!tree.problem().empty()) return;
  WriteList(tree, platform::kMacSystemVersion,
            SystemVersionSeed(options.osVersion, options.osBuild));
  WriteList(tree, platform::kMacNetworkPreferences, NetworkPreferencesSeed(options.computerName));
  WriteList(tree, std::string(kBundle) + "/Info.plist", BundleSeed(options.appVersion));
  WriteList(tree, platform::kMacLoginWindowPreferences, {{"SHOWFULLNAME", false}});
}

std::vector<MacGroup> FirstGroups() {
  return {{"admin", 80, NewUuid(), {"root"}},
          {"staff", 20, NewUuid(), {"root"}},
          {"wheel", 0, NewUuid(), {"root"}}};
}

/// root, and an administrator, so that the next account gets the user id 502.
void MakeAccounts(TreeBuilder& tree) {
  if (!tree.problem().empty()) return;
  const MacTree mac(tree.root());
  const platform::MacDirectoryLock lock(mac);
  bool made = true;
  for (const MacGroup& group : FirstGroups()) made = mac.writeGroup(group) && made;
  const MacUser root{"root",      "System Administrator", 0, 0, "/var/root", "/bin/sh", NewUuid(),
                     std::nullopt};
  made = mac.writeUser(root) && made;
  NewAccount account;
  account.name = "admin";
  account.fullName = "Administrator";
  const std::optional<MacUser> admin = NewUserRecord(mac, lock, account);
  made = admin && AddAccount(mac, lock, *admin, true) && CreateHome(mac, *admin) && made;
  if (!made) tree.fail("The accounts in " + tree.root() + " cannot be written");
}

/// The folder of simmac's own executable, where its companions and its cache are.
struct Companions {
  std::string folder;
  std::string cache;
};

void InstallTools(TreeBuilder& tree, const Companions& companions) {
  const std::string first = Tools().front().path;
  InstallExecutable(tree, first, companions.folder + "/mac-tool", companions.cache);
  for (const Tool& each : Tools()) {
    if (each.path != first) tree.alias(each.path, first);
  }
}

void InstallProgram(TreeBuilder& tree, const Program& program, const Companions& companions) {
  const std::string source = companions.folder + "/" + program.source;
  std::error_code error;
  if (!fs::exists(source, error)) {
    tree.fail("The program " + source + " is not built yet; without it only --tools-only works");
    return;
  }
  const std::string path = std::string(kBundle) + program.path;
  InstallExecutable(tree, path, source, companions.cache);
  const Json signature = {
      {"anchor", "apple generic"}, {"identifier", program.identifier}, {"team", "Q4ZT8K2M6R"}};
  tree.file(path + ".signature", signature.dump() + "\n");
}

void InstallDaemonList(TreeBuilder& tree, const std::string& folder) {
  constexpr mode_t kMode = 0644;
  tree.copy(std::string("/Library/LaunchDaemons/") + kDaemonList,
            folder + "/../share/" + kDaemonList, kMode);
}

void ConfigurePortal(TreeBuilder& tree, const std::string& portal) {
  if (portal.empty()) return;
  const std::string folder = "/Library/Application Support/Brindlex/Kiosk";
  tree.directory(folder, 0711);
  tree.file(folder + "/state.json", Json{{"authBaseUrl", portal}}.dump() + "\n", 0600);
}

std::vector<std::string> Executables(const std::string& folder, bool toolsOnly) {
  std::vector<std::string> paths = {folder + "/mac-tool"};
  for (const Program& program : kPrograms) {
    if (!toolsOnly) paths.push_back(folder + "/" + program.source);
  }
  return paths;
}

void InstallSoftware(TreeBuilder& tree, const CreateOptions& options) {
  const std::string folder = OwnFolder();
  const Companions companions{folder, folder + "/simmac-cache"};
  InstallTools(tree, companions);
  for (const Program& program : kPrograms) {
    if (!options.toolsOnly) InstallProgram(tree, program, companions);
  }
  InstallDaemonList(tree, folder);
  if (!tree.problem().empty()) return;
  InstallLibraries(tree, Executables(folder, options.toolsOnly), companions.cache);
  InstallTimeZones(tree, companions.cache);
}

/// Whether the place is free, made so if that was asked for.
bool MakeRoom(const std::string& root, bool force) {
  std::error_code error;
  const bool taken = fs::exists(root, error);
  if (error) return Refuse(root + " cannot be looked at: " + error.message() + ".") == 0;
  if (!taken || fs::is_empty(root, error)) return true;
  if (!force) return Refuse(root + " exists already.") == 0;
  if (!IsMac(root)) return false;
  if (RunningLaunchd(MacTree(root))) return Refuse("The Mac " + root + " is running.") == 0;
  fs::remove_all(root, error);
  return !error || Refuse(root + " cannot be removed.") == 0;
}

}  // namespace

int CreateMac(const std::string& root, const CreateOptions& options) {
  if (!MakeRoom(root, options.force)) return 1;
  std::error_code error;
  fs::create_directories(root, error);
  // The builder sets every mode itself; this one is for the cache.
  umask(022);
  TreeBuilder tree(root);
  MakeFolders(tree);
  MakeEtc(tree, options);
  MakeSimulatedFiles(tree);
  MakePropertyLists(tree, options);
  MakeAccounts(tree);
  ConfigurePortal(tree, options.portal);
  InstallSoftware(tree, options);
  if (tree.problem().empty()) return 0;
  // Half a Mac would be in the way of the next attempt.
  fs::remove_all(root, error);
  return Refuse(tree.problem() + ".");
}

}  // namespace simmac
