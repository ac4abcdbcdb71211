#include "tests/unit/ProjectionRules.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <set>
#include <string>

#include "tests/unit/PolicyRules.h"

namespace {

bool IsDigest(const Json& value) {
  if (!value.is_string() || value.get<std::string>().size() != 64) return false;
  const std::set<char> digits{'0', '1', '2', '3', '4', '5', '6', '7',
                              '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};
  for (const char c : value.get<std::string>()) {
    if (!digits.contains(c)) return false;
  }
  return true;
}

// A long double has room for every integer of 64 bits.
std::int64_t Integer(const Json& value) {
  if (value.is_boolean()) return value == true ? 1 : 0;
  if (!value.is_number()) return 0;
  const auto number = value.get<long double>();
  if (number >= 0x1p63L) return std::numeric_limits<std::int64_t>::max();
  if (number < -0x1p63L) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(std::trunc(number));
}

std::string Text(const Json& object, const char* key) {
  return object.contains(key) && object.at(key).is_string() ? object.at(key).get<std::string>()
                                                            : std::string();
}

Json Photo(const Json& given) {
  const std::string type = Text(given, "contentType");
  return {{"sha256", given.at("sha256")},
          {"contentType", type.empty() ? "image/jpeg" : type},
          {"width", Integer(Member(given, "width"))},
          {"height", Integer(Member(given, "height"))},
          {"credit", Text(given, "credit")}};
}

Json Photos(const Json& given) {
  Json photos = Json::array();
  if (!given.is_array()) return photos;
  std::set<std::string> taken;
  for (const Json& photo : given) {
    if (!photo.is_object() || !IsDigest(Member(photo, "sha256"))) continue;
    if (taken.insert(photo.at("sha256")).second) photos.push_back(Photo(photo));
  }
  return photos;
}

}  // namespace

std::optional<Json> ProjectionByTheTable(const Json& branding, const Json& tenantId) {
  if (!branding.is_object() || Text(branding, "displayName").empty()) return std::nullopt;
  return Json{{"tenantId", tenantId.is_string() ? tenantId : Json("")},
              {"displayName", branding.at("displayName")},
              {"signInSubtitle", Text(branding, "signInSubtitle")},
              {"photos", Photos(Member(branding, "photos"))}};
}
