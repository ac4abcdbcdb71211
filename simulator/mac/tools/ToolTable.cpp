#include "simulator/mac/tools/Tool.h"

namespace simmac {

const std::vector<Tool>& Tools() {
  static const std::vector<Tool> tools = {
      {"/usr/bin/fdesetup", FdeSetup, true},
      {"/usr/sbin/sysadminctl", SysAdminCtl, true},
      {"/usr/sbin/dseditgroup", DsEditGroup, true},
      {"/usr/sbin/createhomedir", CreateHomeDir, true},
      {"/usr/bin/defaults", Defaults, true},
      {"/bin/launchctl", LaunchCtl, true},
      {"/usr/bin/pkill", PKill, true},
      {"/usr/bin/pmset", PmSet, true},
      {"/usr/bin/sntp", Sntp, true},
      {"/usr/sbin/softwareupdate", SoftwareUpdateTool, true},
      {"/usr/sbin/systemsetup", SystemSetup, true},
      {"/sbin/shutdown", Shutdown, true},
      {"/System/Library/CoreServices/loginwindow.app/Contents/MacOS/loginwindow", LoginWindow,
       false},
  };
  return tools;
}

const Tool* FindTool(std::string_view name) {
  for (const Tool& tool : Tools()) {
    if (LastPathComponent(tool.path) == name) return &tool;
  }
  return nullptr;
}

std::string_view LastPathComponent(std::string_view path) {
  // Without a slash find_last_of gives npos, and npos + 1 is the whole text's beginning.
  return path.substr(path.find_last_of('/') + 1);
}

}  // namespace simmac
