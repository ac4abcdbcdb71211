#include "simulator/client/PowerTable.h"

#include <algorithm>
#include <array>
#include <vector>

#include "simulator/client/ErrorTexts.h"
#include "simulator/client/Printable.h"

namespace client {
namespace {

constexpr int kDaysInWeek = 7;
constexpr std::size_t kGap = 2;

using Row = std::array<std::string, 4>;

/// Named by the number that the daemon gives them, in the order of the table.
struct Day {
  int number;
  const char* name;
};
constexpr Day kDays[kDaysInWeek] = {{1, "Mon"}, {2, "Tue"}, {3, "Wed"}, {4, "Thu"},
                                    {5, "Fri"}, {6, "Sat"}, {0, "Sun"}};

Json Member(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() ? Json() : *found;
}

std::string Minutes(const Json& value) {
  if (!value.is_number_integer()) return "-";
  if (value == 0) return "never";
  return value.dump() + (value == 1 ? " minute" : " minutes");
}

std::string OnOrOff(const Json& value) {
  if (!value.is_boolean()) return "-";
  return value.get<bool>() ? "on" : "off";
}

std::string Text(const Json& value) {
  return value.is_string() ? Printable(value.get_ref<const std::string&>()) : "-";
}

std::string Days(const Json& value) {
  if (!value.is_array()) return "-";
  std::string names;
  int count = 0;
  for (const Day& day : kDays) {
    if (std::find(value.begin(), value.end(), Json(day.number)) == value.end()) continue;
    names += (names.empty() ? "" : " ") + std::string(day.name);
    ++count;
  }
  if (count == 0) return "none";
  return count == kDaysInWeek ? "every day" : names;
}

/// A row of the table: a member of the policy, or of its schedule, in words.
struct PolicyRow {
  const char* label;
  bool ofSchedule;
  const char* key;
  std::string (*text)(const Json& value);
};

constexpr PolicyRow kRows[] = {
    {"Screen off after", false, "screenOffMinutes", Minutes},
    {"Sleep after", false, "sleepMinutes", Minutes},
    {"Schedule", true, "enabled", OnOrOff},
    {"Sleep at", true, "sleepAt", Text},
    {"Wake at", true, "wakeAt", Text},
    {"Days", true, "days", Days},
};

std::string Cell(const Json& policy, const PolicyRow& row) {
  const Json object = row.ofSchedule ? Member(policy, "schedule") : policy;
  return row.text(Member(object, row.key));
}

std::string Source(const Json& reply) {
  const std::string source = Text(Member(reply, "source"));
  if (source == "device") return "set for this terminal";
  if (source == "tenant") return "set for the organisation";
  return source == "default" ? "built-in default" : source;
}

std::string Problem(const Json& reply) {
  const std::optional<std::string> code = ReplyString(reply, "error");
  return code ? ErrorText(*code) : "none";
}

std::vector<Row> PolicyRows(const Json& reply) {
  std::vector<Row> rows = {{"", "Organisation", "This terminal", "In force"}};
  const Json organisation = Member(reply, "policy");
  const Json terminal = Member(reply, "local");
  const Json inForce = Member(reply, "effective");
  for (const PolicyRow& row : kRows) {
    rows.push_back({row.label, Cell(organisation, row), Cell(terminal, row), Cell(inForce, row)});
  }
  return rows;
}

std::size_t Width(const std::vector<Row>& rows, std::size_t column) {
  std::size_t width = 0;
  for (const Row& row : rows) width = std::max(width, row[column].size());
  return width + kGap;
}

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(width, text.size()), ' ');
  return text;
}

}  // namespace

std::string PowerTable(const Json& reply) {
  const std::vector<Row> rows = PolicyRows(reply);
  std::string table;
  for (const Row& row : rows) {
    for (std::size_t column = 0; column + 1 < row.size(); ++column) {
      table += Padded(row[column], Width(rows, column));
    }
    table += row.back() + "\n";
  }
  table += Padded("Source", Width(rows, 0)) + Source(reply) + "\n";
  return table + Padded("Problem", Width(rows, 0)) + Problem(reply) + "\n";
}

}  // namespace client
