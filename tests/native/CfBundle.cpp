// CFURL and CFBundle.
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "tests/native/CoreFoundation.h"

using native::As;
using native::Begin;

namespace native {
namespace {

CFDictionaryRef readInformation(const std::string& bundlePath) {
  std::ostringstream bytes;
  bytes << std::ifstream(bundlePath + "/Contents/Info.plist", std::ios::binary).rdbuf();
  CFPropertyListFormat format = 0;
  const CFTypeRef list = NewFromPropertyList(bytes.str(), format);
  if (list != nullptr && CFGetTypeID(list) == kDictionaryType) {
    return static_cast<CFDictionaryRef>(list);
  }
  if (list != nullptr) CFRelease(list);
  return RefOf<CFDictionaryRef>(new CfCollection("CFDictionary", kDictionaryType));
}

/// Keeps what it read when it was made.
class CfBundle : public CfObject {
 public:
  explicit CfBundle(const std::string& path)
      : CfObject("CFBundle", kOtherType), path(path), information(readInformation(path)) {}
  ~CfBundle() override { CFRelease(information); }

  const std::string path;
  const CFDictionaryRef information;
};

bool isFolder(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace
}  // namespace native

extern "C" {

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8* path, CFIndex count,
                                                 Boolean) {
  if (!Begin(__func__) || count == 0) return nullptr;
  return native::RefOf<CFURLRef>(new native::CfUrl(std::string(path, path + count)));
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean, UInt8* buffer, CFIndex bufferSize) {
  const std::string& path = As<native::CfUrl>(url)->path;
  if (!Begin(__func__) || path.size() >= static_cast<std::size_t>(bufferSize)) return 0;
  std::memcpy(buffer, path.c_str(), path.size() + 1);
  return 1;
}

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef url) {
  const std::string& path = As<native::CfUrl>(url)->path;
  if (!Begin(__func__) || !native::isFolder(path)) return nullptr;
  return native::RefOf<CFBundleRef>(new native::CfBundle(path));
}

CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle) {
  const auto* held = As<native::CfBundle>(bundle);
  if (!Begin(__func__)) return nullptr;
  const void* name = CFDictionaryGetValue(held->information, CFSTR("CFBundleExecutable"));
  if (name == nullptr || CFGetTypeID(name) != native::kStringType) return nullptr;
  const std::string path =
      held->path + "/Contents/MacOS/" + native::Utf8Of(static_cast<CFStringRef>(name));
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return nullptr;
  return native::RefOf<CFURLRef>(new native::CfUrl(path));
}

CFDictionaryRef CFBundleCopyInfoDictionaryForURL(CFURLRef url) {
  const std::string& path = As<native::CfUrl>(url)->path;
  if (!Begin(__func__)) return nullptr;
  return native::readInformation(path);
}

}  // extern "C"
