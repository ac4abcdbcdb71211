// KioskRun beside what a system offers to start a program, in a small process and in a large one.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "account/KioskRun.h"
#include "tests/bench/Measure.h"

namespace {

constexpr int kRounds = 15;
constexpr int kStarts = 100;
constexpr double kMicroseconds = 1e6;
constexpr double kMilliseconds = 1e3;
constexpr std::size_t kWritten = std::size_t{100} << 20;
constexpr std::size_t kMebibyte = std::size_t{1} << 20;

char tool[] = KIOSKD_BENCH_TOOL;
std::array<char*, 2> nothing{tool, nullptr};
char mebibytes[] = "100";
std::array<char*, 3> flood{tool, mebibytes, nullptr};

void WaitFor(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) Fail("the tool failed");
}

void RunByKioskRun() {
  if (KioskRun(tool, {}) != 0) Fail("the tool failed");
}

void RunByPosixSpawn() {
  pid_t child = 0;
  if (posix_spawn(&child, tool, nullptr, nullptr, nothing.data(), environ) != 0) Fail("no spawn");
  WaitFor(child);
}

void RunByPopen() {
  std::FILE* const stream = popen(tool, "r");
  if (stream == nullptr || pclose(stream) != 0) Fail("the tool failed");
}

void RunByFork() {
  const pid_t child = fork();
  if (child == 0) {
    execv(tool, nothing.data());
    _exit(1);
  }
  WaitFor(child);
}

void ReadByKioskRun() {
  std::string output;
  if (KioskRun(tool, {mebibytes}, &output) != 0 || output.size() != kWritten) Fail("no output");
}

void DropByKioskRun() {
  if (KioskRun(tool, {mebibytes}) != 0) Fail("the tool failed");
}

void ReadByPipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) Fail("no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  pid_t child = 0;
  if (posix_spawn(&child, tool, &actions, nullptr, flood.data(), environ) != 0) Fail("no spawn");
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  static std::array<char, 65536> buffer;
  std::size_t total = 0;
  for (ssize_t count = 1; count > 0;) {
    count = read(ends[0], buffer.data(), buffer.size());
    total += count > 0 ? static_cast<std::size_t>(count) : 0;
  }
  close(ends[0]);
  WaitFor(child);
  if (total != kWritten) Fail("no output");
}

void ReadByPopen() {
  std::FILE* const stream = popen((std::string(tool) + " " + mebibytes).c_str(), "r");
  if (stream == nullptr) Fail("no popen");
  static std::array<char, 65536> buffer;
  std::string output;
  for (std::size_t count = 1; count > 0;) {
    count = std::fread(buffer.data(), 1, buffer.size(), stream);
    output.append(buffer.data(), count);
  }
  if (pclose(stream) != 0 || output.size() != kWritten) Fail("no output");
}

Contender Starts(const char* name, void (*run)()) {
  return {name, [run] { return kMicroseconds * SecondsEach(kStarts, run); }};
}

Contender Reads(const char* name, void (*run)()) {
  return {name, [run] { return kMilliseconds * SecondsEach(1, run); }};
}

void CompareStarts(const std::string& size) {
  Compare({"KioskRun of nothing, process of " + size, "µs", "≤ 1.05 × posix_spawn", 1.05}, kRounds,
          {Starts("kioskd", RunByKioskRun), Starts("posix_spawn", RunByPosixSpawn),
           Starts("popen", RunByPopen), Starts("fork, exec", RunByFork)});
}

}  // namespace

int main() {
  std::vector<char> memory(8 * kMebibyte, 'x');
  CompareStarts("8 MB");
  memory.assign(256 * kMebibyte, 'x');
  CompareStarts("256 MB");
  memory = {};
  Compare({"KioskRun of 100 MiB, not kept", "ms", "≥ 80 % of the pipe's speed", 1.25}, kRounds,
          {Reads("kioskd", DropByKioskRun), Reads("bare pipe", ReadByPipe)});
  Compare({"KioskRun of 100 MiB, kept", "ms", "≥ 80 % of the pipe's speed", 1.25}, kRounds,
          {Reads("kioskd", ReadByKioskRun), Reads("bare pipe", ReadByPipe),
           Reads("popen, kept", ReadByPopen)});
}
