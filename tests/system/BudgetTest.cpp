// What does not depend on the machine's speed has its budget; instructions and sizes have theirs in
// tests/budget.
#include <algorithm>

#include "tests/system/EnrolledTest.h"

namespace {

// Membership of the two administrator groups. Each more is a process every half minute, for ever.
constexpr std::size_t kToolsOfAQuietCheckIn = 2;

using CheckInBudget = EnrolledTest;

TEST_F(CheckInBudget, StartsTwoToolsWhenNothingChanged) {
  checkIn();
  std::size_t fewest = SIZE_MAX;
  // The timer's own check-in may come in between one of them.
  for (int round = 0; round < 3; ++round) {
    const std::size_t before = mac.journal().size();
    checkIn();
    fewest = std::min(fewest, mac.journal().size() - before);
  }
  EXPECT_EQ(fewest, kToolsOfAQuietCheckIn);
}

}  // namespace
