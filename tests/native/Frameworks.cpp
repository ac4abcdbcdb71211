// SystemConfiguration, Security and the unified log.
#include <Security/Security.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <os/log.h>
#include <sys/random.h>

#include <cstring>
#include <mutex>

#include "tests/native/CoreFoundation.h"
#include "tests/native/Doubles.h"

using native::Begin;

/// Never released by anybody.
struct os_log_s {
  const std::string subsystem;
  const std::string category;
};

namespace native {
namespace {

// How the compiler lays out a message's arguments: a byte of flags, their count, and for each a
// byte (the privacy below, the kind above), its size and its value.
// Source: clang's OSLog.h (OSLogBufferItem).
constexpr unsigned kPublic = 0x2;
constexpr unsigned kStringKind = 0x2;

LogEntry decode(const os_log_s& log, os_log_type_t type, const char* format,
                const std::uint8_t* buffer, std::uint32_t size) {
  const char* text = nullptr;
  if (size != 4 + sizeof text || buffer[1] != 1 || buffer[3] != sizeof text ||
      buffer[2] >> 4 != kStringKind) {
    Crash("the log got another argument than one text");
  }
  std::memcpy(&text, buffer + 4, sizeof text);
  return {log.subsystem, log.category, type, format, text, (buffer[2] & 0xF & kPublic) != 0};
}

}  // namespace
}  // namespace native

extern "C" {

const SecRandomRef kSecRandomDefault = nullptr;

int SecRandomCopyBytes(SecRandomRef source, size_t count, void* bytes) {
  if (source != nullptr) native::Crash("another source of random bytes");
  if (!Begin(__func__)) return -1;
  return count == 0 || getentropy(bytes, count) == 0 ? errSecSuccess : -1;
}

CFStringRef SCDynamicStoreCopyComputerName(SCDynamicStoreRef, CFStringEncoding*) {
  if (!Begin(__func__) || !native::TheMac().computerName) return nullptr;
  return native::NewString(*native::TheMac().computerName);
}

os_log_t os_log_create(const char* subsystem, const char* category) {
  // As long as the process, like the real ones.
  static auto* const logs = new std::vector<os_log_t>;
  logs->push_back(new os_log_s{subsystem, category});
  return logs->back();
}

bool os_log_type_enabled(os_log_t, os_log_type_t type) {
  return !native::TheMac().disabledLevels.contains(type);
}

void _os_log_impl(void*, os_log_t log, os_log_type_t type, const char* format, uint8_t* buffer,
                  uint32_t size) {
  (void)Begin(__func__);
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  native::TheMac().log.push_back(native::decode(*log, type, format, buffer, size));
}

}  // extern "C"
