#include <gtest/gtest.h>

#include "platform/PropertyList.h"
#include "tests/native/Doubles.h"

namespace platform {
namespace {

constexpr char kNotWritten[] = "The property list could not be written.";

std::string errorOf(const Json& value) {
  std::string error;
  EXPECT_FALSE(PropertyListWrite(value, PropertyListFormat::kXml, error));
  return error;
}

std::string written(const Json& value) {
  std::string error;
  return PropertyListWrite(value, PropertyListFormat::kBinary, error).value_or("");
}

TEST(PropertyListFailure, OfEveryCreationIsAnError) {
  const Json value = {{"text", "x"}, {"list", {1, 1.5, true}}, {"data", Json::binary({1, 2})}};
  for (const auto& [function, calls] :
       {std::pair("CFStringCreateWithBytes", 4), std::pair("CFNumberCreate", 2),
        std::pair("CFArrayCreateMutable", 1), std::pair("CFDictionaryCreateMutable", 1),
        std::pair("CFDataCreate", 1)}) {
    for (int number = 1; number <= calls; ++number) {
      native::Fail(function, number);
      EXPECT_NE(errorOf(value), "") << function << ' ' << number;
      EXPECT_EQ(native::LiveObjects(), "") << function << ' ' << number;
    }
  }
}

TEST(PropertyListFailure, OfWritingSaysWhy) {
  native::Fail("CFPropertyListCreateData", 1, "too tired");
  EXPECT_EQ(errorOf("x"), "too tired");
  EXPECT_EQ(native::LiveObjects(), "");
}

TEST(PropertyListFailure, OfWritingIsNamedWhenItCannotSayWhy) {
  native::Fail("CFPropertyListCreateData");
  native::Fail("CFErrorCopyDescription");
  EXPECT_EQ(errorOf("x"), kNotWritten);
}

TEST(PropertyListFailure, OfReadingIsNoPropertyList) {
  const std::string bytes = written({{"a", 1}});
  for (const char* function : {"CFDataCreate", "CFPropertyListCreateWithData"}) {
    native::Fail(function);
    EXPECT_EQ(PropertyListParse(bytes), std::nullopt) << function;
    EXPECT_EQ(native::LiveObjects(), "") << function;
  }
  EXPECT_EQ(PropertyListParse(bytes), Json({{"a", 1}}));
}

TEST(PropertyListFailure, OfANumbersIntegerGivesAReal) {
  const std::string bytes = written({{"a", 7}});
  native::Fail("CFNumberGetValue");
  const std::optional<Json> value = PropertyListParse(bytes);
  ASSERT_TRUE(value);
  EXPECT_TRUE((*value)["a"].is_number_float());
  EXPECT_EQ((*value)["a"], 7.0);
}

TEST(PropertyListFailure, LeavesOutWhatJsonHasNoCounterpartOf) {
  // A binary property list of [identifier 1, 7], as a keyed archiver writes it.
  const std::string bytes(
      "bplist00\xA2\x01\x02\x80\x01\x10\x07\x08\x0B\x0D\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x03"
      "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0F",
      50);
  EXPECT_EQ(PropertyListParse(bytes), Json({7}));
}

}  // namespace
}  // namespace platform
