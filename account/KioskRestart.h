// Restarting the Mac.
#pragma once

/// Restarts the Mac at once; returns when the restart is under way or was refused, which is logged.
/// Any thread.
void KioskRestart();
