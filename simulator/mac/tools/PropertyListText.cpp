#include "simulator/mac/tools/PropertyListText.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace simmac {
namespace {

constexpr std::size_t kIndent = 4;
constexpr std::size_t kMaxDepth = 64;

std::string Nested(plist_t value, std::size_t depth);

std::string Take(char* text) {
  std::string copy = text ? text : "";
  std::free(text);
  return copy;
}

std::string Quoted(const std::string& text) {
  const auto plain = [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; };
  if (!text.empty() && std::all_of(text.begin(), text.end(), plain)) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c == '\n' ? std::string("\\n") : std::string(1, c);
  }
  return quoted + "\"";
}

std::string StringText(plist_t value) {
  char* text = nullptr;
  plist_get_string_val(value, &text);
  return Take(text);
}

std::string IntegerText(plist_t value) {
  std::uint64_t number = 0;
  plist_get_uint_val(value, &number);
  // Negative numbers arrive as their two's complement.
  return std::to_string(static_cast<std::int64_t>(number));
}

std::string RealText(plist_t value) {
  double number = 0;
  plist_get_real_val(value, &number);
  char text[32];
  (void)std::snprintf(text, sizeof text, "%.16g", number);
  return text;
}

std::string BooleanText(plist_t value) {
  std::uint8_t flag = 0;
  plist_get_bool_val(value, &flag);
  return flag ? "1" : "0";
}

std::string DataText(plist_t value) {
  std::uint64_t size = 0;
  const auto* bytes = reinterpret_cast<const unsigned char*>(plist_get_data_ptr(value, &size));
  std::string text = "{length = " + std::to_string(size) + ", bytes = 0x";
  for (std::uint64_t i = 0; i < size; ++i) {
    char digits[3];
    (void)std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
    text += digits;
  }
  return text + "}";
}

std::string DateText(plist_t value) {
  constexpr std::time_t kAppleEpoch = 978307200;  // 2001-01-01 in seconds since 1970
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(value, &seconds, &microseconds);
  const std::time_t time = kAppleEpoch + seconds;
  tm utc{};
  gmtime_r(&time, &utc);
  char text[64];
  (void)std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &utc);
  return text;
}

std::string ArrayText(plist_t value, std::size_t depth) {
  const std::string indent((depth + 1) * kIndent, ' ');
  std::string text = "(";
  const std::uint32_t count = plist_array_get_size(value);
  for (std::uint32_t i = 0; i < count; ++i) {
    text += (i == 0 ? "\n" : ",\n") + indent + Nested(plist_array_get_item(value, i), depth + 1);
  }
  return text + "\n" + std::string(depth * kIndent, ' ') + ")";
}

std::string DictionaryText(plist_t value, std::size_t depth) {
  const std::string indent((depth + 1) * kIndent, ' ');
  std::string text = "{\n";
  plist_dict_iter entries = nullptr;
  plist_dict_new_iter(value, &entries);
  while (true) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(value, entries, &key, &item);
    if (!item) break;
    text += indent + Quoted(Take(key)) + " = " + Nested(item, depth + 1) + ";\n";
  }
  std::free(entries);
  return text + std::string(depth * kIndent, ' ') + "}";
}

std::string Text(plist_t value, std::size_t depth) {
  if (depth > kMaxDepth) return "";
  switch (plist_get_node_type(value)) {
    case PLIST_STRING:
      return StringText(value);
    case PLIST_UINT:
      return IntegerText(value);
    case PLIST_REAL:
      return RealText(value);
    case PLIST_BOOLEAN:
      return BooleanText(value);
    case PLIST_DATA:
      return DataText(value);
    case PLIST_DATE:
      return DateText(value);
    case PLIST_ARRAY:
      return ArrayText(value, depth);
    case PLIST_DICT:
      return DictionaryText(value, depth);
    default:
      return "";
  }
}

bool StandsUnquoted(plist_type type) {
  return type == PLIST_ARRAY || type == PLIST_DICT || type == PLIST_DATA;
}

std::string Nested(plist_t value, std::size_t depth) {
  const std::string text = Text(value, depth);
  return StandsUnquoted(plist_get_node_type(value)) ? text : Quoted(text);
}

}  // namespace

std::string PropertyListText(plist_t value) { return Text(value, 0); }

}  // namespace simmac
