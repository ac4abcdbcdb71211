// The executable behind every system tool: the name it is started by says which one it is.

#include <cstdio>

#include "simulator/mac/tools/Tool.h"

int main(int count, char** values) {
  constexpr int kUsage = 64;
  const std::string name(simmac::LastPathComponent(count > 0 ? values[0] : ""));
  const simmac::Tool* tool = simmac::FindTool(name);
  if (!tool) {
    (void)std::fprintf(stderr, "%s: this program has to be started by the name of a Mac's tool\n",
                       name.c_str());
    return kUsage;
  }
  return simmac::RunTool(*tool, {values + 1, values + count});
}
