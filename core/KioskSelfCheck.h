// The daemon's check of the path that it was started from.
#pragma once

#include <string>

/// Whether only root can change the executable at the absolute `path`: every entry from "/" down to
/// the file itself must be no link, owned by root, and writable by nobody but root, the wheel group
/// or the administrators group. Logs the reason otherwise. Any thread.
[[nodiscard]] bool KioskPathIsSafe(const std::string& path);
