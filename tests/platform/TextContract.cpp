#include <gtest/gtest.h>

#include <random>

#include "platform/Text.h"

namespace platform {
namespace {

TEST(Text, GoesToUtf16AndBack) {
  EXPECT_EQ(TextToUtf16("aß€😀"), u"aß€😀");
  EXPECT_EQ(TextFromUtf16(u"aß€😀"), "aß€😀");
  EXPECT_EQ(TextToUtf16(""), u"");
  EXPECT_EQ(TextFromUtf16(u""), "");
  EXPECT_EQ(TextToUtf16(std::string_view("a\0b", 3)).size(), 3u);
}

TEST(Text, ReplacesIllFormedSequences) {
  EXPECT_EQ(TextToUtf16("a\xFFz"), u"a\uFFFDz");
  EXPECT_EQ(TextToUtf16("\xC3"), u"\uFFFD");
  const char16_t loneSurrogate[] = {u'a', 0xD800, u'z', 0};
  EXPECT_EQ(TextFromUtf16(loneSurrogate), "a\xEF\xBF\xBDz");
}

TEST(Text, SurvivesRandomBytes) {
  std::mt19937 random(1);
  for (int round = 0; round < 2000; ++round) {
    std::string bytes(random() % 40, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    const std::u16string text = TextToUtf16(bytes);
    EXPECT_EQ(TextToUtf16(TextFromUtf16(text)), text);
    EXPECT_EQ(TextUpperCase(TextUpperCase(bytes)), TextUpperCase(bytes));
  }
}

TEST(Text, MakesUpperCaseThatMayBeLonger) {
  EXPECT_EQ(TextUpperCase("abc-12"), "ABC-12");
  EXPECT_EQ(TextUpperCase("straße"), "STRASSE");
  EXPECT_EQ(TextUpperCase("ﬃ"), "FFI");
  EXPECT_EQ(TextUpperCase("\u0390"), "\u0399\u0308\u0301");
  EXPECT_EQ(TextUpperCase("ǆ"), "Ǆ");
}

TEST(Text, MakesUpperCaseWithoutALocale) {
  setenv("LC_ALL", "tr_TR.UTF-8", 1);
  EXPECT_EQ(TextUpperCase("i"), "I");
}

TEST(Text, FindsWhereAComposedCharacterStarts) {
  const std::u16string text = u"ae\u0301z";  // a, e with an accent of its own, z
  EXPECT_EQ(TextComposedCharacterStart(text, 0), 0u);
  EXPECT_EQ(TextComposedCharacterStart(text, 1), 1u);
  EXPECT_EQ(TextComposedCharacterStart(text, 2), 1u);
  EXPECT_EQ(TextComposedCharacterStart(text, 3), 3u);
}

TEST(Text, KeepsSurrogatePairsAndEmojiTogether) {
  const std::u16string text = u"x😀👩\u200D🚀";
  EXPECT_EQ(TextComposedCharacterStart(text, 1), 1u);
  EXPECT_EQ(TextComposedCharacterStart(text, 2), 1u);
  for (std::size_t i = 3; i < text.size(); ++i) EXPECT_EQ(TextComposedCharacterStart(text, i), 3u);
}

}  // namespace
}  // namespace platform
