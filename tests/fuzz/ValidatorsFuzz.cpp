// The validators of policies, requests and answers against their restatements, and that what they
// made is valid and amounts to itself. An input is a character that chooses the validator, and
// JSON.
#include <array>
#include <ctime>
#include <string>

#include "core/KioskJson.h"
#include "platform/Calendar.h"
#include "portal/KioskBranding.h"
#include "portal/KioskCheckIn.h"
#include "settings/KioskNet.h"
#include "settings/KioskPower.h"
#include "settings/KioskPowerApply.h"
#include "settings/KioskProxy.h"
#include "settings/KioskTime.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/unit/NetworkRequestRules.h"
#include "tests/unit/PolicyRules.h"
#include "tests/unit/PolicyTables.h"
#include "tests/unit/ProjectionRules.h"
#include "tests/unit/ProxyRules.h"
#include "updates/KioskUpdateWindow.h"
#include "updates/KioskUpdates.h"

namespace {

using Parsed = std::optional<Json>;

/// As text: equality of JSON values takes 1 and 1.0 for the same.
std::string TextOf(const Parsed& value) { return value ? value->dump() : "nothing"; }

void ExpectSame(const Parsed& made, const Parsed& expected, const char* what, const Json& given) {
  FuzzExpect(TextOf(made) == TextOf(expected), what, given.dump(), TextOf(made), TextOf(expected));
}

void FuzzPower(const Json& given) {
  const Parsed policy = KioskPowerParse(given);
  ExpectSame(policy, PowerByTheTables(given), "a power policy is as the tables have it", given);
  if (!policy) return;
  ExpectSame(KioskPowerParse(*policy), policy, "a power policy amounts to itself", given);
  FuzzExpect(KioskPowerTimeoutArgs(*policy).size() == 5, "timeouts can be set");
  const bool on = (*policy)["schedule"]["enabled"] == true;
  FuzzExpect(KioskPowerScheduleArgs(*policy).size() == (on ? 7 : 2), "a schedule can be set");
}

void FuzzUpdates(const Json& given) {
  const Parsed policy = KioskUpdatesParse(given);
  ExpectSame(policy, UpdatesByTheTables(given), "an update policy is as the tables have it", given);
  if (policy) ExpectSame(KioskUpdatesParse(*policy), policy, "it amounts to itself", given);
}

void FuzzNetwork(const Json& given) {
  const Parsed network = KioskNetParse(given);
  ExpectSame(network, NetworkByTheTable(given), "a network is as the table has it", given);
  if (!network) return;
  Json request = *network;
  request["mode"] = request["dhcp"] == true ? "dhcp" : "static";
  ExpectSame(KioskNetParse(request), network, "a network is what it is asked for as", given);
}

void FuzzProxy(const Json& given) {
  const Parsed proxy = KioskProxyParse(given);
  ExpectSame(proxy, ProxyByTheRules(given), "proxies are as the rules have them", given);
  if (!proxy) return;
  Json request = *proxy;
  if (request["mode"] == "manual") {
    const std::string host = request["host"];
    request["server"] = host + ":" + request["port"].dump();
    if (request["excludeSimple"] == true) request["bypass"].push_back("<local>");
  }
  ExpectSame(KioskProxyParse(request), proxy, "proxies are what they are asked for as", given);
}

void FuzzSignIn(const Json& given) {
  const Json signIn = KioskSignInFrom(given);
  ExpectSame(signIn, SignInByTheTable(given), "sign-in is as the table has it", given);
  ExpectSame(KioskSignInFrom(signIn), signIn, "sign-in amounts to itself", given);
}

void FuzzProjection(const Json& given) {
  const Json& branding = KioskMember(given, "branding");
  const Json& tenant = KioskMember(given, "tenantId");
  const Parsed projection = KioskBrandingProjection(branding, tenant);
  ExpectSame(projection, ProjectionByTheTable(branding, tenant),
             "a projection is as the table has it", given);
  if (!projection) return;
  ExpectSame(KioskBrandingProjection(*projection, (*projection)["tenantId"]), projection,
             "a projection amounts to itself", given);
}

/// The instant "at" (seconds since 1970) as the civil time of a Mac in UTC.
platform::CivilTime CivilTimeAt(const Json& given) {
  std::int64_t at = 0;
  if (!KioskIsInteger(KioskMember(given, "at"), at)) at = 0;
  const std::time_t instant = ((at % 4'000'000'000) + 4'000'000'000) % 4'000'000'000;
  std::tm fields = {};
  gmtime_r(&instant, &fields);
  return {fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday,    fields.tm_hour,
          fields.tm_min,         fields.tm_sec,     fields.tm_wday + 1};
}

void FuzzWindow(const Json& given) {
  const platform::CivilTime now = CivilTimeAt(given);
  const std::optional<std::string> any = KioskUpdateWindowKey(KioskMember(given, "window"), now);
  FuzzExpect(!any || any->size() == 10, "a window has a day");
  const Parsed policy = KioskUpdatesParse({{"window", KioskMember(given, "window")}});
  if (!policy) return;
  const Json& window = (*policy)["window"];
  const std::optional<std::string> key = KioskUpdateWindowKey(window, now);
  const std::optional<std::string> expected = WindowByTheMinutes(window, now);
  FuzzExpect(key == expected, "a window is open in its minutes", given.dump(),
             key.value_or("closed"), expected.value_or("closed"));
}

void FuzzValue(const Json& given) {
  int minutes = -1;
  const bool isTime = KioskClock(given, minutes);
  FuzzExpect(isTime == MinuteOfDay(given).has_value(), "a time of day is one of all", given.dump());
  FuzzExpect(minutes == MinuteOfDay(given).value_or(-1), "a time of day has its minute");
  ExpectSame(KioskDays(given), Weekdays(given), "weekdays are those that are listed", given);
  std::int64_t integer = 0;
  FuzzExpect(!IsNumberIn(given, 0, 9) || (KioskIsInteger(given, integer) && given == integer),
             "a small whole number is an integer", given.dump());
  FuzzExpect(KioskNumber(given).has_value() == (given.is_number() || given.is_boolean()),
             "numbers and booleans count as numbers");
  FuzzExpect(!KioskDescription(given).empty() || given == "", "a value has a description");
}

void FuzzAddress(const Json& given) {
  std::uint32_t address = 0;
  if (KioskParseQuad(given, address)) {
    FuzzExpect(given == KioskQuadString(address), "an address is written as it is read");
  }
  if (!given.is_string()) return;
  const std::string text = given.get<std::string>();
  FuzzExpect(KioskHostname(text) == HostByTheRule(text), "a proxy's host is as the rule has it",
             text);
}

void FuzzTimeZone(const Json& given) {
  static const std::vector<std::string> known = platform::CalendarKnownTimeZones();
  const bool expected = given.is_string() && given.get<std::string>().size() <= 64 &&
                        std::find(known.begin(), known.end(), given) != known.end();
  FuzzExpect(KioskTimeZoneValid(given) == expected, "a time zone is one that is known");
}

constexpr std::array kValidators{FuzzPower,   FuzzUpdates,    FuzzNetwork, FuzzProxy,
                                 FuzzSignIn,  FuzzProjection, FuzzWindow,  FuzzValue,
                                 FuzzAddress, FuzzTimeZone};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const FuzzInput input(data, size, kValidators.size());
  if (const std::optional<Json> given = KioskJsonParse(input.text)) {
    kValidators[input.choice](*given);
  }
  return 0;
}
