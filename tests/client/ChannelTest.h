// A test with a scripted daemon and kioskctl as its client.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/client/Child.h"
#include "tests/client/ScriptedDaemon.h"
#include "tests/support/TemporaryFolder.h"

class ChannelTest : public testing::Test {
 protected:
  void script(std::vector<ScriptStep> steps) { _daemon.emplace(channel(), std::move(steps)); }
  std::string channel() const { return _folder.path("socket"); }
  std::vector<std::string> requests() const { return _daemon->requests(); }
  int connections() const { return _daemon->connections(); }

  /// Runs kioskctl against the daemon.
  ChildResult run(const std::vector<std::string>& arguments, const std::string& input = "") const {
    return Kioskctl(channel(), arguments, input);
  }

 private:
  TemporaryFolder _folder;
  std::optional<ScriptedDaemon> _daemon;
};
