#include "platform/macos/CfRef.h"

namespace platform {

CfRef<CFStringRef> CfString(std::string_view utf8) {
  return CfRef(CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(utf8.data()),
                                       static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8,
                                       false));
}

std::optional<std::string> CfText(CFStringRef string) {
  const CFRange whole = {0, CFStringGetLength(string)};
  CFIndex size = 0;
  if (CFStringGetBytes(string, whole, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size) !=
      whole.length) {
    return std::nullopt;
  }
  std::string text(static_cast<std::size_t>(size), '\0');
  CFStringGetBytes(string, whole, kCFStringEncodingUTF8, 0, false,
                   reinterpret_cast<UInt8*>(text.data()), size, nullptr);
  return text;
}

std::optional<std::string> CfTextOf(CFTypeRef object) {
  if (object == nullptr || CFGetTypeID(object) != CFStringGetTypeID()) return std::nullopt;
  return CfText(static_cast<CFStringRef>(object));
}

std::string CfErrorText(CFErrorRef error, const char* otherwise) {
  if (error == nullptr) return otherwise;
  const CfRef<CFStringRef> description(CFErrorCopyDescription(error));
  return CfTextOf(description.get()).value_or(otherwise);
}

}  // namespace platform
