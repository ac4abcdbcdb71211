#include "tests/unit/RandomJson.h"

#include <array>
#include <cstdint>
#include <limits>
#include <string>

namespace {

const std::vector<Json>& Scalars() {
  static const std::vector<Json> scalars{nullptr,
                                         true,
                                         false,
                                         0,
                                         1,
                                         -1,
                                         6,
                                         7,
                                         240,
                                         241,
                                         -0.0,
                                         0.5,
                                         3.0,
                                         6.5,
                                         1e300,
                                         -1e300,
                                         std::numeric_limits<std::int64_t>::max(),
                                         std::numeric_limits<std::int64_t>::min(),
                                         std::numeric_limits<std::uint64_t>::max(),
                                         "",
                                         "1",
                                         "true",
                                         "07:00",
                                         "\u00E9\u2028\U0001F600"};
  return scalars;
}

Json AnyArray(Random& random, std::size_t depth) {
  Json array = Json::array();
  for (std::size_t count = random.below(4); count > 0; --count) {
    array.push_back(AnyJson(random, depth));
  }
  return array;
}

Json AnyObject(Random& random, std::size_t depth) {
  Json object = Json::object();
  for (std::size_t count = random.below(4); count > 0; --count) {
    object[random.text("ab\"\\ ", random.below(3))] = AnyJson(random, depth);
  }
  return object;
}

}  // namespace

Json AnyJson(Random& random, std::size_t depth) {
  if (depth == 0 || !random.oneIn(3)) return random.pick(Scalars());
  return random.oneIn(2) ? AnyArray(random, depth - 1) : AnyObject(random, depth - 1);
}

Json UsuallyOneOf(Random& random, const std::vector<Json>& usual) {
  if (random.oneIn(16)) return AnyJson(random, 2);
  if (random.oneIn(16)) return nullptr;
  return random.pick(usual);
}

void UsuallyPut(Random& random, Json& object, const char* key, const Json& value) {
  if (!random.oneIn(10)) object[key] = value;
}

Json NearlyDays(Random& random) {
  static const std::vector<Json> days{0, 1, 2, 3, 4, 5, 6, 0, 1, 2, 3.0, 4, 5, 6};
  Json list = Json::array();
  const std::size_t length = random.oneIn(12) ? random.below(10) : random.below(6);
  while (list.size() < length) {
    list.push_back(random.oneIn(60) ? AnyJson(random, 1) : random.pick(days));
  }
  return list;
}

Json NearlyClock(Random& random) {
  static const std::array<std::string, 14> times{"00:00", "04:00", "07:00", "09:59",  "19:00",
                                                 "20:30", "22:00", "23:59", "22:00",  "07:00",
                                                 "24:00", "7:00",  "12:60", "08:00\n"};
  return random.pick(times);
}
