// Child processes of a test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/Eventually.h"

/// How a finished program ended.
struct Finished {
  int status = -1;     ///< exit status, or 128 and the signal
  std::string output;  ///< standard output and standard error together
};

/// Runs a program (its path first) to its end.
Finished RunToEnd(const std::vector<std::string>& command);

/// A program that runs beside the test and is ended with it.
class Child {
 public:
  /// Starts `command`; standard output and error go to the file `outputPath`.
  Child(const std::vector<std::string>& command, const std::string& outputPath);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t pid() const { return _pid; }
  /// What it has written so far.
  std::string output() const;
  /// Sends a signal, if it still runs.
  void signal(int number) const;
  /// Waits for its end: exit status, or 128 and the signal.
  int wait();

 private:
  pid_t _pid = -1;
  std::string _outputPath;
};
