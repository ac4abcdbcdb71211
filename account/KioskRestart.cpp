#include "account/KioskRestart.h"

#include <string>

#include "account/KioskRun.h"
#include "core/KioskLog.h"

void KioskRestart() {
  std::string output;
  if (KioskRun("/sbin/shutdown", {"-r", "now"}, &output) != 0) {
    KioskLogError("shutdown -r refused: %@", output);
  }
}
