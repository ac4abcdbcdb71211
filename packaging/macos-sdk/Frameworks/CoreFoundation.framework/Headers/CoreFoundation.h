// The part of CoreFoundation that kioskd uses.
// Source: the public headers of the open-source CoreFoundation (CFBase.h, CFString.h, CFArray.h,
// CFBundle.h, CFCalendar.h, CFData.h, CFDate.h, CFDictionary.h, CFError.h, CFNumber.h,
// CFPropertyList.h, CFTimeZone.h, CFURL.h).
#pragma once

#include <stdbool.h>
#include <stdint.h>
#ifdef __APPLE__
#include <MacTypes.h>
#else
typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef uint16_t UniChar;
typedef uint32_t UInt32;
#endif

#ifdef __cplusplus
extern "C" {
#endif

// CFBase.h
typedef signed long CFIndex;
typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;
typedef const void* CFTypeRef;
typedef CFTypeRef CFPropertyListRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;
typedef const struct __CFBoolean* CFBooleanRef;
typedef struct __CFBundle* CFBundleRef;
typedef struct __CFCalendar* CFCalendarRef;
typedef const struct __CFData* CFDataRef;
typedef const struct __CFDate* CFDateRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef struct __CFError* CFErrorRef;
typedef const struct __CFLocale* CFLocaleRef;
typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFString* CFStringRef;
typedef struct __CFString* CFMutableStringRef;
typedef const struct __CFTimeZone* CFTimeZoneRef;
typedef const struct __CFURL* CFURLRef;
typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;

CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);

// CFString.h
typedef UInt32 CFStringEncoding;
enum { kCFStringEncodingUTF8 = 0x08000100 };
#define CFSTR(text) ((CFStringRef)__builtin___CFStringMakeConstantString("" text ""))
CFTypeID CFStringGetTypeID(void);
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* characters,
                                         CFIndex count);
CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef allocator, CFIndex maximumLength,
                                             CFStringRef string);
CFIndex CFStringGetLength(CFStringRef string);
CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                         UInt8 lossByte, Boolean isExternalRepresentation, UInt8* buffer,
                         CFIndex bufferSize, CFIndex* usedSize);
void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer);
CFRange CFStringGetRangeOfComposedCharactersAtIndex(CFStringRef string, CFIndex index);
void CFStringUppercase(CFMutableStringRef string, CFLocaleRef locale);

// CFArray.h
typedef struct {
  CFIndex version;
  const void* (*retain)(CFAllocatorRef allocator, const void* value);
  void (*release)(CFAllocatorRef allocator, const void* value);
  CFStringRef (*copyDescription)(const void* value);
  Boolean (*equal)(const void* one, const void* other);
} CFArrayCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;
CFTypeID CFArrayGetTypeID(void);
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks);
void CFArrayAppendValue(CFMutableArrayRef array, const void* value);
CFIndex CFArrayGetCount(CFArrayRef array);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

// CFDictionary.h
typedef struct {
  CFIndex version;
  const void* (*retain)(CFAllocatorRef allocator, const void* value);
  void (*release)(CFAllocatorRef allocator, const void* value);
  CFStringRef (*copyDescription)(const void* value);
  Boolean (*equal)(const void* one, const void* other);
  CFHashCode (*hash)(const void* value);
} CFDictionaryKeyCallBacks;
typedef struct {
  CFIndex version;
  const void* (*retain)(CFAllocatorRef allocator, const void* value);
  void (*release)(CFAllocatorRef allocator, const void* value);
  CFStringRef (*copyDescription)(const void* value);
  Boolean (*equal)(const void* one, const void* other);
} CFDictionaryValueCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
CFTypeID CFDictionaryGetTypeID(void);
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks);
void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);
CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);
void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys,
                                  const void** values);

// CFNumber.h
typedef CFIndex CFNumberType;
enum { kCFNumberSInt64Type = 4, kCFNumberDoubleType = 13 };
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;
CFTypeID CFBooleanGetTypeID(void);
Boolean CFBooleanGetValue(CFBooleanRef boolean);
CFTypeID CFNumberGetTypeID(void);
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);
Boolean CFNumberIsFloatType(CFNumberRef number);

// CFData.h
CFTypeID CFDataGetTypeID(void);
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count);
const UInt8* CFDataGetBytePtr(CFDataRef data);
CFIndex CFDataGetLength(CFDataRef data);

// CFDate.h
typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime;
extern const CFTimeInterval kCFAbsoluteTimeIntervalSince1970;
CFTypeID CFDateGetTypeID(void);
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date);

// CFError.h
CFStringRef CFErrorCopyDescription(CFErrorRef error);

// CFPropertyList.h
typedef CFIndex CFPropertyListFormat;
enum {
  kCFPropertyListOpenStepFormat = 1,
  kCFPropertyListXMLFormat_v1_0 = 100,
  kCFPropertyListBinaryFormat_v1_0 = 200
};
enum { kCFPropertyListImmutable = 0 };
CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                               CFOptionFlags options, CFPropertyListFormat* format,
                                               CFErrorRef* error);
CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator, CFPropertyListRef propertyList,
                                   CFPropertyListFormat format, CFOptionFlags options,
                                   CFErrorRef* error);

// CFTimeZone.h, CFCalendar.h, CFLocale.h
extern const CFStringRef kCFGregorianCalendar;
void CFTimeZoneResetSystem(void);
CFTimeZoneRef CFTimeZoneCopySystem(void);
CFArrayRef CFTimeZoneCopyKnownNames(void);
CFCalendarRef CFCalendarCreateWithIdentifier(CFAllocatorRef allocator, CFStringRef identifier);
void CFCalendarSetTimeZone(CFCalendarRef calendar, CFTimeZoneRef zone);
Boolean CFCalendarDecomposeAbsoluteTime(CFCalendarRef calendar, CFAbsoluteTime time,
                                        const char* components, ...);

// CFURL.h, CFBundle.h
CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* path,
                                                 CFIndex count, Boolean isDirectory);
Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer,
                                         CFIndex bufferSize);
CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef url);
CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle);
CFDictionaryRef CFBundleCopyInfoDictionaryForURL(CFURLRef url);

#ifdef __cplusplus
}
#endif
