// launchd property lists.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/Json.h"
#include "platform/simulated/MacFiles.h"

namespace simmac {

/// When an ended job is started again.
enum class KeepAlive { kNever, kAfterFailure, kAfterSuccess, kAlways };

/// What a property list says of a job.
struct LaunchJob {
  std::string label;
  std::vector<std::string> arguments;
  std::vector<std::string> machServices;
  bool runAtLoad = false;
  KeepAlive keepAlive = KeepAlive::kNever;
  std::optional<std::chrono::seconds> throttle;
  std::optional<std::chrono::seconds> exitTimeOut;
  std::string standardOutPath;
  std::string standardErrorPath;
  bool abandonsProcessGroup = false;      ///< what it leaves behind in its group lives on
  std::vector<std::string> sessionTypes;  ///< LimitLoadToSessionType; empty: no limit
};

/// A property list as a job. Nothing when it has no label or no program.
std::optional<LaunchJob> ParseLaunchJob(const Json& propertyList);

/// The jobs of a folder of the Mac in order of their files' names. As launchd does it leaves out
/// files that are not root's or that others may write.
std::vector<LaunchJob> LoadLaunchJobs(const platform::MacTree& mac, const std::string& folder);

}  // namespace simmac
