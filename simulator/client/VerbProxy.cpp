#include <memory>
#include <optional>
#include <string>

#include "simulator/client/Unlocked.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

struct ManualProxy {
  std::string server;
  std::optional<std::string> bypass;
};

Json Request(const char* mode) { return {{"cmd", "proxy.set"}, {"mode", mode}}; }

VerbAction None(CLI::App&) {
  return [](Session& session) {
    return ChangeUnlocked(session, Request("none"), "No proxy is used.");
  };
}

VerbAction Auto(CLI::App& command) {
  const auto url = std::make_shared<std::string>();
  command.add_option("URL", *url, "Where the proxy's configuration (PAC file) is")->required();
  return [url](Session& session) {
    Json request = Request("auto");
    request["pacUrl"] = *url;
    return ChangeUnlocked(session, request, "The proxy is taken from " + *url + ".");
  };
}

ExitStatus SetManual(Session& session, const ManualProxy& proxy) {
  Json request = Request("manual");
  request["server"] = proxy.server;
  if (proxy.bypass) request["bypass"] = *proxy.bypass;
  return ChangeUnlocked(session, request, "The proxy is " + proxy.server + ".");
}

VerbAction Manual(CLI::App& command) {
  const auto proxy = std::make_shared<ManualProxy>();
  command.add_option("HOST:PORT", proxy->server, "The proxy for HTTP and HTTPS")->required();
  command
      .add_option("--bypass", proxy->bypass,
                  "What is reached without it, as in \"*.corp,10.0.0.0/8,<local>\"")
      ->type_name("LIST");
  return [proxy](Session& session) { return SetManual(session, *proxy); };
}

constexpr Verb kProxyParts[] = {
    {"none", "Use no proxy", None},
    {"auto", "Take the proxy from a configuration at a URL", Auto},
    {"manual", "Use one proxy for HTTP and HTTPS", Manual},
};

}  // namespace

VerbAction VerbProxy(CLI::App& command) { return VerbGroup(command, kProxyParts); }

}  // namespace client
