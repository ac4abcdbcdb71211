// The world of tests in which the operating system fails the daemon in the middle of an operation,
// or the daemon is killed there.
#pragma once

#include <string>
#include <vector>

#include "tests/faults/Operations.h"
#include "tests/faults/WatchedProcess.h"

/// Opened before the Mac is entered, so that it is the first of the bases.
struct WithProcessTable {
  ProcessTable processes;
};

class FaultsTest : private WithProcessTable, public OperationsTest {
 protected:
  /// Does the operation once undisturbed, and then again for every call that it makes and every
  /// way in which that call may fail; after each: nothing is broken or left over, and it works the
  /// next time.
  void failEveryCall(const Operation& operation);

  /// Kills the process at every call of the operation that changes something, and when it is done,
  /// or at every call that may fail where KIOSKD_KILLS is set; after each:
  /// what has a final name is whole, and a daemon that starts then makes a kiosk.
  void killAtEveryCall(const Operation& operation);

 private:
  /// The calls of an undisturbed operation.
  std::vector<SystemCall> callsOf(const Operation& operation);
  void failOnce(const Operation& operation, const SystemCall& call, const Failure& failure);
  void killOnce(const Operation& operation, const SystemCall& call);
  void expectOnlyLeftoversOf(pid_t process, const Operation& operation) const;
  void expectNothingElseOpen(pid_t process, int brokenConnections) const;
  void expectNoLeftovers(const Operation& operation) const;
  void expectSaid(const Operation& operation, const SystemCall& call, const Failure& failure,
                  bool worked) const;
  void recover();
  void expectKiosk();

  std::vector<std::string> _openAfterSuccess;
  std::size_t _done = 0;
};
