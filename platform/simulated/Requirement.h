// Code signatures of the simulated Mac, and the requirement language that speaks about them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// What an executable is signed with.
struct Signature {
  std::string anchor;  ///< "apple" (Apple's own software) or "apple generic" (a developer's)
  std::string identifier;
  std::string team;
};

/// Reads a signature file's contents: a JSON object with the strings `anchor`, `identifier` and
/// `team`; one that is absent is empty. Nothing when the contents are anything else.
std::optional<Signature> ParseSignature(const std::string& contents);

/// Evaluates a requirement against a signature; nothing when the text is not a requirement. A
/// missing signature satisfies none. Any thread.
///
///   requirement = conjunction { "or" conjunction }
///   conjunction = term { "and" term }
///   term        = "!" term | "(" requirement ")" | "anchor" "apple" [ "generic" ]
///               | "identifier" [ "=" ] text | "certificate" "leaf" "[subject.OU]" "=" text
///
/// A text is in double quotes, with a backslash before a quote or backslash in it, or a word of
/// letters, digits, ".", "-" and "_".
std::optional<bool> EvaluateRequirement(std::string_view requirement,
                                        const std::optional<Signature>& signature);

}  // namespace platform
