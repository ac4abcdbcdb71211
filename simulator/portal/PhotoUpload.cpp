#include "simulator/portal/PhotoUpload.h"

#include <charconv>
#include <string>

#include "simulator/portal/ImageHeader.h"
#include "simulator/portal/JsonText.h"
#include "simulator/portal/Secrets.h"
#include "simulator/portal/Shapes.h"

namespace portal {
namespace {

/// A size as digits only; -1 for anything else.
int Size(const std::string& text) {
  int size = -1;
  const char* const end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data(), end, size);
  return error == std::errc() && last == end ? size : -1;
}

/// What the query says, as members of a photo's record; nothing when it says anything else.
std::optional<Json> ReadQuery(const std::map<std::string, std::string>& query) {
  Json given = Json::object();
  for (const auto& [name, value] : query) {
    if (name == "credit")
      given[name] = value;
    else if (name == "width" || name == "height")
      given[name] = Size(value);
    else
      return std::nullopt;
  }
  // Text that is not UTF-8 would be another after it was stored.
  return ParseJson(JsonText(given)) == given ? std::optional(given) : std::nullopt;
}

/// The content type in lower case, without its parameters.
std::string ContentType(const HttpRequest& request) {
  const auto header = request.headers.find("content-type");
  if (header == request.headers.end()) return {};
  const std::string type = LowerCase(header->second);
  return type.substr(0, type.find_first_of("; "));
}

/// Completes the record by what the photo says of itself.
void ReadPhoto(const std::string& photo, Json& record) {
  const std::optional<ImageHeader> header = ReadImageHeader(photo);
  if (!header) return;
  const Json found = {
      {"contentType", header->contentType}, {"width", header->width}, {"height", header->height}};
  for (const auto& [key, value] : found.items())
    if (!record.contains(key)) record[key] = value;
}

bool IsComplete(const Json& record) {
  return record.contains("contentType") && record.contains("width") && record.contains("height");
}

}  // namespace

std::optional<Json> DescribePhoto(const HttpRequest& upload, HttpResponse& refusal) {
  refusal = ErrorResponse(400, "bad_request");
  std::optional<Json> record = ReadQuery(upload.query);
  if (!record || upload.body.empty()) return std::nullopt;
  const std::string type = ContentType(upload);
  refusal = ErrorResponse(415, "unknown_format");
  if (type != "application/octet-stream") (*record)["contentType"] = type;
  ReadPhoto(upload.body, *record);
  if (!IsComplete(*record) || !IsContentType((*record)["contentType"])) return std::nullopt;
  const std::optional<std::string> digest = Sha256Hex(upload.body);
  refusal = ErrorResponse(digest ? 400 : 500, digest ? "bad_request" : "internal");
  if (!digest) return std::nullopt;
  record->emplace("sha256", *digest);
  record->emplace("credit", "");
  return IsPhoto(*record) ? record : std::nullopt;
}

}  // namespace portal
