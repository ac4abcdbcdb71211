#include "tests/hostile/KioskPlayer.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <random>
#include <utility>

#include "tests/support/MacPaths.h"

namespace {

namespace fs = std::filesystem;

constexpr char kTemporary[] =
    "/Users/BrindlexKiosk/Library/Preferences/.com.apple.SetupAssistant.plist.tmp.";
constexpr unsigned kManyFiles = 200;
constexpr unsigned kExchanges = 2000;
constexpr useconds_t kLongestGameUs = 4000;

volatile std::sig_atomic_t isAskedToEnd = 0;

void AskToEnd(int) { isAskedToEnd = 1; }

class Player {
 public:
  explicit Player(pid_t daemon)
      : _places{kLibrary,
                kLibrary,
                kPreferencesFolder,
                kPreferencesFolder,
                kSetupAssistant,
                kTemporary + std::to_string(daemon),
                std::string(kHome) + "/.Library.tmp." + std::to_string(daemon),
                std::string(kLibrary) + "/.Preferences.tmp." + std::to_string(daemon),
                "/private/tmp/state.json",
                "/Users/Shared/Library",
                "/private/var/simulated/journal.jsonl",
                "/private/var/simulated/faults.json",
                "/private/var/simulated/faults.lock",
                "/private/var/simulated/logging.json",
                "/private/var/simulated/clock.json",
                "/private/var/simulated/network.json"} {
    fs::create_directory(kDecoy, _ignored);
  }

  void play() {
    switch (pick(4)) {
      case 0:
        return changeModes();
      case 1:
        return exchangeForALink();
      default:
        return takeAPlace();
    }
  }

 private:
  unsigned pick(unsigned count) {
    return std::uniform_int_distribution<unsigned>(0, count - 1)(_random);
  }
  // A game lasts until the daemon had a chance to meet it.
  void linger() { usleep(pick(kLongestGameUs)); }

  const char* target() {
    static constexpr std::array<const char*, 8> kTargets{"/private/victims",
                                                         "/private/victims/file",
                                                         "/private/victims/new",
                                                         "/private/etc",
                                                         "/private/etc/passwd",
                                                         "/Library/LaunchAgents",
                                                         "/dev/zero",
                                                         "/"};
    // What a check of owners would not notice comes most often.
    return pick(2) == 0 ? kDecoy : kTargets[pick(kTargets.size())];
  }

  void takeAPlace() {
    const std::string place = _places[pick(static_cast<unsigned>(_places.size()))];
    const std::string kept = place + ".kept";
    const bool moved = rename(place.c_str(), kept.c_str()) == 0;
    put(place);
    linger();
    fs::remove_all(place, _ignored);
    if (moved && rename(kept.c_str(), place.c_str()) != 0) {
      // The daemon was here in between and made the place anew.
      fs::remove_all(place, _ignored);
      static_cast<void>(rename(kept.c_str(), place.c_str()));
    }
  }

  void put(const std::string& place) {
    switch (pick(8)) {
      case 0:
        static_cast<void>(mkfifo(place.c_str(), 0666));
        break;
      case 1:
        writeFile(place);
        break;
      case 2:
        static_cast<void>(mkdir(place.c_str(), 0777));
        break;
      case 3:
        putManyFiles(place);
        break;
      case 4:
        static_cast<void>(link("/private/victims/file", place.c_str()));
        break;
      case 5:
        break;
      default:
        static_cast<void>(symlink(target(), place.c_str()));
    }
  }

  static void writeFile(const std::string& path) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0) return;
    static_cast<void>(!write(file, "[{]", 3));
    close(file);
  }

  static void putManyFiles(const std::string& folder) {
    static_cast<void>(mkdir(folder.c_str(), 0777));
    for (unsigned i = 0; i < kManyFiles; ++i) writeFile(folder + "/" + std::to_string(i));
  }

  void changeModes() {
    static constexpr std::array<const char*, 4> kOwn{kHome, kLibrary, kPreferencesFolder,
                                                     kSetupAssistant};
    static constexpr std::array<mode_t, 4> kModes{0, 0777, 07777, 0500};
    const char* path = kOwn[pick(kOwn.size())];
    static_cast<void>(chmod(path, kModes[pick(kModes.size())]));
    linger();
    static_cast<void>(chmod(path, path == kSetupAssistant ? 0600 : 0700));
  }

  // The link and the folder change places at once: there is always one of them.
  void exchangeForALink() {
    const std::string folder = pick(2) == 0 ? kPreferencesFolder : kLibrary;
    const std::string other = std::string(kHome) + "/other";
    if (symlink(target(), other.c_str()) != 0) return;
    for (unsigned i = 0; i < kExchanges; ++i) {
      static_cast<void>(
          renameat2(AT_FDCWD, folder.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE));
    }
    if (!fs::is_symlink(other, _ignored)) {
      static_cast<void>(
          renameat2(AT_FDCWD, folder.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE));
    }
    unlink(other.c_str());
  }

  std::minstd_rand _random{20261015};
  std::vector<std::string> _places;
  std::error_code _ignored;  // a game that the daemon spoils is no reason to stop
};

bool BecomeTheUser(const std::string& root, uid_t uid, gid_t gid) {
  if (!root.empty() && (chroot(root.c_str()) != 0 || chdir("/") != 0)) return false;
  return setgroups(0, nullptr) == 0 && setgid(gid) == 0 && setuid(uid) == 0;
}

[[noreturn]] void PlayAsTheUser(const std::string& root, uid_t uid, gid_t gid, pid_t daemon,
                                int result) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (signal(SIGTERM, AskToEnd) == SIG_ERR || !BecomeTheUser(root, uid, gid)) _exit(1);
  umask(0);
  Player player(daemon);
  unsigned games = 0;
  for (; isAskedToEnd == 0; ++games) player.play();
  _exit(write(result, &games, sizeof games) == sizeof games ? 0 : 1);
}

}  // namespace

const std::vector<std::string>& PlacesOfPlay() {
  static const std::vector<std::string> places{
      kHome,
      "/Users/Shared",
      "/private/tmp",
      "/private/var/tmp",
      "/private/var/simulated",
      "/private/var/log",
      "/Library/Application Support/Brindlex/Kiosk/state.json",
      "/proc"};
  return places;
}

KioskPlayer::KioskPlayer(const std::string& root, uid_t uid, gid_t gid, pid_t daemon) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return;
  _pid = fork();
  if (_pid == 0) PlayAsTheUser(root, uid, gid, daemon, ends[1]);
  close(ends[1]);
  _result = ends[0];
}

KioskPlayer::~KioskPlayer() {
  static_cast<void>(stop());
  if (_result >= 0) close(_result);
}

std::optional<unsigned> KioskPlayer::stop() {
  if (_pid <= 1) return std::nullopt;
  const pid_t pid = std::exchange(_pid, -1);
  kill(pid, SIGTERM);
  unsigned games = 0;
  const bool told = read(_result, &games, sizeof games) == sizeof games;
  int status = -1;
  const bool ended = waitpid(pid, &status, 0) == pid && status == 0;
  return told && ended ? std::optional(games) : std::nullopt;
}
