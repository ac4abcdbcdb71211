// Where the simulated Mac's session looks for proxies and for authorities.
#include <future>

#include "platform/UrlSession.h"
#include "tests/platform/TestServer.h"
#include "tests/platform/simulated/SimulatedRoot.h"
#include "tests/platform/simulated/TlsServer.h"

namespace platform {
namespace {

using contract::Answered;
using contract::TestServer;

class UrlSessionOfTheMac : public contract::SimulatedRoot {
 protected:
  UrlSessionOfTheMac() {
    for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY",
                             "no_proxy", "NO_PROXY"}) {
      unsetenv(name);
    }
  }

  UrlResult get(const std::string& url) {
    std::promise<UrlResult> result;
    _session.start({url, "GET", {}, std::nullopt},
                   [&](const UrlResult& value) { result.set_value(value); });
    return result.get_future().get();
  }

  UrlSession _session{
      {.requestTimeoutSeconds = 60, .resourceTimeoutSeconds = 120, .maximumBodyBytes = 64 * 1024}};
};

TEST_F(UrlSessionOfTheMac, HonoursTheProxyOfTheEnvironment) {
  const TestServer proxy([](const std::string&) { return Answered("by proxy"); });
  setenv("http_proxy", proxy.url("").c_str(), 1);
  EXPECT_EQ(get("http://nowhere.invalid/x").data, "by proxy");
  EXPECT_EQ(proxy.requests().at(0).text.rfind("GET http://nowhere.invalid/x ", 0), 0u);
}

TEST_F(UrlSessionOfTheMac, TrustsTheAuthoritiesOfTheSystem) {
  const contract::TlsServer server;
  contract::WriteFile("/private/etc/ssl/cert.pem", server.authorityPem());
  EXPECT_EQ(get(server.url("localhost")).data, "secret");
}

TEST_F(UrlSessionOfTheMac, TrustsNobodyElse) {
  const contract::TlsServer server;
  const contract::TlsServer other;
  EXPECT_TRUE(get(server.url("localhost")).error);  // no authorities at all
  contract::WriteFile("/private/etc/ssl/cert.pem", other.authorityPem());
  EXPECT_TRUE(get(server.url("localhost")).error);
  contract::WriteFile("/private/etc/ssl/cert.pem", server.authorityPem());
  EXPECT_TRUE(get(server.url("127.0.0.1")).error);  // the certificate has another name
}

}  // namespace
}  // namespace platform
