// Property lists: CFPropertyList.
#include "platform/PropertyList.h"

#include "platform/macos/CfJson.h"
#include "platform/macos/CfRef.h"

namespace platform {
namespace {

constexpr char kNotWritten[] = "The property list could not be written.";

CFPropertyListFormat nativeFormat(PropertyListFormat format) {
  return format == PropertyListFormat::kXml ? kCFPropertyListXMLFormat_v1_0
                                            : kCFPropertyListBinaryFormat_v1_0;
}

}  // namespace

std::optional<Json> PropertyListParse(const std::string& bytes) {
  const CfRef<CFDataRef> data(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                                           static_cast<CFIndex>(bytes.size())));
  if (!data) return std::nullopt;
  CFPropertyListFormat format = kCFPropertyListOpenStepFormat;
  const CfRef<CFTypeRef> list(CFPropertyListCreateWithData(
      nullptr, data.get(), kCFPropertyListImmutable, &format, nullptr));
  // The format before XML takes almost any text for a property list.
  if (!list || format == kCFPropertyListOpenStepFormat) return std::nullopt;
  return CfToJson(list.get());
}

std::optional<std::string> PropertyListWrite(const Json& value, PropertyListFormat format,
                                             std::string& error) {
  error = kNotWritten;  // unless something says more
  const CfRef<CFTypeRef> list = CfFromJson(value, error);
  if (!list) return std::nullopt;
  CfRef<CFErrorRef> reason;
  const CfRef<CFDataRef> data(
      CFPropertyListCreateData(nullptr, list.get(), nativeFormat(format), 0, reason.out()));
  if (!data) {
    error = CfErrorText(reason.get(), kNotWritten);
    return std::nullopt;
  }
  const UInt8* bytes = CFDataGetBytePtr(data.get());
  return std::string(bytes, bytes + CFDataGetLength(data.get()));
}

}  // namespace platform
