#include "tests/client/ChannelTest.h"

namespace {

using testing::ElementsAre;

class NetVerb : public ChannelTest {
 protected:
  void SetUp() override {
    script({Replies(R"({"ok":true})")});
    keepUnlock();
  }
};

TEST_F(NetVerb, SetsDhcp) {
  const ChildResult result = run({"net", "dhcp", "en0"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "The adapter en0 uses DHCP.\n");
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(requests(), ElementsAre(R"({"adapter":"en0","cmd":"net.set","mode":"dhcp",)"
                                      R"("unlockToken":"secret"})"));
}

TEST_F(NetVerb, NamesTheServersOfAnAdapterWithDhcp) {
  EXPECT_EQ(run({"net", "dhcp", "--dns", "1.1.1.1,9.9.9.9", "en0"}).status, 0);
  EXPECT_EQ(run({"net", "dhcp", "en0", "--dns", ""}).status, 0);
  EXPECT_THAT(requests(),
              ElementsAre(R"({"adapter":"en0","cmd":"net.set","dns":["1.1.1.1","9.9.9.9"],)"
                          R"("mode":"dhcp","unlockToken":"secret"})",
                          R"({"adapter":"en0","cmd":"net.set","dns":[],)"
                          R"("mode":"dhcp","unlockToken":"secret"})"));
}

TEST_F(NetVerb, SetsAnAddress) {
  const ChildResult result = run({"net", "static", "en1", "192.168.1.10/24"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "The adapter en1 has the address 192.168.1.10/24.\n");
  EXPECT_THAT(requests(), ElementsAre(R"({"adapter":"en1","cmd":"net.set","ip":"192.168.1.10",)"
                                      R"("mode":"static","prefix":24,"unlockToken":"secret"})"));
}

TEST_F(NetVerb, SetsAGatewayAndNameServersWithTheAddress) {
  EXPECT_EQ(run({"net", "static", "en1", "192.168.1.10/24", "--gateway", "192.168.1.1", "--dns",
                 "1.1.1.1"})
                .status,
            0);
  EXPECT_THAT(requests(),
              ElementsAre(R"({"adapter":"en1","cmd":"net.set","dns":["1.1.1.1"],)"
                          R"("gateway":"192.168.1.1","ip":"192.168.1.10","mode":"static",)"
                          R"("prefix":24,"unlockToken":"secret"})"));
}

TEST_F(NetVerb, LeavesItToTheDaemonToRefuseBadValues) {
  script({Replies(R"({"ok":false,"error":"invalid"})")});
  const ChildResult result = run({"net", "static", "EN", "999/-3", "--dns", "x, y,,z"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "kioskctl: A value is not one that may be set. (invalid)\n");
  EXPECT_THAT(requests(), ElementsAre(R"({"adapter":"EN","cmd":"net.set","dns":["x"," y","","z"],)"
                                      R"("ip":"999","mode":"static","prefix":-3,)"
                                      R"("unlockToken":"secret"})"));
}

TEST_F(NetVerb, ExplainsAnAdapterThatIsNotThere) {
  script({Replies(R"({"ok":false,"error":"unknown_adapter"})"),
          Replies(R"({"ok":false,"error":"failed"})")});
  EXPECT_EQ(run({"net", "dhcp", "en9"}).errors,
            "kioskctl: No network service uses this adapter. (unknown_adapter)\n");
  EXPECT_EQ(run({"net", "dhcp", "en9"}).errors, "kioskctl: The Mac did not take it. (failed)\n");
}

TEST_F(NetVerb, PrintsTheRawReplyWithJsonWhereverThatStands) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"--json", "net", "dhcp", "en0"},
                                             {"net", "--json", "dhcp", "en0"},
                                             {"net", "dhcp", "en0", "--json"}}) {
    EXPECT_EQ(run(arguments).output, "{\"ok\":true}\n");
  }
}

}  // namespace
