// Stands in for a daemon or an agent. The first argument is a file that one line about the process
// is appended to; the second says what it does next:
//   wait        until it is told to end
//   stubborn    wait, deaf to SIGTERM
//   parent      start an orphan that is deaf to SIGTERM, then wait
//   orphan      start such an orphan, then end with status 0
//   writer      start a child that is deaf to SIGTERM and fills $HOME, then wait
//   exit N      end with a status
//   late FILE   wait, and serve only once there is a file
// All but the last serve at once.

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

/// Tells launchd that the job serves.
void CheckIn() {
  const int launchd = std::atoi(Variable("SIMULATED_MAC_LAUNCHD").c_str());
  if (launchd > 1) (void)kill(launchd, SIGUSR1);
}

[[noreturn]] void ServeLate(const char* file) {
  while (access(file, F_OK) != 0) (void)usleep(1000);
  CheckIn();
  while (true) (void)pause();
}

void Append(const char* path, const std::string& text) {
  const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  (void)!write(file, text.data(), text.size());
  (void)close(file);
}

[[noreturn]] void Wait() {
  while (true) (void)pause();
}

/// Runs `work` in a process that is deaf to SIGTERM, below one that ends at once, and returns when
/// it has reported.
void LeaveOrphan(const char* path, void (*work)()) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  if (fork() == 0) {
    if (fork() == 0) {
      (void)signal(SIGTERM, SIG_IGN);
      Append(path, Description());
      (void)close(ends[1]);
      work();
    }
    _exit(0);
  }
  (void)close(ends[1]);
  char none = 0;
  (void)!read(ends[0], &none, 1);
}

[[noreturn]] void FillHome() {
  constexpr int kFiles = 1000;
  const std::string folder = Variable("HOME") + "/busy";
  for (int number = 0;; number = (number + 1) % kFiles) {
    (void)mkdir(Variable("HOME").c_str(), 0700);
    (void)mkdir(folder.c_str(), 0700);
    const std::string file = folder + "/" + std::to_string(number);
    (void)close(open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  }
}

}  // namespace

int main(int count, char** values) {
  if (count < 3) return 64;
  const std::string verb = values[2];
  if (verb == "stubborn") (void)signal(SIGTERM, SIG_IGN);
  (void)std::fprintf(stderr, "test job\n");
  Append(values[1], Description());
  if (verb == "late" && count > 3) ServeLate(values[3]);
  CheckIn();
  if (verb == "parent" || verb == "orphan") LeaveOrphan(values[1], Wait);
  if (verb == "writer") LeaveOrphan(values[1], FillHome);
  if (verb == "orphan") return 0;
  if (verb == "exit") return count > 3 ? std::atoi(values[3]) : 0;
  Wait();
}
