// Stands in for a daemon or an agent. The first argument is a file that one line about the process
// is appended to; the second says what it does next:
//   wait        until it is told to end
//   stubborn    wait, deaf to SIGTERM
//   parent      start an orphan that is deaf to SIGTERM, then wait
//   exit N      end with a status

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

std::string OpenDescriptors() {
  constexpr int kHighest = 256;
  std::string numbers;
  for (int number = 3; number < kHighest; ++number) {
    if (fcntl(number, F_GETFD) >= 0) numbers += " " + std::to_string(number);
  }
  return numbers;
}

bool ProcIsThere() {
  struct stat status {};
  const int number = std::atoi(Variable("SIMULATED_MAC_PROC").c_str());
  return fstatat(number, "self/exe", &status, 0) == 0;
}

/// "pid P uid U sid S home H proc 1 services X descriptors 3 4".
std::string Description() {
  return "pid " + std::to_string(getpid()) + " uid " + std::to_string(getuid()) + " sid " +
         std::to_string(getsid(0)) + " home " + Variable("HOME") + " proc " +
         (ProcIsThere() ? "1" : "0") + " services " + Variable("SIMULATED_MAC_SERVICES") +
         " descriptors" + OpenDescriptors() + "\n";
}

void Append(const char* path, const std::string& text) {
  const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  (void)!write(file, text.data(), text.size());
  (void)close(file);
}

[[noreturn]] void Wait() {
  while (true) (void)pause();
}

void LeaveOrphan(const char* path) {
  if (fork() == 0) {
    if (fork() == 0) {
      (void)signal(SIGTERM, SIG_IGN);
      Append(path, Description());
      Wait();
    }
    _exit(0);
  }
}

}  // namespace

int main(int count, char** values) {
  if (count < 3) return 64;
  const std::string verb = values[2];
  if (verb == "stubborn") (void)signal(SIGTERM, SIG_IGN);
  (void)std::fprintf(stderr, "test job\n");
  Append(values[1], Description());
  if (verb == "parent") LeaveOrphan(values[1]);
  if (verb == "exit") return count > 3 ? std::atoi(values[3]) : 0;
  Wait();
}
