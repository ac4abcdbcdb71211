#include "simulator/portal/Branding.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "simulator/portal/Limits.h"
#include "simulator/portal/Shapes.h"

namespace portal {
namespace {

/// The list of photos in a branding; null when there is none.
template <class Record>
Record* Photos(Record& terminal) {
  const auto branding = terminal.find("branding");
  if (branding == terminal.end() || !branding->is_object()) return nullptr;
  const auto photos = branding->find("photos");
  return photos != branding->end() && photos->is_array() ? &*photos : nullptr;
}

bool HasDigest(const Json& photo, const std::string& digest) {
  return photo.is_object() && photo.contains("sha256") && photo["sha256"] == digest;
}

template <class Record>
Record* Find(Record& terminal, const std::string& digest) {
  Record* const photos = Photos(terminal);
  if (photos == nullptr) return nullptr;
  const auto found = std::find_if(photos->begin(), photos->end(),
                                  [&](const Json& photo) { return HasDigest(photo, digest); });
  return found == photos->end() ? nullptr : &*found;
}

/// Those that any terminal lists.
std::set<std::string> ListedPhotos(const State& state) {
  std::set<std::string> digests;
  for (const Json& terminal : state.terminals) {
    const Json* const photos = Photos(terminal);
    if (photos == nullptr) continue;
    for (const Json& photo : *photos)
      if (photo.is_object() && photo.contains("sha256") && IsDigest(photo["sha256"]))
        digests.insert(photo["sha256"].get<std::string>());
  }
  return digests;
}

}  // namespace

Json Rebranded(const Json& terminal, const Json& change) {
  return {{"displayName", change["displayName"]},
          {"signInSubtitle", change.value("signInSubtitle", "")},
          {"photos", ValidPhotos(terminal)}};
}

Json ValidPhotos(const Json& terminal) {
  Json photos = Json::array();
  if (const Json* const listed = Photos(terminal))
    std::copy_if(listed->begin(), listed->end(), std::back_inserter(photos), IsPhoto);
  return photos;
}

const Json* FindPhoto(const Json& terminal, const std::string& digest) {
  return Find(terminal, digest);
}

HttpResponse AddPhoto(Json& terminal, Json photo, bool credited) {
  Json* const photos = Photos(terminal);
  if (photos == nullptr) return ErrorResponse(409, "no_branding");
  if (Json* const before = Find(terminal, photo["sha256"].get_ref<const std::string&>())) {
    if (!credited && IsPhoto(*before)) photo["credit"] = (*before)["credit"];
    *before = photo;
    return JsonResponse(200, photo);
  }
  if (photos->size() >= kMaxPhotos) return ErrorResponse(409, "too_many_photos");
  photos->push_back(photo);
  return JsonResponse(201, photo);
}

HttpResponse RemovePhoto(Json& terminal, const std::string& digest) {
  if (FindPhoto(terminal, digest) == nullptr) return ErrorResponse(404, "not_found");
  Json& photos = *Photos(terminal);
  photos.erase(std::remove_if(photos.begin(), photos.end(),
                              [&](const Json& photo) { return HasDigest(photo, digest); }),
               photos.end());
  return JsonResponse(200, Json::object());
}

void RemoveUnlistedPhotos(Store& store, const PhotoFiles& files) {
  store.run([&](const State& state) {
    files.removeAllBut(ListedPhotos(state));
    return JsonResponse(200, Json::object());
  });
}

}  // namespace portal
