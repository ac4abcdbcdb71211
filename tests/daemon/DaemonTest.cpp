#include "tests/daemon/DaemonTest.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <unistd.h>

#include "platform/PropertyList.h"

namespace {

constexpr char kLoginWindow[] =
    "/System/Library/CoreServices/loginwindow.app/Contents/MacOS/loginwindow";

}  // namespace

DaemonTest::DaemonTest() : mac({"--tools-only"}) {
  mac.enter();
  // The daemon runs in the test's process, so these are nothing but files at the right places.
  mac.write(kHelper, "", 0755);
  mac.write(kApplication, "", 0755);
  virtual_time::SetExecutablePath(kHelper);
}

DaemonTest::~DaemonTest() {
  daemon.reset();
  _session.reset();
}

void DaemonTest::startDaemon(const Json& state) {
  Json whole = {{"authBaseUrl", portal.url()}};
  whole.update(state);
  mac.writeState(whole);
  restartDaemon();
}

void DaemonTest::restartDaemon() {
  daemon.reset();  // its timers go with it
  daemon = std::make_shared<KioskDaemon>();
  daemon->queue().sync([this] { daemon->start(); });
}

void DaemonTest::startProvisioned() {
  answerEnrolled();
  startDaemon({{"token", "device-token"}});
  virtual_time::RunReady();
  ASSERT_EQ(mac.state()["provisioned"], true) << mac.state();
}

void DaemonTest::startSettled(const Json& state) {
  Json whole = {{"token", "device-token"},
                {"provisioned", true},
                {"signIn", {{"microsoft", true}, {"email", false}, {"extraHosts", Json::array()}}}};
  whole.update(state);
  answerEnrolled();
  startDaemon(whole);
}

KioskCheckInOutcome DaemonTest::checkIn() {
  // Not through the queue: that would let the timer's check-in, which may be due, go first.
  return daemon->checkIn();
}

Json DaemonTest::send(const Json& request, std::uint32_t uid, std::int32_t session) {
  Json reply;
  daemon->queue().sync([&] { reply = daemon->handle(request, {uid, session}); });
  return reply;
}

void DaemonTest::answerEnrolled(const Json& keys) {
  Json answer = {{"status", "enrolled"}};
  answer.update(keys);
  portal.answer(kCheckInCall, 200, answer);
}

void DaemonTest::runNextCheckIn() {
  const auto next = virtual_time::NanosecondsUntilNext();
  ASSERT_TRUE(next) << "no check-in is armed";
  virtual_time::Advance(*next);
}

std::uint32_t DaemonTest::kioskUid() const {
  const passwd* user = getpwnam("BrindlexKiosk");
  return user == nullptr ? 0 : user->pw_uid;
}

bool DaemonTest::kioskAccountExists() const {
  return mac.exists("/private/var/db/dslocal/nodes/Default/users/BrindlexKiosk.plist");
}

std::string DaemonTest::autoLoginUser() const {
  const auto preferences =
      platform::PropertyListParse(mac.read("/Library/Preferences/com.apple.loginwindow.plist"));
  return preferences ? preferences->value("autoLoginUser", "") : "";
}

void DaemonTest::openSession(std::uint32_t uid) {
  _session = std::make_unique<Child>(std::vector<std::string>{kLoginWindow, std::to_string(uid)},
                                     "/private/var/log/loginwindow.log");
  ASSERT_TRUE(Eventually([&] { return sessionIsOpen(uid); })) << _session->output();
}

// A session lives as long as its login window holds the lock.
bool DaemonTest::sessionIsOpen(std::uint32_t uid) const {
  const std::string path = "/private/var/simulated/gui/" + std::to_string(uid) + ".json";
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  const bool held = flock(file, LOCK_EX | LOCK_NB) != 0;
  close(file);
  return held;
}
