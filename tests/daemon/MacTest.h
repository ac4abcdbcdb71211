// The world of tests that need a Mac but no daemon: the test's process has entered a simulated Mac.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/MacFolder.h"

/// Where the probe lies in the Mac.
inline constexpr char kProbe[] = "/usr/local/probe";

class MacTest : public testing::Test {
 protected:
  MacTest();

  /// Copies the probe program to `path` of the Mac.
  void installProbe(const std::string& path = kProbe);

  MacFolder mac;

 private:
  std::string _probe;  // the program's bytes, taken before the Mac was entered
};

/// The descriptors that the test's process has open.
std::size_t OpenDescriptorCount();

/// Replaces the directory at `path` by a link to the place it was moved to, which is returned.
std::string ReplaceByLink(const MacFolder& mac, const std::string& path);

/// Gives the Mac the application bundle's executables, empty ones, where it has none.
void InstallBundle(const MacFolder& mac);

/// Runs a tool of the Mac as its administrator would.
void RunMacTool(const std::vector<std::string>& command);
