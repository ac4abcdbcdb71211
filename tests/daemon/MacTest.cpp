#include "tests/daemon/MacTest.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/support/Child.h"

namespace {

constexpr mode_t kExecutable = 0755;

std::string FileContent(const char* path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

}  // namespace

MacTest::MacTest() : mac({"--tools-only"}), _probe(FileContent(KIOSKD_TEST_PROBE)) { mac.enter(); }

void MacTest::installProbe(const std::string& path) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  mac.write(path, _probe, kExecutable);
}

std::size_t OpenDescriptorCount() {
  constexpr rlim_t most = 65536;
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  std::size_t count = 0;
  for (int each = 0; each < static_cast<int>(std::min(limit.rlim_max, most)); ++each) {
    if (fcntl(each, F_GETFD) >= 0) ++count;
  }
  return count;
}

std::string ReplaceByLink(const MacFolder& mac, const std::string& path) {
  const std::string moved = path + "-moved";
  std::filesystem::rename(mac.at(path), mac.at(moved));
  std::filesystem::create_symlink(moved, mac.at(path));
  return moved;
}

void InstallBundle(const MacFolder& mac) {
  for (const char* path : {"/Applications/Brindlex.app/Contents/Helpers/kioskd",
                           "/Applications/Brindlex.app/Contents/MacOS/Brindlex"}) {
    if (mac.exists(path)) continue;
    std::filesystem::create_directories(std::filesystem::path(mac.at(path)).parent_path());
    mac.write(path, "", kExecutable);
  }
}

void RunMacTool(const std::vector<std::string>& command) {
  const Finished finished = RunToEnd(command);
  ASSERT_EQ(finished.status, 0) << finished.output;
}
