// kiosk-app: stands in for the kiosk application in the simulated Mac. It leaves a line that tells
// how and where it was started and how the daemon answered it, then reports how its session is used
// until it is told to go.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <variant>
#include <vector>

#include "simulator/client/Connection.h"
#include "simulator/client/Descriptor.h"
#include "simulator/client/Limits.h"
#include "simulator/client/Reply.h"
#include "simulator/client/SessionReporter.h"

namespace client {
namespace {

using Arguments = std::vector<std::string>;

constexpr std::string_view kLogFolder = "Library/Logs";
constexpr std::string_view kStartLog = "kiosk-app.jsonl";
constexpr std::string_view kSessionLog = "kiosk-app-session.jsonl";
constexpr std::string_view kOccupancyFile = "Library/Application Support/Brindlex/session";

/// The channel's answer to "status", once there is a channel.
ChannelResult AskStatus(Connection& connection) {
  const auto giveUp = std::chrono::steady_clock::now() + kAppearanceTimeout;
  for (;;) {
    ChannelResult result = connection.exchange(R"({"cmd":"status"})", kStatusTimeout);
    const auto* const failure = std::get_if<ChannelFailure>(&result);
    const bool absent = failure != nullptr && failure->kind == ChannelFailureKind::kNotThere;
    if (!absent || std::chrono::steady_clock::now() >= giveUp) return result;
    std::this_thread::sleep_for(kAppearanceInterval);
  }
}

Json Status(Connection& connection) {
  const ChannelResult result = AskStatus(connection);
  const auto* const text = std::get_if<std::string>(&result);
  return text == nullptr ? Json() : ReplyParse(*text).value_or(Json());
}

Json StartRecord(const Arguments& arguments, const Json& status) {
  return {{"arguments", arguments}, {"uid", getuid()}, {"session", getsid(0)}, {"status", status}};
}

/// The home folder; where there is none, a place below which nothing can be opened.
std::filesystem::path Home() {
  const char* const home = std::getenv("HOME");
  return home == nullptr || *home == '\0' ? "/dev/null" : home;
}

/// Appends to a log below the home folder; folders are made as needed.
bool AppendToLog(std::string_view name, const std::string& line) {
  const std::filesystem::path folder = Home() / kLogFolder;
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) return false;
  const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC;
  const int descriptor = open((folder / name).c_str(), flags, 0644);
  if (descriptor < 0) return false;
  const bool written = WriteAll(descriptor, line);
  return close(descriptor) == 0 && written;
}

void Record(std::string_view log, const Json& record) {
  const std::string line = record.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  // With standard error gone as well there is nowhere left to report to.
  if (!AppendToLog(log, line)) (void)WriteAll(STDERR_FILENO, line);
}

[[noreturn]] void ReportForEver(Connection& connection) {
  SessionReporter reporter(connection, Home() / kOccupancyFile);
  for (;;) {
    const std::optional<Json> news = reporter.step(std::chrono::steady_clock::now());
    if (news) Record(kSessionLog, *news);
    std::this_thread::sleep_for(kOccupancyInterval);
  }
}

void LeaveOnTermination(int) { _exit(0); }

/// Lets SIGTERM end the process in good order at any time, blocked by the parent or not.
void ListenForTermination() {
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGTERM, LeaveOnTermination);
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  (void)sigprocmask(SIG_UNBLOCK, &signals, nullptr);  // fails for a bad first argument only
}

int Main(const Arguments& arguments) {
  if (std::find(arguments.begin(), arguments.end(), "--kiosk-shell") == arguments.end()) {
    std::cerr << "Brindlex: This stand-in has the kiosk mode only; start it with --kiosk-shell.\n";
    return 2;
  }
  ListenForTermination();
  Connection connection(ChannelPath());
  Record(kStartLog, StartRecord(arguments, Status(connection)));
  ReportForEver(connection);
}

}  // namespace
}  // namespace client

// NOLINTNEXTLINE(bugprone-exception-escape): only memory can run out
int main(int argc, char** argv) { return client::Main({argv + 1, argv + argc}); }
