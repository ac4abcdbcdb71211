// The frames of the simulated Mac's command channel: a stream of them is taken apart as the
// document of the channel says, however it arrives.
#include <optional>
#include <string>
#include <vector>

#include "platform/simulated/ChannelFrame.h"
#include "platform/simulated/Limits.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/unit/Spaces.h"

namespace {

using platform::Frame;
using platform::FrameKind;
using platform::FrameState;

/// What a stream amounts to: its frames, and how it ends.
struct Taken {
  std::vector<Frame> frames;
  FrameState end = FrameState::kIncomplete;
  std::size_t left = 0;
};

Taken TakeAll(std::string_view input) {
  Taken taken;
  for (;;) {
    Frame frame{};
    taken.left = input.size();
    taken.end = platform::TakeFrame(input, frame);
    if (taken.end != FrameState::kComplete) {
      FuzzExpect(input.size() == taken.left, "only a whole frame is taken");
      if (taken.end == FrameState::kBroken) taken.left = 0;  // nothing is read any more
      return taken;
    }
    FuzzExpect(input.size() < taken.left, "a frame has bytes");
    taken.frames.push_back(frame);
  }
}

/// The same stream as it arrives in two pieces, of which the first is read before the second.
Taken TakeInPieces(std::string_view input, std::size_t first) {
  Taken taken = TakeAll(input.substr(0, first));
  if (taken.end == FrameState::kBroken) return taken;
  const Taken more = TakeAll(input.substr(first - taken.left));
  taken.frames.insert(taken.frames.end(), more.frames.begin(), more.frames.end());
  taken.end = more.end;
  taken.left = more.left;
  return taken;
}

std::uint64_t NumberAt(std::string_view bytes, std::size_t at) {
  std::uint64_t number = 0;
  std::uint64_t place = 1;
  for (std::size_t byte = at; byte < at + 4; ++byte, place *= 256) {
    number += place * static_cast<unsigned char>(bytes[byte]);
  }
  return number;
}

/// The first frame by the document: its length, kind, number and texts.
FrameState StateByDocument(std::string_view input, std::optional<Frame>& frame) {
  if (input.size() < 4) return FrameState::kIncomplete;
  const std::uint64_t length = NumberAt(input, 0);
  if (length < 5 || length > platform::kMaximumFrameBytes) return FrameState::kBroken;
  if (input.size() < 4 + length) return FrameState::kIncomplete;
  const std::string texts(input.substr(9, length - 5));
  if (input[4] != 1 && input[4] != 2) return FrameState::kBroken;
  const std::vector<std::string> pieces = SplitAt(texts, '\0');
  // What follows the last zero byte is nothing, and before it keys and values take turns.
  if (pieces.size() % 2 != 1 || !pieces.back().empty()) return FrameState::kBroken;
  frame = Frame{static_cast<FrameKind>(input[4]), static_cast<std::uint32_t>(NumberAt(input, 5)),
                texts};
  return FrameState::kComplete;
}

std::optional<std::string> ValueByDocument(const std::string& dictionary, std::string_view key) {
  const std::vector<std::string> pieces = SplitAt(dictionary, '\0');
  std::optional<std::string> value;
  for (std::size_t at = 0; at + 1 < pieces.size(); at += 2) {
    if (pieces[at] == key) value = pieces[at + 1];
  }
  return value;
}

bool operator==(const Frame& one, const Frame& other) {
  return one.kind == other.kind && one.number == other.number && one.dictionary == other.dictionary;
}

void ExpectFirst(std::string_view input, const Taken& taken) {
  std::optional<Frame> expected;
  const FrameState state = StateByDocument(input, expected);
  const FrameState first = taken.frames.empty() ? taken.end : FrameState::kComplete;
  FuzzExpect(first == state, "the first frame is what the document says", static_cast<int>(first),
             static_cast<int>(state));
  if (expected) FuzzExpect(taken.frames.front() == *expected, "it has that content");
}

/// A reply carries what it was made of.
void ExpectReply(const Frame& frame) {
  const std::optional<std::string> value = platform::FrameValue(frame.dictionary, "request");
  FuzzExpect(value == ValueByDocument(frame.dictionary, "request"), "the last value counts");
  if (!value) return;
  const auto reply = platform::EncodeReply(frame.number, {{"response", *value}});
  const bool fits = value->size() + 15 <= platform::kMaximumFrameBytes;
  FuzzExpect(reply.has_value() == fits, "a reply is sent when it fits");
  if (!reply) return;
  FuzzExpect(NumberAt(*reply, 0) == reply->size() - 4, "a reply has its length");
  FuzzExpect((*reply)[4] == 3 && NumberAt(*reply, 5) == frame.number, "a reply has its number");
  FuzzExpect(ValueByDocument(reply->substr(9), "response") == value, "a reply has its text");
}

}  // namespace

// The input's first byte is where the stream is cut in two.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
  const Taken whole = TakeAll(input);
  ExpectFirst(input, whole);
  const Taken pieces = TakeInPieces(input, std::min<std::size_t>(data[0], input.size()));
  FuzzExpect(
      whole.end == pieces.end && whole.left == pieces.left &&
          std::equal(whole.frames.begin(), whole.frames.end(), pieces.frames.begin(),
                     pieces.frames.end(), [](const Frame& a, const Frame& b) { return a == b; }),
      "frames do not depend on how they arrive");
  for (const Frame& frame : whole.frames) ExpectReply(frame);
  return 0;
}
