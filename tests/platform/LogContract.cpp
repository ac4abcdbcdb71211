#include "platform/Log.h"
#include "tests/platform/World.h"

namespace platform {
namespace {

class Log : public contract::ChangingWorld {
 protected:
  const SystemLog _log{"com.brindlex.stream.kioskd", "core"};
};

TEST_F(Log, KeepsMessagesAsTheyAre) {
  _log.write(LogLevel::kDefault, "started: 100% %s %@ {public}");
  _log.write(LogLevel::kError, "Zeile äöü");
  const std::vector<contract::Logged> expected = {
      {false, "com.brindlex.stream.kioskd", "core", "started: 100% %s %@ {public}"},
      {true, "com.brindlex.stream.kioskd", "core", "Zeile äöü"}};
  EXPECT_EQ(logged(), expected);
}

TEST_F(Log, KeepsTheLevelsThatAreEnabled) {
  EXPECT_TRUE(_log.enabled(LogLevel::kDefault));
  disableDefaultLogLevel();
  EXPECT_FALSE(_log.enabled(LogLevel::kDefault));
  EXPECT_TRUE(_log.enabled(LogLevel::kError));
  _log.write(LogLevel::kDefault, "dropped");
  EXPECT_TRUE(logged().empty());
}

}  // namespace
}  // namespace platform
