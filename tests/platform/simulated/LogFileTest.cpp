#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <thread>

#include "platform/Log.h"
#include "tests/platform/simulated/SimulatedRoot.h"

namespace platform {
namespace {

constexpr char kLog[] = "/private/var/log/system.log";

class LogFile : public contract::SimulatedRoot {
 protected:
  const SystemLog _log{"com.brindlex.stream.kioskd", "core"};
};

TEST_F(LogFile, WritesOneLineAMessage) {
  _log.write(LogLevel::kDefault, "started: 100%");
  _log.write(LogLevel::kError, "two\nlines");
  const std::regex expected(
      R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z Default com\.brindlex\.stream\.kioskd core\[)" +
      std::to_string(getpid()) + R"(\]: started: 100%\n)" +
      R"(\S+ Error com\.brindlex\.stream\.kioskd core\[\d+\]: two\\nlines\n)");
  const std::string text = contract::ReadFile(kLog);
  EXPECT_TRUE(std::regex_match(text, expected)) << text;
  struct stat status {};
  ASSERT_EQ(stat(kLog, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644u);
}

TEST_F(LogFile, KeepsLinesOfSeveralThreadsApart) {
  std::vector<std::thread> writers;
  for (int i = 0; i < 4; ++i) {
    writers.emplace_back([this] {
      for (int j = 0; j < 50; ++j) _log.write(LogLevel::kDefault, std::string(3000, 'x'));
    });
  }
  for (std::thread& writer : writers) writer.join();
  std::istringstream lines(contract::ReadFile(kLog));
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_TRUE(line.ends_with("]: " + std::string(3000, 'x')));
  }
  EXPECT_EQ(count, 200);
}

}  // namespace
}  // namespace platform
