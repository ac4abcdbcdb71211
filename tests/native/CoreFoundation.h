// The objects of the CoreFoundation double, for the frameworks that hand some out.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/native/Object.h"

namespace native {

enum TypeId : CFTypeID {
  kBooleanType = 1,
  kNumberType,
  kStringType,
  kDateType,
  kDataType,
  kArrayType,
  kDictionaryType,
  kOtherType,
};

class CfObject : public Object {
 public:
  CfObject(const char* kind, TypeId type, Life life = Life::kCounted)
      : Object(kind, life), type(type) {}

  const TypeId type;
};

/// What a handle of a CoreFoundation type points to.
template <class Ref, class T>
Ref RefOf(T* object) {
  return reinterpret_cast<Ref>(static_cast<Object*>(object));
}

class CfString : public CfObject {
 public:
  explicit CfString(std::u16string text, Life life = Life::kCounted)
      : CfObject("CFString", kStringType, life), text(std::move(text)) {}

  std::u16string text;
};

class CfNumber : public CfObject {
 public:
  CfNumber(bool isReal, std::int64_t integer, double real)
      : CfObject("CFNumber", kNumberType), isReal(isReal), integer(integer), real(real) {}

  const bool isReal;
  const std::int64_t integer;
  const double real;
};

class CfBoolean : public CfObject {
 public:
  explicit CfBoolean(bool value)
      : CfObject("CFBoolean", kBooleanType, Life::kConstant), value(value) {}

  const bool value;
};

class CfDate : public CfObject {
 public:
  explicit CfDate(CFAbsoluteTime time) : CfObject("CFDate", kDateType), time(time) {}

  const CFAbsoluteTime time;
};

class CfData : public CfObject {
 public:
  explicit CfData(std::string bytes) : CfObject("CFData", kDataType), bytes(std::move(bytes)) {}

  const std::string bytes;
};

/// An array or, with keys, a dictionary; holds a reference to every value and key.
class CfCollection : public CfObject {
 public:
  using CfObject::CfObject;

  std::vector<CFTypeRef> keys;
  std::vector<CFTypeRef> values;

 protected:
  ~CfCollection() override;
};

class CfUrl : public CfObject {
 public:
  explicit CfUrl(std::string path) : CfObject("CFURL", kOtherType), path(std::move(path)) {}

  const std::string path;
};

class CfError : public CfObject {
 public:
  explicit CfError(std::string text) : CfObject("CFError", kOtherType), text(std::move(text)) {}

  const std::string text;
};

/// Any string's text, also that of a constant of the program.
std::u16string TextOf(CFStringRef string);
std::string Utf8Of(CFStringRef string);

/// A new string, array or dictionary.
CFStringRef NewString(const std::string& utf8);
/// A property list's value: null when the bytes are none; `format` tells of which kind they are.
CFTypeRef NewFromPropertyList(const std::string& bytes, CFPropertyListFormat& format);

/// Puts an error that tells of the failure which has just begun where the caller wants it, and
/// returns null for the call to return.
std::nullptr_t FailWith(CFErrorRef* error);

}  // namespace native
