// The files behind the simulated Mac's network preferences, and their faults.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "platform/simulated/MacFiles.h"
#include "platform/simulated/NetworkSession.h"
#include "tests/platform/NetworkOfAMac.h"
#include "tests/platform/simulated/SimulatedRoot.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

using contract::NewSession;
using contract::ProtocolOf;
using contract::ServiceOf;

class NetworkFiles : public contract::SimulatedRoot {
 protected:
  NetworkFiles() { write(contract::NetworkOfAMac()); }

  static void write(const Json& preferences) {
    contract::WriteFile(kMacNetworkPreferences, "");
    EXPECT_TRUE(MacTree().writePropertyList(kMacNetworkPreferences, preferences,
                                            PropertyListFormat::kXml, 0644));
  }

  static Json read() { return *MacTree().readPropertyList(kMacNetworkPreferences); }

  /// A session that has something to commit.
  static NetworkPreferences changedSession() {
    NetworkPreferences session = NewSession();
    EXPECT_TRUE(ProtocolOf(session, kNetworkProtocolIPv4).setConfiguration(std::nullopt));
    return session;
  }

  /// BSD names of a session's services, in their order.
  static std::vector<std::string> names() {
    std::vector<std::string> all;
    const NetworkPreferences session = NewSession();
    const auto services = session.currentServices();
    for (const NetworkService& service : services.value_or(std::vector<NetworkService>())) {
      all.push_back(service.bsdName().value_or("none"));
    }
    return all;
  }
};

TEST_F(NetworkFiles, GiveTheSetsOrderToItsServices) {
  EXPECT_EQ(names(), (std::vector<std::string>{"none", "en0", "en1"}));
  Json mac = contract::NetworkOfAMac();
  Json& order = mac["Sets"]["A"]["Network"]["Global"]["IPv4"]["ServiceOrder"];
  order = {contract::kEthernet, 7, "gone", contract::kEthernet};
  write(mac);
  EXPECT_EQ(names(), (std::vector<std::string>{"en0", "en1", "none"}));
}

TEST_F(NetworkFiles, MayHaveAServiceWithoutALink) {
  Json mac = contract::NetworkOfAMac();
  Json& services = mac["Sets"]["A"]["Network"]["Service"];
  services = {{"inline", {{"Interface", {{"DeviceName", "en7"}}}, {"IPv4", Json::object()}}}};
  write(mac);
  ASSERT_EQ(names(), std::vector<std::string>{"en7"});
  const NetworkPreferences session = NewSession();
  const Json manual = {{"ConfigMethod", "Manual"}};
  EXPECT_TRUE(ServiceOf(session, "en7").protocol("IPv4")->setConfiguration(manual));
  EXPECT_TRUE(session.commitChanges());
  services["inline"]["IPv4"] = manual;
  EXPECT_EQ(read(), mac);
}

TEST_F(NetworkFiles, LoseNoOtherServiceForOneThatIsNone) {
  Json mac = contract::NetworkOfAMac();
  Json& services = mac["Sets"]["A"]["Network"]["Service"];
  for (const char* link : {"/NetworkServices/gone", "/NetworkServices/", "/", "", "/Sets/A"}) {
    services[std::string("link ") + link]["__LINK__"] = link;
  }
  services["text"] = "text";
  services["list"] = Json::array({1});
  mac["NetworkServices"]["number"] = 7;
  services["number"]["__LINK__"] = "/NetworkServices/number";
  write(mac);
  EXPECT_EQ(names(), (std::vector<std::string>{"none", "en0", "en1"}));
}

TEST_F(NetworkFiles, ThatAreNoPreferencesHaveNoServices) {
  for (const char* text : {"", "{", "text", "<plist version=\"1.0\"><array/></plist>"}) {
    contract::WriteFile(kMacNetworkPreferences, text);
    EXPECT_FALSE(NewSession().currentServices()) << text;
    EXPECT_TRUE(NewSession().commitChanges());
    EXPECT_EQ(contract::ReadFile(kMacNetworkPreferences), text);
  }
  fs::remove(kMacNetworkPreferences);
  EXPECT_FALSE(NewSession().currentServices());
  EXPECT_TRUE(NewSession().lock(false));
}

/// Does everything with every service that there is.
void useAll(const NetworkPreferences& session) {
  const auto services = session.currentServices();
  for (const NetworkService& service : services.value_or(std::vector<NetworkService>())) {
    (void)service.bsdName();
    (void)service.enabled();
    for (const char* type : {"IPv4", "DNS", "Proxies"}) {
      const bool isThere = service.protocol(type).has_value();
      EXPECT_NE(service.addProtocolType(type), isThere);
      const std::optional<NetworkProtocol> protocol = service.protocol(type);
      ASSERT_TRUE(protocol);
      EXPECT_TRUE(protocol->setConfiguration(Json{{"a", 1}}));
      EXPECT_TRUE(protocol->setEnabled(false));
    }
  }
}

TEST_F(NetworkFiles, MayHaveAnythingAnywhere) {
  const Json mac = contract::NetworkOfAMac();
  const Json leaves = mac.flatten();
  for (const auto& [path, leaf] : leaves.items()) {
    for (Json::json_pointer at(path); !at.empty(); at.pop_back()) {
      for (const Json& wrong :
           {Json(7), Json("text"), Json::array({1}), Json::object(), Json("/Sets/A")}) {
        Json changed = mac;
        changed[at] = wrong;
        write(changed);
        const NetworkPreferences session = NewSession();
        useAll(session);
        EXPECT_TRUE(session.commitChanges()) << at;
      }
    }
  }
}

TEST_F(NetworkFiles, KeepTheirOwnerAndMode) {
  ASSERT_EQ(chmod(kMacNetworkPreferences, 0640), 0);
  ASSERT_EQ(chown(kMacNetworkPreferences, 5, 6), 0);
  EXPECT_TRUE(changedSession().commitChanges());
  struct stat status {};
  ASSERT_EQ(stat(kMacNetworkPreferences, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  EXPECT_EQ(status.st_uid, 5u);
  EXPECT_EQ(status.st_gid, 6u);
}

TEST_F(NetworkFiles, AreWrittenAsXmlAndLeaveNothingBeside) {
  ASSERT_TRUE(MacTree().writePropertyList(kMacNetworkPreferences, contract::NetworkOfAMac(),
                                          PropertyListFormat::kBinary, 0644));
  EXPECT_TRUE(changedSession().commitChanges());
  EXPECT_TRUE(contract::ReadFile(kMacNetworkPreferences).starts_with("<?xml"));
  std::set<std::string> files;
  for (const auto& entry : fs::directory_iterator(fs::path(kMacNetworkPreferences).parent_path())) {
    files.insert(entry.path());
  }
  EXPECT_EQ(files, (std::set<std::string>{kMacNetworkPreferences, kMacNetworkLock}));
}

TEST_F(NetworkFiles, ThatCannotBeWrittenStayAsTheyAre) {
  const std::string blocked = std::string(kMacNetworkPreferences) + "-new";
  const NetworkPreferences session = changedSession();
  fs::create_directory(blocked);
  EXPECT_FALSE(session.commitChanges());
  EXPECT_EQ(NetworkPreferencesError(), "Is a directory");
  EXPECT_EQ(read(), contract::NetworkOfAMac());
  fs::remove(blocked);
  EXPECT_TRUE(session.commitChanges());
  EXPECT_NE(read(), contract::NetworkOfAMac());
}

TEST_F(NetworkFiles, AreNotReplacedWhereTheNewOneCannotBePut) {
  const NetworkPreferences session = changedSession();
  ASSERT_TRUE(session.lock(true));
  fs::remove(kMacNetworkPreferences);
  fs::create_directory(kMacNetworkPreferences);
  EXPECT_FALSE(session.commitChanges());
  EXPECT_FALSE(fs::exists(std::string(kMacNetworkPreferences) + "-new"));
}

TEST_F(NetworkFiles, AreLockedByAFileBesideThem) {
  const int other = open(kMacNetworkLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(flock(other, LOCK_EX), 0);
  EXPECT_FALSE(NewSession().lock(false));
  close(other);
  EXPECT_TRUE(NewSession().lock(false));
  fs::remove(kMacNetworkLock);
  fs::create_directory(kMacNetworkLock);
  EXPECT_FALSE(NewSession().lock(true));
  EXPECT_EQ(NetworkPreferencesError(), "Is a directory");
}

TEST_F(NetworkFiles, AreForRootToChange) {
  const NetworkPreferences session = changedSession();
  ASSERT_EQ(chmod("/", 0755), 0);
  ASSERT_EQ(seteuid(99), 0);
  EXPECT_TRUE(NewSession().currentServices());
  EXPECT_FALSE(session.lock(true));
  EXPECT_EQ(NetworkPreferencesError(), "Permission denied");
  EXPECT_FALSE(session.commitChanges());
  EXPECT_FALSE(session.applyChanges());
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(read(), contract::NetworkOfAMac());
}

TEST_F(NetworkFiles, NoteThatTheyAreInUse) {
  const NetworkPreferences session = NewSession();
  contract::WriteFile(kMacNetworkState, "[]");
  for (const int times : {1, 2}) {
    EXPECT_TRUE(session.applyChanges());
    EXPECT_EQ(MacTree().readJson(kMacNetworkState), Json({{"applied", times}}));
  }
  fs::remove_all(kMacSimulated);
  EXPECT_FALSE(session.applyChanges());
  EXPECT_EQ(NetworkPreferencesError(), "No such file or directory");
}

/// One fault of a call, once.
class NetworkFaults : public NetworkFiles {
 protected:
  template <class Call>
  static void expect(const std::string& target, const std::string& type, Call call) {
    Json fault = {{"target", target}, {"times", 1}, {"errorOutput", "no " + target}};
    if (!type.empty()) fault["arguments"] = Json::array({type});
    setFaults(Json::array({fault}).dump());
    EXPECT_FALSE(call()) << target;
    EXPECT_EQ(NetworkPreferencesError(), "no " + target);
    EXPECT_TRUE(call()) << target;
  }
};

TEST_F(NetworkFaults, OfASessionSayWhy) {
  expect("network.create", "name", [] { return NetworkPreferences::create("name").has_value(); });
  const NetworkPreferences session = changedSession();
  expect("network.lock", "", [&] { return session.lock(true); });
  expect("network.currentSet", "", [&] { return session.currentServices().has_value(); });
  expect("network.services", "", [&] { return session.currentServices().has_value(); });
  expect("network.commit", "", [&] { return session.commitChanges(); });
  expect("network.apply", "", [&] { return session.applyChanges(); });
  expect("network.unlock", "", [&] { return session.unlock(); });
}

TEST_F(NetworkFaults, OfAProtocolSayWhy) {
  const NetworkPreferences session = NewSession();
  const NetworkService wiFi = ServiceOf(session, "en1");
  expect("network.addProtocolType", "DNS", [&] { return wiFi.addProtocolType("DNS"); });
  expect("network.copyProtocol", "DNS", [&] { return wiFi.protocol("DNS").has_value(); });
  const NetworkProtocol dns = *wiFi.protocol("DNS");
  expect("network.setConfiguration", "DNS", [&] { return dns.setConfiguration(Json{{"a", 1}}); });
  expect("network.setEnabled", "DNS", [&] { return dns.setEnabled(false); });
}

TEST_F(NetworkFaults, AreOfOneTypeAndNeedNoText) {
  const NetworkPreferences session = NewSession();
  setFaults(R"([{"target": "network.copyProtocol", "arguments": ["DNS"]}])");
  EXPECT_TRUE(ServiceOf(session).protocol("IPv4"));
  EXPECT_FALSE(ServiceOf(session).protocol("DNS"));
  EXPECT_EQ(NetworkPreferencesError(), "Failed!");
}

}  // namespace
}  // namespace platform
