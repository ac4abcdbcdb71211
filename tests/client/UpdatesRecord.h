// What tests of updates share: the daemon's record of updates, and following what goes on.
#pragma once

#include <signal.h>

#include <string>
#include <vector>

#include "simulator/client/Reply.h"
#include "tests/client/ChannelTest.h"

using client::Json;

inline constexpr const char* kAskRecord = R"({"cmd":"os.updates","unlockToken":"secret"})";
inline constexpr const char* kBeginCheck =
    R"({"check":true,"cmd":"os.updates","unlockToken":"secret"})";
inline constexpr const char* kBeginInstall = R"({"cmd":"os.install","unlockToken":"secret"})";
inline constexpr const char* kBusy = R"({"ok":false,"error":"busy"})";
inline constexpr const char* kNotUnlocked = R"({"ok":false,"error":"not_unlocked"})";
inline constexpr const char* kFirstCheck = "2026-10-15T08:30:00Z";
inline constexpr const char* kSecondCheck = "2026-10-15T09:00:00Z";

inline const Json kTwoUpdates = {{{"id", "macOS Sequoia 15.1-24B83"},
                                  {"title", "macOS Sequoia 15.1"},
                                  {"sizeBytes", 7945689498},
                                  {"restartRequired", true}},
                                 {{"id", "Safari18.0SequoiaAuto-18.0"},
                                  {"title", "Safari 18.0"},
                                  {"sizeBytes", 148897792},
                                  {"restartRequired", false}}};

/// The reply of "os.updates" when nothing goes on and nothing is pending, with these changes.
inline std::string Record(const Json& changes) {
  Json record = {
      {"ok", true},
      {"checking", false},
      {"installing", false},
      {"progress", 0},
      {"restartRequired", false},
      {"lastChecked", kFirstCheck},
      {"updates", Json::array()},
      {"error", nullptr},
      {"policy",
       {{"automatic", false},
        {"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", {0, 1, 2, 3, 4, 5, 6}}}}}}};
  if (changes.is_object()) record.update(changes);
  return record.dump();
}

class UpdatesTest : public ChannelTest {
 protected:
  void SetUp() override { keepUnlock(); }

  /// Runs a verb that follows what goes on, without waiting long between two questions.
  ChildResult follow(const std::string& verb, const std::vector<std::string>& options = {}) const {
    return RunChild(following(verb, options));
  }

  ChildSetup following(const std::string& verb, const std::vector<std::string>& options) const {
    std::vector<std::string> arguments = {"updates", verb, "--interval", "0.01"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return setup(arguments);
  }
};
