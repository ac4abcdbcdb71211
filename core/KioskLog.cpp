#include "core/KioskLog.h"

#include <algorithm>
#include <cstdio>

#include "core/KioskVersion.h"

namespace {

std::string Number(std::string_view conversion, const KioskLogArgument& argument) {
  if (const auto* number = std::get_if<long long>(&argument)) return std::to_string(*number);
  std::array<char, 400> buffer{};  // the longest double has 309 digits before the point
  if (const auto* real = std::get_if<double>(&argument)) {
    std::snprintf(buffer.data(), buffer.size(), "%.0f", *real);
    return buffer.data();
  }
  const unsigned long long number = std::get<unsigned long long>(argument);
  if (conversion != "%02x") return std::to_string(number);
  std::snprintf(buffer.data(), buffer.size(), "%02llx", number);
  return buffer.data();
}

}  // namespace

std::string KioskFormatMessage(std::string_view format,
                               std::span<const KioskLogArgument> arguments) {
  std::string message;
  std::size_t used = 0;
  while (!format.empty()) {
    const std::size_t plain = std::min(format.find('%'), format.size());
    message += format.substr(0, plain);
    format.remove_prefix(plain);
    const KioskConversionAt found = KioskConversionAtStart(format);
    if (found.kind == KioskConversion::kNone) break;
    const KioskLogArgument& argument = arguments[used++];
    const auto* text = std::get_if<std::string_view>(&argument);
    if (text != nullptr) {
      message += *text;
    } else {
      message += Number(format.substr(0, found.length), argument);
    }
    format.remove_prefix(found.length);
  }
  return message;
}

void KioskEmit(platform::LogLevel level, const std::string& message) {
  static const platform::SystemLog log(kKioskServiceName, "daemon");
  if (log.enabled(level)) log.write(level, message);
  std::fprintf(stderr, "[BrindlexKioskHelper] %s\n", message.c_str());
}
