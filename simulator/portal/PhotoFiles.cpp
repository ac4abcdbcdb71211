#include "simulator/portal/PhotoFiles.h"

#include <sys/stat.h>

#include <system_error>
#include <vector>

#include "simulator/portal/Files.h"
#include "simulator/portal/Limits.h"
#include "simulator/portal/Shapes.h"

namespace portal {
namespace {

/// The digest in a photo's file name, or in that of the temporary file it is written to; empty for
/// any other name.
std::string DigestOf(const std::string& name) {
  static const std::string kTemporary = kTemporarySuffix;
  const bool begun = name.ends_with(kTemporary);
  const std::string digest = begun ? name.substr(0, name.size() - kTemporary.size()) : name;
  return IsDigest(digest) ? digest : "";
}

}  // namespace

bool PhotoFiles::keep(const std::string& digest, const std::string& bytes) const {
  if (mkdir(_dir.c_str(), 0700) != 0 && errno != EEXIST) return false;
  return ReplaceFile(_dir / digest, bytes, 0600);
}

std::optional<std::string> PhotoFiles::read(const std::string& digest) const {
  return ReadFile(_dir / digest, kMaxPhoto);
}

void PhotoFiles::removeAllBut(const std::set<std::string>& digests) const {
  std::vector<std::filesystem::path> useless;
  std::error_code error;
  std::filesystem::directory_iterator entry(_dir, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    const std::string name = entry->path().filename();
    const std::string digest = DigestOf(name);
    if (!digest.empty() && (digest != name || !digests.contains(digest)))
      useless.push_back(entry->path());
  }
  for (const std::filesystem::path& path : useless) std::filesystem::remove(path, error);
}

}  // namespace portal
