// The world of a daemon under the fuzzer: a root of its own on which nothing lies but what the
// daemon needs, and doubles of everything that would leave the process: tools, portal, user
// directory and system log. They take the place of the daemon's process runner and of the
// platform's services when the harness is linked. One thread.
#pragma once

#include <optional>
#include <string>

#include "platform/Json.h"

/// The kiosk account's user id.
inline constexpr unsigned kWorldUid = 502;

inline constexpr char kWorldStateDir[] = "/Library/Application Support/Brindlex/Kiosk";
inline constexpr char kWorldStateFile[] = "/Library/Application Support/Brindlex/Kiosk/state.json";

/// What the doubles answer with, and what they were told.
struct World {
  Json tools = Json::object();   ///< by a tool's name: {"status", "output"}
  Json portal = Json::object();  ///< by the start of a path: {"status", "body" or "text"}
  std::optional<std::string> autoLoginUser;
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

/// The bytes of a file, or nothing when there is none.
std::optional<std::string> WorldRead(const std::string& path);
void WorldWrite(const std::string& path, const std::string& bytes);
