#include "simulator/portal/Recorder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <map>
#include <optional>
#include <string>

#include "simulator/portal/JsonText.h"

namespace portal {
namespace {

constexpr char kRedacted[] = "redacted";

/// What stands for the secrets of a body: something of their shape. An empty one stays empty.
const std::map<std::string, std::string, std::less<>>& Stands() {
  static const std::map<std::string, std::string, std::less<>> kStands = {
      {"deviceToken", std::string(64, '0')}, {"exitPassword", kRedacted}};
  return kStands;
}

/// Hides whatever stands where a secret should be, but not its type.
void Hide(Json& secret, const std::string& stand) {
  if (secret.is_structured())
    for (Json& element : secret) Hide(element, stand);
  else if (secret.is_string() && secret != "")
    secret = stand;
  else if (secret.is_number())
    secret = 0;
}

void Redact(Json& body) {
  if (!body.is_structured()) return;
  for (const auto& [key, value] : body.items()) {
    const auto stand = body.is_object() ? Stands().find(key) : Stands().end();
    if (stand != Stands().end())
      Hide(value, stand->second);
    else
      Redact(value);
  }
}

/// Keeps the scheme of credentials.
Json Headers(std::map<std::string, std::string> headers) {
  const auto credentials = headers.find("authorization");
  if (credentials != headers.end()) {
    const std::size_t space = credentials->second.find(' ');
    const std::size_t scheme = space == std::string::npos ? 0 : space + 1;
    credentials->second.replace(scheme, std::string::npos, kRedacted);
  }
  return headers;
}

bool IsPicture(const std::map<std::string, std::string>& headers) {
  const auto type = headers.find("content-type");
  return type != headers.end() && LowerCase(type->second).starts_with("image/");
}

/// JSON where it is, null for no body. Anything else is only mentioned: nobody knows what is in it.
Json Body(const std::map<std::string, std::string>& headers, const std::string& text) {
  if (text.empty()) return nullptr;
  std::optional<Json> parsed = IsPicture(headers) ? std::nullopt : ParseJson(text, kMaxAnswerDepth);
  if (!parsed) return std::to_string(text.size()) + " bytes that are not JSON";
  Redact(*parsed);
  return *parsed;
}

/// A file of before may have let others read it; a device is not ours to lock.
bool MakePrivate(int file) {
  struct stat info {};
  if (fstat(file, &info) != 0) return false;
  return !S_ISREG(info.st_mode) || fchmod(file, 0600) == 0;
}

}  // namespace

bool Recorder::open(const std::filesystem::path& path) {
  _file = Descriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  return _file.open() && MakePrivate(_file.get());
}

void Recorder::write(const HttpRequest& request, const HttpResponse& response) {
  if (!_file.open()) return;
  Json line = {{"method", request.method},
               {"path", request.path},
               {"requestHeaders", Headers(request.headers)},
               {"requestBody", Body(request.headers, request.body)},
               {"status", response.status},
               {"responseHeaders", Headers(response.headers)},
               {"responseBody", Body(response.headers, response.body)}};
  if (!request.query.empty()) line["query"] = request.query;
  if (response.misbehaved) line["misbehaviour"] = true;
  const std::lock_guard lock(_mutex);
  if (!WriteAll(_file.get(), JsonText(line) + "\n")) std::perror("portal: cannot write the record");
}

}  // namespace portal
