// The administrator's commands.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/Json.h"
#include "simulator/portal/PortalConnection.h"
#include "simulator/portal/Shapes.h"
#include "simulator/portal/UpdatePolicy.h"

namespace portal {

/// Exit statuses of the program.
enum ExitStatus { kOk = 0, kRefused = 1, kUsage = 2, kNotReached = 3 };

/// What an administrator changes about a branding; the rest stays.
struct BrandingChange {
  std::optional<std::string> displayName;
  std::optional<std::string> subtitle;
  std::optional<std::string> tenant;  ///< empty: none
};

/// What an administrator tells about a photo; the portal reads the rest from the photo itself.
struct PhotoDetails {
  std::optional<std::string> contentType;
  std::optional<int> width;
  std::optional<int> height;
  std::optional<std::string> credit;
};

/// Carries the administrator's commands to the portal and prints what came of them, for people or
/// as JSON. Each method returns the process's exit status.
class Commands {
 public:
  /// @param dir the portal's folder
  /// @param json print the portal's answer as it is
  Commands(std::filesystem::path dir, bool json) : _dir(std::move(dir)), _json(json) {}

  int terminals() const;
  int codes() const;
  int show(const std::string& terminal) const;
  int claim(const std::string& code, const std::optional<std::string>& name) const;
  int expire(const std::string& code) const;
  /// @param change the body of the PATCH
  /// @param raw let invalid values pass
  int change(const std::string& terminal, const Json& change, bool raw = false) const;
  /// Reads the password from standard input.
  int exitPassword(const std::string& terminal) const;
  /// @param hosts replaces the extra hosts
  int signIn(const std::string& terminal, const std::optional<bool>& microsoft,
             const std::optional<bool>& email,
             const std::optional<std::vector<std::string>>& hosts) const;
  int updates(const std::string& terminal, const UpdatePolicyChange& policy,
              const std::optional<std::string>& source) const;
  int branding(const std::string& terminal, const BrandingChange& given) const;
  int photos(const std::string& terminal) const;
  /// @param file the photo
  int addPhoto(const std::string& terminal, const std::filesystem::path& file,
               const PhotoDetails& details) const;
  /// @param digest the photo's, or the beginning of it; not empty, or it would begin every digest
  int removePhoto(const std::string& terminal, const std::string& digest) const;
  int revoke(const std::string& terminal) const;
  int forget(const std::string& terminal) const;
  int misbehave(const Json& settings) const;
  int showMisbehaviour() const;

 private:
  /// How an answer is looked at and, for people, printed.
  struct Kind {
    Shape shape;
    void (*print)(const Json& body);
  };
  static const Kind kTerminals;
  static const Kind kCodes;
  static const Kind kRecord;
  static const Kind kClaimed;
  static const Kind kTerminal;
  static const Kind kPhotos;
  static const Kind kNoPhotos;
  static const Kind kAddedPhoto;
  static const Kind kKnownPhoto;
  static const Kind kRemovedPhoto;
  static const Kind kDone;

  /// Sends the request and prints the answer.
  int ask(const std::string& method, const std::string& path, const Json& body,
          const Kind& kind) const;
  int report(const std::optional<PortalAnswer>& answer, const Kind& kind) const;
  int fail(ExitStatus status, const std::string& problem) const;

  /// Finds the terminal that the user means: by name, id, the beginning of its id, or "-" for the
  /// only one.
  /// @param status receives the exit status when there is no such terminal, or more than one
  std::optional<Json> find(const std::string& terminal, int& status) const;

  const std::filesystem::path _dir;
  const bool _json;
};

}  // namespace portal
