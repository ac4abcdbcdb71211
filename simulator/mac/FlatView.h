// The flat view of the directory, /private/etc/passwd and /private/etc/group, which everybody may
// read.
#pragma once

#include <string>
#include <vector>

#include "platform/simulated/MacFiles.h"

namespace simmac {

/// Users and groups as the two files had them when the object was made. Passwords and unique
/// identifiers are not in there. Pointers are into the object, null for what it does not have.
class FlatView {
 public:
  /// Lines that are not whole are left out.
  explicit FlatView(const platform::MacTree& mac);

  const platform::MacUser* userNamed(const std::string& name) const;
  const platform::MacUser* userWithUid(uid_t uid) const;
  const platform::MacGroup* groupNamed(const std::string& name) const;

 private:
  std::vector<platform::MacUser> _users;
  std::vector<platform::MacGroup> _groups;
};

}  // namespace simmac
