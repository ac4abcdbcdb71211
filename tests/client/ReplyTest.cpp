#include <gtest/gtest.h>

#include "simulator/client/Limits.h"
#include "simulator/client/Reply.h"

namespace {

using client::ReplyFlag;
using client::ReplyNumber;
using client::ReplyParse;
using client::ReplyString;

/// An object with so many levels of nesting, its own included.
std::string Nested(int levels) {
  const auto inner = static_cast<std::size_t>(levels - 1);
  return R"({"x":)" + std::string(inner, '[') + std::string(inner, ']') + "}";
}

TEST(Reply, IsAJsonObjectOfBoundedDepth) {
  EXPECT_TRUE(ReplyParse("{}"));
  EXPECT_TRUE(ReplyParse(Nested(client::kMaximumReplyDepth)));
  EXPECT_FALSE(ReplyParse(Nested(client::kMaximumReplyDepth + 1)));
  EXPECT_FALSE(ReplyParse(Nested(400000)));
  EXPECT_FALSE(ReplyParse("null"));
}

TEST(Reply, KeepsEveryMember) {
  const auto reply = ReplyParse(R"({"a":[{"b":1},2],"c":{"d":null}})");
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->dump(), R"({"a":[{"b":1},2],"c":{"d":null}})");
}

TEST(Reply, HasValuesOfTheTypeAskedForOnly) {
  const auto reply = ReplyParse(R"({"s":"x","n":2,"m":-1,"z":0,"t":true,"f":false,"o":{}})");
  ASSERT_TRUE(reply);
  EXPECT_EQ(ReplyString(*reply, "s"), "x");
  EXPECT_FALSE(ReplyString(*reply, "n"));
  EXPECT_FALSE(ReplyString(*reply, "none"));
  EXPECT_EQ(ReplyNumber(*reply, "n"), 2);
  EXPECT_FALSE(ReplyNumber(*reply, "m"));
  EXPECT_FALSE(ReplyNumber(*reply, "s"));
  for (const char* const key : {"n", "m", "t"}) EXPECT_TRUE(ReplyFlag(*reply, key)) << key;
  for (const char* const key : {"z", "f", "s", "o", "none"}) {
    EXPECT_FALSE(ReplyFlag(*reply, key)) << key;
  }
}

}  // namespace
