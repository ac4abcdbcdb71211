// Private members for the benchmarks: naming one is allowed where a template is instantiated.
#pragma once

#include "core/KioskDaemon.h"

template <void (KioskDaemon::*Member)()>
struct RevealSave {
  friend void Save(KioskDaemon& daemon) { (daemon.*Member)(); }
};
void Save(KioskDaemon& daemon);
template struct RevealSave<&KioskDaemon::save>;
