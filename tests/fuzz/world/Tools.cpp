// In place of the daemon's process runner: tools that do what the world says, and by default what
// the daemon relies on.
#include <sys/stat.h>
#include <unistd.h>

#include "account/KioskRun.h"
#include "core/KioskText.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/world/World.h"

namespace {

constexpr char kAccount[] = "BrindlexKiosk";
constexpr char kHome[] = "/Users/BrindlexKiosk";
constexpr gid_t kStaff = 20;

using Arguments = std::vector<std::string>;

struct Run {
  std::int32_t status = 0;
  std::string output;
};

Run Defaults(const Arguments& arguments) {
  std::optional<std::string>& user = TheWorld().autoLoginUser;
  if (arguments[0] == "read") return user ? Run{0, *user} : Run{1, "does not exist"};
  FuzzExpect(!user || user == kAccount, "nobody else's automatic login is touched", *user);
  if (arguments[0] == "delete") user.reset();
  if (arguments[0] == "write") {
    FuzzExpect(arguments.back() == kAccount, "automatic login is the kiosk account's");
    user = kAccount;
  }
  return {};
}

Run CreateHome() {
  const bool made = mkdir(kHome, 0700) != 0 || chown(kHome, kWorldUid, kStaff) == 0;
  return {made ? 0 : 1, ""};
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
  if (tool == "sysadminctl") SetKioskAccount(arguments[0] == "-addUser");
  if (tool == "systemsetup" && arguments[0] == "-settimezone") SetTimeZone(arguments[1]);
  if (tool == "launchctl" && arguments[0] == "print") return {113, ""};
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
  Run run;
  if (script.is_object() && script.contains("status") && script["status"].is_number_integer()) {
    run.status = static_cast<std::int32_t>(script["status"].get<std::int64_t>() % 256);
  }
  if (run.status == 0) run = Effect(tool, arguments);
  if (script.is_object() && script.contains("output") && script["output"].is_string()) {
    run.output = script["output"].get<std::string>();
  }
  return run;
}

}  // namespace

std::int32_t KioskRunFollowing(const std::string& path, const Arguments& arguments,
                               std::string* output,
                               const std::function<void(std::string_view chunk)>& onChunk) {
  const Run run = RunTool(path, arguments);
  if (onChunk && !run.output.empty()) onChunk(run.output);
  if (run.status != -1 && output != nullptr) {
    *output = KioskIsUtf8(run.output) ? KioskTrim(run.output) : std::string_view();
  }
  return run.status;
}

std::int32_t KioskRun(const std::string& path, const Arguments& arguments, std::string* output) {
  return KioskRunFollowing(path, arguments, output, nullptr);
}

bool KioskRunChecked(const std::string& path, const Arguments& arguments) {
  return KioskRun(path, arguments, nullptr) == 0;
}
