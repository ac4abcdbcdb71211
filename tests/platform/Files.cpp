#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/platform/World.h"

namespace contract {

bool Eventually(const std::function<bool()>& condition) {
  constexpr std::chrono::seconds kPatience{30};
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

void WriteFile(const std::string& path, const std::string& contents) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
}

std::string ReadFile(const std::string& path) {
  std::ostringstream contents;
  contents << std::ifstream(path, std::ios::binary).rdbuf();
  return contents.str();
}

}  // namespace contract
