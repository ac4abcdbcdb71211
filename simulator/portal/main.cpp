#include <csignal>

#include "simulator/portal/CommandLine.h"

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  return portal::RunCommandLine(argc, argv);
}
