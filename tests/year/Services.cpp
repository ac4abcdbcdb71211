// In place of the platform's user directory, system log and URL sessions.
#include <array>
#include <memory>
#include <utility>

#include "platform/Clock.h"
#include "platform/Directory.h"
#include "platform/Log.h"
#include "platform/UrlSession.h"
#include "tests/fuzz/world/World.h"
#include "tests/year/Around.h"

Around& TheAround() {
  static Around around;
  return around;
}

namespace platform {
namespace {

UrlResult Answer(std::int64_t status, const std::string& data) {
  return {.error = std::nullopt, .httpStatus = status, .data = data};
}

UrlResult PortalsResult() {
  static const std::array<UrlResult, 6> troubles{
      Answer(500, "<h1>Sorry</h1>"),           Answer(200, "{\"status\": \"enrol"),
      Answer(200, R"({"status": "pending"})"), Answer(403, R"({"status": "revoked"})"),
      Answer(401, R"({"status": "who"})"),     Answer(200, "")};
  const Around& around = TheAround();
  if (around.portal == PortalMood::kAnswers) return Answer(200, around.answer);
  if (around.portal == PortalMood::kTrouble) return troubles.at(around.trouble % troubles.size());
  return {.error = "not reached", .httpStatus = std::nullopt, .data = ""};
}

}  // namespace

std::optional<std::string> DirectoryUserUuid(uid_t uid) {
  if (uid != kWorldUid) return std::nullopt;
  return kAccountUuid;
}

// No record is asked for: the account is there.
struct DirectoryRecord::Impl {};
DirectoryRecord::~DirectoryRecord() = default;
bool DirectoryRecord::changePassword(const std::string&, std::string&) { return false; }

struct DirectoryNode::Impl {};
DirectoryNode::~DirectoryNode() = default;
std::optional<DirectoryNode> DirectoryNode::openLocal(std::string&) { return std::nullopt; }
std::optional<DirectoryRecord> DirectoryNode::userRecord(const std::string&, std::string&) {
  return std::nullopt;
}

// There is nothing to keep a handle of.
SystemLog::SystemLog(const char*, const char*) : _handle(nullptr) {}
bool SystemLog::enabled(LogLevel) const { return _handle == nullptr; }

void SystemLog::write(LogLevel, const std::string& message) const {
  TheAround().happenings.push_back({.kind = Happening::Kind::kLog,
                                    .text = message,
                                    .monotonicNs = ClockMonotonicNs(),
                                    .wallSeconds = ClockSecondsSince1970()});
}

struct UrlSession::Impl {};
UrlSession::UrlSession(const UrlSessionConfiguration&) : _impl(std::make_shared<Impl>()) {}
UrlSession::~UrlSession() = default;

// Nothing but check-ins is asked of the portal in a year without pairing and branding.
void UrlSession::start(UrlRequest, std::function<void(const UrlResult&)> completion) {
  const std::uint64_t began = ClockMonotonicNs();
  ClockSleep(TheAround().portalTakesNs);
  TheAround().happenings.push_back({.kind = Happening::Kind::kCheckIn,
                                    .text = "",
                                    .answered = TheAround().portal == PortalMood::kAnswers,
                                    .beganNs = began,
                                    .monotonicNs = ClockMonotonicNs(),
                                    .wallSeconds = ClockSecondsSince1970()});
  completion(PortalsResult());
}

}  // namespace platform
