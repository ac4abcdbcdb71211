// The kiosk account's home.
#pragma once

#include <sys/types.h>

/// Prepares the home of the kiosk account so that no first-login assistant appears. No link in the
/// home is followed: its owner cannot make the daemon write elsewhere. False on failure, logged
/// unless the user database knows no home. Any thread.
[[nodiscard]] bool KioskPrepareHome(uid_t uid, gid_t gid);
