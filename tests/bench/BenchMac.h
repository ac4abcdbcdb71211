// The world of a benchmark: a portal and a booted Mac with an enrolled terminal.
#pragma once

#include <string>

#include "tests/support/Child.h"
#include "tests/system/EnrolledTest.h"

class BenchMac : public EnrolledTest {
 public:
  using EnrolledTest::ask;
  using EnrolledTest::daemonPid;
  using EnrolledTest::halt;
  using EnrolledTest::killDaemon;
  using EnrolledTest::restartMac;
  using SystemTest::mac;
  using SystemTest::portal;

  /// The command channel's socket.
  std::string socket() const { return mac.at(kSocket); }

 private:
  void TestBody() override {}
};
