// A whole daemon in virtual time: a state file of any content at its start, then a sequence of
// requests, portals, tools, restarts and time that passes. After each step the promises are held
// against that the daemon makes of itself at any time.
//
// An input is a character without meaning and a JSON object: {"file": the state file as an object
// or its text, "account": whether there is a kiosk account, "autoLogin": a user, "tools", "portal":
// as tests/fuzz/world/World.h has them, "steps": [...]}. A step is an object with any of "tools",
// "portal", "mac" (what happens to the Mac meanwhile: kMacChanges), "restart", "advance" (seconds,
// at most 900), and a "request" (an object, or its text) that comes from "uid" (the kiosk account's
// by default) and "asid". "TOKEN" as an unlock token is the last one that was given out.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskVersion.h"
#include "platform/Clock.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/world/World.h"
#include "tests/support/virtual/VirtualTime.h"
#include "tests/unit/OutputRules.h"

// The daemon's memory, for comparison with its file: naming a private member is allowed where a
// template is instantiated.
template <auto Member>
struct Reveal {
  friend const Json& MemoryOf(const KioskDaemon& daemon) { return daemon.*Member; }
};
const Json& MemoryOf(const KioskDaemon& daemon);
template struct Reveal<&KioskDaemon::_state>;

namespace {

constexpr double kStart = 1'790'000'000.25;
constexpr std::size_t kMostSteps = 16;
constexpr std::int64_t kLongestWait = 900;
constexpr int kDescriptorsLookedAt = 64;
constexpr char kBranding[] = "/Library/Application Support/Brindlex/Kiosk/Branding";

const Json& At(const Json& object, const char* key) { return KioskMember(object, key); }

bool IsSnakeCase(const std::string& code) {
  return !code.empty() &&
         code.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") == std::string::npos;
}

int OpenDescriptors() {
  int count = 0;
  for (int each = 0; each < kDescriptorsLookedAt; ++each)
    count += fcntl(each, F_GETFD) >= 0 ? 1 : 0;
  return count;
}

std::set<std::string> NamesIn(const std::string& folder) {
  std::set<std::string> names;
  std::error_code none;
  for (const auto& entry : std::filesystem::directory_iterator(folder, none)) {
    names.insert(entry.path().filename());
  }
  return names;
}

/// Nothing lies in the folder but what may.
void ExpectOnly(const std::string& folder, const std::set<std::string>& allowed) {
  for (const std::string& name : NamesIn(folder)) {
    FuzzExpect(allowed.contains(name), "no file lies where none belongs", folder, name);
  }
}

/// The truth of a number or boolean.
bool IsTrue(const Json& value) {
  return value.is_boolean() ? value == true : value.is_number() && value != 0;
}

std::string TextAt(const Json& object, const char* key) {
  const Json& value = At(object, key);
  return value.is_string() ? value.get<std::string>() : "";
}

/// The published status by what the state says, but for the account's user id.
Json StatusOf(const Json& state) {
  Json status = {{"ok", true}, {"account", "BrindlexKiosk"}};
  status["enrolled"] = TextAt(state, "token").empty() ? 0 : 1;
  status["provisioned"] = IsTrue(At(state, "provisioned"));
  status["maintenance"] = IsTrue(At(state, "maintenance"));
  status["terminalName"] = TextAt(state, "terminalName");
  status["signIn"] = {{"microsoft", true}, {"email", false}, {"extraHosts", Json::array()}};
  if (At(state, "signIn").is_object()) status["signIn"] = At(state, "signIn");
  const std::string error = TextAt(state, "lastError");
  if (!error.empty()) status["error"] = error;
  return status;
}

/// What may happen to a Mac behind the daemon's back, by its name in an input.
struct MacChange {
  const char* name;
  void (*set)(bool);
  bool isTrouble;  ///< whether the Mac is another one afterwards, or does not do what it is told
};

constexpr MacChange kMacChanges[] = {
    {"session", [](bool on) { TheWorld().hasSession = on && KioskAccountExists(); }, false},
    {"account", SetKioskAccount, true},
    {"administrator", [](bool on) { TheWorld().isAdministrator = on; }, true},
    {"hidesUuid", [](bool on) { TheWorld().hidesUuid = on; }, true},
    {"refusesPassword", [](bool on) { TheWorld().refusesPassword = on; }, true},
    {"agentBlocked", [](bool on) { BlockFile(kWorldLaunchAgent, on); }, true},
    {"passwordFileBlocked", [](bool on) { BlockFile(kWorldPasswordFile, on); }, true},
};

/// Whether a state file tells a daemon nothing but, perhaps, its portal.
bool IsFresh(const Json& file) {
  if (!file.is_object()) return file.is_null();
  return file.empty() || (file.size() == 1 && file.contains("authBaseUrl"));
}

/// A daemon and what its promises are held against.
class Session {
 public:
  explicit Session(const Json& input) {
    ResetWorld();
    virtual_time::ShiftWallClock(kStart - platform::ClockSecondsSince1970());
    SetKioskAccount(At(input, "account") == true);
    const std::string user = TextAt(input, "autoLogin");
    if (!user.empty()) setAutoLogin(user);
    prepareFile(At(input, "file"));
    _picture = PictureOfTheMac();
    _comparable = IsFresh(At(input, "file")) && user != kKioskAccountName;
    take(input);
    restart();
    expectPromises();
  }

  ~Session() {
    _daemon.reset();
    while (const auto next = virtual_time::NanosecondsUntilNext()) virtual_time::Advance(*next);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void step(const Json& step) {
    const Json before = MemoryOf(*_daemon);
    TheWorld().fileVault.reset();
    take(step);
    if (At(step, "restart") == true) restart();
    if (!At(step, "request").is_null()) send(step);
    std::int64_t seconds = 0;
    if (KioskIsInteger(At(step, "advance"), seconds)) {
      const auto most = std::clamp<std::int64_t>(seconds, 0, kLongestWait);
      virtual_time::Advance(static_cast<std::uint64_t>(most) * virtual_time::kSecondNs);
    }
    virtual_time::RunReady();
    expectPromises();
    expectHeard(before);
    const bool enrolled = !TextAt(before, "token").empty();
    if (enrolled && TextAt(MemoryOf(*_daemon), "token").empty()) expectTornDown(before);
  }

  /// What lies about at the end.
  void expectFiles() const {
    struct stat info = {};
    const std::optional<std::string> file = WorldRead(kWorldStateFile);
    const bool isSaved = file && file != _before;
    FuzzExpect(!isSaved || (stat(kWorldStateFile, &info) == 0 && (info.st_mode & 07777) == 0600),
               "the state is nobody else's to read");
    ExpectOnly("/Library/Application Support", {"Brindlex"});
    ExpectOnly("/Library/Application Support/Brindlex", {"Kiosk"});
    ExpectOnly(kWorldStateDir, {"state.json", "Branding"});
    ExpectOnly("/Library/LaunchAgents", {"com.brindlex.stream.kiosk.plist"});
    ExpectOnly("/Library", {"Application Support", "LaunchAgents", "Preferences"});
    ExpectOnly("/private/etc", {"kcpassword", "localtime"});
    ExpectOnly("/", {"Applications", "Library", "Users", "etc", "private", "usr"});
    for (const std::string& name : NamesIn(kBranding)) {
      FuzzExpect(name == "branding.json" || name.size() == 64, "branding has no other files", name);
    }
  }

 private:
  void prepareFile(const Json& file) {
    if (file.is_null()) return;
    WorldWrite(kWorldStateFile,
               file.is_string() ? file.get<std::string>() : KioskJsonText(file).value_or(""));
    _before = WorldRead(kWorldStateFile);
  }

  static void setAutoLogin(const std::string& user) {
    TheWorld().autoLoginUser = user;
    WorldWrite(kWorldPasswordFile, "theirs");
  }

  void take(const Json& from) {
    if (At(from, "tools").is_object()) TheWorld().tools = At(from, "tools");
    if (At(from, "portal").is_object()) TheWorld().portal = At(from, "portal");
    if (!TheWorld().tools.empty()) _comparable = false;
    for (const MacChange& change : kMacChanges) {
      const Json& on = At(At(from, "mac"), change.name);
      if (!on.is_boolean()) continue;
      change.set(on == true);
      if (change.isTrouble) _comparable = false;
    }
  }

  void restart() {
    _daemon.reset();
    _before = WorldRead(kWorldStateFile);
    _daemon = std::make_shared<KioskDaemon>();
    _daemon->queue().sync([this] { _daemon->start(); });
    virtual_time::RunReady();
    const World& world = TheWorld();
    const bool isOurs = KioskAccountExists() && !world.hidesUuid &&
                        TextAt(MemoryOf(*_daemon), "generatedUID") == kWorldUuid;
    FuzzExpect(!isOurs || !world.isAdministrator || world.tools.contains("dseditgroup"),
               "the kiosk account is no administrator");
  }

  // As the listener does with what a peer sends.
  void send(const Json& step) {
    const Json& given = At(step, "request");
    std::optional<Json> request =
        given.is_string() ? KioskJsonParse(given.get<std::string>()) : std::optional(given);
    if (!request || !request->is_object()) return;
    if (At(*request, "unlockToken") == "TOKEN") (*request)["unlockToken"] = _token;
    std::int64_t uid = kWorldUid;
    std::int64_t asid = 100;
    KioskIsInteger(At(step, "uid"), uid);
    KioskIsInteger(At(step, "asid"), asid);
    const Json reply = _daemon->handle(
        *request, {static_cast<std::uint32_t>(uid), static_cast<std::int32_t>(asid)});
    expectReply(reply);
    if (At(*request, "cmd") == "pair.begin" && TheWorld().fileVault) {
      FuzzExpect((TextAt(reply, "error") == "filevault_on") == *TheWorld().fileVault,
                 "FileVault is heard of", reply);
    }
    if (At(*request, "cmd") == "time.sync") expectTimeHeard(reply);
  }

  static void expectTimeHeard(const Json& reply) {
    const WorldRun& last = TheWorld().last;
    if (reply["ok"] != true || last.command[0] != "sntp") return;
    const double offset = std::clamp(OffsetByPattern(last.said).value_or(0), -9e18, 9e18);
    FuzzExpect(
        At(reply, "server") == last.command.back() && At(reply, "offsetMs") == std::llround(offset),
        "the clock's error is as sntp says", reply, last.said);
  }

  /// What tools said during a step stands in the state afterwards.
  void expectHeard(const Json& before) const {
    const World& world = TheWorld();
    const Json& memory = MemoryOf(*_daemon);
    FuzzExpect(world.due.empty(), "what a tool says is acted upon", Json(world.due).dump());
    if (world.fileVault && !TextAt(memory, "token").empty()) {
      FuzzExpect((TextAt(memory, "lastError") == "filevault_on") == *world.fileVault,
                 "FileVault is heard of", memory);
    }
    if (memory.contains("powerBefore") && !before.contains("powerBefore")) {
      FuzzExpect(memory["powerBefore"] == PowerSettingsByPattern(world.powerShown).value_or(Json()),
                 "the Mac's own timeouts are remembered as pmset shows them", memory);
    }
  }

  void expectReply(const Json& reply) {
    FuzzExpect(reply.is_object() && At(reply, "ok").is_boolean(), "a reply says whether it is ok",
               reply);
    FuzzExpect(KioskJsonParse(KioskReplyText(reply)) == reply, "a reply can be sent", reply);
    FuzzExpect(!reply.contains("uid"), "the account's user id stays in the daemon");
    if (reply.contains("unlockToken")) _token = reply["unlockToken"];
    if (reply["ok"] == true) return;
    const std::string error = TextAt(reply, "error");
    // A reason that a state file of any origin holds is handed on as it is.
    const Json& memory = MemoryOf(*_daemon);
    FuzzExpect(IsSnakeCase(error) || error == TextAt(memory, "lastError") ||
                   error == TextAt(memory, "powerError"),
               "a failure has a code", reply);
  }

  void expectPromises() const {
    const Json& memory = MemoryOf(*_daemon);
    const std::optional<std::string> file = WorldRead(kWorldStateFile);
    const std::optional<Json> saved = file ? KioskJsonParse(*file) : std::nullopt;
    const bool isState = saved && saved->is_object();
    FuzzExpect(isState || file == _before, "what was saved is a JSON object", file.value_or(""));
    Json kept = isState ? *saved : Json::object();
    // Timeouts that pmset did not show at first are remembered when it does, and saved with the
    // next change.
    if (memory.contains("powerBefore") && !kept.contains("powerBefore")) {
      kept["powerBefore"] = memory["powerBefore"];
    }
    FuzzExpect(memory == kept, "the file is as the memory", memory, file.value_or("none"));
    Json published = *_daemon->published();
    for (const std::uint32_t uid : {std::uint32_t{kWorldUid}, std::uint32_t{0}}) {
      FuzzExpect(KioskJsonParse(_daemon->statusText(uid)) == _daemon->status(uid),
                 "status says the same as text", _daemon->statusText(uid));
    }
    published.erase("uid");
    FuzzExpect(published == StatusOf(memory), "the status is as the state", published, memory);
  }

  void expectTornDown(const Json& before) const {
    FuzzExpect(
        access(kWorldLaunchAgent, F_OK) != 0 || std::filesystem::is_directory(kWorldLaunchAgent),
        "a device that is gone starts no application");
    FuzzExpect(access(kBranding, F_OK) != 0, "a device that is gone shows no branding");
    // The tool that turns it off may have been told to fail.
    FuzzExpect(
        TheWorld().autoLoginUser != kKioskAccountName || TheWorld().tools.contains("defaults"),
        "a device that is gone signs nobody in");
    expectForgotten(before);
    if (!_comparable) return;
    const Json picture = PictureOfTheMac();
    FuzzExpect(picture == _picture, "a device that is gone is as it was before", picture, _picture);
  }

  void expectForgotten(const Json& before) const {
    Json kept = Json::object();
    const bool keepsAccount = MemoryOf(*_daemon).contains("generatedUID");
    FuzzExpect(!keepsAccount || KioskAccountExists(), "an account that is gone is forgotten");
    for (const char* key : {"authBaseUrl", "generatedUID", "password"}) {
      const bool survives = keepsAccount || std::string(key) == "authBaseUrl";
      if (survives && MemoryOf(*_daemon).contains(key)) kept[key] = MemoryOf(*_daemon)[key];
    }
    FuzzExpect(MemoryOf(*_daemon) == kept, "a device that is gone forgets", MemoryOf(*_daemon));
    FuzzExpect(At(kept, "authBaseUrl") == At(before, "authBaseUrl"), "the portal stays");
  }

  std::shared_ptr<KioskDaemon> _daemon;
  std::optional<std::string> _before;  // the file as the daemon found it
  std::string _token;
  Json _picture;             // the Mac as it was before the daemon's first start
  bool _comparable = false;  // whether a device that is gone must leave it so
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  [[maybe_unused]] static const bool entered = (EnterWorld(), true);
  const FuzzInput input(data, size, 1);
  const std::optional<Json> given = KioskJsonParse(input.text);
  if (!given || !given->is_object()) return 0;
  const int descriptors = OpenDescriptors();
  {
    Session session(*given);
    const Json& steps = At(*given, "steps");
    const std::size_t count = steps.is_array() ? std::min(steps.size(), kMostSteps) : 0;
    for (std::size_t at = 0; at < count; ++at) session.step(steps[at]);
    session.expectFiles();
  }
  FuzzExpect(OpenDescriptors() == descriptors, "no descriptor is left open");
  return 0;
}
