// Automatic login of the kiosk account at boot. Never taken over from another user. Any thread;
// tools block the caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// The user whom the login window signs in at boot, or nothing.
std::optional<std::string> KioskAutoLoginUser();

/// Makes the login window sign in the kiosk account with `password`. False after one log line when
/// automatic login belongs to another user or a step failed.
[[nodiscard]] bool KioskEnableAutoLogin(const std::string& password);

/// Turns automatic login off if it is the kiosk account's; anything else stays as it is.
void KioskDisableAutoLogin();

/// The length in bytes of the encoded form of a password of `length` bytes: the next multiple of 12
/// beyond it, so that at least one zero byte follows the password.
std::uint64_t KcPasswordEncodedLength(std::uint64_t length);

/// Encodes `count` bytes of password into `out`, which has KcPasswordEncodedLength(count) bytes:
/// the bytes and the zeros that pad them, each combined by exclusive or with the login window's
/// key, which repeats every 11 bytes.
void KcPasswordEncode(const unsigned char* bytes, std::uint64_t count, unsigned char* out);
