// The system tools of a simulated Mac: one executable, one function and one table row a tool.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace simmac {

/// Where a tool's output goes: to the real streams at once, and into the transcript.
class ToolOutput {
 public:
  void out(std::string_view text);  ///< to standard output
  void err(std::string_view text);  ///< to standard error

  /// Drops whatever is written from now on.
  void mute() { _muted = true; }

  /// Everything that was really printed, both streams in the order of writing.
  const std::string& transcript() const { return _transcript; }

 private:
  void write(int stream, std::string_view text);

  bool _muted = false;
  std::string _transcript;
};

/// One call of a tool.
struct ToolCall {
  std::string name;                    ///< the tool's own name, as its messages begin
  std::vector<std::string> arguments;  ///< without the program's name
  ToolOutput& output;
  /// What is left to do once the call's line is in the journal; nothing when it is empty.
  std::function<void()>& afterwards;
};

/// Does a tool's work. Returns its exit status.
using ToolFunction = int (*)(const ToolCall& call);

/// A tool of the Mac.
struct Tool {
  const char* path;  ///< where it is in the Mac; its last part is its name
  ToolFunction run;
  bool journaled;  ///< false for a program that only lives in the same executable
};

/// All of them. A new tool is a function and a row here.
const std::vector<Tool>& Tools();

/// The tool of this name, or null.
const Tool* FindTool(std::string_view name);

/// Runs a tool as its executable does: the fault that awaits the call if there is one, its work,
/// and its line in the journal. The exit status; does not return when a fault's signal ends it.
int RunTool(const Tool& tool, const std::vector<std::string>& arguments);

/// The last part of a path.
std::string_view LastPathComponent(std::string_view path);

/// What stands before a message of the system's logging function on standard error: the local time,
/// the tool's name, its process and thread, "2026-05-13 12:01:05.842 defaults[411:8842] ".
std::string LogPrefix(const std::string& toolName);

// The tools. Statuses, streams and texts are the real tools'.
int FdeSetup(const ToolCall& call);
int SysAdminCtl(const ToolCall& call);
int DsEditGroup(const ToolCall& call);
int CreateHomeDir(const ToolCall& call);
int Defaults(const ToolCall& call);
int LaunchCtl(const ToolCall& call);
int PKill(const ToolCall& call);
int PmSet(const ToolCall& call);
int Shutdown(const ToolCall& call);
int Sntp(const ToolCall& call);
int SoftwareUpdateTool(const ToolCall& call);
int SystemSetup(const ToolCall& call);
int LoginWindow(const ToolCall& call);

}  // namespace simmac
