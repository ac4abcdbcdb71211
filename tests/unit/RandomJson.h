// Random JSON values for property tests.
#pragma once

#include <cstddef>
#include <vector>

#include "platform/Json.h"
#include "tests/unit/Random.h"

/// A JSON value of any type, nested at most `depth` deep.
Json AnyJson(Random& random, std::size_t depth);

/// One of `usual` mostly, else null or a value of any type.
Json UsuallyOneOf(Random& random, const std::vector<Json>& usual);

/// Puts `value` under `key` mostly, else leaves the key out.
void UsuallyPut(Random& random, Json& object, const char* key, const Json& value);

/// Weekday lists near the edge of what is valid: mostly numbers from 0 to 6, up to nine of them.
Json NearlyDays(Random& random);

/// Times of day near the edge of what is valid.
Json NearlyClock(Random& random);
