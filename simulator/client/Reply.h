// Reading the daemon's replies.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace client {

using Json = nlohmann::json;

/// The object that a reply's text holds, or nothing when the text is no JSON object or nested
/// deeper than kMaximumReplyDepth. Any thread.
std::optional<Json> ReplyParse(const std::string& text);

/// The values under a key: a string; a number, finite and not below 0; whether it is true or a
/// number other than 0. Nothing (false) when there is no such value. Any thread.
std::optional<std::string> ReplyString(const Json& reply, const char* key);
std::optional<double> ReplyNumber(const Json& reply, const char* key);
bool ReplyFlag(const Json& reply, const char* key);

}  // namespace client
