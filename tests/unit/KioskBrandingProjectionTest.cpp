#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "portal/KioskBranding.h"
#include "tests/unit/ProjectionRules.h"
#include "tests/unit/RandomJson.h"

namespace {

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();

/// A valid digest, another one for each character from 0 to 9 and a to f.
std::string Digest(char c) { return std::string(64, c); }

Json Photo(char c) { return {{"sha256", Digest(c)}}; }

/// What is kept of a photo that has a digest only.
Json KeptPhoto(char c) {
  return {{"sha256", Digest(c)},
          {"contentType", "image/jpeg"},
          {"width", 0},
          {"height", 0},
          {"credit", ""}};
}

Json Branding(const Json& photos) { return {{"displayName", "House"}, {"photos", photos}}; }

/// The photos that are kept of these.
Json Photos(const Json& photos) {
  return KioskBrandingProjection(Branding(photos), "tenant").value_or(Json())["photos"];
}

/// The value that is kept under `key` of a photo that has `value` there.
Json KeptOf(const char* key, const Json& value) {
  Json photo = Photo('a');
  photo[key] = value;
  const Json photos = Photos(Json::array({photo}));
  return photos.size() == 1 ? photos[0][key] : Json("no photo");
}

TEST(BrandingProjection, HasNameSubtitleTenantAndPhotos) {
  const Json photo = {{"sha256", Digest('a')},
                      {"contentType", "image/png"},
                      {"width", 3840},
                      {"height", 2160},
                      {"credit", "A photographer"}};
  const Json branding = {
      {"displayName", "House"}, {"signInSubtitle", "Welcome"}, {"photos", Json::array({photo})}};
  EXPECT_EQ(KioskBrandingProjection(branding, "tenant"), Json({{"tenantId", "tenant"},
                                                               {"displayName", "House"},
                                                               {"signInSubtitle", "Welcome"},
                                                               {"photos", Json::array({photo})}}));
}

TEST(BrandingProjection, NeedsADisplayNameOnly) {
  EXPECT_EQ(KioskBrandingProjection({{"displayName", " "}}, nullptr),
            Json({{"tenantId", ""},
                  {"displayName", " "},
                  {"signInSubtitle", ""},
                  {"photos", Json::array()}}));
}

TEST(BrandingProjection, IsNoneWithoutADisplayName) {
  EXPECT_EQ(KioskBrandingProjection({{"signInSubtitle", "x"}, {"photos", Json::array()}}, "t"),
            std::nullopt);
  for (const Json& name :
       {Json(), Json(""), Json(1), Json(true), Json::array({"x"}), Json::object()}) {
    EXPECT_EQ(KioskBrandingProjection({{"displayName", name}}, "t"), std::nullopt) << name;
  }
}

TEST(BrandingProjection, IsNoneWhenThereIsNoBranding) {
  for (const char* text :
       {"null", "true", "1", "\"x\"", "\"\"", "[]", "[{\"displayName\":\"x\"}]"}) {
    EXPECT_EQ(KioskBrandingProjection(Json::parse(text), "t"), std::nullopt) << text;
  }
}

TEST(BrandingProjection, HasAnEmptyTenantOrSubtitleWhenItIsNoText) {
  for (const Json& value : {Json(), Json(1), Json(false), Json::array({"x"}), Json::object()}) {
    const auto projection =
        KioskBrandingProjection({{"displayName", "House"}, {"signInSubtitle", value}}, value);
    ASSERT_TRUE(projection) << value;
    EXPECT_EQ((*projection)["tenantId"], "") << value;
    EXPECT_EQ((*projection)["signInSubtitle"], "") << value;
  }
}

TEST(BrandingProjection, KeepsTextsAsTheyAre) {
  const std::string text = " \u00C9\n\U0001F600\" ";
  const auto projection =
      KioskBrandingProjection({{"displayName", text}, {"signInSubtitle", text}}, text);
  ASSERT_TRUE(projection);
  for (const char* key : {"tenantId", "displayName", "signInSubtitle"}) {
    EXPECT_EQ((*projection)[key], text) << key;
  }
  EXPECT_EQ(KeptOf("contentType", text), text);
  EXPECT_EQ(KeptOf("credit", text), text);
}

TEST(BrandingProjection, DropsUnknownKeys) {
  Json photo = Photo('a');
  photo["url"] = "https://photos.example/a";
  Json branding = Branding(Json::array({photo}));
  branding["tenantId"] = "another";
  branding["colour"] = "#ffffff";
  EXPECT_EQ(KioskBrandingProjection(branding, "tenant"),
            Json({{"tenantId", "tenant"},
                  {"displayName", "House"},
                  {"signInSubtitle", ""},
                  {"photos", Json::array({KeptPhoto('a')})}}));
}

TEST(BrandingPhotos, AreNoneWhenTheyAreNoList) {
  for (const Json& photos : {Json(), Json("x"), Json(1), Json(true), Json::object(), Photo('a'),
                             Json::object({{"0", Photo('a')}}), Json::array()}) {
    EXPECT_EQ(Photos(photos), Json::array()) << photos;
  }
}

TEST(BrandingPhotos, KeepTheirOrder) {
  EXPECT_EQ(Photos({Photo('c'), Photo('0'), Photo('f'), Photo('a')}),
            Json({KeptPhoto('c'), KeptPhoto('0'), KeptPhoto('f'), KeptPhoto('a')}));
}

TEST(BrandingPhotos, AreKeptBesideInvalidOnes) {
  EXPECT_EQ(Photos({nullptr, 1, "x", true, Json::array(), Json::object(), Photo('g'),
                    Json::array({Photo('b')}), Photo('a')}),
            Json::array({KeptPhoto('a')}));
}

TEST(BrandingPhotos, HaveADigestOf64LowerCaseHexDigits) {
  const std::string digest = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
  EXPECT_EQ(Photos(Json::array({{{"sha256", digest}}}))[0]["sha256"], digest);
  for (const Json& wrong :
       {Json(std::string(64, 'A')), Json(std::string(63, 'a')), Json(std::string(65, 'a')),
        Json(std::string(63, 'a') + "F"), Json(std::string(63, 'a') + "g"),
        Json(std::string(63, 'a') + "\n"), Json(std::string(64, 'a') + "\n"),
        Json(std::string(63, 'a') + std::string(1, '\0')),
        Json(std::string(64, 'a') + std::string(1, '\0')), Json(" " + std::string(63, 'a')),
        Json(std::string(62, 'a') + "\u00E9"), Json("../" + std::string(61, 'a')), Json(""), Json(),
        Json(1), Json(true), Json::array({digest}), Json::object()}) {
    EXPECT_EQ(Photos(Json::array({{{"sha256", wrong}}})), Json::array()) << wrong;
  }
}

TEST(BrandingPhotos, AreKnownByAllOfTheirDigest) {
  const std::string other = std::string(63, 'a') + "b";
  EXPECT_EQ(Photos({Photo('a'), {{"sha256", other}}}).size(), 2U);
}

TEST(BrandingPhotos, OfOneDigestAreTheFirstOne) {
  Json first = Photo('a');
  first["width"] = 1;
  Json second = Photo('a');
  second["width"] = 2;
  second["credit"] = "Another";
  const Json photos = Photos({first, Photo('b'), second, first});
  ASSERT_EQ(photos.size(), 2U);
  EXPECT_EQ(photos[0]["width"], 1);
  EXPECT_EQ(photos[0]["credit"], "");
  EXPECT_EQ(photos[1], KeptPhoto('b'));
}

TEST(BrandingPhotos, AreJpegUnlessTheySayOtherwise) {
  EXPECT_EQ(KeptOf("contentType", "image/png"), "image/png");
  EXPECT_EQ(KeptOf("contentType", " "), " ");
  for (const Json& type :
       {Json(), Json(""), Json(1), Json(true), Json::array({"image/png"}), Json::object()}) {
    EXPECT_EQ(KeptOf("contentType", type), "image/jpeg") << type;
  }
}

TEST(BrandingPhotos, HaveACreditThatIsText) {
  for (const Json& credit :
       {Json(), Json(""), Json(1), Json(true), Json::array(), Json::object()}) {
    EXPECT_EQ(KeptOf("credit", credit), "") << credit;
  }
}

TEST(BrandingPhotos, HaveIntegersForSizes) {
  struct Given {
    Json value;
    std::int64_t kept;
  };
  for (const char* key : {"width", "height"}) {
    for (const Given& size :
         {Given{640, 640}, Given{0, 0}, Given{-5, -5}, Given{640.0, 640}, Given{640.9, 640},
          Given{-640.9, -640}, Given{0.5, 0}, Given{-0.5, 0}, Given{true, 1}, Given{false, 0},
          Given{kLargest, kLargest}, Given{kSmallest, kSmallest}}) {
      EXPECT_EQ(KeptOf(key, size.value).dump(), std::to_string(size.kept)) << key << size.value;
    }
    for (const Json& value : {Json(), Json("640"), Json(""), Json::array({640}), Json::object()}) {
      EXPECT_EQ(KeptOf(key, value).dump(), "0") << key << value;
    }
  }
}

TEST(BrandingPhotos, HaveTheNearestIntegerForSizesThatAreNone) {
  for (const Json& value : {Json(1e300), Json(9'223'372'036'854'775'808.0),
                            Json(std::numeric_limits<std::uint64_t>::max())}) {
    EXPECT_EQ(KeptOf("width", value), kLargest) << value;
  }
  EXPECT_EQ(KeptOf("width", -1e300), kSmallest);
  EXPECT_EQ(KeptOf("width", -9'223'372'036'854'775'808.0), kSmallest);
  EXPECT_EQ(KeptOf("width", 9'007'199'254'740'991.0), 9'007'199'254'740'991);
}

Json NearlyPhoto(Random& random) {
  static const std::vector<Json> digests{Digest('a'), Digest('b'), Digest('0'),      Digest('f'),
                                         Digest('A'), Digest('g'), Digest('a') + "a"};
  Json photo = Json::object();
  UsuallyPut(random, photo, "sha256", UsuallyOneOf(random, digests));
  UsuallyPut(random, photo, "contentType", UsuallyOneOf(random, {"image/png", "", "image/jpeg"}));
  UsuallyPut(random, photo, "width", UsuallyOneOf(random, {640, 640.5, -1.5, "640", true, 1e300}));
  UsuallyPut(random, photo, "height", AnyJson(random, 1));
  UsuallyPut(random, photo, "credit", UsuallyOneOf(random, {"A photographer", ""}));
  if (random.oneIn(4)) photo["other"] = AnyJson(random, 1);
  return photo;
}

Json NearlyBranding(Random& random) {
  Json photos = Json::array();
  for (std::size_t count = random.below(8); count > 0; --count) {
    photos.push_back(random.oneIn(12) ? AnyJson(random, 2) : NearlyPhoto(random));
  }
  Json branding = Json::object();
  UsuallyPut(random, branding, "displayName", UsuallyOneOf(random, {"House", "House", ""}));
  UsuallyPut(random, branding, "signInSubtitle", UsuallyOneOf(random, {"Welcome", ""}));
  UsuallyPut(random, branding, "photos", UsuallyOneOf(random, {photos}));
  if (random.oneIn(4)) branding["other"] = AnyJson(random, 1);
  return branding;
}

TEST(BrandingProjection, AgreesWithTheTableOnRandomBranding) {
  Random random(71);
  int accepted = 0;
  for (int round = 0; round < 4'000; ++round) {
    const Json given = NearlyBranding(random);
    const Json tenantId = UsuallyOneOf(random, {"tenant", ""});
    const std::optional<Json> expected = ProjectionByTheTable(given, tenantId);
    const std::optional<Json> projection = KioskBrandingProjection(given, tenantId);
    ASSERT_EQ(projection, expected) << given;
    if (!projection) continue;
    ++accepted;
    ASSERT_EQ(projection->dump(), expected->dump()) << given;
    ASSERT_EQ(KioskBrandingProjection(*projection, tenantId), *projection) << given;
  }
  EXPECT_GT(accepted, 400);
  EXPECT_LT(accepted, 3'600);
}

TEST(BrandingProjection, IsNoneOrByTheTableWhateverTheValuesAre) {
  Random random(72);
  for (int round = 0; round < 3'000; ++round) {
    const Json given = AnyJson(random, 4);
    const Json tenantId = AnyJson(random, 2);
    ASSERT_EQ(KioskBrandingProjection(given, tenantId), ProjectionByTheTable(given, tenantId))
        << given;
    Json named = Branding(given);
    named["signInSubtitle"] = AnyJson(random, 2);
    ASSERT_EQ(KioskBrandingProjection(named, tenantId), ProjectionByTheTable(named, tenantId))
        << named;
  }
}

}  // namespace
