#include "simulator/portal/Shapes.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/portal/Limits.h"

namespace portal {
namespace {

enum class Presence { kRequired, kOptional };

struct Field {
  std::string_view name;
  Shape shape;
  Presence presence = Presence::kRequired;
};

/// An object with the required fields and no other than the named ones, each of its shape.
bool IsObjectOf(const Json& value, const std::vector<Field>& fields) {
  if (!value.is_object()) return false;
  std::size_t known = 0;
  for (const Field& field : fields) {
    const auto found = value.find(field.name);
    if (found == value.end() && field.presence == Presence::kRequired) return false;
    if (found == value.end()) continue;
    if (!field.shape(*found)) return false;
    ++known;
  }
  return known == value.size();
}

template <std::size_t least, std::size_t most>
bool IsText(const Json& value) {
  if (!value.is_string()) return false;
  const std::size_t length = Characters(value.get_ref<const std::string&>());
  return length >= least && length <= most;
}

template <int least, int most>
bool IsInteger(const Json& value) {
  return IsIntegerWithin(value, least, most);
}

template <Shape shape>
bool IsNullOr(const Json& value) {
  return value.is_null() || shape(value);
}

bool IsBoolean(const Json& value) { return value.is_boolean(); }

bool IsAnything(const Json&) { return true; }

bool IsObject(const Json& value) { return value.is_object(); }

bool IsMacOs(const Json& value) { return value == "macOS"; }

bool IsDays(const Json& value) {
  return value.is_array() && value.size() <= 7 &&
         std::all_of(value.begin(), value.end(), IsInteger<0, 6>);
}

/// Lower case only.
bool IsAlphanumeric(char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); }

bool IsLabel(std::string_view label) {
  return !label.empty() && label.size() <= 63 && IsAlphanumeric(label.front()) &&
         IsAlphanumeric(label.back()) && std::all_of(label.begin(), label.end(), [](char c) {
           return IsAlphanumeric(c) || c == '-';
         });
}

bool IsHost(const Json& value) {
  if (!value.is_string()) return false;
  std::string_view rest = value.get_ref<const std::string&>();
  if (rest.size() > kMaxSignInHost || rest.find('.') == rest.npos) return false;
  for (std::size_t dot = rest.find('.'); dot != rest.npos; dot = rest.find('.')) {
    if (!IsLabel(rest.substr(0, dot))) return false;
    rest.remove_prefix(dot + 1);
  }
  return IsLabel(rest);
}

bool IsHosts(const Json& value) {
  return value.is_array() && value.size() <= kMaxSignInHosts &&
         std::all_of(value.begin(), value.end(), IsHost);
}

/// The member `key` of a policy, or of a part of one; null when there is none.
const Json& Member(const Json& object, const char* key) {
  static const Json kNothing;
  const auto found = object.find(key);
  return found == object.end() ? kNothing : *found;
}

/// A whole number, in whatever notation: terminals take 3.0 for 3.
template <int least, int most>
bool IsWhole(const Json& value) {
  if (!value.is_number_float()) return IsInteger<least, most>(value);
  const double number = value.get<double>();
  return number == std::floor(number) && number >= least && number <= most;
}

bool IsMinutes(const Json& value) { return IsWhole<0, 240>(value); }

bool IsPolicyDays(const Json& value) {
  return value.is_array() && value.size() <= 7 &&
         std::all_of(value.begin(), value.end(), IsWhole<0, 6>);
}

std::string_view TimeOr(const Json& time, std::string_view fallback) {
  return time.is_null() ? fallback : time.get_ref<const std::string&>();
}

/// An enabled schedule has a day, and a time to sleep that is not the time to wake. What it leaves
/// out is what terminals take instead.
bool MakesSense(const Json& schedule) {
  if (Member(schedule, "enabled") != true) return true;
  const Json& days = Member(schedule, "days");
  if (days.is_array() && days.empty()) return false;
  return TimeOr(Member(schedule, "sleepAt"), "22:00") !=
         TimeOr(Member(schedule, "wakeAt"), "07:00");
}

bool IsSchedule(const Json& value) {
  return value.is_object() && IsNullOr<IsBoolean>(Member(value, "enabled")) &&
         IsNullOr<IsClock>(Member(value, "sleepAt")) &&
         IsNullOr<IsClock>(Member(value, "wakeAt")) &&
         IsNullOr<IsPolicyDays>(Member(value, "days")) && MakesSense(value);
}

bool IsReportedSchedule(const Json& value) {
  return IsObjectOf(
      value, {{"enabled", IsBoolean}, {"sleepAt", IsClock}, {"wakeAt", IsClock}, {"days", IsDays}});
}

/// A terminal reports its policy with every default filled in.
bool IsReportedPowerPolicy(const Json& value) {
  return IsObjectOf(value, {{"screenOffMinutes", IsInteger<0, 240>},
                            {"sleepMinutes", IsInteger<0, 240>},
                            {"schedule", IsReportedSchedule}});
}

bool IsWindow(const Json& value) {
  if (!value.is_object()) return false;
  const Json& days = Member(value, "days");
  return IsClock(Member(value, "start")) && IsClock(Member(value, "end")) &&
         (days.is_null() || (IsPolicyDays(days) && !days.empty()));
}

/// A token of a media type, as far as such types have ever been registered.
bool IsSubtype(std::string_view text) {
  return !text.empty() && IsAlphanumeric(text.front()) &&
         std::all_of(text.begin(), text.end(),
                     [](char c) { return IsAlphanumeric(c) || c == '.' || c == '+' || c == '-'; });
}

bool ArePhotos(const Json& value) {
  return value.is_array() && value.size() <= kMaxPhotos &&
         std::all_of(value.begin(), value.end(), IsPhoto);
}

bool IsEnrolled(const Json& value) { return value == "enrolled"; }

bool IsMode(const Json& value) { return value.is_string(); }

bool IsPathPrefix(const Json& value) {
  return IsText<1, kMaxPathPrefix>(value) && value.get_ref<const std::string&>().front() == '/';
}

constexpr Field kMode{"mode", IsMode};
constexpr Field kPath{"path", IsPathPrefix, Presence::kOptional};
constexpr Field kTimes{"times", IsInteger<1, kMaxTimes>, Presence::kOptional};

/// The modes and the settings that each of them takes.
const std::map<std::string, std::vector<Field>, std::less<>>& Modes() {
  static const std::map<std::string, std::vector<Field>, std::less<>> kModes = {
      {"none", {kMode}},
      {"refuse", {kMode}},
      {"wrongCertificate", {kMode, kTimes}},
      {"cut", {kMode, kPath, kTimes}},
      {"garbage", {kMode, kPath, kTimes}},
      {"html500", {kMode, kPath, kTimes}},
      {"empty", {kMode, kPath, kTimes}},
      {"corrupt", {kMode, kPath, kTimes}},
      {"slow", {kMode, kPath, kTimes, {"delayMs", IsInteger<0, kMaxDelayMs>}}},
      {"status",
       {kMode,
        kPath,
        kTimes,
        {"status", IsInteger<200, 599>},
        {"body", IsAnything, Presence::kOptional}}},
  };
  return kModes;
}

}  // namespace

std::size_t Characters(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

bool IsIntegerWithin(const Json& value, int least, int most) {
  return value.is_number_integer() && value >= least && value <= most;
}

bool IsPairRequest(const Json& value) {
  return IsObjectOf(value, {{"hostname", IsText<0, kMaxHostname>},
                            {"platform", IsMacOs},
                            {"osVersion", IsText<0, kMaxVersion>},
                            {"appVersion", IsText<0, kMaxVersion>}});
}

bool IsCheckInRequest(const Json& value) {
  return IsObjectOf(value, {{"appVersion", IsText<0, kMaxVersion>},
                            {"powerLocal", IsNullOr<IsReportedPowerPolicy>},
                            {"powerError", IsNullOr<IsText<0, kMaxPowerError>>},
                            {"osUpdates", IsNullOr<IsObject>}});
}

bool IsCheckInAnswer(const Json& value) {
  return IsObjectOf(value, {{"status", IsEnrolled},
                            {"name", IsName},
                            {"signIn", IsSignIn},
                            {"exitPassword", IsExitPassword, Presence::kOptional},
                            {"power", IsPowerPolicy, Presence::kOptional},
                            {"powerSource", IsSource, Presence::kOptional},
                            {"updates", IsUpdatesPolicy, Presence::kOptional},
                            {"updatesSource", IsSource, Presence::kOptional},
                            {"branding", IsBranding, Presence::kOptional},
                            {"tenantId", IsTenantId, Presence::kOptional}});
}

bool IsName(const Json& value) { return IsText<1, kMaxName>(value); }

bool IsSignIn(const Json& value) {
  return IsObjectOf(value,
                    {{"microsoft", IsBoolean}, {"email", IsBoolean}, {"extraHosts", IsHosts}});
}

bool IsExitPassword(const Json& value) { return IsText<1, kMaxExitPassword>(value); }

bool IsPowerPolicy(const Json& value) {
  return value.is_object() && IsMinutes(Member(value, "screenOffMinutes")) &&
         IsMinutes(Member(value, "sleepMinutes")) &&
         IsNullOr<IsSchedule>(Member(value, "schedule"));
}

bool IsUpdatesPolicy(const Json& value) {
  return value.is_object() && IsNullOr<IsBoolean>(Member(value, "automatic")) &&
         IsNullOr<IsWindow>(Member(value, "window"));
}

bool IsSource(const Json& value) {
  return value == "device" || value == "tenant" || value == "default";
}

bool IsClock(const Json& value) {
  if (!value.is_string()) return false;
  const std::string& text = value.get_ref<const std::string&>();
  const auto digit = [&](std::size_t i, char most) { return text[i] >= '0' && text[i] <= most; };
  return text.size() == 5 && digit(0, '2') && digit(1, text[0] == '2' ? '3' : '9') &&
         text[2] == ':' && digit(3, '5') && digit(4, '9');
}

bool IsBrandingChange(const Json& value) {
  return IsObjectOf(value, {{"displayName", IsText<1, kMaxDisplayName>},
                            {"signInSubtitle", IsText<0, kMaxSubtitle>, Presence::kOptional}});
}

bool IsBranding(const Json& value) {
  return IsObjectOf(value, {{"displayName", IsText<1, kMaxDisplayName>},
                            {"signInSubtitle", IsText<0, kMaxSubtitle>},
                            {"photos", ArePhotos}});
}

bool IsPhoto(const Json& value) {
  constexpr int kMost = std::numeric_limits<std::int32_t>::max();
  return IsObjectOf(value, {{"sha256", IsDigest},
                            {"contentType", IsContentType},
                            {"width", IsInteger<1, kMost>},
                            {"height", IsInteger<1, kMost>},
                            {"credit", IsText<0, kMaxCredit>}});
}

bool IsDigest(const Json& value) {
  if (!value.is_string()) return false;
  const std::string& text = value.get_ref<const std::string&>();
  return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == text.npos;
}

bool IsContentType(const Json& value) {
  static constexpr std::string_view kKind = "image/";
  if (!value.is_string()) return false;
  const std::string_view text = value.get_ref<const std::string&>();
  return text.size() <= kMaxContentType && text.starts_with(kKind) &&
         IsSubtype(text.substr(kKind.size()));
}

bool IsTenantId(const Json& value) { return IsText<1, kMaxTenantId>(value); }

bool IsMisbehaviour(const Json& value) {
  if (!value.is_object() || !value.contains("mode") || !value["mode"].is_string()) return false;
  const auto mode = Modes().find(value["mode"].get_ref<const std::string&>());
  return mode != Modes().end() && IsObjectOf(value, mode->second);
}

}  // namespace portal
