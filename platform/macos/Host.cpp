// The machine: SystemConfiguration and CFBundle.
#include "platform/Host.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <climits>

#include "platform/macos/CfRef.h"

namespace platform {
namespace {

std::optional<std::string> executablePath(CFURLRef bundleUrl) {
  const CfRef<CFBundleRef> bundle(CFBundleCreate(nullptr, bundleUrl));
  if (!bundle) return std::nullopt;
  const CfRef<CFURLRef> executable(CFBundleCopyExecutableURL(bundle.get()));
  if (!executable) return std::nullopt;
  char path[PATH_MAX];
  if (!CFURLGetFileSystemRepresentation(executable.get(), true, reinterpret_cast<UInt8*>(path),
                                        sizeof path)) {
    return std::nullopt;
  }
  return path;
}

/// Not from the bundle object, which keeps what it read when the application was another version.
std::optional<std::string> shortVersion(CFURLRef bundleUrl) {
  const CfRef<CFDictionaryRef> information(CFBundleCopyInfoDictionaryForURL(bundleUrl));
  if (!information) return std::nullopt;
  return CfTextOf(CFDictionaryGetValue(information.get(), CFSTR("CFBundleShortVersionString")));
}

}  // namespace

std::optional<std::string> HostComputerName() {
  const CfRef<CFStringRef> name(SCDynamicStoreCopyComputerName(nullptr, nullptr));
  return CfTextOf(name.get());
}

std::optional<HostBundle> HostBundleAt(const std::string& path) {
  const CfRef<CFURLRef> url(
      CFURLCreateFromFileSystemRepresentation(nullptr, reinterpret_cast<const UInt8*>(path.data()),
                                              static_cast<CFIndex>(path.size()), true));
  if (!url) return std::nullopt;
  const CfRef<CFBundleRef> bundle(CFBundleCreate(nullptr, url.get()));
  if (!bundle) return std::nullopt;
  return HostBundle{executablePath(url.get()), shortVersion(url.get())};
}

}  // namespace platform
