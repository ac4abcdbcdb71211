#include "simulator/portal/Recorder.h"

#include <fcntl.h>

#include <cstdio>
#include <optional>

#include "simulator/portal/JsonText.h"

namespace portal {
namespace {

/// JSON where it is, else the text, null for no body.
Json Body(const std::string& text) {
  if (text.empty()) return nullptr;
  const std::optional<Json> parsed = ParseJson(text);
  return parsed ? *parsed : Json(text);
}

}  // namespace

bool Recorder::open(const std::filesystem::path& path) {
  _file = Descriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  return _file.open();
}

void Recorder::write(const HttpRequest& request, const HttpResponse& response) {
  if (!_file.open()) return;
  Json line = {{"method", request.method},           {"path", request.path},
               {"requestHeaders", request.headers},  {"requestBody", Body(request.body)},
               {"status", response.status},          {"responseHeaders", response.headers},
               {"responseBody", Body(response.body)}};
  if (response.misbehaved) line["misbehaviour"] = true;
  const std::lock_guard lock(_mutex);
  if (!WriteAll(_file.get(), JsonText(line) + "\n")) std::perror("portal: cannot write the record");
}

}  // namespace portal
