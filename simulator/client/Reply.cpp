#include "simulator/client/Reply.h"

#include <cmath>

#include "simulator/client/Limits.h"

namespace client {

std::optional<Json> ReplyParse(const std::string& text) {
  bool tooDeep = false;
  const auto watchDepth = [&tooDeep](int depth, Json::parse_event_t event, Json&) {
    const bool opens =
        event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start;
    tooDeep = tooDeep || (opens && depth >= kMaximumReplyDepth);
    return !tooDeep;
  };
  Json reply = Json::parse(text, watchDepth, false);
  if (tooDeep || !reply.is_object()) return std::nullopt;
  return reply;
}

std::optional<std::string> ReplyString(const Json& reply, const char* key) {
  const auto found = reply.find(key);
  if (found == reply.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

std::optional<double> ReplyNumber(const Json& reply, const char* key) {
  const auto found = reply.find(key);
  if (found == reply.end() || !found->is_number()) return std::nullopt;
  const double number = found->get<double>();
  if (!std::isfinite(number) || number < 0) return std::nullopt;
  return number;
}

bool ReplyFlag(const Json& reply, const char* key) {
  const auto found = reply.find(key);
  if (found == reply.end()) return false;
  if (found->is_boolean()) return found->get<bool>();
  return found->is_number() && found->get<double>() != 0;
}

}  // namespace client
