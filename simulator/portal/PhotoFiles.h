// The photos of brandings as files, each named by the digest of its bytes.
#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>

namespace portal {

/// The folder of photos. Not for more than one thread at a time: what is done with a photo belongs
/// to a step of the `Store`, so that none is removed while it becomes listed.
class PhotoFiles {
 public:
  /// @param dir the folder; made with the first photo
  explicit PhotoFiles(std::filesystem::path dir) : _dir(std::move(dir)) {}

  /// Keeps a photo durably; one of the same bytes is replaced.
  /// @param digest the SHA-256 of `bytes` as 64 lower-case hexadecimal digits
  /// @return false when the file could not be written
  bool keep(const std::string& digest, const std::string& bytes) const;

  /// A photo's bytes.
  /// @param digest a digest for which `IsDigest` holds
  /// @return nothing when there is no such photo
  std::optional<std::string> read(const std::string& digest) const;

  /// Removes every photo, whole or begun, whose digest is not among these. Other files stay.
  void removeAllBut(const std::set<std::string>& digests) const;

 private:
  const std::filesystem::path _dir;
};

}  // namespace portal
