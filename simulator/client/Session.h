// One run of kioskctl: its options, its connection, and how replies and errors are shown.
#pragma once

#include <chrono>
#include <string>

#include "simulator/client/Connection.h"
#include "simulator/client/Reply.h"

namespace client {

/// The exit statuses of kioskctl.
enum class ExitStatus {
  kSuccess = 0,   ///< the daemon said yes
  kRefused = 1,   ///< the daemon said no
  kUsage = 2,     ///< the command line cannot be followed
  kNoAnswer = 3,  ///< the daemon cannot be reached or gave no usable answer
};

/// What came of a request.
struct Answer {
  ExitStatus status;
  Json reply;        ///< the reply when there is one (kSuccess, kRefused), else an empty object
  std::string text;  ///< the reply as it came, on one line; else a sentence on why there is none
};

/// The options that every verb has.
struct CommonOptions {
  bool json = false;
  std::chrono::milliseconds timeout = std::chrono::seconds(60);
};

/// Talks to the daemon on behalf of a verb. One thread.
class Session {
 public:
  explicit Session(const CommonOptions& options);

  /// Whether replies are printed as they are and nothing else is.
  bool json() const { return _options.json; }

  /// Sends a request's text, whatever it is, and prints nothing, not even with --json.
  Answer send(const std::string& request);

  /// Prints the reply with --json, if there is one; nothing else.
  void show(const Answer& answer) const;

  /// Sends a request's text, whatever it is, and shows the reply, so that the caller can say what
  /// has to be said where it has to be said.
  Answer exchange(const std::string& request);

  /// Sends a request like exchange() and explains what came of it.
  Answer ask(const Json& request);

  /// Prints a sentence about a failure to standard error: why there is no reply, or the error in
  /// it, unless --json has shown that already.
  void explain(const Answer& answer) const;

  /// Reports a successful reply without the member `key`, which a verb cannot do without.
  ExitStatus incomplete(const char* key) const;

  /// Prints a sentence to standard error under the program's name.
  void complain(const std::string& sentence) const;

 private:
  CommonOptions _options;
  Connection _connection;
};

/// A request's text; bytes that are not UTF-8 become U+FFFD. Any thread.
std::string RequestText(const Json& request);

}  // namespace client
