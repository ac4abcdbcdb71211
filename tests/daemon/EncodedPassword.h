// What the automatic login's file holds.
#pragma once

#include <string>

#include "account/KioskAutoLogin.h"

/// The encoded form of `password`.
inline std::string EncodedPassword(const std::string& password) {
  std::string encoded(KcPasswordEncodedLength(password.size()), 'x');
  KcPasswordEncode(reinterpret_cast<const unsigned char*>(password.data()), password.size(),
                   reinterpret_cast<unsigned char*>(encoded.data()));
  return encoded;
}
