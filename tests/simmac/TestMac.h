// A simulated Mac for one test, made by the real simmac and removed afterwards.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/Json.h"
#include "platform/simulated/MacFiles.h"
#include "tests/support/Eventually.h"

namespace simmac {

/// How a program ended and what it printed.
struct RunResult {
  int status = -1;  ///< as a shell has it
  std::string out;
  std::string err;
};

using Words = std::vector<std::string>;

/// Runs a program of the host to its end.
RunResult RunProgram(const Words& arguments);

/// A text without the time, tool, process and thread that begin its lines.
std::string WithoutLogPrefixes(const std::string& text);

/// A launchd property list as JSON.
Json JobList(const std::string& label, const Words& arguments, const Json& keepAlive = false);

class TestMac {
 public:
  explicit TestMac(const Words& createOptions = {"--tools-only"});
  ~TestMac();
  TestMac(const TestMac&) = delete;
  TestMac& operator=(const TestMac&) = delete;

  const std::string& root() const { return _root; }
  platform::MacTree tree() const { return platform::MacTree(_root); }
  std::string path(const std::string& inside) const { return _root + inside; }
  std::string read(const std::string& inside) const;
  void write(const std::string& inside, const std::string& contents) const;

  /// `simmac COMMAND MAC ARGUMENTS`.
  RunResult simmac(const std::string& command, const Words& arguments = {}) const;
  /// Runs a program of the Mac.
  RunResult run(const Words& command, const std::string& user = "root") const;

  std::vector<Json> journal() const;

  /// Puts the test job into the Mac, as addDaemon and addAgent do: /usr/bin/test-job.
  void installJob() const;
  /// Changes keys of a job's property list.
  void changeList(const std::string& path, const Json& keys) const;

  /// Makes the test job a daemon or an agent. It reports to `report(label)`.
  void addDaemon(const std::string& label, const Words& verb, const Json& keepAlive = false) const;
  void addAgent(const std::string& label, const Words& verb, const Json& keepAlive = false) const;
  /// The lines that the job's processes wrote so far.
  Words report(const std::string& label) const;
  /// A field of such a line: `Field(line, "pid")`.
  static std::string field(const std::string& line, const std::string& name);
  /// The process ids of all the job's processes so far.
  std::vector<pid_t> processes(const std::string& label) const;

  /// Boots it in the background and waits for the login window's decision; the process id of
  /// `simmac boot`.
  pid_t boot(const Words& options = {});
  /// The same, waiting for nothing but that it runs.
  pid_t bootWithoutLogin(const Words& options);
  /// Waits until `simmac boot` has ended; its exit status.
  int bootStatus();
  /// What `simmac boot` printed so far.
  std::string timeline() const;
  bool timelineHas(const std::string& text) const;  ///< sooner or later
  Json status() const;                              ///< simmac status --json
  bool hasSession(uid_t uid) const;                 ///< at present

 private:
  void startBoot(const Words& options);
  void addJob(const std::string& folder, const std::string& label, const Words& verb,
              const Json& keepAlive) const;

  std::string _root;
  pid_t _boot = -1;
};

/// Whether a process is there and not merely waiting to be collected.
bool IsAlive(pid_t pid);

/// Tests that need to change root directory and owners.
class SimulatedMacTest : public testing::Test {
 protected:
  void SetUp() override;
};

}  // namespace simmac
