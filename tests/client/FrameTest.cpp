#include <gtest/gtest.h>

#include "simulator/client/Frame.h"

namespace {

using client::Frame;
using client::FrameKind;
using client::FrameRead;

TEST(Frame, IsWrittenAsTheContractSays) {
  const Frame frame{FrameKind::kQuestion, 0x04030201, {{"a", "bc"}, {"d", ""}}};
  EXPECT_EQ(client::FrameWrite(frame), std::string("\x0D\0\0\0\2\1\2\3\4a\0bc\0d\0\0", 17));
}

TEST(Frame, IsReadAsItWasWritten) {
  const Frame frame{FrameKind::kReply, 0xFFFFFFFE, {{"response", "{}"}, {"", "x"}}};
  const auto read = FrameRead(client::FrameWrite(frame).substr(4));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->kind, frame.kind);
  EXPECT_EQ(read->number, frame.number);
  EXPECT_EQ(read->dictionary, frame.dictionary);
}

TEST(Frame, MayHaveAnEmptyDictionary) { EXPECT_TRUE(FrameRead(std::string_view("\3\0\0\0\0", 5))); }

TEST(Frame, IsRefusedWhenItBreaksTheRules) {
  EXPECT_FALSE(FrameRead(""));
  EXPECT_FALSE(FrameRead(std::string_view("\3\0\0\0", 4))) << "cut short";
  EXPECT_FALSE(FrameRead(std::string_view("\0\0\0\0\0", 5))) << "kind 0";
  EXPECT_FALSE(FrameRead(std::string_view("\4\0\0\0\0", 5))) << "kind 4";
  EXPECT_FALSE(FrameRead(std::string_view("\xFF\0\0\0\0", 5))) << "kind 255";
  EXPECT_FALSE(FrameRead(std::string_view("\3\0\0\0\0a\0", 7))) << "a key without a value";
  EXPECT_FALSE(FrameRead(std::string_view("\3\0\0\0\0a\0b", 8))) << "a value without an end";
  EXPECT_FALSE(FrameRead(std::string_view("\3\0\0\0\0a", 6))) << "a key without an end";
}

}  // namespace
