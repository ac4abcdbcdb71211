// The application bundle that the daemon belongs to.
#pragma once

#include <optional>

#include "platform/Host.h"

/// The kiosk application's bundle, read afresh, when the running daemon lies in its
/// Contents/Helpers directory; nothing otherwise. Any thread.
std::optional<platform::HostBundle> KioskAppBundle();
