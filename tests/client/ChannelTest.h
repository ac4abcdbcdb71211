// A test with a scripted daemon and kioskctl as its client.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/client/Child.h"
#include "tests/client/ScriptedDaemon.h"
#include "tests/support/TemporaryFolder.h"

class ChannelTest : public testing::Test {
 protected:
  /// Starts the daemon, in the place of one that was started before: one of them can be reached all
  /// the while, as launchd's socket can.
  void script(std::vector<ScriptStep> steps) {
    const std::string fresh = channel() + ".new";
    auto daemon = std::make_unique<ScriptedDaemon>(fresh, std::move(steps));
    ASSERT_EQ(rename(fresh.c_str(), channel().c_str()), 0);
    _daemon = std::move(daemon);
  }
  std::string channel() const { return _folder.path("socket"); }
  std::vector<std::string> requests() const { return _daemon->requests(); }
  int connections() const { return _daemon->connections(); }

  /// How to start kioskctl against the daemon, with a folder of the test's own for its unlock, and
  /// Greenwich's time.
  ChildSetup setup(const std::vector<std::string>& arguments) const {
    ChildSetup setup = Kioskctl(channel(), arguments);
    setup.environment["XDG_RUNTIME_DIR"] = _folder.path(".");
    setup.environment["TZ"] = "UTC0";
    return setup;
  }

  /// Runs kioskctl against the daemon.
  ChildResult run(const std::vector<std::string>& arguments, const std::string& input = "") const {
    ChildSetup started = setup(arguments);
    started.input = input;
    return RunChild(started);
  }

  /// Where kioskctl keeps its unlock.
  std::string unlockFile() const {
    return _folder.path("kioskctl-" + std::to_string(geteuid()) + "-" + std::to_string(getsid(0)));
  }

  /// Leaves an unlock as if kioskctl had kept it.
  void keepUnlock(const std::string& content = R"({"endsAt":1e15,"unlockToken":"secret"})") const {
    std::ofstream(unlockFile()) << content;
    ASSERT_EQ(chmod(unlockFile().c_str(), 0600), 0);
  }

 private:
  TemporaryFolder _folder;
  std::unique_ptr<ScriptedDaemon> _daemon;
};
