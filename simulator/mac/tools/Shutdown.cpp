#include <unistd.h>

#include <array>
#include <charconv>
#include <ctime>
#include <optional>

#include "simulator/mac/PowerRequest.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

using platform::MacTree;

int Fail(const ToolCall& call, const std::string& text) {
  call.output.err("shutdown: " + text + "\n");
  return 1;
}

int Usage(const ToolCall& call) {
  call.output.err(
      "usage: shutdown [-] [-h | -r | -s | -k] [-o [-n]] [-q] time [warning-message ...]\n");
  return 1;
}

int Usage(const ToolCall& call, const std::string& text) {
  (void)Fail(call, text);
  return Usage(call);
}

int GoDown(const ToolCall& call, const std::string& request) {
  call.output.out("Shutdown NOW!\n");
  if (!LeavePowerRequest(MacTree(), request)) {
    call.output.err("shutdown: couldn't lock for reboot: Operation not permitted\n");
    return 0;
  }
  // Once it knows, launchd may end us before we have said what we did.
  call.afterwards = [] { (void)TellLaunchd(MacTree()); };
  return 0;
}

/// A point in time as the tool was told it, and whether it named a day.
struct Moment {
  time_t time = 0;
  bool dated = false;
};

/// Minutes from now, "+N".
std::optional<Moment> ParseMinutes(const std::string& text, time_t now) {
  constexpr time_t kMinute = 60;
  constexpr int kMost = 100 * 365 * 24 * 60;
  int minutes = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + 1, end, minutes);
  if (error != std::errc() || stop != end || minutes < 0 || minutes > kMost) return std::nullopt;
  return Moment{now + kMinute * minutes, true};
}

/// Two digits each; 0 when there are none.
int Pair(const std::string& digits, std::size_t index) {
  return (digits[2 * index] - '0') * 10 + (digits[2 * index + 1] - '0');
}

/// The fields that the digits name, the last ones always being hour and minute.
std::optional<tm> ParseFields(const std::string& digits, time_t now) {
  constexpr int kCentury = 100;  // of the two-digit years, counted from 1900
  tm local{};
  localtime_r(&now, &local);
  local.tm_sec = 0;
  local.tm_isdst = -1;
  const std::size_t pairs = digits.size() / 2;
  local.tm_min = Pair(digits, pairs - 1);
  local.tm_hour = Pair(digits, pairs - 2);
  if (pairs > 2) local.tm_mday = Pair(digits, pairs - 3);
  if (pairs > 3) local.tm_mon = Pair(digits, pairs - 4) - 1;
  if (pairs > 4) local.tm_year = kCentury + Pair(digits, pairs - 5);
  const bool possible = local.tm_min <= 59 && local.tm_hour <= 23 && local.tm_mday >= 1 &&
                        local.tm_mday <= 31 && local.tm_mon >= 0 && local.tm_mon <= 11;
  return possible ? std::optional(local) : std::nullopt;
}

/// A time of day, "hhmm" or "hh:mm", before which two digits each for day, month and year may
/// stand: "yymmddhhmm".
std::optional<Moment> ParseDate(std::string digits, time_t now) {
  constexpr std::size_t kTimeOnly = 4;
  constexpr std::size_t kLongest = 10;
  if (digits.size() > 3 && digits[digits.size() - 3] == ':') digits.erase(digits.size() - 3, 1);
  const bool numeric = digits.find_first_not_of("0123456789") == std::string::npos;
  if (!numeric || digits.size() < kTimeOnly || digits.size() > kLongest || digits.size() % 2 != 0) {
    return std::nullopt;
  }
  std::optional<tm> fields = ParseFields(digits, now);
  if (!fields) return std::nullopt;
  const bool dated = digits.size() > kTimeOnly;
  time_t time = mktime(&*fields);
  if (!dated && time < now) {
    ++fields->tm_mday;
    fields->tm_isdst = -1;
    time = mktime(&*fields);
  }
  return Moment{time, dated};
}

/// Says when, and leaves it at that: nobody waits for a later time in this Mac, which stays up.
int GoDownLater(const ToolCall& call, time_t time) {
  std::array<char, 32> text{};
  tm local{};
  localtime_r(&time, &local);
  (void)std::strftime(text.data(), text.size(), "%a %b %e %H:%M:%S %Y", &local);
  call.output.out("Shutdown at " + std::string(text.data()) + ".\n");
  call.output.err("shutdown: [pid " + std::to_string(getpid()) + "]\n");
  return 0;
}

int GoDownAt(const ToolCall& call, const std::string& request, const std::string& when) {
  if (when == "now" || when == "+0") return GoDown(call, request);
  const time_t now = time(nullptr);
  const bool relative = when.rfind('+', 0) == 0;
  const std::optional<Moment> moment = relative ? ParseMinutes(when, now) : ParseDate(when, now);
  if (!moment) return Fail(call, "bad time format");
  if (moment->dated && moment->time < now) return Fail(call, "that time is already past.");
  return GoDownLater(call, moment->time);
}

}  // namespace

int Shutdown(const ToolCall& call) {
  if (geteuid() != 0) return Fail(call, "NOT super-user");
  std::string request;
  std::size_t next = 0;
  for (; next < call.arguments.size() && call.arguments[next].rfind('-', 0) == 0; ++next) {
    const std::string& flag = call.arguments[next];
    if (flag != "-r" && flag != "-h") return Usage(call, "illegal option -- " + flag.substr(1));
    if (!request.empty()) return Usage(call, "incompatible switches -h, -k, -r and -s");
    request = flag == "-r" ? "restart" : "halt";
  }
  if (next == call.arguments.size()) return Usage(call);
  if (request.empty()) return Usage(call, "-h, -r, -s or -k is required");
  return GoDownAt(call, request, call.arguments[next]);
}

}  // namespace simmac
