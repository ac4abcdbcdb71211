#include <gtest/gtest.h>

#include <random>

#include "platform/simulated/Requirement.h"

namespace platform {
namespace {

const Signature kOurs{"apple generic", "com.brindlex.stream", "Q4ZT8K2M6R"};

std::optional<bool> evaluate(const std::string& text) { return EvaluateRequirement(text, kOurs); }

TEST(Requirement, IsSatisfiedByTheSignatureItNames) {
  for (const char* text :
       {"anchor apple generic", "identifier \"com.brindlex.stream\"",
        "identifier = \"com.brindlex.stream\"", "identifier com.brindlex.stream",
        "certificate leaf[subject.OU] = \"Q4ZT8K2M6R\"",
        "certificate leaf [ subject.OU ] = Q4ZT8K2M6R",
        "anchor apple generic and identifier \"com.brindlex.stream\" and "
        "certificate leaf[subject.OU] = \"Q4ZT8K2M6R\"",
        "anchor apple or anchor apple generic", "!anchor apple", "! ! anchor apple generic",
        "(anchor apple or (anchor apple generic))", "identifier \"com\\.brindlex.stream\""}) {
    EXPECT_EQ(evaluate(text), true) << text;
  }
}

TEST(Requirement, IsNotSatisfiedByAnother) {
  for (const char* text :
       {"anchor apple", "identifier \"com.brindlex.strea\"", "identifier \"COM.brindlex.stream\"",
        "certificate leaf[subject.OU] = \"X\"", "anchor apple generic and identifier \"x\"",
        "! anchor apple generic", "anchor apple or identifier \"x\" and anchor apple generic"}) {
    EXPECT_EQ(evaluate(text), false) << text;
  }
}

TEST(Requirement, BindsAndMoreTightlyThanOr) {
  EXPECT_EQ(evaluate("anchor apple generic or anchor apple and anchor apple"), true);
  EXPECT_EQ(evaluate("(anchor apple generic or anchor apple) and anchor apple"), false);
}

TEST(Requirement, IsSatisfiedByApplesOwnSoftwareWhereADevelopersIs) {
  const Signature apple{"apple", "com.apple.x", ""};
  EXPECT_EQ(EvaluateRequirement("anchor apple", apple), true);
  EXPECT_EQ(EvaluateRequirement("anchor apple generic", apple), true);
}

TEST(Requirement, IsNeverSatisfiedWithoutASignature) {
  EXPECT_EQ(EvaluateRequirement("anchor apple generic", std::nullopt), false);
  EXPECT_EQ(EvaluateRequirement("! anchor apple generic", std::nullopt), false);
  EXPECT_EQ(EvaluateRequirement("identifier \"\"", std::nullopt), false);
}

TEST(Requirement, IsRefusedWhenMalformed) {
  for (const char* text :
       {"", " ", "anchor", "anchor pear", "identifier", "identifier \"x", "identifier \"x\\",
        "anchor apple generic and", "and anchor apple", "(anchor apple", "anchor apple)",
        "anchor apple anchor apple", "certificate leaf = \"x\"", "certificate leaf[subject.CN] = x",
        "certificate leaf[subject.OU] \"x\"", "anchor apple & anchor apple", "!", "anchorapple",
        "anchor apple or or anchor apple"}) {
    EXPECT_EQ(evaluate(text), std::nullopt) << text;
  }
}

TEST(Requirement, IsRefusedWhenNestedWithoutEndOrVeryLong) {
  EXPECT_EQ(evaluate(std::string(10000, '(')), std::nullopt);
  EXPECT_EQ(evaluate(std::string(10000, '!') + "anchor apple"), std::nullopt);
  EXPECT_EQ(evaluate("anchor apple" + std::string(20000, ' ')), std::nullopt);
}

TEST(Requirement, IsDecidedForAnyText) {
  const char* const words[] = {
      "anchor ", "apple ",      "generic ", "and ", "or ",          "!",    "(",          ")",
      "\"",      "identifier ", "=",        "[",    "certificate ", "leaf", "subject.OU", "]",
      "x",       "\\",          "\xFF"};
  std::mt19937 random(1);
  for (int round = 0; round < 50000; ++round) {
    std::string text;
    for (std::size_t i = random() % 14; i > 0; --i) text += words[random() % std::size(words)];
    const std::optional<bool> ours = evaluate(text);
    const std::optional<bool> none = EvaluateRequirement(text, std::nullopt);
    EXPECT_EQ(ours.has_value(), none.has_value()) << text;
    EXPECT_NE(none, true) << text;
  }
}

TEST(Signature, IsReadFromItsFile) {
  const auto signature =
      ParseSignature(R"({"anchor": "apple generic", "identifier": "i", "team": "t"})");
  ASSERT_TRUE(signature);
  EXPECT_EQ(signature->anchor, "apple generic");
  EXPECT_EQ(signature->identifier, "i");
  EXPECT_EQ(signature->team, "t");
}

TEST(Signature, IsNothingWhenMalformed) {
  for (const char* text : {"", "[]", "{", "null", "\"x\"", "\xFF"}) {
    EXPECT_FALSE(ParseSignature(text)) << text;
  }
}

}  // namespace
}  // namespace platform
