#include "simulator/client/LocalTime.h"

namespace client {

std::optional<std::time_t> UtcMoment(const std::string& text) {
  std::tm parts{};
  const char* const end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  if (end != text.c_str() + text.size()) return std::nullopt;
  return timegm(&parts);
}

std::string LocalTime(std::time_t moment, const char* format) {
  std::tm parts{};
  char text[64] = "";
  if (localtime_r(&moment, &parts) == nullptr) return "";
  return {text, std::strftime(text, sizeof text, format, &parts)};
}

}  // namespace client
