// Fields of JSON that anybody may have written: a field that is missing or of another type, or an
// object that is none, is an empty value and never an exception.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/Json.h"

namespace simmac {

/// The field `key` of `object`; null when there is none.
const Json& FieldOf(const Json& object, const char* key);

std::string TextOf(const Json& object, const char* key);      ///< empty by default
std::int64_t IntegerOf(const Json& object, const char* key);  ///< 0 by default
bool FlagOf(const Json& object, const char* key, bool otherwise = false);
Json ObjectOf(const Json& object, const char* key);                     ///< {} by default
std::vector<std::string> TextsOf(const Json& object, const char* key);  ///< the texts of an array

}  // namespace simmac
