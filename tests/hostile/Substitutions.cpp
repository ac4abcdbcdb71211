#include "tests/hostile/Substitutions.h"

#include <utility>

namespace {

// Far longer than anything that is meant, and not too long for an answer that is read.
constexpr std::size_t kHuge = 250'000;

// Far deeper than a person would nest, and not too deep to be JSON.
Json Nested() {
  Json nested = Json::array();
  for (int depth = 0; depth < 400; ++depth) nested = Json::array({std::move(nested)});
  return nested;
}

using Named = std::pair<std::string, Json>;

const std::vector<Named>& Substitutes() {
  static const std::vector<Named> all{{"null", nullptr},
                                      {"true", true},
                                      {"false", false},
                                      {"0", 0},
                                      {"-1", -1},
                                      {"2.5", 2.5},
                                      {"1e308", 1e308},
                                      {"an integer too large", 18446744073709551615U},
                                      {"an empty text", ""},
                                      {"x", "x"},
                                      {"a text with a zero", std::string("a\0b", 3)},
                                      {"a huge text", std::string(kHuge, 'x')},
                                      {"[]", Json::array()},
                                      {"{}", Json::object()},
                                      {"an array of everything", {nullptr, true, -1, "x", {{}}}},
                                      {"a deep array", Nested()}};
  return all;
}

// The places of a value, outermost first.
void Collect(const Json& value, const Json::json_pointer& place,
             std::vector<Json::json_pointer>& places) {
  places.push_back(place);
  if (value.is_array()) {
    for (std::size_t i = 0; i < value.size(); ++i) Collect(value[i], place / i, places);
  }
  if (!value.is_object()) return;
  for (const auto& [key, member] : value.items()) Collect(member, place / key, places);
}

}  // namespace

std::size_t SubstituteCount() { return Substitutes().size(); }

void ForEachSubstitution(const std::vector<Json>& versions, const SubstitutedLook& look) {
  std::vector<Json::json_pointer> places;
  Collect(versions.front(), Json::json_pointer(), places);
  std::size_t turn = 0;
  for (const Json::json_pointer& place : places) {
    for (const auto& [name, substitute] : Substitutes()) {
      Json changed = versions[turn++ % versions.size()];
      changed[place] = substitute;
      look(changed, "\"" + place.to_string() + "\" is " + name);
    }
  }
}
