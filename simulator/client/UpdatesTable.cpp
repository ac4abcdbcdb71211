#include "simulator/client/UpdatesTable.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <vector>

#include "simulator/client/ErrorTexts.h"
#include "simulator/client/InstallOutcome.h"
#include "simulator/client/LocalTime.h"
#include "simulator/client/Printable.h"
#include "simulator/client/Table.h"

namespace client {
namespace {

using Rows = std::vector<std::vector<std::string>>;

/// The tool counts in powers of 1024. No size was read where it is 0.
std::string Size(const Json& update) {
  constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB"};
  double size = ReplyNumber(update, "sizeBytes").value_or(0);
  if (size < 1) return "-";
  std::size_t unit = 0;
  // What would be rounded up to 1024.0 belongs to the next unit.
  for (; std::round(size * 10) >= 10240 && unit + 1 < std::size(kUnits); ++unit) size /= 1024;
  char text[400] = "";  // of any double
  (void)std::snprintf(text, sizeof text, unit == 0 ? "%.0f" : "%.1f", size);
  return std::string(text) + " " + kUnits[unit];
}

std::string UpdateRows(const Json& updates) {
  Rows rows = {{"Update", "Size", "Restart"}};
  for (const Json& update : updates) {
    rows.push_back({TextCell(Member(update, "title")), Size(update),
                    ReplyFlag(update, "restartRequired") ? "needed" : "not needed"});
  }
  return Columns(rows) + "\n";
}

/// Before a check has found out, an empty list says nothing.
std::string Pending(const Json& reply) {
  const Json updates = Member(reply, "updates");
  if (!updates.is_array()) return "unknown";
  if (updates.empty()) return ReplyString(reply, "lastChecked") ? "none" : "not known yet";
  return std::to_string(updates.size()) + (updates.size() == 1 ? " update" : " updates");
}

std::string LastChecked(const Json& reply) {
  const std::optional<std::string> date = ReplyString(reply, "lastChecked");
  if (!date) return "not since kioskd started";
  const std::optional<std::time_t> moment = UtcMoment(*date);
  return moment ? LocalTime(*moment, "%Y-%m-%d %H:%M:%S (local time)") : Printable(*date);
}

std::string UnderWay(const Json& reply) {
  if (ReplyFlag(reply, "installing")) {
    return "an install, " + std::to_string(InstallPercent(reply)) + " %";
  }
  return ReplyFlag(reply, "checking") ? "a check" : "nothing";
}

std::string YesOrNo(const Json& value) {
  if (!value.is_boolean()) return "-";
  return value.get<bool>() ? "yes" : "no";
}

/// The daemon holds it against the Mac's local time.
std::string Hours(const Json& window) {
  const Json start = Member(window, "start");
  const Json end = Member(window, "end");
  std::string hours = TextCell(start) + " to " + TextCell(end);
  if (!start.is_string() || !end.is_string()) return hours;
  return hours + (start == end ? " (local time, a full day)" : " (local time)");
}

std::string UpdateProblem(const Json& reply) {
  const std::optional<std::string> error = ReplyString(reply, "error");
  return error ? UpdatesProblem(*error) : "none";
}

}  // namespace

std::string UpdatesProblem(const std::string& error) {
  if (error == "authorization_required") return ErrorText(error);
  if (error == "failed") return "The update tool failed without a reason. (failed)";
  return "The update tool said: " + Printable(error);
}

std::string UpdatesTable(const Json& reply) {
  const Json updates = Member(reply, "updates");
  const Json policy = Member(reply, "policy");
  const Json window = Member(policy, "window");
  const Rows rows = {
      {"Pending", Pending(reply)},
      {"Last checked", LastChecked(reply)},
      {"Under way", UnderWay(reply)},
      {"Restart required", YesOrNo(Member(reply, "restartRequired"))},
      {"Automatic", OnOrOffCell(Member(policy, "automatic"))},
      {"Window", Hours(window)},
      {"Days", DaysCell(Member(window, "days"))},
      {"Problem", UpdateProblem(reply)},
  };
  const bool any = updates.is_array() && !updates.empty();
  return (any ? UpdateRows(updates) : "") + Columns(rows);
}

}  // namespace client
