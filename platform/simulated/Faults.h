// Faults on demand: what the next matching call of a tool or service of the simulated Mac shall do.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace platform {

/// One call's fault. Keys that the fault does not name are absent.
struct Fault {
  std::optional<int> status;               ///< exit status of a tool, error number of a service
  std::optional<std::string> output;       ///< what a tool writes to standard output
  std::optional<std::string> errorOutput;  ///< to standard error; a service's failure description
  std::optional<int> signal;               ///< the signal that a tool dies by
  bool effect = false;                     ///< whether the tool does its real work as well

  /// The error number that a service fails with: `status`, else 1. 0 means the service works.
  int serviceError() const { return status.value_or(1); }

  /// The description of a service's failure: `errorOutput`, else a general sentence.
  std::string serviceErrorText() const;
};

/// Takes the first fault in /private/var/simulated/faults.json for `target` whose arguments are the
/// first of `arguments` and that has uses left, and counts the use. The fault's delay has passed
/// when this returns, so the caller has nothing to wait for. Nothing when there is none. Any thread
/// of any process of the Mac.
std::optional<Fault> TakeFault(const std::string& target,
                               const std::vector<std::string>& arguments = {});

/// The fault of a service that shall fail, or nothing: a fault of status 0 is only its delay.
std::optional<Fault> TakeServiceFault(const std::string& service,
                                      const std::vector<std::string>& arguments = {});

}  // namespace platform
