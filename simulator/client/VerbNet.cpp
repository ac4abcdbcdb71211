#include <memory>
#include <optional>
#include <string>

#include "simulator/client/Unlocked.h"
#include "simulator/client/VerbOptions.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

struct NetOptions {
  std::string adapter;
  std::string address;
  long long prefix = 0;
  std::optional<std::string> gateway;
  std::optional<std::string> dns;
};

Json Request(const NetOptions& options, const char* mode) {
  Json request = {{"cmd", "net.set"}, {"adapter", options.adapter}, {"mode", mode}};
  if (options.dns) request["dns"] = SplitList(*options.dns);
  return request;
}

void AddSharedOptions(CLI::App& command, NetOptions& options) {
  command.add_option("ADAPTER", options.adapter, "The adapter's name, as in en0")->required();
  command
      .add_option("--dns", options.dns, "The name servers' addresses (without: none of its own)")
      ->type_name("A,B");
}

/// Takes "192.168.1.10/24" apart.
void SplitAddress(const std::string& text, NetOptions& options) {
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) throw CLI::ValidationError("IP/PREFIX", "no slash in it");
  options.address = text.substr(0, slash);
  options.prefix = WholeNumber(text.substr(slash + 1), "PREFIX");
}

VerbAction Dhcp(CLI::App& command) {
  const auto options = std::make_shared<NetOptions>();
  AddSharedOptions(command, *options);
  return [options](Session& session) {
    return ChangeUnlocked(session, Request(*options, "dhcp"),
                          "The adapter " + options->adapter + " uses DHCP.");
  };
}

ExitStatus SetStatic(Session& session, const NetOptions& options) {
  Json request = Request(options, "static");
  request["ip"] = options.address;
  request["prefix"] = options.prefix;
  if (options.gateway) request["gateway"] = *options.gateway;
  return ChangeUnlocked(session, request,
                        "The adapter " + options.adapter + " has the address " + options.address +
                            "/" + std::to_string(options.prefix) + ".");
}

VerbAction Static(CLI::App& command) {
  const auto options = std::make_shared<NetOptions>();
  AddSharedOptions(command, *options);
  const auto split = [options](const std::string& text) { SplitAddress(text, *options); };
  command
      .add_option_function<std::string>("IP/PREFIX", split,
                                        "The address and its subnet, as in 192.168.1.10/24")
      ->required();
  command.add_option("--gateway", options->gateway, "The gateway's address (without: none)")
      ->type_name("G");
  return [options](Session& session) { return SetStatic(session, *options); };
}

constexpr Verb kNetParts[] = {
    {"dhcp", "Take an adapter's address from DHCP", Dhcp},
    {"static", "Give an adapter an address of its own", Static},
};

}  // namespace

VerbAction VerbNet(CLI::App& command) { return VerbGroup(command, kNetParts); }

}  // namespace client
