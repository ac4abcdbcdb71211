// A small program for the tests of the process runner: tells what it was given, or misbehaves as
// told. Its first argument says which.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kUsage = 64;
constexpr int kSignals = 64;
constexpr int kDescriptors = 4096;
constexpr long kFloodLine = 1024;

/// The calls' own results do not matter here: what is missing from the output fails the test.
void Say(int stream, const char* text) {
  if (write(stream, text, std::strlen(text)) < 0) std::abort();
}

int Number(char** arguments) {
  return arguments[0] == nullptr ? 0 : static_cast<int>(std::strtol(arguments[0], nullptr, 10));
}

// TEXT STATUS: the text on standard output.
int Tell(char** arguments) {
  Say(STDOUT_FILENO, arguments[0]);
  return Number(arguments + 1);
}

// Both streams in turn.
int Alternate(char**) {
  Say(STDOUT_FILENO, "one ");
  Say(STDERR_FILENO, "two ");
  Say(STDOUT_FILENO, "three ");
  Say(STDERR_FILENO, "four");
  return 0;
}

// Every argument on a line of its own, the program's name first.
int Arguments(char** arguments) {
  for (char** each = arguments - 2; *each != nullptr; ++each) {
    if (each != arguments - 1) std::printf("[%s]\n", *each);
  }
  return 0;
}

// COUNT STATUS: that many lines of 1024 bytes on standard error.
int Flood(char** arguments) {
  char line[kFloodLine];
  std::memset(line, 'x', sizeof line);
  line[kFloodLine - 1] = '\n';
  for (int left = Number(arguments); left > 0; --left) {
    for (std::size_t done = 0; done < sizeof line;) {
      const ssize_t count = write(STDERR_FILENO, line + done, sizeof line - done);
      if (count > 0) done += static_cast<std::size_t>(count);
    }
  }
  return Number(arguments + 1);
}

// How many bytes standard input has.
int CountInput(char**) {
  char buffer[256];
  long total = 0;
  for (ssize_t count = 1; count > 0; total += count) {
    count = read(STDIN_FILENO, buffer, sizeof buffer);
    if (count < 0) return 1;
  }
  std::printf("%ld bytes", total);
  return 0;
}

int Descriptors(char**) {
  for (int each = 0; each < kDescriptors; ++each) {
    if (fcntl(each, F_GETFD) >= 0) std::printf("%d ", each);
  }
  return 0;
}

// Signals that are blocked or not handled in the usual way.
int Signals(char**) {
  sigset_t blocked;
  sigprocmask(SIG_BLOCK, nullptr, &blocked);
  for (int each = 1; each < kSignals; ++each) {
    struct sigaction action = {};
    if (sigismember(&blocked, each) == 1) std::printf("blocked %d\n", each);
    if (sigaction(each, nullptr, &action) == 0 && action.sa_handler != SIG_DFL) {
      std::printf("handled %d\n", each);
    }
  }
  return 0;
}

// NAME: the value of a variable, and the working directory.
int Surroundings(char** arguments) {
  char directory[1024];
  const char* value = std::getenv(arguments[0]);
  std::printf("%s %s", value == nullptr ? "(none)" : value,
              getcwd(directory, sizeof directory) == nullptr ? "(none)" : directory);
  return 0;
}

// SIGNAL: dies by it after some output.
int Die(char** arguments) {
  Say(STDOUT_FILENO, "last words");
  std::raise(Number(arguments));
  return 0;
}

// STATUS: closes its output long before it ends.
int EndLate(char** arguments) {
  close(STDOUT_FILENO);
  close(STDERR_FILENO);
  usleep(20'000);
  return Number(arguments);
}

// TEXT STATUS: keeps its reader waiting for the text.
int TellLate(char** arguments) {
  usleep(20'000);
  return Tell(arguments);
}

struct Mode {
  const char* name;
  int (*run)(char** arguments);
};

constexpr Mode kModes[] = {{"tell", Tell},
                           {"tell-late", TellLate},
                           {"alternate", Alternate},
                           {"arguments", Arguments},
                           {"flood", Flood},
                           {"count-input", CountInput},
                           {"descriptors", Descriptors},
                           {"signals", Signals},
                           {"surroundings", Surroundings},
                           {"die", Die},
                           {"end-late", EndLate}};

}  // namespace

int main(int count, char** values) {
  for (const Mode& mode : kModes) {
    if (count > 1 && std::strcmp(values[1], mode.name) == 0) return mode.run(values + 2);
  }
  return kUsage;
}
