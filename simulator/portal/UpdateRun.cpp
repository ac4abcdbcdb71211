#include "simulator/portal/UpdateRun.h"

#include <map>
#include <string_view>

#include "simulator/portal/JsonText.h"
#include "simulator/portal/Printable.h"

namespace portal {
namespace {

/// The member's text; empty when it is none.
std::string MemberText(const Json& run, const char* key) {
  const auto member = run.find(key);
  return member != run.end() && member->is_string() ? member->get<std::string>() : "";
}

/// What each result means.
const std::map<std::string, std::string, std::less<>>& Results() {
  static const std::map<std::string, std::string, std::less<>> kResults = {
      {"ok", "installed"},
      {"nothing", "nothing to install"},
      {"failed", "failed"},
      {"deferred", "deferred"}};
  return kResults;
}

}  // namespace

std::string DescribeUpdateRun(const Json& run) {
  const auto result =
      run.is_object() ? Results().find(MemberText(run, "lastResult")) : Results().end();
  if (result == Results().end()) return Printable(JsonText(run));
  std::string phrase = result->second;
  if (const std::string at = MemberText(run, "lastRunAt"); !at.empty()) phrase += " at " + at;
  if (const std::string error = MemberText(run, "error"); !error.empty()) phrase += ": " + error;
  const auto pending = run.find("pending");
  if (pending != run.end() && pending->is_number_integer() && *pending > 0)
    phrase += ", " + JsonText(*pending) + " pending";
  const auto restart = run.find("restartRequired");
  if (restart != run.end() && *restart == true) phrase += ", a restart is required";
  return Printable(phrase);
}

}  // namespace portal
