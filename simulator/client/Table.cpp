#include "simulator/client/Table.h"

#include <algorithm>
#include <cstddef>

#include "simulator/client/Limits.h"
#include "simulator/client/Printable.h"

namespace client {
namespace {

constexpr int kDaysInWeek = 7;
constexpr std::size_t kGap = 2;

using Row = std::vector<std::string>;

/// Named by the number that the daemon gives them, in the order of the table.
struct Day {
  int number;
  const char* name;
};
constexpr Day kDays[kDaysInWeek] = {{1, "Mon"}, {2, "Tue"}, {3, "Wed"}, {4, "Thu"},
                                    {5, "Fri"}, {6, "Sat"}, {0, "Sun"}};

/// The characters of a text in UTF-8, which fill a column each in most scripts.
std::size_t Width(const std::string& cell) {
  const auto begins = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; };
  return static_cast<std::size_t>(std::count_if(cell.begin(), cell.end(), begins));
}

/// A row's last cell ends the line and counts for no column.
std::vector<std::size_t> Widths(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths;
  for (const Row& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t column = 0; column + 1 < row.size(); ++column) {
      const std::size_t width = std::min(Width(row[column]), kMaximumColumnWidth);
      widths[column] = std::max(widths[column], width);
    }
  }
  return widths;
}

std::string Padded(const std::string& cell, std::size_t width) {
  const std::size_t own = Width(cell);
  return cell + std::string(std::max(own, width) - own + kGap, ' ');
}

}  // namespace

Json Member(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() ? Json() : *found;
}

std::string TextCell(const Json& value) {
  return value.is_string() ? Printable(value.get_ref<const std::string&>()) : "-";
}

std::string OnOrOffCell(const Json& value) {
  if (!value.is_boolean()) return "-";
  return value.get<bool>() ? "on" : "off";
}

std::string DaysCell(const Json& value) {
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

std::string Columns(const std::vector<Row>& rows) {
  const std::vector<std::size_t> widths = Widths(rows);
  std::string text;
  for (const Row& row : rows) {
    for (std::size_t column = 0; column + 1 < row.size(); ++column) {
      text += Padded(row[column], widths[column]);
    }
    text += (row.empty() ? "" : row.back()) + "\n";
  }
  return text;
}

}  // namespace client
