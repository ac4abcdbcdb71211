// The branding's cache: nothing to do, and much to fetch.
#include <dirent.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <map>

#include "platform/Crypto.h"
#include "portal/KioskBranding.h"
#include "portal/KioskHttp.h"
#include "tests/bench/Curl.h"
#include "tests/bench/Measure.h"
#include "tests/support/MacFolder.h"
#include "tests/support/ScriptedPortal.h"

namespace {

constexpr int kRounds = 15;
constexpr int kSyncs = 20;
constexpr double kMicroseconds = 1e6;
constexpr double kMilliseconds = 1e3;
constexpr char kDirectory[] = "/Users/Shared/Branding";
constexpr std::size_t kPhotoBytes = 2'000'000;
constexpr char kPhotoPath[] = "/api/kiosk/branding/photos/";

using Photos = std::map<std::string, std::string>;  // bytes by digest

std::string Digest(const std::string& bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, EVP_sha256(), nullptr);
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (unsigned int each = 0; each < size; ++each) {
    text += {kDigits[digest[each] >> 4], kDigits[digest[each] & 15]};
  }
  return text;
}

Photos MakePhotos(int count, std::size_t bytes) {
  Photos photos;
  for (int each = 0; each < count; ++each) {
    std::string photo(bytes, 'x');
    photo.replace(0, 4, std::to_string(1000 + each));
    const std::string digest = Digest(photo);
    photos.emplace(digest, std::move(photo));
  }
  return photos;
}

Json ProjectionOf(const Photos& photos) {
  Json listed = Json::array();
  for (const auto& [digest, bytes] : photos) listed.push_back({{"sha256", digest}});
  return *KioskBrandingProjection({{"displayName", "Bench"}, {"photos", listed}}, "tenant");
}

void Apply(const Json& projection, const KioskPhotoFetcher& fetch) {
  if (!KioskBrandingApply(kDirectory, projection, fetch, 0, 0)) Fail("the branding is incomplete");
}

// As "ls -l" lists: names, and what is behind each.
void ListDirectory() {
  DIR* const directory = opendir(kDirectory);
  if (directory == nullptr) Fail("no directory");
  while (const dirent* entry = readdir(directory)) {
    struct stat info = {};
    if (fstatat(dirfd(directory), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) Fail("no entry");
  }
  closedir(directory);
}

void CompareSteadyState() {
  const Photos photos = MakePhotos(200, 1000);
  const Json projection = ProjectionOf(photos);
  Apply(projection, [&](const std::string& digest) { return photos.at(digest); });
  const KioskPhotoFetcher none = [](const std::string&) -> std::optional<std::string> {
    Fail("a photo that is there was fetched");
  };
  Compare(
      {"branding, 200 photos there", "µs", "≤ 1.2 × listing", 1.2}, kRounds,
      {{"kioskd",
        [&] { return kMicroseconds * SecondsEach(kSyncs, [&] { Apply(projection, none); }); }},
       {"directory listing", [&] { return kMicroseconds * SecondsEach(kSyncs, ListDirectory); }}});
  KioskBrandingClear(kDirectory);
}

void FetchAndHash(Curl& curl, const std::string& base, const Photos& photos) {
  for (const auto& [digest, bytes] : photos) {
    if (Digest(curl.get(base + kPhotoPath + digest)) != digest) Fail("a wrong photo");
  }
}

// The floor, and what writing a file safely takes.
void FetchHashAndStore(Curl& curl, const std::string& base, const Photos& photos) {
  for (const auto& [digest, bytes] : photos) {
    const std::string photo = curl.get(base + kPhotoPath + digest);
    if (Digest(photo) != digest) Fail("a wrong photo");
    const std::string name = "/Users/Shared/" + digest;
    const int file = open((name + ".tmp").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (write(file, photo.data(), photo.size()) < 0 || fsync(file) != 0 || close(file) != 0 ||
        rename((name + ".tmp").c_str(), name.c_str()) != 0) {
      Fail("cannot write a photo");
    }
  }
  for (const auto& [digest, bytes] : photos) unlink(("/Users/Shared/" + digest).c_str());
}

void CompareDownloads(const ScriptedPortal& portal, const Photos& photos) {
  const std::string base = portal.url();
  const Json projection = ProjectionOf(photos);
  const KioskPhotoFetcher fetch = [&](const std::string& digest) -> std::optional<std::string> {
    return std::move(KioskHttpGetData(base, kPhotoPath + digest, "token").data);
  };
  Curl curl(base, "", "token");
  Compare(
      {"branding, 20 new photos of 2 MB", "ms", "≤ 1.2 × download and SHA-256", 1.2}, kRounds,
      {{"kioskd",
        [&] {
          const double seconds = SecondsEach(1, [&] { Apply(projection, fetch); });
          KioskBrandingClear(kDirectory);
          return kMilliseconds * seconds;
        }},
       {"download, SHA-256",
        [&] { return kMilliseconds * SecondsEach(1, [&] { FetchAndHash(curl, base, photos); }); }},
       {"the same, and stored", [&] {
          return kMilliseconds * SecondsEach(1, [&] { FetchHashAndStore(curl, base, photos); });
        }}});
}

}  // namespace

int main() {
  const Photos photos = MakePhotos(20, kPhotoBytes);
  ScriptedPortal portal;
  for (const auto& [digest, bytes] : photos) {
    portal.answerText("GET " + (kPhotoPath + digest), 200, bytes, "image/jpeg");
  }
  MacFolder mac;
  mac.enter();
  CompareSteadyState();
  CompareDownloads(portal, photos);
}
