// CFPropertyList, on libplist.
#include <plist/plist.h>

#include <cstdlib>
#include <memory>

#include "tests/native/CoreFoundation.h"

using native::As;
using native::Begin;

namespace native {
namespace {

struct FreePlist {
  void operator()(void* node) const { plist_free(node); }
};
using Plist = std::unique_ptr<void, FreePlist>;

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

CFTypeRef fromNode(plist_t node);

CFTypeRef fromText(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return NewString(std::string(text, length));
}

CFTypeRef fromData(plist_t node) {
  std::uint64_t length = 0;
  const char* bytes = plist_get_data_ptr(node, &length);
  return RefOf<CFTypeRef>(new CfData(std::string(bytes, length)));
}

CFTypeRef fromInteger(plist_t node) {
  std::uint64_t value = 0;
  plist_get_uint_val(node, &value);
  return RefOf<CFTypeRef>(new CfNumber(false, static_cast<std::int64_t>(value), 0));
}

CFTypeRef fromReal(plist_t node) {
  double value = 0;
  plist_get_real_val(node, &value);
  return RefOf<CFTypeRef>(new CfNumber(true, 0, value));
}

CFTypeRef fromBoolean(plist_t node) {
  std::uint8_t value = 0;
  plist_get_bool_val(node, &value);
  return CFRetain(value != 0 ? kCFBooleanTrue : kCFBooleanFalse);
}

CFTypeRef fromDate(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  return RefOf<CFTypeRef>(new CfDate(seconds + microseconds / 1e6));
}

CFTypeRef fromArray(plist_t node) {
  auto* array = new CfCollection("CFArray", kArrayType);
  for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i) {
    array->values.push_back(fromNode(plist_array_get_item(node, i)));
  }
  return RefOf<CFTypeRef>(array);
}

CFTypeRef fromDictionary(plist_t node) {
  auto* dictionary = new CfCollection("CFDictionary", kDictionaryType);
  plist_dict_iter made = nullptr;
  plist_dict_new_iter(node, &made);
  const std::unique_ptr<void, Free> iterator(made);
  for (;;) {
    char* name = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, made, &name, &item);
    const std::unique_ptr<char, Free> key(name);
    if (item == nullptr) return RefOf<CFTypeRef>(dictionary);
    dictionary->keys.push_back(NewString(name));
    dictionary->values.push_back(fromNode(item));
  }
}

/// A keyed archiver's identifier and the like are objects of a type of their own.
CFTypeRef fromNode(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
      return fromBoolean(node);
    case PLIST_UINT:
      return fromInteger(node);
    case PLIST_REAL:
      return fromReal(node);
    case PLIST_STRING:
      return fromText(node);
    case PLIST_DATE:
      return fromDate(node);
    case PLIST_DATA:
      return fromData(node);
    case PLIST_ARRAY:
      return fromArray(node);
    case PLIST_DICT:
      return fromDictionary(node);
    default:
      return RefOf<CFTypeRef>(new CfObject("CFKeyedArchiverUID", kOtherType));
  }
}

Plist toNode(CFTypeRef object);

Plist toArray(const CfCollection* array) {
  Plist node(plist_new_array());
  for (const CFTypeRef value : array->values) {
    plist_array_append_item(node.get(), toNode(value).release());
  }
  return node;
}

Plist toDictionary(const CfCollection* dictionary) {
  Plist node(plist_new_dict());
  for (std::size_t i = 0; i < dictionary->keys.size(); ++i) {
    plist_dict_set_item(node.get(), Utf8Of(static_cast<CFStringRef>(dictionary->keys[i])).c_str(),
                        toNode(dictionary->values[i]).release());
  }
  return node;
}

Plist toNode(CFTypeRef object) {
  const CFTypeID type = CFGetTypeID(object);
  if (type == kStringType) {
    return Plist(plist_new_string(Utf8Of(static_cast<CFStringRef>(object)).c_str()));
  }
  if (const auto* boolean = dynamic_cast<CfBoolean*>(Object::of(object))) {
    return Plist(plist_new_bool(boolean->value ? 1 : 0));
  }
  if (const auto* number = dynamic_cast<CfNumber*>(Object::of(object))) {
    return Plist(number->isReal ? plist_new_real(number->real)
                                : plist_new_uint(static_cast<std::uint64_t>(number->integer)));
  }
  if (const auto* data = dynamic_cast<CfData*>(Object::of(object))) {
    return Plist(plist_new_data(data->bytes.data(), data->bytes.size()));
  }
  const auto* collection = As<CfCollection>(object);
  return type == kArrayType ? toArray(collection) : toDictionary(collection);
}

}  // namespace

CFTypeRef NewFromPropertyList(const std::string& bytes, CFPropertyListFormat& format) {
  const bool isBinary = bytes.starts_with("bplist00");
  format = isBinary ? kCFPropertyListBinaryFormat_v1_0 : kCFPropertyListXMLFormat_v1_0;
  if (!isBinary && !bytes.starts_with("<")) {
    // The format of old, in which a word is a text.
    format = kCFPropertyListOpenStepFormat;
    return bytes.empty() ? nullptr : NewString(bytes);
  }
  plist_t root = nullptr;
  plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  const Plist owned(root);
  return owned != nullptr ? fromNode(root) : nullptr;
}

}  // namespace native

extern "C" {

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef data, CFOptionFlags,
                                               CFPropertyListFormat* format, CFErrorRef* error) {
  const std::string& bytes = As<native::CfData>(data)->bytes;
  if (!Begin(__func__)) return native::FailWith(error);
  CFPropertyListFormat found = 0;
  const CFTypeRef list = native::NewFromPropertyList(bytes, found);
  if (list == nullptr) return native::FailWith(error);
  if (format != nullptr) *format = found;
  return list;
}

CFDataRef CFPropertyListCreateData(CFAllocatorRef, CFPropertyListRef propertyList,
                                   CFPropertyListFormat format, CFOptionFlags, CFErrorRef* error) {
  const native::Plist root = native::toNode(propertyList);
  if (!Begin(__func__)) return native::FailWith(error);
  char* bytes = nullptr;
  std::uint32_t length = 0;
  if (format == kCFPropertyListXMLFormat_v1_0) {
    plist_to_xml(root.get(), &bytes, &length);
  } else {
    plist_to_bin(root.get(), &bytes, &length);
  }
  const std::unique_ptr<char, native::Free> owned(bytes);
  return native::RefOf<CFDataRef>(new native::CfData(std::string(bytes, length)));
}

}  // extern "C"
