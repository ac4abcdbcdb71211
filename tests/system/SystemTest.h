// The world of a system test: the real portal, a simulated Mac with the real kioskd, booted.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/ChannelClient.h"
#include "tests/support/Child.h"
#include "tests/support/MacFolder.h"
#include "tests/support/MacPaths.h"
#include "tests/system/SanitizedHelper.h"

inline constexpr char kKioskctl[] = "/Applications/Brindlex.app/Contents/MacOS/kioskctl";
inline constexpr char kSocket[] = "/private/var/run/com.brindlex.stream.kioskd.socket";

/// The real portal, with a folder of its own.
class PortalProcess {
 public:
  PortalProcess();
  ~PortalProcess();
  PortalProcess(const PortalProcess&) = delete;
  PortalProcess& operator=(const PortalProcess&) = delete;

  const std::string& url() const { return _url; }
  std::string authority() const { return _folder + "/ca.pem"; }
  std::string record() const { return _folder + "/record.jsonl"; }
  /// Runs an administrator's command; its answer as JSON.
  Json admin(const std::vector<std::string>& arguments) const;
  /// The same, with a line of standard input.
  Json admin(const std::vector<std::string>& arguments, const std::string& line) const;
  /// The status of an HTTPS GET as a device would send it; 0 when there was none.
  long get(const std::string& path) const;
  void stop() { _process.reset(); }

 private:
  std::string _folder;
  std::string _url;
  std::unique_ptr<Child> _process;
};

class SystemTest : public testing::Test {
 protected:
  SystemTest();
  ~SystemTest() override;

  /// Boots the Mac and waits until the daemon answers and it is decided who signs in.
  void boot();
  /// Switches it off.
  void halt();
  bool isUp() const { return _machine != nullptr; }
  /// What the machine has told so far.
  std::string timeline() const { return _machine ? _machine->output() : ""; }

  /// Runs a command inside the Mac.
  Finished run(const std::vector<std::string>& command, const std::string& user = "root") const;
  Json machineStatus() const;
  /// The process id of the daemon, of the new one once killDaemon() has killed another; -1, and a
  /// failure, when none runs for a minute.
  pid_t daemonPid() const;
  /// Kills the daemon; launchd starts it anew, and it checks in at once.
  void killDaemon() const;

  /// A peer of the command channel that carries the application's signature.
  ChannelClient peer() const;
  /// Sends a request as root and returns the reply; null when none comes.
  Json ask(const Json& request) const { return peer().ask(request); }

  /// Pairs the terminal under this name; the reply to "pair.check". From then on restarts fail: the
  /// one that follows would come in the middle of a test.
  Json pair(const std::string& name) const;
  /// Pairs the terminal, and expects the reply to say provisioned.
  void enrol(const std::string& name);
  bool kioskAccountExists() const;

  PortalProcess portal;
  MacFolder mac;

 private:
  SanitizedHelper _helper;
  std::unique_ptr<Child> _machine;
  mutable pid_t _killed = -1;
};
