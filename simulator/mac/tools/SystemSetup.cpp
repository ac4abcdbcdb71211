#include <unistd.h>

#include <filesystem>
#include <map>
#include <optional>

#include "simulator/mac/SettingsFile.h"
#include "simulator/mac/TimeSettings.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

namespace fs = std::filesystem;
using platform::MacTree;

constexpr char kZones[] = "/usr/share/zoneinfo/";
constexpr int kWrongUsage = 1;

/// What the tool says of itself on standard error, after failures and successes alike.
void Murmur(const ToolCall& call) {
  call.output.err(LogPrefix(call.name) +
                  "### Error:-99 File:/AppleInternal/Library/BuildRoots/"
                  "97f6331a-ba75-11ed-a4bc-863efbbaf80d/Library/Caches/com.apple.xbs/Sources/Admin/"
                  "InternetServices.m Line:379\n");
}

int Say(const ToolCall& call, const std::string& sentence) {
  call.output.out(sentence + "\n");
  return 0;
}

/// Changes a time setting and confirms it; without the confirmation nothing has changed.
int Change(const ToolCall& call, const char* key, const Json& value, const std::string& sentence) {
  const bool written =
      ChangeSettings(MacTree(), kTimeSettings, [key, &value](Json& time) { time[key] = value; });
  if (written) return Say(call, sentence);
  Murmur(call);
  return 0;
}

TimeSettings Settings() { return ParseTimeSettings(ReadSettings(MacTree(), kTimeSettings)); }

int GetServer(const ToolCall& call, const std::string& /*none*/) {
  return Say(call, "Network Time Server: " + Settings().server);
}

int SetServer(const ToolCall& call, const std::string& server) {
  return Change(call, "server", server, "setNetworkTimeServer: " + server);
}

int GetUsing(const ToolCall& call, const std::string& /*none*/) {
  return Say(call, std::string("Network Time: ") + (Settings().usingNetworkTime ? "On" : "Off"));
}

int Usage(const ToolCall& call) {
  call.output.out(
      "Usage: systemsetup -getnetworktimeserver | -setnetworktimeserver <timeserver> |\n"
      "       -getusingnetworktime | -setusingnetworktime <on off> |\n"
      "       -gettimezone | -settimezone <timezone>\n");
  return kWrongUsage;
}

int SetUsing(const ToolCall& call, const std::string& state) {
  if (state != "on" && state != "off") return Usage(call);
  const bool on = state == "on";
  if (Settings().usingNetworkTime == on) return Say(call, "Network Time is already " + state + ".");
  return Change(call, "usingNetworkTime", on,
                std::string("setUsingNetworkTime: ") + (on ? "On" : "Off"));
}

int GetZone(const ToolCall& call, const std::string& /*none*/) {
  constexpr std::string_view kFolder = "/zoneinfo/";
  std::error_code error;
  const std::string target = fs::read_symlink(platform::kMacLocalTime, error);
  const std::size_t folder = target.find(kFolder);
  const bool named = folder != std::string::npos;
  return Say(call, "Time Zone: " + (named ? target.substr(folder + kFolder.size()) : "GMT"));
}

/// Whether the Mac has a zone of this name, which leads nowhere else.
bool IsZone(const std::string& zone) {
  const fs::path path(zone);
  const bool below =
      path.is_relative() && path == path.lexically_normal() && zone.rfind("..", 0) != 0;
  const std::optional<std::string> data = below ? MacTree().read(kZones + zone) : std::nullopt;
  return data && data->rfind("TZif", 0) == 0;
}

/// Points the link at another zone; whoever reads it finds the old or the new one.
bool LinkZone(const std::string& zone) {
  const std::string fresh = std::string(platform::kMacLocalTime) + "." + std::to_string(getpid());
  if (symlink((kZones + zone).c_str(), fresh.c_str()) != 0) return false;
  if (rename(fresh.c_str(), platform::kMacLocalTime) == 0) return true;
  (void)unlink(fresh.c_str());  // the link that stays is the one in use
  return false;
}

int SetZone(const ToolCall& call, const std::string& zone) {
  if (!IsZone(zone)) return Say(call, "\"" + zone + "\" is not a valid time zone.");
  Murmur(call);
  return LinkZone(zone) ? Say(call, "Set TimeZone: " + zone) : 0;
}

/// An option, with or without a value after it.
struct Option {
  bool hasValue;
  int (*run)(const ToolCall& call, const std::string& value);
};

}  // namespace

int SystemSetup(const ToolCall& call) {
  static const std::map<std::string, Option> options = {
      {"-getnetworktimeserver", {false, GetServer}},
      {"-setnetworktimeserver", {true, SetServer}},
      {"-getusingnetworktime", {false, GetUsing}},
      {"-setusingnetworktime", {true, SetUsing}},
      {"-gettimezone", {false, GetZone}},
      {"-settimezone", {true, SetZone}}};
  if (geteuid() != 0) {
    return Say(call, "You need administrator access to run this tool... exiting!");
  }
  const auto option = call.arguments.empty() ? options.end() : options.find(call.arguments[0]);
  if (option == options.end()) return Usage(call);
  const std::size_t words = option->second.hasValue ? 2 : 1;
  if (call.arguments.size() != words) return Usage(call);
  return option->second.run(call, call.arguments.back());
}

}  // namespace simmac
