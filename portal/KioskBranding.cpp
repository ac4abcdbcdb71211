#include "portal/KioskBranding.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <set>
#include <utility>

#include "account/KioskFiles.h"
#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLimits.h"
#include "core/KioskLog.h"
#include "core/KioskText.h"
#include "platform/Crypto.h"
#include "portal/KioskHttp.h"

namespace {

constexpr char kPhotoPath[] = "/api/kiosk/branding/photos/";
constexpr char kBrandingFile[] = "branding.json";
constexpr char kDefaultContentType[] = "image/jpeg";
constexpr std::size_t kDigestLength = 64;
constexpr std::size_t kDigestShown = 12;
constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kFileMode = 0644;

std::string StringOr(const Json& value, const char* otherwise) {
  return value.is_string() ? value.get<std::string>() : otherwise;
}

bool IsDigest(const Json& value) {
  if (!value.is_string()) return false;
  const std::string& text = value.get_ref<const std::string&>();
  return text.size() == kDigestLength &&
         text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

std::string Shown(const std::string& digest) { return digest.substr(0, kDigestShown); }

// A number without its fraction; 0 for anything else.
std::int64_t WholeNumber(const Json& value) {
  std::int64_t integer = 0;
  if (KioskIsInteger(value, integer)) return integer;
  // A number with a fraction is below 2^53, so that it fits.
  return static_cast<std::int64_t>(KioskNumber(value).value_or(0));
}

Json Photo(const Json& entry) {
  const std::string type = StringOr(KioskMember(entry, "contentType"), "");
  return {{"sha256", entry["sha256"]},
          {"contentType", type.empty() ? kDefaultContentType : type},
          {"width", WholeNumber(KioskMember(entry, "width"))},
          {"height", WholeNumber(KioskMember(entry, "height"))},
          {"credit", StringOr(KioskMember(entry, "credit"), "")}};
}

Json Photos(const Json& entries) {
  Json photos = Json::array();
  if (!entries.is_array()) return photos;
  std::set<std::string> taken;
  for (const Json& entry : entries) {
    const Json& digest = KioskMember(entry, "sha256");
    if (IsDigest(digest) && taken.insert(digest.get<std::string>()).second) {
      photos.push_back(Photo(entry));
    }
  }
  return photos;
}

// A directory's path, taken apart.
struct Place {
  explicit Place(const std::string& dir)
      : parent(dir.substr(0, dir.find_last_of('/'))), name(dir.substr(dir.find_last_of('/') + 1)) {}

  std::string parent;
  std::string name;
};

KioskDescriptor OpenAt(const KioskDescriptor& parent, const std::string& name) {
  return KioskDescriptor(openat(parent.get(), name.c_str(), kKioskDirectoryFlags));
}

// The cache's directory, made if need be, with owner and mode as they must be; no descriptor when
// that cannot be had.
KioskDescriptor OpenCache(const std::string& dir, uid_t uid, gid_t gid) {
  const Place place(dir);
  const KioskDescriptor parent = KioskOpenDirectory(place.parent);
  if (!parent) return {};
  const bool created = mkdirat(parent.get(), place.name.c_str(), kDirectoryMode) == 0;
  KioskDescriptor cache = OpenAt(parent, place.name);
  if (!cache) {
    if (errno != ENOENT) KioskLogError("cannot open %@: %s", dir, std::strerror(errno));
    return {};
  }
  if (created) static_cast<void>(fchown(cache.get(), uid, gid));  // looked at just below
  struct stat info = {};
  if (fstat(cache.get(), &info) != 0 || info.st_uid != uid) {
    KioskLogError("%@ is not owned by uid %u; leaving it alone", dir, uid);
    return {};
  }
  if ((info.st_mode & kKioskPermissionBits) != kDirectoryMode) {
    static_cast<void>(fchmod(cache.get(), kDirectoryMode));  // or the next sync does it
  }
  return cache;
}

// Deletes the directory's entries whose names are not among `kept`. A directory among them stays:
// unlink does not take it.
void RemoveAllBut(const KioskDescriptor& directory, const std::set<std::string>& kept) {
  for (const std::string& name : KioskListDir(directory.get())) {
    if (!kept.contains(name)) static_cast<void>(unlinkat(directory.get(), name.c_str(), 0));
  }
}

// Writes into the cache's directory.
class Cache {
 public:
  // The directory's descriptor stays the caller's.
  Cache(const KioskDescriptor& directory, uid_t uid, gid_t gid)
      : _directory(directory.get()), _uid(uid), _gid(gid) {}

  // Whether the photo is there now. One that was there before is trusted: its name was earned.
  bool keepPhoto(const std::string& digest, const KioskPhotoFetcher& fetch) const {
    struct stat info = {};
    if (fstatat(_directory, digest.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(info.st_mode)) {
      return true;
    }
    const std::optional<std::string> bytes = fetch(digest);
    if (!bytes) return false;
    if (KioskHexadecimal(platform::CryptoSha256(*bytes)) != digest) {
      KioskLogError("branding: SECURITY: photo %@ did not match its digest; discarded",
                    Shown(digest));
      return false;
    }
    if (!KioskWriteAt(_directory, digest, *bytes, kFileMode, _uid, _gid)) return false;
    KioskLog("branding: cached photo %@ (%lu bytes)", Shown(digest), bytes->size());
    return true;
  }

  // Whether "branding.json" holds the projection now; written only when it did not before.
  bool keepProjection(const Json& projection) const {
    const std::optional<std::string> text = KioskJsonText(projection);
    if (!text) return false;
    if (KioskReadAt(_directory, kBrandingFile, kKioskMaximumBrandingBytes) == text) return true;
    return KioskWriteAt(_directory, kBrandingFile, *text, kFileMode, _uid, _gid);
  }

 private:
  int _directory;
  uid_t _uid;
  gid_t _gid;
};

}  // namespace

std::optional<Json> KioskBrandingProjection(const Json& branding, const Json& tenantId) {
  const std::string displayName = StringOr(KioskMember(branding, "displayName"), "");
  if (displayName.empty()) return std::nullopt;
  return Json{{"tenantId", StringOr(tenantId, "")},
              {"displayName", displayName},
              {"signInSubtitle", StringOr(KioskMember(branding, "signInSubtitle"), "")},
              {"photos", Photos(KioskMember(branding, "photos"))}};
}

bool KioskBrandingApply(const std::string& dir, const std::optional<Json>& projection,
                        const KioskPhotoFetcher& fetch, uid_t uid, gid_t gid) {
  if (!projection) {
    KioskBrandingClear(dir);
    return true;
  }
  const KioskDescriptor directory = OpenCache(dir, uid, gid);
  if (!directory) return false;
  const Cache cache(directory, uid, gid);
  std::set<std::string> kept{kBrandingFile};
  bool complete = true;
  for (const Json& photo : (*projection)["photos"]) {
    const std::string& digest = *kept.insert(photo["sha256"].get<std::string>()).first;
    if (!cache.keepPhoto(digest, fetch)) complete = false;
  }
  if (!cache.keepProjection(*projection)) complete = false;
  RemoveAllBut(directory, kept);
  return complete;
}

void KioskBrandingClear(const std::string& dir) {
  const Place place(dir);
  const KioskDescriptor parent = KioskOpenDirectory(place.parent);
  if (!parent) return;
  KioskDescriptor directory = OpenAt(parent, place.name);
  if (!directory) return;
  RemoveAllBut(directory, {});
  static_cast<void>(directory.close());
  if (unlinkat(parent.get(), place.name.c_str(), AT_REMOVEDIR) == 0) {
    KioskLog("branding: cache cleared");
  }
}

void KioskDaemon::syncBranding(const Json& answer, const std::string& token) {
  const std::optional<Json> projection =
      KioskBrandingProjection(KioskMember(answer, "branding"), KioskMember(answer, "tenantId"));
  const auto fetch = [&](const std::string& digest) { return fetchPhoto(digest, token); };
  // What is still missing is tried again at the next check-in.
  static_cast<void>(KioskBrandingApply(kKioskBrandingDirectory, projection, fetch, 0, 0));
}

// Says once of a photo that it cannot be had, until it can.
std::optional<std::string> KioskDaemon::fetchPhoto(const std::string& digest,
                                                   const std::string& token) {
  KioskHttpResult answer = KioskHttpGetData(authBaseUrl(), kPhotoPath + digest, token);
  if (answer.success() && !answer.data.empty()) {
    _brandingFailed.erase(digest);
    return std::move(answer.data);
  }
  if (!_brandingFailed.contains(digest)) {
    KioskLogError("branding: could not fetch photo %@ (HTTP %ld)", Shown(digest), answer.status);
    if (_brandingFailed.size() >= kKioskMaximumBrandingFailures) _brandingFailed.clear();
    _brandingFailed.insert(digest);
  }
  return std::nullopt;
}
