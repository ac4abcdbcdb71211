// The world of a daemon under the fuzzer: a root of its own on which nothing lies but what the
// daemon needs, and doubles of everything that would leave the process: tools, portal, user
// directory and system log. They take the place of the daemon's process runner and of the
// platform's services when the harness is linked. One thread.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/Json.h"

/// The kiosk account's user id.
inline constexpr unsigned kWorldUid = 502;

inline constexpr char kWorldStateDir[] = "/Library/Application Support/Brindlex/Kiosk";
inline constexpr char kWorldStateFile[] = "/Library/Application Support/Brindlex/Kiosk/state.json";

inline constexpr char kWorldUuid[] = "6E1C9F0A-0000-4000-8000-000000000502";
inline constexpr char kWorldLaunchAgent[] = "/Library/LaunchAgents/com.brindlex.stream.kiosk.plist";
inline constexpr char kWorldPasswordFile[] = "/private/etc/kcpassword";
inline constexpr char kWorldHome[] = "/Users/BrindlexKiosk";

/// One run of a tool, and what the daemon made of its output.
struct WorldRun {
  std::vector<std::string> command;  ///< the tool's name first
  std::int32_t status = 0;
  std::string said;
};

/// What the doubles answer with, and what they were told.
struct World {
  Json tools = Json::object();   ///< by a tool's name: {"status", "output"}
  Json portal = Json::object();  ///< by the start of a path: {"status", "body" or "text"}

  std::optional<std::string> autoLoginUser;
  bool hasSession = false;       ///< the kiosk account's graphical session is up
  bool isAdministrator = false;  ///< the kiosk account is in the group "admin"
  Json timeouts = {{"displaysleep", 10}, {"sleep", 1}};
  bool repeatsPower = false;  ///< a repeating power schedule is set

  bool hidesUuid = false;        ///< the directory knows no UUID
  bool refusesPassword = false;  ///< the directory changes no password

  WorldRun last;
  std::vector<std::string> due;   ///< the command that the last tool's answer asks for
  std::optional<bool> fileVault;  ///< what fdesetup said last
  std::string powerShown;         ///< what pmset said last of its settings
};

World& TheWorld();

/// Makes the root, once, and enters it for the rest of the process; relative paths stay outside.
/// The root is removed when the process ends in an orderly way.
void EnterWorld();

/// Empties the root but for the application, and forgets all that the doubles were told.
void ResetWorld();

/// The kiosk account, in the user database and the directory.
void SetKioskAccount(bool exists);
bool KioskAccountExists();

/// What of the Mac enrolment changes and a revoked device leaves as it was.
Json PictureOfTheMac();

/// Puts a folder in a file's place, so that nobody can write or remove the file, or takes it away.
void BlockFile(const char* path, bool blocked);

/// The bytes of a file, or nothing when there is none.
std::optional<std::string> WorldRead(const std::string& path);
void WorldWrite(const std::string& path, const std::string& bytes);
