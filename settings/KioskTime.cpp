#include "settings/KioskTime.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "account/KioskRun.h"
#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "core/KioskText.h"
#include "platform/Calendar.h"
#include "platform/Clock.h"
#include "platform/Text.h"

namespace {

constexpr char kSystemSetup[] = "/usr/sbin/systemsetup";
constexpr char kSntp[] = "/usr/bin/sntp";
constexpr char kLocalTime[] = "/private/etc/localtime";
constexpr std::size_t kLongestLink = 1023;
constexpr std::size_t kLongestZoneName = 64;
constexpr std::size_t kLongestServerName = 253;
constexpr double kMillisecondsPerSecond = 1000;

bool IsLetterOrDigit(char c) {
  return KioskIsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::string LocalTimeLink() {
  std::array<char, kLongestLink> target{};
  const ssize_t length = readlink(kLocalTime, target.data(), target.size());
  return length < 0 ? "" : std::string(target.data(), static_cast<std::size_t>(length));
}

std::size_t DigitsAt(std::string_view text) {
  return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), KioskIsDigit) -
                                  text.begin());
}

// The offset at the start of a line: "([+-]?[0-9]+(\.[0-9]+)?) \+/- [0-9.]+ ".
std::optional<double> OffsetAt(std::string_view line) {
  const std::string_view whole = line;
  if (line.starts_with('+') || line.starts_with('-')) line.remove_prefix(1);
  const std::size_t integer = DigitsAt(line);
  if (integer == 0) return std::nullopt;
  line.remove_prefix(integer);
  if (line.starts_with('.')) {
    const std::size_t fraction = DigitsAt(line.substr(1));
    if (fraction == 0) return std::nullopt;
    line.remove_prefix(1 + fraction);
  }
  const std::string number(whole.substr(0, whole.size() - line.size()));
  if (!line.starts_with(" +/- ")) return std::nullopt;
  line.remove_prefix(5);
  const std::size_t error = std::min(line.find_first_not_of("0123456789."), line.size());
  if (error == 0 || !line.substr(error).starts_with(' ')) return std::nullopt;
  return std::strtod(number.c_str(), nullptr);
}

bool IsServerName(std::string_view text) {
  return !text.empty() && text.size() <= kLongestServerName && IsLetterOrDigit(text.front()) &&
         std::all_of(text.begin(), text.end(),
                     [](char c) { return IsLetterOrDigit(c) || c == '.' || c == '-'; });
}

std::string ConfiguredServer() {
  std::string output;
  if (KioskRun(kSystemSetup, {"-getnetworktimeserver"}, &output) != 0) {
    return kKioskDefaultTimeServer;
  }
  return KioskTimeServerParse(output).value_or(kKioskDefaultTimeServer);
}

// Has the system set the clock by itself.
KioskError TurnNetworkTimeOn() {
  std::string output;
  if (KioskRun(kSystemSetup, {"-setusingnetworktime", "on"}, &output) != 0) {
    KioskLogError("systemsetup -setusingnetworktime on failed: %@", output);
    return "sync_failed";
  }
  std::string restart;
  if (KioskRun(kKioskLaunchctl, {"kickstart", "-k", "system/com.apple.timed"}, &restart) != 0) {
    KioskLogError("timed did not restart: %@", restart);
    return "sync_failed";
  }
  KioskLog("network time on; timed restarted to sync");
  return std::nullopt;
}

// Halves go away from zero.
std::int64_t WholeMilliseconds(double offsetMs) {
  constexpr double kMost = 9e18;
  return std::llround(std::clamp(offsetMs, -kMost, kMost));
}

}  // namespace

bool KioskTimeZoneValid(const Json& value) {
  if (!value.is_string()) return false;
  const std::string& name = value.get_ref<const std::string&>();
  if (platform::TextToUtf16(name).size() > kLongestZoneName) return false;
  const std::vector<std::string> known = platform::CalendarKnownTimeZones();
  return std::find(known.begin(), known.end(), name) != known.end();
}

KioskError KioskSetTimeZone(const std::string& zone) {
  if (!KioskTimeZoneValid(zone)) return "invalid";
  std::string output;
  const std::int32_t status = KioskRun(kSystemSetup, {"-settimezone", zone}, &output);
  // The tool's status alone is not to be trusted.
  if (status == 0 && LocalTimeLink().ends_with("/zoneinfo/" + zone)) {
    KioskLog("time zone set to %@", zone);
    return std::nullopt;
  }
  KioskLogError("time zone %@ not applied (exit %d): %@", zone, status, output);
  return "failed";
}

bool KioskSntpParse(std::string_view text, double& offsetMs) {
  for (std::size_t start = 0; start < text.size();) {
    if (const std::optional<double> offset = OffsetAt(text.substr(start))) {
      offsetMs = *offset * kMillisecondsPerSecond;
      return true;
    }
    start = KioskNextLine(text, start);
  }
  return false;
}

std::optional<std::string> KioskTimeServerParse(std::string_view text) {
  constexpr std::string_view kLabel = "Network Time Server:";
  const std::size_t at = text.find(kLabel);
  if (at == std::string_view::npos) return std::nullopt;
  const std::string_view rest = KioskTrim(text.substr(at + kLabel.size()));
  std::size_t end = 0;
  while (end < rest.size() && KioskSpaceLength(rest.substr(end)) == 0) ++end;
  const std::string_view word = rest.substr(0, end);
  return IsServerName(word) ? std::optional(std::string(word)) : std::nullopt;
}

KioskError KioskSyncTime(std::string& server, double& offsetMs) {
  server = ConfiguredServer();
  offsetMs = 0;
  std::string output;
  if (KioskRun(kSntp, {"-sS", server}, &output) != 0) {
    KioskLogError("sntp %@ failed: %@; turning network time on instead", server, output);
    return TurnNetworkTimeOn();
  }
  static_cast<void>(KioskSntpParse(output, offsetMs));  // stays 0 when it says none
  KioskLog("time synced from %@, %.0f ms out", server, offsetMs);
  return std::nullopt;
}

Json KioskDaemon::timeZone(const Json& request, KioskPeer peer) {
  if (!mayChangeSettings(request, peer)) return KioskFailure("not_unlocked");
  const Json& zone = KioskMember(request, "zone");
  if (!KioskTimeZoneValid(zone)) return KioskFailure("invalid");
  if (const KioskError error = KioskSetTimeZone(zone)) return KioskFailure(*error);
  return KioskSuccess();
}

Json KioskDaemon::timeSync(const Json& request, KioskPeer peer) {
  if (!mayChangeSettings(request, peer)) return KioskFailure("not_unlocked");
  std::string server;
  double offsetMs = 0;
  if (const KioskError error = KioskSyncTime(server, offsetMs)) {
    Json reply = KioskFailure(*error);
    reply["server"] = server;
    return reply;
  }
  const std::string at = KioskIso8601(platform::ClockSecondsSince1970());
  _state["lastTimeSync"] = {{"at", at}, {"server", server}, {"ok", true}};
  save();
  return {{"ok", true}, {"server", server}, {"offsetMs", WholeMilliseconds(offsetMs)}, {"at", at}};
}

Json KioskDaemon::timeGet(const Json& request, KioskPeer peer) {
  if (!mayChangeSettings(request, peer)) return KioskFailure("not_unlocked");
  const Json& last = KioskMember(_state, "lastTimeSync");
  return {{"ok", true}, {"lastSync", last.is_object() ? last : Json()}};
}
