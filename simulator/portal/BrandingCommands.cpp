// The administrator's commands for brandings and their photos.
#include <iostream>
#include <system_error>
#include <utility>

#include "simulator/portal/AdminPaths.h"
#include "simulator/portal/Commands.h"
#include "simulator/portal/Files.h"
#include "simulator/portal/Limits.h"
#include "simulator/portal/Printable.h"

namespace portal {
namespace {

/// The texts of a terminal's branding; no others, whatever was stored there unchecked.
Json Texts(const Json& terminal) {
  Json texts = Json::object();
  const Json branding = terminal.value("branding", Json());
  if (!branding.is_object()) return texts;
  for (const char* key : {"displayName", "signInSubtitle"})
    if (branding.contains(key) && branding[key].is_string()) texts[key] = branding[key];
  return texts;
}

/// Reads a photo.
/// @param problem receives one sentence when there is none
std::optional<std::string> ReadPhoto(const std::filesystem::path& file, std::string& problem) {
  std::error_code error;
  const bool regular = std::filesystem::is_regular_file(file, error);
  problem = file.string() + " has more than 15 MiB";
  if (regular && std::filesystem::file_size(file, error) > kMaxPhoto && !error) return std::nullopt;
  std::optional<std::string> bytes = ReadFile(file, kMaxPhoto);
  problem = file.string() + (bytes ? " is empty" : " cannot be read");
  return bytes && !bytes->empty() ? bytes : std::nullopt;
}

HttpRequest Upload(const Json& terminal, std::string bytes, const PhotoDetails& details) {
  Json query = Json::object();
  if (details.width) query["width"] = *details.width;
  if (details.height) query["height"] = *details.height;
  if (details.credit) query["credit"] = *details.credit;
  HttpRequest request;
  request.method = "POST";
  request.path = PhotosPath(terminal) + Query(query);
  request.headers["content-type"] = details.contentType.value_or("application/octet-stream");
  request.body = std::move(bytes);
  return request;
}

/// The digests in a list of photos that begin so.
std::vector<std::string> Digests(const Json& photos, const std::string& beginning) {
  std::vector<std::string> digests;
  for (const Json& photo : photos) {
    const std::string& digest = photo["sha256"].get_ref<const std::string&>();
    if (digest.starts_with(beginning)) digests.push_back(digest);
  }
  return digests;
}

}  // namespace

int Commands::branding(const std::string& terminal, const BrandingChange& given) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  if (!found) return status;
  Json change = Json::object();
  if (given.displayName || given.subtitle) {
    change["branding"] = Texts(*found);
    if (given.displayName) change["branding"]["displayName"] = *given.displayName;
    if (given.subtitle) change["branding"]["signInSubtitle"] = *given.subtitle;
    if (!change["branding"].contains("displayName"))
      return fail(kRefused, "the terminal has no branding yet; give its --display-name as well");
  }
  if (given.tenant) change["tenantId"] = given.tenant->empty() ? Json() : Json(*given.tenant);
  return ask("PATCH", TerminalPath(*found), change, kDone);
}

int Commands::photos(const std::string& terminal) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  if (!found) return status;
  const bool branded = found->value("branding", Json()).is_object();
  return ask("GET", PhotosPath(*found), nullptr, branded ? kPhotos : kNoPhotos);
}

int Commands::addPhoto(const std::string& terminal, const std::filesystem::path& file,
                       const PhotoDetails& details) const {
  std::string problem;
  std::optional<std::string> bytes = ReadPhoto(file, problem);
  if (!bytes) return fail(kRefused, problem);
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  if (!found) return status;
  const auto answer = AskPortal(_dir, Upload(*found, std::move(*bytes), details));
  const bool known = answer && answer->status == 200;
  return report(answer, known ? kKnownPhoto : kAddedPhoto);
}

int Commands::removePhoto(const std::string& terminal, const std::string& digest) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  if (!found) return status;
  const std::optional<PortalAnswer> answer = AskPortal(_dir, "GET", PhotosPath(*found));
  if (!answer || !answer->success() || !kPhotos.shape(answer->body)) return report(answer, kPhotos);
  const std::vector<std::string> meant = Digests(answer->body["photos"], LowerCase(digest));
  if (meant.empty())
    return fail(kRefused, "the terminal has no photo whose digest begins with \"" + digest + "\"");
  if (meant.size() > 1)
    return fail(kRefused, "more than one photo has a digest that begins with \"" + digest +
                              "\"; give more of it");
  status = ask("DELETE", PhotosPath(*found) + "/" + meant.front(), nullptr, kRemovedPhoto);
  if (status == kOk && !_json) std::cout << "removed: " << Printable(meant.front()) << "\n";
  return status;
}

}  // namespace portal
