#include "platform/macos/CfJson.h"

#include <limits>
#include <vector>

namespace platform {
namespace {

/// Deepest nesting that is read or written.
constexpr int kMaximumDepth = 512;

using Object = CfRef<CFTypeRef>;

std::optional<Json> toJson(CFTypeRef object, int depth);

Json toNumber(CFNumberRef number) {
  std::int64_t integer = 0;
  if (!CFNumberIsFloatType(number) && CFNumberGetValue(number, kCFNumberSInt64Type, &integer)) {
    return integer;
  }
  double real = 0;
  CFNumberGetValue(number, kCFNumberDoubleType, &real);
  return real;
}

Json toBinary(CFDataRef data) {
  const UInt8* bytes = CFDataGetBytePtr(data);
  return Json::binary(Json::binary_t::container_type(bytes, bytes + CFDataGetLength(data)));
}

Json toArray(CFArrayRef items, int depth) {
  Json array = Json::array();
  for (CFIndex i = 0; i < CFArrayGetCount(items); ++i) {
    std::optional<Json> value = toJson(CFArrayGetValueAtIndex(items, i), depth);
    if (value) array.push_back(std::move(*value));
  }
  return array;
}

Json toObject(CFDictionaryRef items, int depth) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(items));
  std::vector<const void*> keys(count);
  std::vector<const void*> values(count);
  CFDictionaryGetKeysAndValues(items, keys.data(), values.data());
  Json object = Json::object();
  for (std::size_t i = 0; i < count; ++i) {
    const std::optional<std::string> key = CfTextOf(keys[i]);
    std::optional<Json> value = toJson(values[i], depth);
    if (key && value) object[*key] = std::move(*value);
  }
  return object;
}

/// Nothing for what JSON has no counterpart of (a keyed archiver's identifiers), or too deep.
std::optional<Json> toJson(CFTypeRef object, int depth) {
  if (depth >= kMaximumDepth) return std::nullopt;
  const CFTypeID type = CFGetTypeID(object);
  if (type == CFBooleanGetTypeID()) {
    return CFBooleanGetValue(static_cast<CFBooleanRef>(object)) != 0;
  }
  if (type == CFNumberGetTypeID()) return toNumber(static_cast<CFNumberRef>(object));
  if (type == CFStringGetTypeID()) return CfTextOf(object).value_or("");
  if (type == CFDateGetTypeID()) {
    return CFDateGetAbsoluteTime(static_cast<CFDateRef>(object)) + kCFAbsoluteTimeIntervalSince1970;
  }
  if (type == CFDataGetTypeID()) return toBinary(static_cast<CFDataRef>(object));
  if (type == CFArrayGetTypeID()) return toArray(static_cast<CFArrayRef>(object), depth + 1);
  if (type == CFDictionaryGetTypeID()) {
    return toObject(static_cast<CFDictionaryRef>(object), depth + 1);
  }
  return std::nullopt;
}

Object fromJson(const Json& value, int depth, std::string& error);

Object failure(std::string& error, const char* text) {
  error = text;
  return Object();
}

Object fromText(const std::string& text, std::string& error) {
  if (text.find('\0') != std::string::npos) {
    return failure(error, "Text with a zero byte cannot be in a property list.");
  }
  CfRef<CFStringRef> string = CfString(text);
  if (!string) return failure(error, "Text that is not UTF-8 cannot be in a property list.");
  return Object(string.release());
}

Object fromInteger(const Json& value, std::string& error) {
  if (value.is_number_unsigned() &&
      value.get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int64_t>::max()}) {
    return failure(error, "A number of more than 63 bits cannot be in a property list.");
  }
  const auto integer = value.get<std::int64_t>();
  return Object(CFNumberCreate(nullptr, kCFNumberSInt64Type, &integer));
}

Object fromReal(double real) { return Object(CFNumberCreate(nullptr, kCFNumberDoubleType, &real)); }

Object fromBinary(const Json::binary_t& bytes) {
  return Object(CFDataCreate(nullptr, bytes.data(), static_cast<CFIndex>(bytes.size())));
}

Object fromArray(const Json& items, int depth, std::string& error) {
  CfRef<CFMutableArrayRef> array(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
  if (!array) return Object();
  for (const Json& item : items) {
    const Object value = fromJson(item, depth, error);
    if (!value) return Object();
    CFArrayAppendValue(array.get(), value.get());
  }
  return Object(array.release());
}

Object fromObject(const Json& items, int depth, std::string& error) {
  CfRef<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(
      nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  if (!dictionary) return Object();
  for (const auto& [name, item] : items.items()) {
    const Object key = fromText(name, error);
    const Object value = key ? fromJson(item, depth, error) : Object();
    if (!value) return Object();
    CFDictionarySetValue(dictionary.get(), key.get(), value.get());
  }
  return Object(dictionary.release());
}

Object fromJson(const Json& value, int depth, std::string& error) {
  if (depth >= kMaximumDepth) return failure(error, "The value nests too deep.");
  switch (value.type()) {
    case Json::value_t::object:
      return fromObject(value, depth + 1, error);
    case Json::value_t::array:
      return fromArray(value, depth + 1, error);
    case Json::value_t::string:
      return fromText(value.get_ref<const std::string&>(), error);
    case Json::value_t::boolean:
      return Object(CFRetain(value.get<bool>() ? kCFBooleanTrue : kCFBooleanFalse));
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
      return fromInteger(value, error);
    case Json::value_t::number_float:
      return fromReal(value.get<double>());
    case Json::value_t::binary:
      return fromBinary(value.get_binary());
    default:
      return failure(error, "Nothing (null) cannot be in a property list.");
  }
}

}  // namespace

std::optional<Json> CfToJson(CFTypeRef object) { return toJson(object, 0); }

CfRef<CFTypeRef> CfFromJson(const Json& value, std::string& error) {
  return fromJson(value, 0, error);
}

}  // namespace platform
