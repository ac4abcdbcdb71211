// The real programs as child processes.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "tests/support/Eventually.h"

/// How a child ended.
struct ChildResult {
  int status = -1;     ///< its exit status; -1 when a signal or the test's patience ended it
  std::string output;  ///< what it wrote to standard output
  std::string errors;  ///< what it wrote to standard error
  std::string echo;    ///< what the terminal that is its standard input showed
};

/// How to start a child.
struct ChildSetup {
  std::vector<std::string> arguments;              ///< the program's path first
  std::map<std::string, std::string> environment;  ///< added to the test's own
  std::string input;                               ///< standard input
  bool terminal = false;                           ///< standard output is a terminal
  unsigned short columns = 80;                     ///< of that width
  bool typing = false;  ///< standard input is a terminal; see Child::type()
};

/// A running child; killed at the end when it still runs.
class Child {
 public:
  explicit Child(const ChildSetup& setup);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Sends a signal.
  void signal(int number) const;

  /// What it wrote to standard error up to now.
  std::string errorsSoFar() const;

  /// Waits until it has written a text to standard error; false after a minute.
  bool says(const std::string& text) const;

  /// Types on the terminal that is its standard input.
  void type(const std::string& text) const;

  /// Whether that terminal shows what is typed.
  bool echoes() const;

  /// Waits for its end; a child that takes a minute is killed.
  ChildResult wait();

 private:
  void openInput(const ChildSetup& setup);
  void openOutput(const ChildSetup& setup);
  void spawn(const ChildSetup& setup);
  void readTerminals();

  pid_t _pid = -1;
  int _input = -1;
  int _output = -1;    // what the child writes to
  int _terminal = -1;  // the other side of it, when it is a terminal
  int _keyboard = -1;  // the other side of its input, when that is a terminal
  int _errors = -1;
  std::string _terminalText;
  std::string _echo;
};

/// Starts a child and waits for its end.
ChildResult RunChild(const ChildSetup& setup);

/// How to start kioskctl with these arguments against the channel at `channel`.
ChildSetup Kioskctl(const std::string& channel, const std::vector<std::string>& arguments);
