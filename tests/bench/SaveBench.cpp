// Saving the state, on the disk that the build is on.
#include <fcntl.h>
#include <unistd.h>

#include <memory>

#include "tests/bench/Measure.h"
#include "tests/bench/Reveal.h"
#include "tests/support/MacFolder.h"

namespace {

constexpr int kRounds = 15;
constexpr int kSaves = 20;
constexpr double kMicroseconds = 1e6;
constexpr char kStateFile[] = "/Library/Application Support/Brindlex/Kiosk/state.json";
constexpr char kTemporary[] = "/Library/Application Support/Brindlex/Kiosk/.floor.tmp";
constexpr char kFile[] = "/Library/Application Support/Brindlex/Kiosk/floor";

std::shared_ptr<KioskDaemon> DaemonWith(const MacFolder& mac, std::size_t bytes) {
  mac.writeState({{"filler", std::string(bytes, 'x')}});
  auto daemon = std::make_shared<KioskDaemon>();
  daemon->queue().sync([&] { daemon->start(); });
  return daemon;
}

void WriteSyncRename(const std::string& text) {
  const int file = open(kTemporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  const ssize_t written = write(file, text.data(), text.size());
  if (written != static_cast<ssize_t>(text.size()) || fsync(file) != 0 || close(file) != 0 ||
      rename(kTemporary, kFile) != 0) {
    Fail("cannot write a file");
  }
}

void CompareSaves(const MacFolder& mac, const std::string& size, std::size_t bytes) {
  const std::shared_ptr<KioskDaemon> daemon = DaemonWith(mac, bytes);
  Save(*daemon);
  const std::string text = mac.read(kStateFile);
  Compare({"save of " + size, "µs", "≤ 1.1 × write, fsync, rename", 1.1}, kRounds,
          {{"kioskd", [&] { return kMicroseconds * SecondsEach(kSaves, [&] { Save(*daemon); }); }},
           {"write, fsync, rename",
            [&] { return kMicroseconds * SecondsEach(kSaves, [&] { WriteSyncRename(text); }); }}});
}

}  // namespace

int main() {
  MacFolder mac;
  mac.enter();
  CompareSaves(mac, "4 KiB", std::size_t{4} << 10);
  CompareSaves(mac, "64 KiB", std::size_t{64} << 10);
}
