// Doubles of the Mac's native interfaces, on which the adapters of platform/macos run where there
// is no Mac: what a test may say to them and ask of them. They keep to the documented behaviour,
// refuse what a Mac would crash on, and count what is retained. Any thread.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/Json.h"

namespace native {

/// A user of the local directory.
struct User {
  uid_t uid;
  std::string uuid;  ///< 8-4-4-4-12
  std::string password;
};

/// What the unified log was given.
struct LogEntry {
  std::string subsystem;
  std::string category;
  std::uint8_t level;
  std::string format;
  std::string text;
  bool isPublic;
};

/// The Mac that the doubles tell of. Set up by a test before it calls, and read after.
struct Mac {
  std::string timeZone = "UTC";
  std::optional<std::string> computerName;
  std::map<std::string, User> users;
  std::set<std::string> services;  ///< names that launchd has for this process
  std::string clientIdentity;      ///< what the command channel's peers are signed as
  std::vector<LogEntry> log;
  std::set<std::uint8_t> disabledLevels;
  bool hasFullFlush = true;  ///< whether its file system knows F_FULLFSYNC
  bool isRoot = true;        ///< whether this process may lock the network preferences
  Json networkPreferences;   ///< what is committed, as their file has it
};
Mac& TheMac();

/// Calls of native functions since the test began or forgot them, in order, each with its arguments
/// where a test looks at them: "dispatch_source_set_timer(1000, 5)".
std::vector<std::string> Calls();
void ForgetCalls();
/// How many of them were of this function.
int CallsOf(const std::string& function);

/// Lets the `number`th call of a function from now on fail, as it would: with nothing, an error
/// number or an error object that says `text`.
void Fail(const std::string& function, int number = 1, const std::string& text = "It failed.");
/// Failures that were asked for and have not come.
std::vector<std::string> FailuresLeft();

/// Objects that were created and not released, and constants retained more often than released, as
/// "1 x CFBoolean, 2 x CFString". Empty when every reference was given back.
std::string LiveObjects();

/// Gives up delayed work that is not due, as the end of a process does.
void ForgetDelayedWork();

}  // namespace native
