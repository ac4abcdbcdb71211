#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "simulator/mac/Accounts.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

using platform::MacTree;
using platform::MacUser;

/// The host as the tool names it: the local host name of the network preferences.
std::string HostName(const MacTree& mac) {
  const Json list = mac.readPropertyList(platform::kMacNetworkPreferences).value_or(Json::object());
  const Json::json_pointer key("/System/Network/HostNames/LocalHostName");
  const bool known = list.contains(key) && list[key].is_string();
  return (known ? list[key].get<std::string>() : "localhost") + ".local";
}

std::optional<std::string> RequestedUser(const std::vector<std::string>& arguments) {
  bool create = false;
  std::optional<std::string> user;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == "-c" || arguments[i] == "-l") create = true;
    if (arguments[i] == "-u" && i + 1 < arguments.size()) user = arguments[++i];
  }
  return create ? user : std::nullopt;
}

}  // namespace

int CreateHomeDir(const ToolCall& call) {
  constexpr int kUsage = 64;
  const std::optional<std::string> name = RequestedUser(call.arguments);
  if (!name) {
    call.output.err("usage: createhomedir [-scbalh] [-n directoryDomainName] [-u username]\n");
    return kUsage;
  }
  if (geteuid() != 0) {
    call.output.err("createhomedir: must be run as root\n");
    return 1;
  }
  const MacTree mac;
  call.output.out("creating home directories for (" + HostName(mac) + ")\n");
  const std::optional<MacUser> user = mac.userNamed(*name);
  // The tool is silent about a home that is there already and about a name nobody has.
  if (user && CreateHome(mac, *user)) call.output.out("created (" + *name + ")\n");
  return 0;
}

}  // namespace simmac
