#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "simulator/client/LargeText.h"

namespace {

using testing::ElementsAre;

TEST(LargeText, DrawsLettersApartFromEachOther) {
  EXPECT_THAT(*client::LargeText("AL1"), ElementsAre(" ###   #        #  ",  //
                                                     "#   #  #       ##  ",  //
                                                     "#####  #        #  ",  //
                                                     "#   #  #        #  ",  //
                                                     "#   #  #####   ### "));
}

TEST(LargeText, SeparatesTheHalvesOfACode) {
  EXPECT_EQ(client::LargeText("EEEEEEEE")->front(),
            "#####  #####  #####  #####     #####  #####  #####  #####");
}

TEST(LargeText, DrawsEveryLetterAndDigitDifferently) {
  std::set<std::vector<std::string>> drawn;
  for (const char letter : std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789")) {
    const auto rows = client::LargeText(std::string(1, letter));
    ASSERT_TRUE(rows) << letter;
    ASSERT_EQ(rows->size(), 5U);
    for (const std::string& row : *rows) EXPECT_EQ(row.size(), 5U) << letter;
    drawn.insert(*rows);
  }
  EXPECT_EQ(drawn.size(), 36U);
}

TEST(LargeText, HasNoOtherLetters) {
  for (const char* const text : {"a", "-", "A B", "\xC3\x84"}) {
    EXPECT_FALSE(client::LargeText(text)) << text;
  }
}

}  // namespace
