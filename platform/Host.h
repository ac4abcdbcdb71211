// The machine and the running program.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace platform {

/// The path by which this process was started, as it was given, links unresolved. Nothing when it
/// does not fit into `bufferSize` bytes (terminating zero included). Any thread.
/// Native: _NSGetExecutablePath.
std::optional<std::string> HostExecutablePath(std::size_t bufferSize);

/// The computer's name for people, or nothing when none is set. Any thread.
/// Native: SCDynamicStoreCopyComputerName.
std::optional<std::string> HostComputerName();

/// The operating system's version as shown to people, "Version 13.6 (Build 22G120)", on a Mac in
/// its language. Any thread.
/// Native: NSProcessInfo operatingSystemVersionString.
std::string HostOperatingSystemVersionString();

/// An application bundle.
struct HostBundle {
  std::optional<std::string> executablePath;  ///< the main executable, when the bundle has one
  std::optional<std::string> shortVersion;    ///< CFBundleShortVersionString, when it is a string
};

/// Reads the bundle at `path` afresh, or nothing when there is none. Any thread.
/// Native: CFBundleCreate, CFBundleCopyExecutableURL, CFBundleCopyInfoDictionaryForURL.
std::optional<HostBundle> HostBundleAt(const std::string& path);

}  // namespace platform
