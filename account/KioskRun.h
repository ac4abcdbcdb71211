// Running the system's tools.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// The tool that talks to launchd.
inline constexpr char kKioskLaunchctl[] = "/bin/launchctl";

/// Runs the tool at the absolute `path` with `arguments` (the program's name left out), standard
/// input on the null device, and waits, without a time limit, until it has ended and nobody, not a
/// child of its own either, has its output open any more. Returns its exit status,
/// the number of the signal that ended it, or -1 after one log line when it could not be started.
/// `output`, if given, receives standard output and error together without white space at either
/// end (empty when they are not UTF-8; kKioskMaximumOutputBytes of them at most); it is left as it
/// was when the tool did not start. The child inherits environment and working directory, no
/// descriptor but 0, 1 and 2, and no blocked or ignored signal of the daemon's. Any thread.
std::int32_t KioskRun(const std::string& path, const std::vector<std::string>& arguments,
                      std::string* output = nullptr);

/// Runs a tool as above and hands each piece of its output to `onChunk` as it arrives, on the
/// calling thread; what one piece holds is up to chance. Any thread.
std::int32_t KioskRunFollowing(const std::string& path, const std::vector<std::string>& arguments,
                               std::string* output,
                               const std::function<void(std::string_view chunk)>& onChunk);

/// Runs a tool as above and logs a status other than 0 together with the tool's output. True when
/// the status is 0. Any thread.
bool KioskRunChecked(const std::string& path, const std::vector<std::string>& arguments);
