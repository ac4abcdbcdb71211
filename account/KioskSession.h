// The kiosk user's graphical session. Any thread; every call blocks while tools run.
#pragma once

#include <sys/types.h>

/// Whether the user has a GUI domain.
bool KioskSessionActive(uid_t uid);

/// Ends the user's graphical session, by force when asking does not help within 15 seconds. Returns
/// when it has ended or after another 10 seconds. Nothing happens when there is none.
void KioskLogOut(uid_t uid);

/// Waits until the user's GUI domain is gone: asks `polls` times, 100 ms apart, and once more at
/// the end. True once it is gone.
bool KioskWaitForLogout(uid_t uid, int polls);
