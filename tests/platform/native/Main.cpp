// Every test must give back every native object that it was handed.
#include <gtest/gtest.h>

#include "tests/native/Doubles.h"
#include "tests/platform/World.h"

namespace {

class Balance : public testing::EmptyTestEventListener {
  void OnTestEnd(const testing::TestInfo& /*test*/) override {
    native::ForgetDelayedWork();
    // Threads of the doubles may still be about to let go.
    EXPECT_TRUE(contract::Eventually([] { return native::LiveObjects().empty(); }))
        << "not released: " << native::LiveObjects();
    EXPECT_EQ(native::FailuresLeft(), std::vector<std::string>());
  }
};

}  // namespace

int main(int argumentCount, char** arguments) {
  testing::InitGoogleTest(&argumentCount, arguments);
  testing::UnitTest::GetInstance()->listeners().Append(new Balance);
  return RUN_ALL_TESTS();
}
