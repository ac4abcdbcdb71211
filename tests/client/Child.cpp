#include "tests/client/Child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <string_view>

namespace {

constexpr std::chrono::seconds kPatience{60};
constexpr int kPollMilliseconds = 2;

int MemoryFile(const std::string& content) {
  const int descriptor = memfd_create("child", MFD_CLOEXEC);
  EXPECT_EQ(write(descriptor, content.data(), content.size()),
            static_cast<ssize_t>(content.size()));
  EXPECT_EQ(lseek(descriptor, 0, SEEK_SET), 0);
  return descriptor;
}

std::string ContentOf(int descriptor) {
  struct stat about {};
  EXPECT_EQ(fstat(descriptor, &about), 0);
  std::string content(static_cast<std::size_t>(about.st_size), '\0');
  EXPECT_EQ(pread(descriptor, content.data(), content.size(), 0),
            static_cast<ssize_t>(content.size()));
  return content;
}

std::vector<std::string> EnvironmentWith(const std::map<std::string, std::string>& changes) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text(*entry);
    if (!changes.contains(text.substr(0, text.find('=')))) result.push_back(text);
  }
  for (const auto& [name, value] : changes) result.push_back(name + "=" + value);
  return result;
}

std::vector<char*> Pointers(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (std::string& text : strings) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// Makes a terminal and returns the side that a program sees; `other` is the screen and keyboard.
int OpenTerminal(int& other) {
  other = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_EQ(grantpt(other), 0);
  EXPECT_EQ(unlockpt(other), 0);
  char name[64];
  EXPECT_EQ(ptsname_r(other, name, sizeof name), 0);
  return open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
}

/// Takes what there is; a terminal without a writer reads as an error.
void ReadTerminal(int terminal, std::string& text) {
  pollfd entry{terminal, POLLIN, 0};
  while (terminal >= 0 && poll(&entry, 1, 0) > 0) {
    char buffer[4096];
    const ssize_t got = read(terminal, buffer, sizeof buffer);
    if (got <= 0) return;
    text.append(buffer, static_cast<std::size_t>(got));
  }
}

}  // namespace

Child::Child(const ChildSetup& setup) : _errors(MemoryFile("")) {
  openInput(setup);
  openOutput(setup);
  spawn(setup);
  if (setup.terminal) {  // so that the terminal ends with the child
    close(_output);
    _output = -1;
  }
}

Child::~Child() {
  if (_pid > 0) {
    signal(SIGKILL);
    (void)waitpid(_pid, nullptr, 0);
  }
  for (const int descriptor : {_input, _keyboard, _output, _terminal, _errors}) {
    if (descriptor >= 0) close(descriptor);
  }
}

// Stays open with us, so that a terminal shows how the child left it.
void Child::openInput(const ChildSetup& setup) {
  _input = setup.typing ? OpenTerminal(_keyboard) : MemoryFile(setup.input);
}

void Child::openOutput(const ChildSetup& setup) {
  if (!setup.terminal) {
    _output = MemoryFile("");
    return;
  }
  _output = OpenTerminal(_terminal);
  const winsize size{24, setup.columns, 0, 0};
  ASSERT_EQ(ioctl(_output, TIOCSWINSZ, &size), 0);
}

void Child::spawn(const ChildSetup& setup) {
  std::vector<std::string> arguments = setup.arguments;
  std::vector<std::string> environment = EnvironmentWith(setup.environment);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, _input, 0);
  posix_spawn_file_actions_adddup2(&actions, _output, 1);
  posix_spawn_file_actions_adddup2(&actions, _errors, 2);
  EXPECT_EQ(posix_spawn(&_pid, arguments[0].c_str(), &actions, nullptr, Pointers(arguments).data(),
                        Pointers(environment).data()),
            0);
  posix_spawn_file_actions_destroy(&actions);
}

void Child::signal(int number) const {
  ASSERT_GT(_pid, 1);  // another number would name a whole group of processes
  EXPECT_EQ(kill(_pid, number), 0);
}

std::string Child::errorsSoFar() const { return ContentOf(_errors); }

bool Child::says(const std::string& text) const {
  return Eventually([&] { return errorsSoFar().find(text) != std::string::npos; });
}

void Child::type(const std::string& text) const {
  EXPECT_EQ(write(_keyboard, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

bool Child::echoes() const {
  termios modes{};
  EXPECT_EQ(tcgetattr(_keyboard, &modes), 0);
  return (modes.c_lflag & ECHO) != 0;
}

void Child::readTerminals() {
  ReadTerminal(_terminal, _terminalText);
  ReadTerminal(_keyboard, _echo);
}

ChildResult Child::wait() {
  const auto giveUp = std::chrono::steady_clock::now() + kPatience;
  int status = 0;
  while (waitpid(_pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > giveUp) signal(SIGKILL);
    readTerminals();
    (void)poll(nullptr, 0, kPollMilliseconds);
  }
  _pid = -1;
  readTerminals();
  ChildResult result;
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.output = _terminal >= 0 ? _terminalText : ContentOf(_output);
  result.errors = ContentOf(_errors);
  result.echo = _echo;
  return result;
}

ChildResult RunChild(const ChildSetup& setup) { return Child(setup).wait(); }

ChildSetup Kioskctl(const std::string& channel, const std::vector<std::string>& arguments) {
  ChildSetup setup;
  setup.arguments = {KIOSKCTL_PATH};
  setup.arguments.insert(setup.arguments.end(), arguments.begin(), arguments.end());
  setup.environment = {{"KIOSK_CHANNEL", channel}};
  return setup;
}
