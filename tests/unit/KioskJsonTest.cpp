#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "core/KioskJson.h"
#include "core/KioskLimits.h"
#include "tests/unit/RandomJson.h"

namespace {

using namespace std::string_literals;

std::string Nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

std::string NestedObjects(std::size_t depth) {
  std::string text;
  for (std::size_t level = 1; level < depth; ++level) text += "{\"a\":";
  return text + "{}" + std::string(depth - 1, '}');
}

TEST(JsonParse, AcceptsEveryKindOfValue) {
  EXPECT_EQ(KioskJsonParse("null"), Json());
  EXPECT_EQ(KioskJsonParse("true"), Json(true));
  EXPECT_EQ(KioskJsonParse("-12"), Json(-12));
  EXPECT_EQ(KioskJsonParse("1.5e2"), Json(150.0));
  EXPECT_EQ(KioskJsonParse("\"a\""), Json("a"));
  EXPECT_EQ(KioskJsonParse("[]"), Json::array());
  EXPECT_EQ(KioskJsonParse(" \t\r\n{ \"a\" : [ 1 , {} ] } \n"),
            Json({{"a", Json::array({1, Json::object()})}}));
}

TEST(JsonParse, RefusesWhatIsNotOneValue) {
  for (const char* text : {"",
                           " ",
                           "{",
                           "}",
                           "[1,]",
                           "{\"a\":1,}",
                           "{\"a\"}",
                           "{a:1}",
                           "{'a':1}",
                           "[1 2]",
                           "{} {}",
                           "nul",
                           "True",
                           "NaN",
                           "Infinity",
                           "-",
                           "+1",
                           ".5",
                           "1.",
                           "01",
                           "1e",
                           "0x10",
                           "\"a",
                           "\"\t\"",
                           "\"\\x\"",
                           "// note\n{}",
                           "/* note */{}",
                           "<html></html>"}) {
    EXPECT_EQ(KioskJsonParse(text), std::nullopt) << text;
  }
}

TEST(JsonParse, AcceptsTheDeepestNestingAndRefusesOneMore) {
  ASSERT_EQ(kKioskMaximumJsonDepth, 512U);
  EXPECT_TRUE(KioskJsonParse(Nested(512)));
  EXPECT_EQ(KioskJsonParse(Nested(513)), std::nullopt);
  EXPECT_TRUE(KioskJsonParse(NestedObjects(512)));
  EXPECT_EQ(KioskJsonParse(NestedObjects(513)), std::nullopt);
  EXPECT_TRUE(KioskJsonParse("{\"a\":" + Nested(511) + "}"));
  EXPECT_EQ(KioskJsonParse("{\"a\":" + Nested(512) + "}"), std::nullopt);
}

TEST(JsonParse, RefusesHopelesslyDeepNesting) {
  EXPECT_EQ(KioskJsonParse(Nested(100'000)), std::nullopt);
  EXPECT_EQ(KioskJsonParse(NestedObjects(100'000)), std::nullopt);
  EXPECT_EQ(KioskJsonParse(std::string(10'000'000, '[')), std::nullopt);
  EXPECT_EQ(KioskJsonParse(std::string(100'000, ']') + Nested(100'000)), std::nullopt);
}

TEST(JsonParse, CountsDepthNotBrackets) {
  std::string siblings = "[";
  for (int count = 0; count < 2000; ++count) siblings += "[{}],";
  EXPECT_TRUE(KioskJsonParse(siblings + "[]]"));
}

TEST(JsonParse, DoesNotCountBracketsInsideStrings) {
  const std::string brackets(1000, '[');
  EXPECT_EQ(KioskJsonParse("\"" + brackets + "\""), Json(brackets));
  EXPECT_EQ(KioskJsonParse("\"\\\"" + brackets + "\""), Json("\"" + brackets));
  EXPECT_EQ(KioskJsonParse("[\"\\\\\",\"" + brackets + "\"]"), Json::array({"\\", brackets}));
  EXPECT_EQ(KioskJsonParse("{\"" + brackets + "\":\"" + std::string(1000, '}') + "\"}"),
            Json({{brackets, std::string(1000, '}')}}));
  EXPECT_EQ(KioskJsonParse("[\"\\\\\"," + Nested(512) + "]"), std::nullopt);
}

TEST(JsonParse, HandsOutDeepValuesThatCanBeWrittenAndCompared) {
  const std::optional<Json> deep = KioskJsonParse(Nested(512));
  ASSERT_TRUE(deep);
  EXPECT_EQ(KioskJsonText(*deep), Nested(512));
  EXPECT_EQ(*deep, Json(*deep));
}

TEST(JsonParse, RefusesZeroBytes) {
  for (const std::string& text : {"\0"s, "{}\0"s, "\0{}"s, "{}\0{}"s, "{\"a\":1}\0garbage"s,
                                  "[1\0]"s, "\"\0\""s, "1\0"s, "[\0"s}) {
    EXPECT_EQ(KioskJsonParse(text), std::nullopt) << testing::PrintToString(text);
  }
  EXPECT_EQ(KioskJsonParse("\"a\\u0000b\""), Json("a\0b"s));
}

TEST(JsonParse, RefusesWhatIsNotUtf8) {
  for (const char* text : {"\"\xFF\"", "\"\x80\"", "\"\xC3\"", "\"\xC0\xAF\"", "\"\xED\xA0\x80\"",
                           "\"\xF4\x90\x80\x80\"", "{\"\xC3\x28\":1}", "\xFF\xFE{\x00}"}) {
    EXPECT_EQ(KioskJsonParse(text), std::nullopt) << testing::PrintToString(text);
  }
}

TEST(JsonParse, ReadsSurrogatePairsAndRefusesHalves) {
  EXPECT_EQ(KioskJsonParse(R"("\uD83D\uDE00")"), Json("\U0001F600"));
  for (const char* text : {R"("\uD83D")", R"("\uDE00")", R"("\uDE00\uD83D")", R"("\uD83Dx")",
                           R"("\uD83D\u0041")", R"("\uD83D\uD83D")", R"("\uD83D\n")"}) {
    EXPECT_EQ(KioskJsonParse(text), std::nullopt) << text;
  }
}

TEST(JsonParse, KeepsNumbersOf64BitsExact) {
  EXPECT_EQ(KioskJsonParse("18446744073709551615"),
            Json(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_EQ(KioskJsonParse("-9223372036854775808"), Json(std::numeric_limits<std::int64_t>::min()));
}

TEST(JsonParse, ReadsNumbersBeyond64BitsAsReals) {
  for (const auto& [text, expected] :
       {std::pair("18446744073709551616", 18446744073709551616.0),
        std::pair("-9223372036854775809", -9223372036854775808.0), std::pair("1e300", 1e300)}) {
    const std::optional<Json> value = KioskJsonParse(text);
    ASSERT_TRUE(value && value->is_number_float()) << text;
    EXPECT_EQ(value->get<double>(), expected);
  }
  EXPECT_EQ(KioskJsonParse("1e-999"), Json(0.0));
}

TEST(JsonParse, RefusesNumbersBeyondADouble) {
  EXPECT_EQ(KioskJsonParse("1e999"), std::nullopt);
  EXPECT_EQ(KioskJsonParse("-1e999"), std::nullopt);
  EXPECT_EQ(KioskJsonParse("{\"a\":[1,1e999]}"), std::nullopt);
  EXPECT_EQ(KioskJsonParse(std::string(400, '9')), std::nullopt);
  EXPECT_TRUE(KioskJsonParse(std::string(300, '9')));
}

TEST(JsonParse, KeepsOneOfSeveralMembersWithTheSameKey) {
  EXPECT_EQ(KioskJsonParse(R"({"a":1,"b":2,"a":3})"), Json({{"a", 3}, {"b", 2}}));
}

TEST(JsonText, IsCompactWithSortedKeys) {
  EXPECT_EQ(KioskJsonText({{"b", 1}, {"a", {{"d", true}, {"c", nullptr}}}, {"B", "x"}}),
            R"({"B":"x","a":{"c":null,"d":true},"b":1})");
}

TEST(JsonText, RefusesStringsAndKeysThatAreNotUtf8) {
  EXPECT_EQ(KioskJsonText("\xFF"), std::nullopt);
  EXPECT_EQ(KioskJsonText({{"a", Json::array({"\xED\xA0\x80"})}}), std::nullopt);
  EXPECT_EQ(KioskJsonText({{"\xC3", 1}}), std::nullopt);
}

TEST(JsonText, ParsesToTheValueItWasMadeOf) {
  Random random(1);
  for (int round = 0; round < 5000; ++round) {
    const Json value = AnyJson(random, 5);
    const std::optional<std::string> text = KioskJsonText(value);
    ASSERT_TRUE(text);
    ASSERT_EQ(KioskJsonParse(*text), value) << *text;
  }
}

TEST(JsonParse, AnswersWhateverTheBytesAre) {
  Random random(2);
  for (int round = 0; round < 50'000; ++round) {
    const std::string text =
        random.text("[]{}\",:\\u0dDe1-.tn \n\xC3\xA9\xFF"s + '\0', random.below(24));
    const std::optional<Json> value = KioskJsonParse(text);
    if (value) {
      ASSERT_EQ(text.find('\0'), text.npos) << testing::PrintToString(text);
      ASSERT_TRUE(KioskJsonText(*value)) << testing::PrintToString(text);
    }
  }
}

TEST(JsonMember, IsNullWhenThereIsNone) {
  const Json object{{"a", 1}, {"b", nullptr}};
  EXPECT_EQ(KioskMember(object, "a"), 1);
  EXPECT_TRUE(KioskMember(object, "b").is_null());
  EXPECT_TRUE(KioskMember(object, "c").is_null());
  for (const Json& other : {Json(), Json(1), Json("a"), Json::array({"a"}), Json(true)}) {
    EXPECT_TRUE(KioskMember(other, "a").is_null()) << other;
  }
}

TEST(JsonTruth, IsThatOfNumbersAndBooleansOnly) {
  for (const Json& yes : {Json(true), Json(1), Json(-1), Json(0.5), Json(1e-300),
                          Json(std::numeric_limits<std::uint64_t>::max())}) {
    EXPECT_EQ(KioskTruth(yes), true) << yes;
  }
  for (const Json& no : {Json(false), Json(0), Json(0U), Json(0.0), Json(-0.0)}) {
    EXPECT_EQ(KioskTruth(no), false) << no;
  }
  for (const Json& other : {Json(), Json("true"), Json("1"), Json(""), Json::array({1}),
                            Json({{"a", true}}), Json::object()}) {
    EXPECT_EQ(KioskTruth(other), std::nullopt) << other;
  }
}

TEST(JsonDescription, ShowsStringsAsTheyStandAndTheRestAsJson) {
  EXPECT_EQ(KioskDescription("a \"b\" \u00E9"), "a \"b\" \u00E9");
  EXPECT_EQ(KioskDescription(""), "");
  EXPECT_EQ(KioskDescription(5), "5");
  EXPECT_EQ(KioskDescription({{"b", 1}, {"a", "x"}}), R"({"a":"x","b":1})");
  EXPECT_EQ(KioskDescription(Json::array({"\xFF"})), "[\"\uFFFD\"]");
}

TEST(JsonReplies, CarryOkAndOnFailureTheCode) {
  EXPECT_EQ(KioskSuccess(), Json::parse(R"({"ok":true})"));
  EXPECT_EQ(KioskFailure("busy"), Json::parse(R"({"ok":false,"error":"busy"})"));
}

}  // namespace
