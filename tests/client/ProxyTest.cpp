#include "tests/client/ChannelTest.h"

namespace {

using testing::ElementsAre;

class ProxyVerb : public ChannelTest {
 protected:
  void SetUp() override {
    script({Replies(R"({"ok":true})")});
    keepUnlock();
  }
};

TEST_F(ProxyVerb, TurnsTheProxyOff) {
  const ChildResult result = run({"proxy", "none"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "No proxy is used.\n");
  EXPECT_THAT(requests(),
              ElementsAre(R"({"cmd":"proxy.set","mode":"none","unlockToken":"secret"})"));
}

TEST_F(ProxyVerb, TakesTheProxyFromAUrl) {
  const ChildResult result = run({"proxy", "auto", "https://proxy.example/a.pac"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "The proxy is taken from https://proxy.example/a.pac.\n");
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"proxy.set","mode":"auto",)"
                                      R"("pacUrl":"https://proxy.example/a.pac",)"
                                      R"("unlockToken":"secret"})"));
}

TEST_F(ProxyVerb, SetsOneProxyAndWhatGoesPastIt) {
  const ChildResult result = run({"proxy", "manual", "proxy.example:8080"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "The proxy is proxy.example:8080.\n");
  EXPECT_EQ(run({"proxy", "manual", "proxy.example:8080", "--bypass", "<local>; *.corp"}).status,
            0);
  EXPECT_THAT(requests(),
              ElementsAre(R"({"cmd":"proxy.set","mode":"manual","server":"proxy.example:8080",)"
                          R"("unlockToken":"secret"})",
                          R"({"bypass":"<local>; *.corp","cmd":"proxy.set","mode":"manual",)"
                          R"("server":"proxy.example:8080","unlockToken":"secret"})"));
}

TEST_F(ProxyVerb, ExplainsARefusal) {
  script(
      {Replies(R"({"ok":false,"error":"invalid"})"), Replies(R"({"ok":false,"error":"failed"})")});
  const ChildResult result = run({"proxy", "manual", "nonsense"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "kioskctl: A value is not one that may be set. (invalid)\n");
  EXPECT_EQ(run({"proxy", "none"}).errors, "kioskctl: The Mac did not take it. (failed)\n");
}

TEST_F(ProxyVerb, PrintsTheRawReplyWithJson) {
  EXPECT_EQ(run({"proxy", "none", "--json"}).output, "{\"ok\":true}\n");
}

TEST_F(ProxyVerb, SaysWhenTheDaemonIsNotThere) {
  keepUnlock();
  ChildSetup started = setup({"proxy", "none"});
  started.environment["KIOSK_CHANNEL"] = channel() + "-missing";
  EXPECT_EQ(RunChild(started).status, 3);
  EXPECT_EQ(access(unlockFile().c_str(), F_OK), 0);
}

}  // namespace
