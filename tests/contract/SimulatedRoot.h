// A small simulated Mac around a test: its process has it as its root while the test runs.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

namespace contract {

/// Polls until `condition` holds; false when it does not within a generous time.
bool Eventually(const std::function<bool()>& condition);

/// Writes a file, making its folders.
void WriteFile(const std::string& path, const std::string& contents);
std::string ReadFile(const std::string& path);

/// Base of the suites that need the Mac's files. Every path in a test is a path of the Mac.
class SimulatedRoot : public testing::Test {
 protected:
  SimulatedRoot();
  ~SimulatedRoot() override;

  /// Sets the faults of the services.
  static void setFaults(const std::string& json);

 private:
  int _realRoot = -1;
  std::string _directory;
};

}  // namespace contract
