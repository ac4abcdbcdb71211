// Values of replies as words, and words in columns.
#pragma once

#include <string>
#include <vector>

#include "simulator/client/Reply.h"

namespace client {

/// The value under a key, or null where there is none, also because `object` is no object. Any
/// thread.
Json Member(const Json& object, const char* key);

/// What a cell shows of a value: a text without control characters; "on" or "off"; the days of a
/// week, which the daemon numbers from Sunday. "-" for a value of another type. Any thread.
std::string TextCell(const Json& value);
std::string OnOrOffCell(const Json& value);
std::string DaysCell(const Json& value);

/// Rows in columns, each row on a line that ends with its last cell. A cell that is wider than
/// kMaximumColumnWidth does not widen its column. Any thread.
std::string Columns(const std::vector<std::vector<std::string>>& rows);

}  // namespace client
