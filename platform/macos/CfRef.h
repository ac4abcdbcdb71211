// Ownership of CoreFoundation objects, and texts from and to them.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace platform {

/// Owns one reference to a CoreFoundation object, as a function with "Create" or "Copy" in its name
/// returns it. Move-only; may be empty.
template <class Ref>
class CfRef {
 public:
  CfRef() = default;
  explicit CfRef(Ref owned) : _ref(owned) {}
  CfRef(CfRef&& other) noexcept : _ref(std::exchange(other._ref, nullptr)) {}
  CfRef& operator=(CfRef&& other) noexcept {
    std::swap(_ref, other._ref);
    return *this;
  }
  ~CfRef() {
    if (_ref != nullptr) CFRelease(_ref);
  }

  Ref get() const { return _ref; }
  explicit operator bool() const { return _ref != nullptr; }

  /// Hands the reference over.
  [[nodiscard]] Ref release() { return std::exchange(_ref, nullptr); }

  /// Where a function puts an object that it hands over; this must be empty.
  Ref* out() { return &_ref; }

 private:
  Ref _ref = nullptr;
};

/// A string of UTF-8 text; empty when the text is not UTF-8.
CfRef<CFStringRef> CfString(std::string_view utf8);

/// A string's text as UTF-8; nothing when it has half a surrogate pair.
std::optional<std::string> CfText(CFStringRef string);

/// The same for an object that need not be a string and may be null.
std::optional<std::string> CfTextOf(CFTypeRef object);

/// What an error says of itself; `otherwise` for none.
std::string CfErrorText(CFErrorRef error, const char* otherwise);

}  // namespace platform
