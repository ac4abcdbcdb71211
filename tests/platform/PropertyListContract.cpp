#include <gtest/gtest.h>

#include "platform/PropertyList.h"

namespace platform {
namespace {

class PropertyList : public testing::Test {
 protected:
  static std::optional<Json> throughText(const Json& value, PropertyListFormat format) {
    std::string error;
    const std::optional<std::string> bytes = PropertyListWrite(value, format, error);
    return bytes ? PropertyListParse(*bytes) : std::nullopt;
  }

  static std::string errorOf(const Json& value) {
    std::string error;
    EXPECT_FALSE(PropertyListWrite(value, PropertyListFormat::kXml, error));
    return error;
  }
};

TEST_F(PropertyList, KeepsEveryKindOfValueInBothFormats) {
  const Json value = {{"text", "Ärger & <Zeichen> \"€😀\"\n"},
                      {"empty", ""},
                      {"yes", true},
                      {"no", false},
                      {"small", 7},
                      {"negative", -7},
                      {"largest", INT64_MAX},
                      {"smallest", INT64_MIN},
                      {"real", 0.1},
                      {"list", {1, "two", Json::array(), Json::object()}},
                      {"data", Json::binary({0, 1, 254, 255})}};
  EXPECT_EQ(throughText(value, PropertyListFormat::kXml), value);
  EXPECT_EQ(throughText(value, PropertyListFormat::kBinary), value);
}

TEST_F(PropertyList, KeepsRealsInBothFormats) {
  for (const double real : {0.0, 1.5, -2.25, 1e-12, 1.0 / 3, 1e21, 1e300, 123456789.123456}) {
    EXPECT_EQ(throughText(real, PropertyListFormat::kXml), real);
    EXPECT_EQ(throughText(real, PropertyListFormat::kBinary), real);
  }
}

TEST_F(PropertyList, WritesXmlThatSaysSo) {
  std::string error;
  const auto bytes = PropertyListWrite({{"k", "v"}}, PropertyListFormat::kXml, error);
  ASSERT_TRUE(bytes);
  EXPECT_EQ(bytes->rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>", 0), 0u);
  EXPECT_NE(bytes->find("<key>k</key>"), std::string::npos);
}

TEST_F(PropertyList, WritesBinaryThatSaysSo) {
  std::string error;
  const auto bytes = PropertyListWrite({{"k", "v"}}, PropertyListFormat::kBinary, error);
  ASSERT_TRUE(bytes);
  EXPECT_EQ(bytes->rfind("bplist00", 0), 0u);
}

TEST_F(PropertyList, ReadsDatesAsSeconds) {
  const auto value = PropertyListParse(
      "<?xml version=\"1.0\"?><plist version=\"1.0\"><date>2001-01-01T00:00:10Z</date></plist>");
  ASSERT_TRUE(value);
  EXPECT_TRUE(value->is_number_float());
  EXPECT_EQ(*value, 978307210.0);
}

TEST_F(PropertyList, RefusesWhatIsNoPropertyList) {
  for (const char* bytes : {"", "x", "{}", "<plist>", "<?xml version=\"1.0\"?><plist>", "bplist00",
                            "bplist00\xFF\xFF\xFF\xFF", "<?xml", "<html></html>"}) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(PropertyListParse(bytes)) << bytes;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  }
}

TEST_F(PropertyList, SaysWhyAValueCannotBeWritten) {
  EXPECT_NE(errorOf(nullptr), "");
  EXPECT_NE(errorOf({{"a", {1, nullptr}}}), "");
  EXPECT_NE(errorOf("\xFF"), "");
  EXPECT_NE(errorOf({{"\xC3", 1}}), "");
  EXPECT_NE(errorOf(std::string("a\0b", 3)), "");
  EXPECT_NE(errorOf(UINT64_MAX), "");
}

TEST_F(PropertyList, RefusesNestingWithoutEnd) {
  Json deep = 1;
  for (int i = 0; i < 2000; ++i) deep = Json::array({std::move(deep)});
  EXPECT_NE(errorOf(deep), "");
}

}  // namespace
}  // namespace platform
