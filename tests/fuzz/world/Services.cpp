// In place of the platform's user directory, system log and URL sessions.
#include <memory>

#include "platform/Directory.h"
#include "platform/Log.h"
#include "platform/UrlRequestFlaw.h"
#include "platform/UrlSession.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/world/World.h"

namespace platform {
namespace {

// The answer to the longest start of a path that the world has one for.
Json AnswerTo(const std::string& path) {
  Json answer;
  std::size_t longest = 0;
  const Json& portal = TheWorld().portal;
  if (!portal.is_object()) return answer;
  for (const auto& [start, scripted] : portal.items()) {
    if (!path.starts_with(start) || start.size() < longest) continue;
    longest = start.size();
    answer = scripted;
  }
  return answer;
}

UrlResult ResultOf(const Json& answer) {
  UrlResult result;
  const bool reached =
      answer.is_object() && answer.contains("status") && answer["status"].is_number_integer();
  if (!reached) {
    result.error = "not reached";
    return result;
  }
  result.httpStatus = answer["status"].get<std::int64_t>();
  if (answer.contains("body")) {
    result.data = answer["body"].dump(-1, ' ', false, Json::error_handler_t::replace);
  } else if (answer.contains("text") && answer["text"].is_string()) {
    result.data = answer["text"].get<std::string>();
  }
  return result;
}

}  // namespace

std::optional<std::string> DirectoryUserUuid(uid_t uid) {
  if (uid != kWorldUid || !KioskAccountExists() || TheWorld().hidesUuid) return std::nullopt;
  return kWorldUuid;
}

struct DirectoryRecord::Impl {};
DirectoryRecord::DirectoryRecord(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}
DirectoryRecord::~DirectoryRecord() = default;
DirectoryRecord::DirectoryRecord(DirectoryRecord&&) noexcept = default;
DirectoryRecord& DirectoryRecord::operator=(DirectoryRecord&&) noexcept = default;

bool DirectoryRecord::changePassword(const std::string& newPassword, std::string&) {
  FuzzExpect(newPassword.size() == 32, "the account's password is a long one");
  return KioskAccountExists() && !TheWorld().refusesPassword;
}

struct DirectoryNode::Impl {};
DirectoryNode::DirectoryNode(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}
DirectoryNode::~DirectoryNode() = default;
DirectoryNode::DirectoryNode(DirectoryNode&&) noexcept = default;
DirectoryNode& DirectoryNode::operator=(DirectoryNode&&) noexcept = default;

std::optional<DirectoryNode> DirectoryNode::openLocal(std::string&) {
  return DirectoryNode(std::make_unique<Impl>());
}

std::optional<DirectoryRecord> DirectoryNode::userRecord(const std::string&, std::string&) {
  if (!KioskAccountExists()) return std::nullopt;
  return DirectoryRecord(std::make_unique<DirectoryRecord::Impl>());
}

SystemLog::SystemLog(const char*, const char*) : _handle(nullptr) {}
bool SystemLog::enabled(LogLevel) const { return true; }
void SystemLog::write(LogLevel, const std::string&) const {}

struct UrlSession::Impl {};
UrlSession::UrlSession(const UrlSessionConfiguration&) : _impl(std::make_shared<Impl>()) {}
UrlSession::~UrlSession() = default;

void UrlSession::start(UrlRequest request, std::function<void(const UrlResult&)> completion) {
  // As every platform's session does.
  if (const char* flaw = UrlRequestFlaw(request)) {
    return completion({.error = flaw, .httpStatus = std::nullopt, .data = ""});
  }
  const std::size_t path = request.url.find("/api/kiosk/");
  FuzzExpect(path != std::string::npos, "only the portal's paths are asked for", request.url);
  completion(ResultOf(AnswerTo(request.url.substr(path))));
}

}  // namespace platform
