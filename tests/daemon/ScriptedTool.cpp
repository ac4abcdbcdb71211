// Takes the place of a system tool whose every step a test wants to decide. Its first argument
// names the script below /usr/local/script that it follows, a step a line:
//
//   say TEXT       writes it to standard output and waits until it was read
//   complain TEXT  the same on standard error
//   await NAME     waits until the pipe NAME beside the script was opened for writing and closed
//   remove PATH    removes a file
//   die SIGNAL     ends by it
//   exit STATUS    ends with it
//
// "\xHH" in a text is that byte. Every run leaves a line in /usr/local/script/runs: its arguments
// in brackets, and how many bytes standard input had.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

constexpr char kFolder[] = "/usr/local/script/";
constexpr int kBroken = 70;
constexpr unsigned kLongestRunSeconds = 120;  // nothing stays behind a test that failed
constexpr int kHexadecimal = 16;

std::string Unescaped(const std::string& text) {
  std::string bytes;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text.compare(at, 2, "\\x") == 0) {
      bytes += static_cast<char>(std::stoi(text.substr(at + 2, 2), nullptr, kHexadecimal));
      at += 3;
    } else {
      bytes += text[at];
    }
  }
  return bytes;
}

// What was read as one piece stays one: the next is written when nothing is left in the pipe.
void Say(int stream, const std::string& text) {
  const std::string bytes = Unescaped(text);
  if (write(stream, bytes.data(), bytes.size()) < 0) std::exit(kBroken);
  for (int left = 1; left > 0; usleep(200)) {
    if (ioctl(stream, FIONREAD, &left) != 0) std::exit(kBroken);
  }
}

void Await(const std::string& name) {
  const int gate = open((kFolder + name).c_str(), O_RDONLY | O_CLOEXEC);
  char byte = 0;
  if (gate < 0 || read(gate, &byte, 1) < 0) std::exit(kBroken);
  close(gate);
}

void Follow(const std::string& step, const std::string& what) {
  if (step == "say") Say(STDOUT_FILENO, what);
  if (step == "complain") Say(STDERR_FILENO, what);
  if (step == "await") Await(what);
  if (step == "remove") unlink(what.c_str());
  if (step == "die") std::raise(std::stoi(what));
  if (step == "exit") std::exit(std::stoi(what));
}

long CountInput() {
  char buffer[256];
  long total = 0;
  for (ssize_t count = 1; count > 0; total += count) {
    count = read(STDIN_FILENO, buffer, sizeof buffer);
    if (count < 0) return -1;
  }
  return total;
}

void LeaveRecord(char** arguments) {
  std::string line;
  for (; *arguments != nullptr; ++arguments) line += "[" + std::string(*arguments) + "] ";
  std::ofstream(kFolder + std::string("runs"), std::ios::app)
      << line + std::to_string(CountInput()) + " bytes\n";
}

}  // namespace

int main(int count, char** values) {
  alarm(kLongestRunSeconds);
  if (count < 2) return kBroken;
  LeaveRecord(values + 1);
  std::ifstream script(kFolder + std::string(values[1]));
  for (std::string line; std::getline(script, line);) {
    const std::size_t end = line.find(' ');
    Follow(line.substr(0, end), end == std::string::npos ? "" : line.substr(end + 1));
  }
  return 0;
}
