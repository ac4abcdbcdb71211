#include "tests/system/EnrolledTest.h"

namespace {

constexpr char kPassword[] = "Open Sesame";

}  // namespace

EnrolledTest::EnrolledTest() {
  boot();
  enrol("Lobby");
  portal.admin({"exit-password", "Lobby", "-"}, kPassword);
}

Json EnrolledTest::askAs(const std::string& user, const Json& request) const {
  const std::string output = run({kKioskctl, "send", request.dump()}, user).output;
  const Json reply = Json::parse(output.substr(0, output.find('\n')), nullptr, false);
  return reply.is_object() ? reply : Json::object();
}

std::string EnrolledTest::unlock() const {
  const Json reply = askAs(kKioskUser, {{"cmd", "unlock"}, {"password", kPassword}});
  EXPECT_EQ(reply.value("ok", false), true) << reply;
  return reply.value("unlockToken", "");
}

void EnrolledTest::restartMac() {
  halt();
  mac.clearFaults();
  mac.write("/private/var/simulated/journal.jsonl", "", 0666);
  boot();
}

int EnrolledTest::bootCount() const {
  const Json status = machineStatus();
  return status.is_object() ? status.value("bootCount", -1) : -1;
}

void EnrolledTest::replaceDaemon() const {
  killDaemon();
  ASSERT_TRUE(Eventually([&] {
    return daemonPid() > 1 && ask({{"cmd", "status"}})["ok"] == true;
  })) << timeline();
}

void EnrolledTest::endsByThePortalsInterface() {
  halt();
  portal.stop();
  const Finished checked = RunToEnd({KIOSKD_OPENAPI_CHECK, KIOSKD_PORTAL_API, portal.record()});
  EXPECT_EQ(checked.status, 0) << checked.output;
}
