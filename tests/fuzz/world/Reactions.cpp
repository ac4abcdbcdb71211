#include "tests/fuzz/world/Reactions.h"

#include <algorithm>
#include <initializer_list>

#include "core/KioskJson.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/unit/OutputRules.h"

namespace {

using Command = std::vector<std::string>;

constexpr char kAccount[] = "BrindlexKiosk";
constexpr char kUsualServer[] = "time.apple.com";
const Command kNetworkTimeOn{"systemsetup", "-setusingnetworktime", "on"};
const Command kTimedAnew{"launchctl", "kickstart", "-k", "system/com.apple.timed"};

bool Begins(const Command& command, std::initializer_list<std::string> words) {
  return command.size() >= words.size() && std::equal(words.begin(), words.end(), command.begin());
}

std::string Shown(const Command& command) { return Json(command).dump(); }

/// Whether a command is only ever the answer to what a tool said.
bool IsReaction(const Command& command) {
  return Begins(command, {"dseditgroup", "-o", "edit"}) || Begins(command, {"sntp"}) ||
         command == kNetworkTimeOn || command == kTimedAnew;
}

/// The next command that a run asks for; empty when it asks for none.
Command DueAfter(const WorldRun& run) {
  const bool worked = run.status == 0;
  if (Begins(run.command, {"dseditgroup", "-o", "checkmember"})) {
    const bool isMember = worked && run.said.substr(0, 3) == "yes";
    if (!isMember) return {};
    return {"dseditgroup", "-o", "edit", "-d", kAccount, "-t", "user", run.command.back()};
  }
  if (Begins(run.command, {"systemsetup", "-getnetworktimeserver"})) {
    const auto server = worked ? TimeServerByPattern(run.said) : std::nullopt;
    return {"sntp", "-sS", server.value_or(kUsualServer)};
  }
  if (Begins(run.command, {"sntp"}) && !worked) return kNetworkTimeOn;
  if (run.command == kNetworkTimeOn && worked) return kTimedAnew;
  return {};
}

/// The automatic login as the run before this one showed it.
std::string ShownAutoLogin() {
  const WorldRun& last = TheWorld().last;
  FuzzExpect(Begins(last.command, {"defaults", "read"}), "automatic login is read before a change",
             Shown(last.command));
  return last.status == 0 ? last.said : "";
}

/// Whether the account is the one of the state file; a file that names none is of other origin.
bool IsOurs() {
  const Json state = KioskJsonParse(WorldRead(kWorldStateFile).value_or("")).value_or(Json());
  const Json& uuid = KioskMember(state, "generatedUID");
  return !uuid.is_string() || (uuid == kWorldUuid && KioskAccountExists());
}

void ExpectAutoLoginChange(const Command& command) {
  const std::string user = ShownAutoLogin();
  if (command[1] == "delete") {
    FuzzExpect(user == kAccount, "only our automatic login is ended", user);
    return;
  }
  FuzzExpect(user.empty() || user == kAccount, "nobody else's automatic login is replaced", user);
  FuzzExpect(command.back() == kAccount && IsOurs(), "automatic login is for our account alone");
}

void ExpectSessionUp(const Command& command) {
  const WorldRun& last = TheWorld().last;
  FuzzExpect(Begins(last.command, {"launchctl", "print"}) && last.status == 0,
             "only a session that is up is ended", Shown(command), Shown(last.command));
}

}  // namespace

void ExpectReaction(const Command& command) {
  const World& world = TheWorld();
  FuzzExpect(world.due.empty() ? !IsReaction(command) : command == world.due,
             "what a tool says is acted upon, and nothing that it does not say", Shown(command),
             Shown(world.due), Shown(world.last.command), world.last.status, world.last.said);
  const bool isChange =
      Begins(command, {"defaults", "write"}) || Begins(command, {"defaults", "delete"});
  if (isChange) ExpectAutoLoginChange(command);
  if (Begins(command, {"launchctl", "bootout"}) || command[0] == "pkill") ExpectSessionUp(command);
  if (Begins(command, {"sysadminctl", "-addUser"})) {
    FuzzExpect(world.fileVault == false, "no account is made where FileVault is on or unknown");
  }
}

void NoteRun(WorldRun run) {
  World& world = TheWorld();
  if (run.command[0] == "fdesetup") {
    world.fileVault = run.status == 0 && run.said.find("FileVault is On") != std::string::npos;
  }
  if (Begins(run.command, {"pmset", "-g"})) world.powerShown = run.status == 0 ? run.said : "";
  world.due = DueAfter(run);
  world.last = std::move(run);
}
