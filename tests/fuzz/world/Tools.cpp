// In place of the daemon's process runner: tools that do what the world says, and by default what
// the daemon relies on.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "account/KioskRun.h"
#include "core/KioskText.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/world/Reactions.h"
#include "tests/fuzz/world/World.h"

namespace {

constexpr gid_t kStaff = 20;

using Arguments = std::vector<std::string>;

struct Run {
  std::int32_t status = 0;
  std::string output;
};

Run Defaults(const Arguments& arguments) {
  std::optional<std::string>& user = TheWorld().autoLoginUser;
  if (arguments[0] == "read") return user ? Run{0, *user} : Run{1, "does not exist"};
  if (arguments[0] == "delete") user.reset();
  if (arguments[0] == "write") user = arguments.back();
  return {};
}

Run CreateHome() {
  const bool made = mkdir(kWorldHome, 0700) != 0 || chown(kWorldHome, kWorldUid, kStaff) == 0;
  return {made ? 0 : 1, ""};
}

Run Account(bool added) {
  SetKioskAccount(added);
  if (added) return {};
  // What is the account's goes with it.
  TheWorld().hasSession = TheWorld().isAdministrator = false;
  std::filesystem::remove_all(kWorldHome);
  return {};
}

Run Membership(const Arguments& arguments) {
  bool& isMember = TheWorld().isAdministrator;
  const bool asks = arguments[1] == "checkmember";
  if (!asks && arguments.back() == "admin") isMember = false;
  if (!asks) return {};
  const bool is = isMember && arguments.back() == "admin";
  return is ? Run{0, "yes BrindlexKiosk is a member of admin"} : Run{67, "no BrindlexKiosk is NOT"};
}

Run LaunchCtl(const Arguments& arguments) {
  bool& isUp = TheWorld().hasSession;
  if (arguments[0] == "print") return {isUp ? 0 : 113, ""};
  if (arguments[0] == "bootout") isUp = false;
  return {};
}

Run Power(const Arguments& arguments) {
  World& world = TheWorld();
  if (arguments[0] == "-g") {
    return {0, " displaysleep " + world.timeouts["displaysleep"].dump() + "\n sleep " +
                   world.timeouts["sleep"].dump() + " (sleep prevented by powerd)"};
  }
  if (arguments[0] == "repeat") world.repeatsPower = arguments[1] != "cancel";
  for (std::size_t at = 1; arguments[0] == "-a" && at + 1 < arguments.size(); at += 2) {
    world.timeouts[arguments[at]] = std::stoll(arguments[at + 1]);
  }
  return {};
}

void SetTimeZone(const std::string& zone) {
  constexpr char kLocalTime[] = "/private/etc/localtime";
  unlink(kLocalTime);
  FuzzExpect(symlink(("/var/db/timezone/zoneinfo/" + zone).c_str(), kLocalTime) == 0,
             "the world has a time zone");
}

// What a tool does by itself.
Run Effect(std::string_view tool, const Arguments& arguments) {
  if (tool == "defaults") return Defaults(arguments);
  if (tool == "createhomedir") return CreateHome();
  if (tool == "sysadminctl") return Account(arguments[0] == "-addUser");
  if (tool == "dseditgroup") return Membership(arguments);
  if (tool == "launchctl") return LaunchCtl(arguments);
  if (tool == "pmset") return Power(arguments);
  if (tool == "systemsetup" && arguments[0] == "-settimezone") SetTimeZone(arguments[1]);
  if (tool == "pkill") TheWorld().hasSession = false;
  return {};
}

Run RunTool(const std::string& path, const Arguments& arguments) {
  FuzzExpect(path.starts_with('/'), "a tool is started by its absolute path", path);
  for (const std::string& argument : arguments) {
    FuzzExpect(argument.find('\0') == std::string::npos, "an argument is handed on whole");
  }
  const std::string tool = path.substr(path.rfind('/') + 1);
  const Json& tools = TheWorld().tools;
  const Json script = tools.is_object() && tools.contains(tool) ? tools[tool] : Json();
  std::optional<std::int32_t> status;
  if (script.is_object() && script.contains("status") && script["status"].is_number_integer()) {
    status = static_cast<std::int32_t>(script["status"].get<std::int64_t>() % 256);
  }
  Run run;
  if (status.value_or(0) == 0) run = Effect(tool, arguments);
  run.status = status.value_or(run.status);
  if (script.is_object() && script.contains("output") && script["output"].is_string()) {
    run.output = script["output"].get<std::string>();
  }
  return run;
}

}  // namespace

std::int32_t KioskRunFollowing(const std::string& path, const Arguments& arguments,
                               std::string* output,
                               const std::function<void(std::string_view chunk)>& onChunk) {
  WorldRun known{{path.substr(path.rfind('/') + 1)}, 0, ""};
  known.command.insert(known.command.end(), arguments.begin(), arguments.end());
  ExpectReaction(known.command);
  const Run run = RunTool(path, arguments);
  if (onChunk && !run.output.empty()) onChunk(run.output);
  known.status = run.status;
  if (run.status != -1 && KioskIsUtf8(run.output)) known.said = KioskTrim(run.output);
  if (run.status != -1 && output != nullptr) *output = known.said;
  NoteRun(std::move(known));
  return run.status;
}

std::int32_t KioskRun(const std::string& path, const Arguments& arguments, std::string* output) {
  return KioskRunFollowing(path, arguments, output, nullptr);
}

bool KioskRunChecked(const std::string& path, const Arguments& arguments) {
  return KioskRun(path, arguments, nullptr) == 0;
}
