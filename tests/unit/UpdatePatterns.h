// The patterns of the software update tool's output as they are written, to hold the daemon's
// scanners against. All of them are for ASCII.
#pragma once

#include <optional>
#include <string>

/// `line` without blanks and tabs at both ends.
std::string TrimmedByPattern(const std::string& line);

/// What the pattern of label lines captures.
std::optional<std::string> UpdateLabelByPattern(const std::string& line);

/// What a title line tells of an update.
struct UpdateTitle {
  std::string title;
  std::string version;
};

/// What the pattern of title lines captures.
std::optional<UpdateTitle> UpdateTitleByPattern(const std::string& line);

/// A size as it stands in the tool's output.
struct UpdateSize {
  std::string digits;
  std::string unit;
};

/// What the pattern of sizes captures at its first match anywhere in the line.
std::optional<UpdateSize> UpdateSizeByPattern(const std::string& line);

/// The number that the pattern of percentages captures at its last match.
std::optional<std::string> LastPercentageByPattern(const std::string& text);

/// Whether the text asks for a password, in letters of any case.
bool AsksForPasswordByPattern(const std::string& text);
