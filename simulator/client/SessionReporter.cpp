#include "simulator/client/SessionReporter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>
#include <variant>

#include "simulator/client/Descriptor.h"
#include "simulator/client/Limits.h"

namespace client {
namespace {

std::optional<std::string> ReadRegular(int descriptor) {
  struct stat about {};
  if (fstat(descriptor, &about) != 0 || !S_ISREG(about.st_mode)) return std::nullopt;
  return ReadAll(descriptor, kMaximumOccupancyFileBytes);
}

/// What the file says; null when it says nothing.
const Occupancy* ReadOccupancy(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return errno == ENOENT ? &kIdle : nullptr;
  const std::optional<std::string> text = ReadRegular(descriptor);
  (void)close(descriptor);  // nothing was written
  return text ? OccupancyNamed(text->substr(0, text->find('\n'))) : nullptr;
}

std::string Outcome(const ChannelResult& result) {
  const auto* const text = std::get_if<std::string>(&result);
  const std::optional<Json> reply = text == nullptr ? std::nullopt : ReplyParse(*text);
  if (!reply) return "no_answer";
  return ReplyFlag(*reply, "ok") ? "ok" : ReplyString(*reply, "error").value_or("refused");
}

}  // namespace

SessionReporter::SessionReporter(Connection& connection, std::string path)
    : _connection(connection), _path(std::move(path)) {}

bool SessionReporter::due(std::chrono::steady_clock::time_point now) const {
  // A daemon that was started anew knows of no report.
  const bool lost = _answered && !_connection.stands();
  return _occupancy != _reported || lost || now >= _next;
}

std::string SessionReporter::report() {
  _reported = _occupancy;
  if (!_connection.stands()) _connection.close();
  const ChannelResult result =
      _connection.exchange(OccupancyReport(*_occupancy).dump(), kReportTimeout);
  _answered = std::holds_alternative<std::string>(result);
  return Outcome(result);
}

std::optional<Json> SessionReporter::step(std::chrono::steady_clock::time_point now) {
  const Occupancy* const told = ReadOccupancy(_path);
  if (told != nullptr) _occupancy = told;
  if (!due(now)) return std::nullopt;
  Json line = {{"report", _occupancy->name}, {"outcome", report()}};
  _next = now + (_answered ? kReportInterval : kReportRetryInterval);
  if (line == _last) return std::nullopt;
  _last = line;
  return line;
}

}  // namespace client
