// The world of tests with a hostile portal: a daemon in virtual time whose portal sends bytes.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/daemon/DaemonTest.h"
#include "tests/hostile/RawPortal.h"

inline constexpr char kBrandingCache[] = "/Library/Application Support/Brindlex/Kiosk/Branding";

class HostileTest : public DaemonTest {
 protected:
  /// A settled terminal of the raw portal, whose first check-in was answered with "enrolled".
  void startAtRawPortal();

  struct Framed {
    std::string bytes;
    std::size_t unsaid = 0;  ///< how many bytes at its end say nothing more
  };
  /// An answer in each way of saying where its body ends: by its length, in chunks and by the end
  /// of the connection.
  static std::vector<Framed> framings(int status, const std::string& body);
  /// The first of them.
  static std::string framed(int status, const std::string& body) {
    return framings(status, body).front().bytes;
  }

  /// Calls `look` with the raw portal answering "METHOD PATH..." with every beginning of each
  /// of these but the whole ones, and all else with `otherwise`.
  void cutEverywhere(const std::string& call, const std::vector<Framed>& answers,
                     const std::function<void()>& look);

  /// Answers "METHOD PATH..." with these bytes, and all else with `otherwise`.
  void answerRaw(const std::string& call, const std::string& bytes);

  /// How many lines of the daemon's log begin like this.
  std::size_t countLinesThatBegin(const std::string& start) const;

  RawPortal raw;
  /// The body of what all other calls are answered with.
  std::string otherwise = R"({"status":"enrolled"})";
};
