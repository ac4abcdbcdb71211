#include "simulator/mac/GuiSessions.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace simmac {
namespace {

using platform::MacTree;

std::optional<GuiSession> ReadSession(const MacTree& mac, const std::string& path) {
  if (!LockIsHeld(mac.path(path))) return std::nullopt;
  const std::optional<Json> file = mac.readJson(path);
  if (!file || !file->is_object()) return std::nullopt;
  for (const char* key : {"uid", "pid", "asid"}) {
    if (!file->contains(key) || !(*file)[key].is_number_integer()) return std::nullopt;
  }
  // To signal any other number would reach whole groups of processes, or every one there is.
  if ((*file)["pid"].get<pid_t>() <= 1) return std::nullopt;
  return GuiSession{(*file)["uid"].get<uid_t>(), (*file)["pid"].get<pid_t>(),
                    (*file)["asid"].get<pid_t>()};
}

bool WriteSession(int file, uid_t uid) {
  const std::string text = Json{{"uid", uid}, {"pid", getpid()}, {"asid", getsid(0)}}.dump() + "\n";
  return WriteWhole(file, text) && ftruncate(file, static_cast<off_t>(text.size())) == 0;
}

}  // namespace

std::string GuiSessionPath(uid_t uid) {
  return std::string(platform::kMacGuiSessions) + "/" + std::to_string(uid) + ".json";
}

std::optional<GuiSession> GuiSessionOf(const MacTree& mac, uid_t uid) {
  return ReadSession(mac, GuiSessionPath(uid));
}

std::vector<GuiSession> GuiSessions(const MacTree& mac) {
  std::vector<GuiSession> sessions;
  std::error_code error;
  std::filesystem::directory_iterator files(mac.path(platform::kMacGuiSessions), error);
  for (; !error && files != std::filesystem::directory_iterator(); files.increment(error)) {
    const std::string name = files->path().filename().string();
    if (const auto session =
            ReadSession(mac, std::string(platform::kMacGuiSessions) + "/" + name)) {
      sessions.push_back(*session);
    }
  }
  std::sort(sessions.begin(), sessions.end(),
            [](const GuiSession& a, const GuiSession& b) { return a.uid < b.uid; });
  return sessions;
}

Descriptor OpenGuiSession(const MacTree& mac, uid_t uid) {
  Descriptor file = OpenFile(mac.path(GuiSessionPath(uid)), O_RDWR | O_CREAT, 0644);
  if (!file.valid() || !TakeLock(file.get()) || !WriteSession(file.get(), uid)) return Descriptor();
  return file;
}

}  // namespace simmac
