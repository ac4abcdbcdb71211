// Logging: every message goes to the system log and to standard error.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "platform/Log.h"

/// One argument of a log format.
using KioskLogArgument = std::variant<std::string_view, long long, unsigned long long, double>;

/// The kinds of values that a conversion can print.
enum class KioskConversion { kText, kSigned, kUnsigned, kReal, kNone };

/// A conversion found in a format.
struct KioskConversionAt {
  KioskConversion kind = KioskConversion::kNone;  ///< kNone: no such conversion
  std::size_t length = 0;                         ///< characters, "%" included
};

/// The conversion with which `format` begins: "%@" and "%s" print text, "%d" and "%ld" signed
/// numbers, "%u", "%lu", "%llu" and "%02x" unsigned ones, "%.0f" reals.
constexpr KioskConversionAt KioskConversionAtStart(std::string_view format) {
  struct Row {
    std::string_view text;
    KioskConversion kind;
  };
  constexpr std::array<Row, 9> rows{{{"%@", KioskConversion::kText},
                                     {"%s", KioskConversion::kText},
                                     {"%d", KioskConversion::kSigned},
                                     {"%ld", KioskConversion::kSigned},
                                     {"%u", KioskConversion::kUnsigned},
                                     {"%lu", KioskConversion::kUnsigned},
                                     {"%llu", KioskConversion::kUnsigned},
                                     {"%02x", KioskConversion::kUnsigned},
                                     {"%.0f", KioskConversion::kReal}}};
  for (const Row& row : rows) {
    if (format.starts_with(row.text)) return {row.kind, row.text.size()};
  }
  return {};
}

/// The conversion kind that prints a value of type T.
template <class T>
constexpr KioskConversion KioskConversionFor() {
  if constexpr (std::convertible_to<const T&, std::string_view>) return KioskConversion::kText;
  if constexpr (std::signed_integral<T>) return KioskConversion::kSigned;
  if constexpr (std::unsigned_integral<T> && !std::same_as<T, bool>) {
    return KioskConversion::kUnsigned;
  }
  if constexpr (std::floating_point<T>) return KioskConversion::kReal;
  return KioskConversion::kNone;
}

/// A log format whose conversions were checked against the arguments when it was compiled.
template <class... Arguments>
class KioskFormat {
 public:
  template <std::size_t N>
  // NOLINTNEXTLINE(google-explicit-constructor): a literal is meant to become a format.
  consteval KioskFormat(const char (&text)[N]) : _text(text, N - 1) {
    constexpr std::array<KioskConversion, sizeof...(Arguments)> expected{
        KioskConversionFor<Arguments>()...};
    std::size_t used = 0;
    for (std::size_t at = 0; at < _text.size(); ++at) {
      if (_text[at] != '%') continue;
      const KioskConversionAt found = KioskConversionAtStart(_text.substr(at));
      if (found.kind == KioskConversion::kNone) throw "unknown conversion in a log format";
      if (used == expected.size()) throw "too few arguments for a log format";
      if (expected[used++] != found.kind) throw "an argument does not fit its conversion";
      at += found.length - 1;
    }
    if (used != expected.size()) throw "too many arguments for a log format";
  }

  constexpr std::string_view text() const { return _text; }

 private:
  std::string_view _text;
};

/// The message that `format` makes of `arguments`, which fit its conversions.
std::string KioskFormatMessage(std::string_view format,
                               std::span<const KioskLogArgument> arguments);

/// Writes one message to the system log, if it keeps that level, and to standard error always.
/// Any thread. Not called directly outside this header.
void KioskEmit(platform::LogLevel level, const std::string& message);

/// A value as a log argument.
template <class T>
KioskLogArgument KioskLogValue(const T& value) {
  if constexpr (std::convertible_to<const T&, std::string_view>) {
    return std::string_view{value};
  } else if constexpr (std::signed_integral<T>) {
    return static_cast<long long>(value);
  } else if constexpr (std::unsigned_integral<T>) {
    return static_cast<unsigned long long>(value);
  } else {
    return static_cast<double>(value);
  }
}

/// The text that a format makes of its arguments. Any thread.
template <class... Arguments>
std::string KioskMessage(KioskFormat<std::type_identity_t<Arguments>...> format,
                         const Arguments&... arguments) {
  const std::array<KioskLogArgument, sizeof...(Arguments)> values{KioskLogValue(arguments)...};
  return KioskFormatMessage(format.text(), values);
}

/// Logs an informational message. Any thread.
template <class... Arguments>
void KioskLog(KioskFormat<std::type_identity_t<Arguments>...> format,
              const Arguments&... arguments) {
  KioskEmit(platform::LogLevel::kDefault, KioskMessage(format, arguments...));
}

/// Logs an error. Any thread.
template <class... Arguments>
void KioskLogError(KioskFormat<std::type_identity_t<Arguments>...> format,
                   const Arguments&... arguments) {
  KioskEmit(platform::LogLevel::kError, KioskMessage(format, arguments...));
}
