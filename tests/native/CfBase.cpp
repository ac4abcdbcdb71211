// CFBase, CFNumber, CFData, CFDate, CFError.
#include <cstring>

#include "tests/native/CoreFoundation.h"

using native::As;
using native::Begin;

extern "C" {
extern int __CFConstantStringClassReference[];
int __CFConstantStringClassReference[1] = {};
}

namespace native {
namespace {

/// The compiler's own strings are not counted.
bool isConstantString(CFTypeRef object) {
  const void* first = nullptr;
  std::memcpy(&first, object, sizeof first);
  return first == __CFConstantStringClassReference;
}

CfBoolean* boolean(bool value) {
  static auto* const yes = new CfBoolean(true);
  static auto* const no = new CfBoolean(false);
  return value ? yes : no;
}

}  // namespace

std::nullptr_t FailWith(CFErrorRef* error) {
  if (error != nullptr) *error = RefOf<CFErrorRef>(new CfError(FailureText()));
  return nullptr;
}

}  // namespace native

extern "C" {

const CFBooleanRef kCFBooleanTrue = native::RefOf<CFBooleanRef>(native::boolean(true));
const CFBooleanRef kCFBooleanFalse = native::RefOf<CFBooleanRef>(native::boolean(false));
const CFTimeInterval kCFAbsoluteTimeIntervalSince1970 = 978307200.0;

CFTypeRef CFRetain(CFTypeRef object) {
  if (object == nullptr) native::Crash("CFRetain got nothing");
  if (!native::isConstantString(object)) native::Object::of(object)->retain();
  return object;
}

void CFRelease(CFTypeRef object) {
  if (object == nullptr) native::Crash("CFRelease got nothing");
  if (!native::isConstantString(object)) native::Object::of(object)->release();
}

CFTypeID CFGetTypeID(CFTypeRef object) {
  if (object == nullptr) native::Crash("CFGetTypeID got nothing");
  return native::isConstantString(object) ? CFTypeID{native::kStringType}
                                          : CFTypeID{As<native::CfObject>(object)->type};
}

CFTypeID CFBooleanGetTypeID(void) { return native::kBooleanType; }

Boolean CFBooleanGetValue(CFBooleanRef boolean) {
  return As<native::CfBoolean>(boolean)->value ? 1 : 0;
}

CFTypeID CFNumberGetTypeID(void) { return native::kNumberType; }

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* value) {
  if (!Begin(__func__)) return nullptr;
  const bool isReal = type == kCFNumberDoubleType;
  if (!isReal && type != kCFNumberSInt64Type) native::Crash("CFNumberCreate got another type");
  std::int64_t integer = 0;
  double real = 0;
  std::memcpy(isReal ? static_cast<void*>(&real) : &integer, value, sizeof integer);
  return native::RefOf<CFNumberRef>(new native::CfNumber(isReal, integer, real));
}

Boolean CFNumberIsFloatType(CFNumberRef number) {
  return As<native::CfNumber>(number)->isReal ? 1 : 0;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
  const auto* held = As<native::CfNumber>(number);
  if (!Begin(__func__)) return 0;
  if (type == kCFNumberSInt64Type) {
    const auto integer = held->isReal ? static_cast<std::int64_t>(held->real) : held->integer;
    std::memcpy(value, &integer, sizeof integer);
    return held->isReal && static_cast<double>(integer) != held->real ? 0 : 1;
  }
  const double real = held->isReal ? held->real : static_cast<double>(held->integer);
  std::memcpy(value, &real, sizeof real);
  return 1;
}

CFTypeID CFDataGetTypeID(void) { return native::kDataType; }

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex count) {
  if (!Begin(__func__)) return nullptr;
  return native::RefOf<CFDataRef>(new native::CfData(std::string(bytes, bytes + count)));
}

const UInt8* CFDataGetBytePtr(CFDataRef data) {
  return reinterpret_cast<const UInt8*>(As<native::CfData>(data)->bytes.data());
}

CFIndex CFDataGetLength(CFDataRef data) {
  return static_cast<CFIndex>(As<native::CfData>(data)->bytes.size());
}

CFTypeID CFDateGetTypeID(void) { return native::kDateType; }

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) { return As<native::CfDate>(date)->time; }

CFStringRef CFErrorCopyDescription(CFErrorRef error) {
  const auto* failure = As<native::CfError>(error);
  return Begin(__func__) ? native::NewString(failure->text) : nullptr;
}

}  // extern "C"
