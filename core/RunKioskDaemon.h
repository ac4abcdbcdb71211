// The daemon's start.
#pragma once

/// Checks that the process may be the daemon, starts it and serves it for ever. Returns only when
/// it refuses to run, with the exit status 1 and the reason in the log. Main thread.
int RunKioskDaemon();
