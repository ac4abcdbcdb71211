// kioskd: the privileged daemon that makes a Mac a kiosk terminal.
#include <csignal>
#include <cstdio>
#include <string_view>

#include "core/KioskVersion.h"
#include "core/RunKioskDaemon.h"

int main(int argc, char** argv) {
  if (argc > 1 && std::string_view(argv[1]) == "--version") {
    std::printf("%s\n", kKioskVersion);
    return 0;
  }
  // A peer or portal that goes away while it is written to must not end the daemon.
  std::signal(SIGPIPE, SIG_IGN);
  return RunKioskDaemon();
}
