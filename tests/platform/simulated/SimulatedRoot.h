// A small simulated Mac around a test: its process has it as its root while the test runs.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/platform/World.h"

namespace contract {

/// Makes a Mac's folder, has it as the process's root, and removes it at the end.
class Root {
 public:
  Root();
  ~Root();
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;

 private:
  int _realRoot = -1;
  std::string _directory;
};

/// A service that launchd hands to this process, the peers of which are this process too.
class Service {
 public:
  Service();
  ~Service();
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  /// The signature of the program that the peers run.
  static void sign(const std::string& identifier);

  static constexpr char kSocket[] = "/private/var/run.socket";
  static constexpr char kSignature[] = "/client.signature";
  int socket() const { return _socket; }
  int proc() const { return _proc; }

 private:
  int _socket;
  int _proc;
};

/// Base of the suites that look at the Mac's files. Every path in a test is a path of the Mac.
class SimulatedRoot : public testing::Test {
 protected:
  /// Sets the faults of the services.
  static void setFaults(const std::string& json);

 private:
  Root _root;
};

}  // namespace contract
