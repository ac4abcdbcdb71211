#include "simulator/client/PowerTable.h"

#include <vector>

#include "simulator/client/ErrorTexts.h"
#include "simulator/client/Table.h"

namespace client {
namespace {

std::string Minutes(const Json& value) {
  if (!value.is_number_integer()) return "-";
  if (value == 0) return "never";
  return value.dump() + (value == 1 ? " minute" : " minutes");
}

/// A row of the table: a member of the policy, or of its schedule, in words.
struct PolicyRow {
  const char* label;
  bool ofSchedule;
  const char* key;
  std::string (*text)(const Json& value);
};

constexpr PolicyRow kPolicyRows[] = {
    {"Screen off after", false, "screenOffMinutes", Minutes},
    {"Sleep after", false, "sleepMinutes", Minutes},
    {"Schedule", true, "enabled", OnOrOffCell},
    {"Sleep at", true, "sleepAt", TextCell},
    {"Wake at", true, "wakeAt", TextCell},
    {"Days", true, "days", DaysCell},
};

std::string Cell(const Json& policy, const PolicyRow& row) {
  const Json object = row.ofSchedule ? Member(policy, "schedule") : policy;
  return row.text(Member(object, row.key));
}

std::string Source(const Json& reply) {
  const std::string source = TextCell(Member(reply, "source"));
  if (source == "device") return "set for this terminal";
  if (source == "tenant") return "set for the organisation";
  return source == "default" ? "built-in default" : source;
}

}  // namespace

std::string PowerTable(const Json& reply) {
  std::vector<std::vector<std::string>> rows = {{"", "Organisation", "This terminal", "In force"}};
  const Json organisation = Member(reply, "policy");
  const Json terminal = Member(reply, "local");
  const Json inForce = Member(reply, "effective");
  for (const PolicyRow& row : kPolicyRows) {
    rows.push_back({row.label, Cell(organisation, row), Cell(terminal, row), Cell(inForce, row)});
  }
  rows.push_back({"Source", Source(reply)});
  rows.push_back({"Problem", ProblemText(reply, "error")});
  return Columns(rows);
}

}  // namespace client
