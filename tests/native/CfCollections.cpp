// CFArray and CFDictionary.
#include "tests/native/CoreFoundation.h"

using native::As;
using native::Begin;
using native::CfCollection;

namespace native {
namespace {

CfCollection* array(const void* handle) {
  auto* found = As<CfCollection>(handle);
  if (found->type != kArrayType) Crash("a dictionary was used as an array");
  return found;
}

CfCollection* dictionary(const void* handle) {
  auto* found = As<CfCollection>(handle);
  if (found->type != kDictionaryType) Crash("an array was used as a dictionary");
  return found;
}

bool isSameKey(CFTypeRef one, CFTypeRef other) {
  return TextOf(static_cast<CFStringRef>(one)) == TextOf(static_cast<CFStringRef>(other));
}

}  // namespace

CfCollection::~CfCollection() {
  for (const CFTypeRef key : keys) CFRelease(key);
  for (const CFTypeRef value : values) CFRelease(value);
}

}  // namespace native

extern "C" {

// Only their addresses matter here.
const CFArrayCallBacks kCFTypeArrayCallBacks = {};
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {};

CFTypeID CFArrayGetTypeID(void) { return native::kArrayType; }

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex, const CFArrayCallBacks* callBacks) {
  if (callBacks != &kCFTypeArrayCallBacks) native::Crash("an array would not retain its values");
  if (!Begin(__func__)) return nullptr;
  return native::RefOf<CFMutableArrayRef>(new CfCollection("CFArray", native::kArrayType));
}

void CFArrayAppendValue(CFMutableArrayRef array, const void* value) {
  native::array(array)->values.push_back(CFRetain(value));
}

CFIndex CFArrayGetCount(CFArrayRef array) {
  return static_cast<CFIndex>(native::array(array)->values.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  return native::array(array)->values.at(static_cast<std::size_t>(index));
}

CFTypeID CFDictionaryGetTypeID(void) { return native::kDictionaryType; }

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks) {
  if (keyCallBacks != &kCFTypeDictionaryKeyCallBacks ||
      valueCallBacks != &kCFTypeDictionaryValueCallBacks) {
    native::Crash("a dictionary would not retain its values");
  }
  if (!Begin(__func__)) return nullptr;
  return native::RefOf<CFMutableDictionaryRef>(
      new CfCollection("CFDictionary", native::kDictionaryType));
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
  CfCollection* held = native::dictionary(dictionary);
  CFRetain(value);
  for (std::size_t i = 0; i < held->keys.size(); ++i) {
    if (!native::isSameKey(held->keys[i], key)) continue;
    CFRelease(std::exchange(held->values[i], value));
    return;
  }
  held->keys.push_back(CFRetain(key));
  held->values.push_back(value);
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
  return static_cast<CFIndex>(native::dictionary(dictionary)->keys.size());
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
  const CfCollection* held = native::dictionary(dictionary);
  for (std::size_t i = 0; i < held->keys.size(); ++i) {
    if (native::isSameKey(held->keys[i], key)) return held->values[i];
  }
  return nullptr;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys,
                                  const void** values) {
  const CfCollection* held = native::dictionary(dictionary);
  std::copy(held->keys.begin(), held->keys.end(), keys);
  std::copy(held->values.begin(), held->values.end(), values);
}

}  // extern "C"
