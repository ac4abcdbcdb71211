// The command channel's listener.
#pragma once

#include <memory>

#include "core/KioskDaemon.h"
#include "platform/Channel.h"

/// Opens the command channel and serves `daemon` on it for as long as the result lives. Peers that
/// do not satisfy the code-signing requirement are never heard. When the service is not registered
/// for this process, the process ends with status 1.
platform::ChannelListener KioskListen(const std::shared_ptr<KioskDaemon>& daemon);
