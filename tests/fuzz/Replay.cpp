// Runs a harness on the inputs of its corpus, in the order of their names.
// usage: HARNESS FOLDER
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/fuzz/Fuzz.h"

namespace {

std::vector<std::filesystem::path> FilesOf(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<std::uint8_t> BytesOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  // All are read first: a harness may leave for a root of its own.
  std::vector<std::vector<std::uint8_t>> inputs;
  for (const auto& path : FilesOf(arguments[1])) inputs.push_back(BytesOf(path));
  for (const auto& input : inputs) LLVMFuzzerTestOneInput(input.data(), input.size());
  std::cout << inputs.size() << " inputs\n";
  return inputs.empty() ? 1 : 0;
}
