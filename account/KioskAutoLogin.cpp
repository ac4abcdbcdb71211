#include "account/KioskAutoLogin.h"

#include <sys/types.h>

#include <array>

#include "account/KioskFiles.h"
#include "account/KioskRun.h"
#include "core/KioskLog.h"
#include "core/KioskVersion.h"

namespace {

constexpr char kDefaults[] = "/usr/bin/defaults";
constexpr char kLoginWindowDomain[] = "/Library/Preferences/com.apple.loginwindow";
constexpr char kAutoLoginKey[] = "autoLoginUser";
constexpr char kPasswordFile[] = "/private/etc/kcpassword";
constexpr mode_t kPasswordFileMode = 0600;
constexpr std::uint64_t kPaddingBlock = 12;

// The login window's fixed key; files that it writes itself decode with these bytes.
constexpr std::array<unsigned char, 11> kObfuscationKey{0x7D, 0x89, 0x52, 0x23, 0xD2, 0xBC,
                                                        0xDD, 0xEA, 0xA3, 0xB9, 0x1F};

std::string EncodedPassword(const std::string& password) {
  std::string encoded(KcPasswordEncodedLength(password.size()), '\0');
  KcPasswordEncode(reinterpret_cast<const unsigned char*>(password.data()), password.size(),
                   reinterpret_cast<unsigned char*>(encoded.data()));
  return encoded;
}

}  // namespace

std::uint64_t KcPasswordEncodedLength(std::uint64_t length) {
  return length / kPaddingBlock * kPaddingBlock + kPaddingBlock;
}

void KcPasswordEncode(const unsigned char* bytes, std::uint64_t count, unsigned char* out) {
  const std::uint64_t length = KcPasswordEncodedLength(count);
  for (std::uint64_t i = 0; i < length; ++i) {
    const unsigned plain = i < count ? bytes[i] : 0U;
    out[i] = static_cast<unsigned char>(kObfuscationKey[i % kObfuscationKey.size()] ^ plain);
  }
}

std::optional<std::string> KioskAutoLoginUser() {
  std::string user;
  if (KioskRun(kDefaults, {"read", kLoginWindowDomain, kAutoLoginKey}, &user) != 0 ||
      user.empty()) {
    return std::nullopt;
  }
  return user;
}

bool KioskEnableAutoLogin(const std::string& password) {
  const std::optional<std::string> user = KioskAutoLoginUser();
  if (user && *user != kKioskAccountName) {
    KioskLogError("auto-login is set for %@; leaving it alone", *user);
    return false;
  }
  // The file comes first: the login window never finds the preference without a matching password.
  return KioskWriteFile(kPasswordFile, EncodedPassword(password), kPasswordFileMode, 0, 0) &&
         KioskRunChecked(kDefaults,
                         {"write", kLoginWindowDomain, kAutoLoginKey, kKioskAccountName});
}

void KioskDisableAutoLogin() {
  if (KioskAutoLoginUser() != kKioskAccountName) return;
  KioskRunChecked(kDefaults, {"delete", kLoginWindowDomain, kAutoLoginKey});
  KioskRemoveFile(kPasswordFile);
}
