#include "tests/daemon/AccountTest.h"

#include <array>
#include <filesystem>

#include "platform/simulated/MacFiles.h"

namespace {

constexpr char kJournal[] = "/private/var/simulated/journal.jsonl";
constexpr char kLog[] = "/private/var/log/system.log";
constexpr mode_t kEverybody = 0666;
constexpr std::array<unsigned char, 11> kKey{0x7D, 0x89, 0x52, 0x23, 0xD2, 0xBC,
                                             0xDD, 0xEA, 0xA3, 0xB9, 0x1F};

std::optional<platform::MacUser> Account() { return platform::MacTree().userNamed(kAccount); }

}  // namespace

AccountTest::AccountTest() {
  // A login window wants the kernel's list of processes; it does without when the list is empty.
  if (!mac.exists("/proc")) std::filesystem::create_directory("/proc");
}

void AccountTest::provision() {
  daemon->queue().sync([this] { daemon->provision(); });
}

void AccountTest::becomeProvisioned() {
  startDaemon();
  provision();
  ASSERT_EQ(mac.state()["provisioned"], true) << mac.state();
  clearRecords();
}

void AccountTest::clearRecords() const {
  mac.write(kJournal, "", kEverybody);
  mac.write(kLog, "", kEverybody);
}

std::string AccountTest::generatedUid() const {
  const auto account = Account();
  return account ? account->generatedUid : "";
}

std::string AccountTest::passwordHash() const {
  const auto account = Account();
  return account ? account->passwordHash.value_or("") : "";
}

bool AccountTest::storedPasswordFits() const {
  return platform::MacPasswordMatches(mac.state().value("password", ""), passwordHash());
}

std::string AccountTest::autoLoginPassword() const {
  std::string bytes = mac.read(kPasswordFile);
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    bytes[at] = static_cast<char>(bytes[at] ^ kKey[at % kKey.size()]);
  }
  return bytes.c_str();
}

std::vector<std::string> AccountTest::members(const std::string& group) const {
  const auto record = platform::MacTree().groupNamed(group);
  return record ? record->users : std::vector<std::string>();
}

void AccountTest::addToGroup(const std::string& group) const {
  RunMacTool({kDseditgroup, "-o", "edit", "-a", kAccount, "-t", "user", group});
}

void AccountTest::createForeignAccount() const {
  RunMacTool({kSysadminctl, "-addUser", kAccount, "-password", "somebody's"});
}

ToolRun AccountTest::fdesetup(int status) { return {kFdesetup, {"status"}, status}; }

ToolRun AccountTest::readUser(int status) {
  return {kDefaults, {"read", kLoginWindowDomain, "autoLoginUser"}, status};
}

ToolRun AccountTest::writeUser(int status) {
  return {kDefaults, {"write", kLoginWindowDomain, "autoLoginUser", kAccount}, status};
}

ToolRun AccountTest::deleteUser(int status) {
  return {kDefaults, {"delete", kLoginWindowDomain, "autoLoginUser"}, status};
}

ToolRun AccountTest::addAccount(int status) {
  return {kSysadminctl, {"-addUser", kAccount, "-fullName", "Brindlex"}, status};
}

ToolRun AccountTest::deleteAccount(int status) {
  return {kSysadminctl, {"-deleteUser", kAccount}, status};
}

ToolRun AccountTest::checkMember(const std::string& group, int status) {
  return {kDseditgroup, {"-o", "checkmember", "-m", kAccount, group}, status};
}

ToolRun AccountTest::removeMember(const std::string& group, int status) {
  return {kDseditgroup, {"-o", "edit", "-d", kAccount, "-t", "user", group}, status};
}

ToolRun AccountTest::createHome(int status) {
  return {kCreatehomedir, {"-c", "-u", kAccount}, status};
}
