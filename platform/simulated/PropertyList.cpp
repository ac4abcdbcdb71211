#include "platform/PropertyList.h"

#include <plist/plist.h>

#include <cstdlib>
#include <limits>
#include <memory>

#include "platform/simulated/Faults.h"
#include "platform/simulated/PropertyListEncoding.h"

namespace platform {
namespace {

/// Deepest nesting that is read or written.
constexpr int kMaximumDepth = 512;

/// Dates count from 2001-01-01T00:00:00Z in a property list.
constexpr double kReferenceDate = 978307200;

struct FreePlist {
  void operator()(void* node) const { plist_free(node); }
};
using Plist = std::unique_ptr<void, FreePlist>;

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};
using Text = std::unique_ptr<char, Free>;

std::optional<Json> toJson(plist_t node, int depth);

Json toBoolean(plist_t node) {
  std::uint8_t value = 0;
  plist_get_bool_val(node, &value);
  return value != 0;
}

Json toInteger(plist_t node) {
  std::uint64_t value = 0;
  plist_get_uint_val(node, &value);
  return static_cast<std::int64_t>(value);  // negative ones come as their two's complement
}

Json toReal(plist_t node) {
  double value = 0;
  plist_get_real_val(node, &value);
  return value;
}

Json toText(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return text == nullptr ? std::string() : std::string(text, length);
}

Json toSeconds(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  return kReferenceDate + seconds + microseconds / 1e6;
}

Json toBinary(plist_t node) {
  std::uint64_t length = 0;
  const char* data = plist_get_data_ptr(node, &length);
  Json::binary_t bytes;
  if (data != nullptr) bytes.assign(data, data + length);
  return Json::binary(std::move(bytes));
}

Json toArray(plist_t node, int depth) {
  Json array = Json::array();
  plist_array_iter iterator = nullptr;
  plist_array_new_iter(node, &iterator);
  const std::unique_ptr<void, Free> owned(iterator);
  for (plist_t item = nullptr;; item = nullptr) {
    plist_array_next_item(node, iterator, &item);
    if (item == nullptr) return array;
    if (std::optional<Json> value = toJson(item, depth)) array.push_back(std::move(*value));
  }
}

Json toObject(plist_t node, int depth) {
  Json object = Json::object();
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  const std::unique_ptr<void, Free> owned(iterator);
  for (;;) {
    char* name = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, iterator, &name, &item);
    const Text key(name);
    if (item == nullptr || key == nullptr) return object;
    if (std::optional<Json> value = toJson(item, depth)) object[key.get()] = std::move(*value);
  }
}

/// Nothing for what JSON has no counterpart of (a keyed archiver's identifiers), or too deep.
std::optional<Json> toJson(plist_t node, int depth) {
  if (depth >= kMaximumDepth) return std::nullopt;
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
      return toBoolean(node);
    case PLIST_UINT:
      return toInteger(node);
    case PLIST_REAL:
      return toReal(node);
    case PLIST_STRING:
      return toText(node);
    case PLIST_DATE:
      return toSeconds(node);
    case PLIST_DATA:
      return toBinary(node);
    case PLIST_ARRAY:
      return toArray(node, depth + 1);
    case PLIST_DICT:
      return toObject(node, depth + 1);
    default:
      return std::nullopt;
  }
}

Plist fromJson(const Json& value, int depth, std::string& error);

Plist failure(std::string& error, const char* text) {
  error = text;
  return nullptr;
}

bool isUtf8(const std::string& text) {
  const std::string written = Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
  return Json::parse(written, nullptr, false) == text;
}

bool isText(const std::string& text, std::string& error) {
  if (text.find('\0') != std::string::npos) {
    error = "Text with a zero byte cannot be in a property list.";
    return false;
  }
  if (!isUtf8(text)) {
    error = "Text that is not UTF-8 cannot be in a property list.";
    return false;
  }
  return true;
}

Plist fromText(const std::string& text, std::string& error) {
  if (!isText(text, error)) return nullptr;
  return Plist(plist_new_string(text.c_str()));
}

Plist fromUnsigned(std::uint64_t value, std::string& error) {
  if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    return failure(error, "The number is too large for a property list.");
  }
  return Plist(plist_new_uint(value));
}

Plist fromBinary(const Json::binary_t& bytes) {
  return Plist(plist_new_data(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

Plist fromArray(const Json& value, int depth, std::string& error) {
  Plist array(plist_new_array());
  for (const Json& item : value) {
    Plist node = fromJson(item, depth, error);
    if (node == nullptr) return nullptr;
    plist_array_append_item(array.get(), node.release());
  }
  return array;
}

Plist fromObject(const Json& value, int depth, std::string& error) {
  Plist dictionary(plist_new_dict());
  for (const auto& [key, item] : value.items()) {
    if (!isText(key, error)) return nullptr;
    Plist node = fromJson(item, depth, error);
    if (node == nullptr) return nullptr;
    plist_dict_set_item(dictionary.get(), key.c_str(), node.release());
  }
  return dictionary;
}

Plist fromJson(const Json& value, int depth, std::string& error) {
  if (depth >= kMaximumDepth) return failure(error, "The property list is nested too deeply.");
  switch (value.type()) {
    case Json::value_t::boolean:
      return Plist(plist_new_bool(value.get<bool>() ? 1 : 0));
    case Json::value_t::number_integer:
      return Plist(plist_new_uint(static_cast<std::uint64_t>(value.get<std::int64_t>())));
    case Json::value_t::number_unsigned:
      return fromUnsigned(value.get<std::uint64_t>(), error);
    case Json::value_t::number_float:
      return Plist(plist_new_real(value.get<double>()));
    case Json::value_t::string:
      return fromText(value.get_ref<const std::string&>(), error);
    case Json::value_t::binary:
      return fromBinary(value.get_binary());
    case Json::value_t::array:
      return fromArray(value, depth + 1, error);
    case Json::value_t::object:
      return fromObject(value, depth + 1, error);
    default:
      return failure(error, "A null cannot be in a property list.");
  }
}

}  // namespace

std::optional<Json> PropertyListParse(const std::string& bytes) {
  if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  plist_t root = nullptr;
  plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  const Plist owned(root);
  if (owned == nullptr) return std::nullopt;
  return toJson(root, 0);
}

std::optional<std::string> EncodePropertyList(const Json& value, PropertyListFormat format,
                                              std::string& error) {
  const Plist root = fromJson(value, 0, error);
  if (root == nullptr) return std::nullopt;
  char* bytes = nullptr;
  std::uint32_t length = 0;
  if (format == PropertyListFormat::kXml) {
    plist_to_xml(root.get(), &bytes, &length);
  } else {
    plist_to_bin(root.get(), &bytes, &length);
  }
  const Text owned(bytes);
  if (owned == nullptr) {
    error = "The property list could not be written.";
    return std::nullopt;
  }
  return std::string(bytes, length);
}

std::optional<std::string> PropertyListWrite(const Json& value, PropertyListFormat format,
                                             std::string& error) {
  const char* name = format == PropertyListFormat::kXml ? "xml" : "binary";
  if (const std::optional<Fault> fault = TakeServiceFault("propertyList.write", {name})) {
    error = fault->serviceErrorText();
    return std::nullopt;
  }
  return EncodePropertyList(value, format, error);
}

}  // namespace platform
