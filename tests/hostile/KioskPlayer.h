// A process of the kiosk's user that plays with everything that it may write.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

/// A folder of root's, with a file, that links lead to.
inline constexpr char kRootsFolder[] = "/private/victims";
/// A folder of the player's own, that links lead to.
inline constexpr char kDecoy[] = "/private/tmp/decoy";

/// What may differ after a game: the player's own places, logs, and what daemon and tools rewrite.
const std::vector<std::string>& PlacesOfPlay();

/// Plays from its construction on: has links, pipes, files, folders and nothing at all take the
/// places of the home's folders and of files that daemon and tools use, changes modes, exchanges a
/// folder for a link without end. Each game puts back what it took.
class KioskPlayer {
 public:
  /// @param root the Mac's root; empty when this process has entered the Mac
  /// @param daemon the daemon's process id, which names its temporary files; 0 when not known
  KioskPlayer(const std::string& root, uid_t uid, gid_t gid, pid_t daemon);
  ~KioskPlayer();
  KioskPlayer(const KioskPlayer&) = delete;
  KioskPlayer& operator=(const KioskPlayer&) = delete;

  /// Ends it after its present game; how many it played, or nothing when it did not end well.
  std::optional<unsigned> stop();

 private:
  pid_t _pid = -1;
  int _result = -1;
};
