// A value with something of the wrong type at each of its places.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/Json.h"

/// Called with a copy of the value that has another value at one place, and with a text that names
/// both.
using SubstitutedLook = std::function<void(const Json& value, const std::string& what)>;

/// Puts each of a list of values (null, booleans, numbers, texts, arrays, objects) at each place of
/// a value at any depth, the whole included. The values of `versions`, which have the same places,
/// take turns.
void ForEachSubstitution(const std::vector<Json>& versions, const SubstitutedLook& look);

/// How many values are put at each place.
std::size_t SubstituteCount();
