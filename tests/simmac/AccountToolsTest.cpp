#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <set>

#include "platform/Directory.h"
#include "tests/simmac/TestMac.h"

namespace simmac {
namespace {

constexpr char kSysAdminCtl[] = "/usr/sbin/sysadminctl";
constexpr char kDsEditGroup[] = "/usr/sbin/dseditgroup";
constexpr char kCreateHomeDir[] = "/usr/sbin/createhomedir";

constexpr char kBanner[] =
    "----------------------------\n"
    "No clear text password or interactive option was specified (adduser, change/reset password "
    "will not allow user to use FDE) !\n"
    "----------------------------\n"
    "Creating user record…\n";

class SysAdminCtlTool : public SimulatedMacTest {};
class DsEditGroupTool : public SimulatedMacTest {};
class Directory : public SimulatedMacTest {};
class CreateHomeDirTool : public SimulatedMacTest {};

TEST_F(SysAdminCtlTool, AddsAUserAndSaysSoOnStandardError) {
  const TestMac mac;
  const RunResult result = mac.run({kSysAdminCtl, "-addUser", "kiosk", "-fullName", "The Kiosk"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(WithoutLogPrefixes(result.err),
            kBanner + std::string("Assigning UID: 502 GID: 20\n"
                                  "Creating home directory at /Users/kiosk\n"));
}

TEST_F(SysAdminCtlTool, WritesAWholeRecordWithoutAPassword) {
  const TestMac mac;
  (void)mac.run({kSysAdminCtl, "-addUser", "kiosk", "-fullName", "The Kiosk"});
  const auto user = mac.tree().userNamed("kiosk");
  ASSERT_TRUE(user);
  EXPECT_EQ(user->realName, "The Kiosk");
  EXPECT_EQ(user->shell, "/bin/zsh");
  EXPECT_EQ(user->home, "/Users/kiosk");
  EXPECT_EQ(user->generatedUid.size(), 36U);
  EXPECT_FALSE(user->passwordHash);
  EXPECT_NE(mac.read("/private/etc/passwd").find("kiosk:x:502:20:"), std::string::npos);
}

TEST_F(SysAdminCtlTool, KeepsAGivenPasswordAndTheRoleOfAdministrator) {
  const TestMac mac;
  (void)mac.run({kSysAdminCtl, "-addUser", "boss", "-password", "secret", "-admin"});
  EXPECT_TRUE(platform::MacPasswordMatches("secret", *mac.tree().userNamed("boss")->passwordHash));
  EXPECT_EQ(mac.run({kDsEditGroup, "-o", "checkmember", "-m", "boss", "admin"}).status, 0);
}

TEST_F(SysAdminCtlTool, DoesNotMakeAHomeThatItWasTold) {
  const TestMac mac;
  const RunResult result =
      mac.run({kSysAdminCtl, "-addUser", "kiosk", "-home", "/Users/elsewhere"});
  EXPECT_EQ(WithoutLogPrefixes(result.err),
            kBanner + std::string("Assigning UID: 502 GID: 20\nHome directory is assigned (not "
                                  "created!) at /Users/elsewhere\n"));
  EXPECT_FALSE(std::filesystem::exists(mac.path("/Users/elsewhere")));
}

TEST_F(SysAdminCtlTool, ReportsAnExistingNameWithStatusZero) {
  const TestMac mac;
  const auto before = mac.tree().userNamed("admin");
  const RunResult result = mac.run({kSysAdminCtl, "-addUser", "admin", "-fullName", "Other"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(WithoutLogPrefixes(result.err), kBanner + std::string("User admin already exists.\n"));
  EXPECT_EQ(mac.tree().userNamed("admin")->realName, before->realName);
}

TEST_F(SysAdminCtlTool, RefusesOthersThanRootWithStatusZero) {
  const TestMac mac;
  const RunResult result = mac.run({kSysAdminCtl, "-addUser", "kiosk"}, "admin");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(WithoutLogPrefixes(result.err),
            "sysadminctl should be run as root, or in interactive mode! (Error "
            "Domain=NSOSStatusErrorDomain Code=-60007 \"errAuthorizationInteractionNotAllowed: "
            "The authorization was denied since no user interaction was possible. \")\n");
  EXPECT_FALSE(mac.tree().userNamed("kiosk"));
}

constexpr char kDeletion[] =
    "Killing all processes for UID 502\n"
    "Securely removing kiosk's home at /Users/kiosk\n"
    "Deleting Public share point for kiosk\n"
    "Deleting record for kiosk\n"
    "AOSKit INFO: Disabling BTMM for user, no zone found for uid=502, usersToZones: (null)\n";

TEST_F(SysAdminCtlTool, DeletesRecordHomeAndMemberships) {
  const TestMac mac;
  (void)mac.run({kSysAdminCtl, "-addUser", "kiosk", "-admin"});
  const RunResult result = mac.run({kSysAdminCtl, "-deleteUser", "kiosk", "-secure"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(WithoutLogPrefixes(result.err), kDeletion);
  EXPECT_FALSE(mac.tree().userNamed("kiosk"));
  EXPECT_FALSE(std::filesystem::exists(mac.path("/Users/kiosk")));
  EXPECT_EQ(mac.read("/private/etc/group").find("kiosk"), std::string::npos);
}

TEST_F(SysAdminCtlTool, MayBeMadeToStopHalfWay) {
  const TestMac mac;
  (void)mac.run({kSysAdminCtl, "-addUser", "kiosk"});
  (void)mac.simmac("fault", {"add", "--target", "directory.deleteRecord", "--status=-14120"});
  const RunResult result = mac.run({kSysAdminCtl, "-deleteUser", "kiosk", "-secure"});
  EXPECT_EQ(WithoutLogPrefixes(result.err),
            kDeletion + std::string("### Error:-14120 File:/AppleInternal/Library/BuildRoots/"
                                    "4~B5FeugCYEZd96X3zqIDDgARflf-BD_RFQt1Gd-I/Library/Caches/"
                                    "com.apple.xbs/Sources/Admin/DSRecord.m Line:563\n"));
  EXPECT_TRUE(mac.tree().userNamed("kiosk"));
  EXPECT_FALSE(std::filesystem::exists(mac.path("/Users/kiosk")));
}

TEST_F(SysAdminCtlTool, DoesNotDeleteAUserThatIsNotThere) {
  const TestMac mac;
  const RunResult result = mac.run({kSysAdminCtl, "-deleteUser", "nobody-here"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(WithoutLogPrefixes(result.err), "User nobody-here does not exist.\n");
}

TEST_F(SysAdminCtlTool, DoesNotDeleteByOptionsThatItDoesNotKnow) {
  const TestMac mac;
  for (const Words& options : {Words{"-dryRun"}, Words{"-secure", "-dryRun"}, Words{""}}) {
    Words command = {kSysAdminCtl, "-deleteUser", "admin"};
    command.insert(command.end(), options.begin(), options.end());
    EXPECT_EQ(mac.run(command).err.rfind("Usage: sysadminctl\n", 0), 0U);
  }
  EXPECT_TRUE(mac.tree().userNamed("admin"));
  EXPECT_TRUE(std::filesystem::exists(mac.path("/Users/admin")));
}

/// Runs commands of a Mac all at the same time and waits for them.
void RunTogether(const TestMac& mac, const std::vector<Words>& commands) {
  std::vector<std::future<RunResult>> calls;
  for (const Words& command : commands) {
    calls.push_back(std::async(std::launch::async, [&] { return mac.run(command); }));
  }
  for (auto& call : calls) EXPECT_EQ(call.get().status, 0);
}

TEST_F(SysAdminCtlTool, GivesUsersThatAreAddedTogetherIdsOfTheirOwn) {
  const TestMac mac;
  std::vector<Words> commands;
  for (const char* name : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
    commands.push_back({kSysAdminCtl, "-addUser", name, "-admin"});
  }
  RunTogether(mac, commands);
  std::set<uid_t> uids;
  for (const platform::MacUser& user : mac.tree().users()) uids.insert(user.uid);
  EXPECT_EQ(uids, (std::set<uid_t>{0, 501, 502, 503, 504, 505, 506, 507, 508, 509}));
  // root, admin and the eight.
  EXPECT_EQ(mac.tree().groupNamed("admin")->users.size(), 10U);
}

/// Whether a process waits for a lock on a file.
bool WaitsForALock(pid_t pid) {
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    if (line.find("-> FLOCK") != std::string::npos &&
        line.find(" " + std::to_string(pid) + " ") != std::string::npos) {
      return true;
    }
  }
  return false;
}

TEST_F(Directory, ChangesAPasswordWithoutLosingWhatOthersChange) {
  const TestMac mac;
  auto lock = std::make_unique<platform::MacDirectoryLock>(mac.tree());
  ASSERT_TRUE(lock->held());
  const pid_t child = fork();
  if (child == 0) {
    lock.reset();  // a copy of the descriptor would keep the lock
    std::string error;
    bool changed = chroot(mac.root().c_str()) == 0 && chdir("/") == 0;
    auto node = platform::DirectoryNode::openLocal(error);
    auto record = changed && node ? node->userRecord("admin", error) : std::nullopt;
    changed = record && record->changePassword("new", error);
    _exit(changed ? 0 : 1);
  }
  ASSERT_GT(child, 1);
  ASSERT_TRUE(Eventually([child] { return WaitsForALock(child) || !IsAlive(child); }));
  platform::MacUser user = *mac.tree().userNamed("admin");
  user.realName = "Changed Meanwhile";
  EXPECT_TRUE(mac.tree().writeUser(user));
  lock.reset();
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(mac.tree().userNamed("admin")->realName, "Changed Meanwhile");
  EXPECT_TRUE(platform::MacPasswordMatches(
      "new", mac.tree().userNamed("admin")->passwordHash.value_or("")));
}

TEST_F(DsEditGroupTool, AnswersEverybodyAboutMembers) {
  const TestMac mac;
  const Words command = {kDsEditGroup, "-o", "checkmember", "-m", "admin", "admin"};
  const RunResult yes = mac.run(command, "admin");
  EXPECT_EQ(yes.status, 0);
  EXPECT_EQ(yes.out, "yes admin is a member of admin\n");
  EXPECT_EQ(mac.run({kDsEditGroup, "-o", "checkmember", "wheel"}, "admin").out,
            "no admin is NOT a member of wheel\n");
}

TEST_F(DsEditGroupTool, AsksEverybodyButRootForCredentialsFirst) {
  const TestMac mac;
  for (const char* group : {"admin", "ghosts"}) {
    const RunResult result =
        mac.run({kDsEditGroup, "-o", "edit", "-d", "admin", "-t", "user", group}, "admin");
    EXPECT_EQ(result.status, 64);
    EXPECT_EQ(result.err, "Username and password must be provided.\n");
  }
  EXPECT_EQ(mac.tree().groupNamed("admin")->users.size(), 2U);
}

TEST_F(DsEditGroupTool, TellsWhetherAUserIsAMember) {
  const TestMac mac;
  (void)mac.run({kSysAdminCtl, "-addUser", "kiosk"});
  const RunResult yes = mac.run({kDsEditGroup, "-o", "checkmember", "-m", "admin", "admin"});
  EXPECT_EQ(yes.status, 0);
  EXPECT_EQ(yes.out, "yes admin is a member of admin\n");
  const RunResult no = mac.run({kDsEditGroup, "-o", "checkmember", "-m", "kiosk", "admin"});
  EXPECT_EQ(no.status, 67);
  EXPECT_EQ(no.out, "no kiosk is NOT a member of admin\n");
  EXPECT_EQ(mac.run({kDsEditGroup, "-o", "checkmember", "-m", "kiosk", "staff"}).status, 0);
}

TEST_F(DsEditGroupTool, AddsAndRemovesSilently) {
  const TestMac mac;
  (void)mac.run({kSysAdminCtl, "-addUser", "kiosk"});
  const Words check = {kDsEditGroup, "-o", "checkmember", "-m", "kiosk", "admin"};
  const RunResult added =
      mac.run({kDsEditGroup, "-o", "edit", "-a", "kiosk", "-t", "user", "admin"});
  EXPECT_EQ(added.status, 0);
  EXPECT_EQ(added.out + added.err, "");
  EXPECT_EQ(mac.run(check).status, 0);
  EXPECT_EQ(mac.run({kDsEditGroup, "-o", "edit", "-d", "kiosk", "-t", "user", "admin"}).status, 0);
  EXPECT_EQ(mac.run(check).status, 67);
}

TEST_F(DsEditGroupTool, TellsItsErrorsApart) {
  const TestMac mac;
  struct Case {
    Words arguments;
    std::string user;
    std::string error;
    int status;
  };
  const Case cases[] = {
      {{"-o", "checkmember", "-m", "ghost", "admin"},
       "root",
       "Unable to find the user record\n",
       64},
      {{"-o", "checkmember", "-m", "admin", "ghosts"}, "root", "Group not found.\n", 64},
      {{"-o", "checkmember", "-m", "admin"}, "root", "No group name provided\n", 64},
      {{"-o", "edit", "-d", "ghost", "-t", "user", "admin"},
       "root",
       "Record was not found.\n",
       200},
  };
  for (const Case& each : cases) {
    Words command = {kDsEditGroup};
    command.insert(command.end(), each.arguments.begin(), each.arguments.end());
    const RunResult result = mac.run(command, each.user);
    EXPECT_EQ(result.err, each.error);
    EXPECT_EQ(result.status, each.status) << each.error;
  }
}

TEST_F(CreateHomeDirTool, MakesAMissingHomeOnce) {
  const TestMac mac({"--tools-only", "--computer-name", "mymac"});
  (void)mac.run({kSysAdminCtl, "-addUser", "kiosk", "-home", "/Users/kiosk"});
  const Words command = {kCreateHomeDir, "-c", "-u", "kiosk"};
  EXPECT_EQ(mac.run(command).out, "creating home directories for (mymac.local)\ncreated (kiosk)\n");
  struct stat status {};
  ASSERT_EQ(stat(mac.path("/Users/kiosk/Library/Preferences").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 502U);
  EXPECT_EQ(status.st_gid, 20U);
  EXPECT_EQ(status.st_mode & 07777, 0700U);
  const RunResult again = mac.run(command);
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.out, "creating home directories for (mymac.local)\n");
}

}  // namespace
}  // namespace simmac
