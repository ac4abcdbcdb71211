#include "simulator/mac/GuiSessions.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <limits>
#include <thread>

#include "simulator/mac/JsonFields.h"
#include "simulator/mac/Limits.h"

namespace simmac {
namespace {

using platform::MacTree;

constexpr std::chrono::milliseconds kPause{2};

/// Looks until the condition holds; false when it does not within the time.
template <typename Condition>
bool WaitUntil(Condition condition, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

/// A process id that may be signalled: any other number would reach whole groups of processes, or
/// every one there is.
pid_t ProcessId(const Json& object, const char* key) {
  const std::int64_t number = IntegerOf(object, key);
  return number > 1 && number <= std::numeric_limits<pid_t>::max() ? static_cast<pid_t>(number) : 0;
}

SessionAgent ParseAgent(const Json& entry) {
  SessionAgent agent;
  agent.number = static_cast<int>(IntegerOf(entry, "number"));
  agent.label = TextOf(entry, "label");
  agent.pid = ProcessId(entry, "pid");
  if (FieldOf(entry, "status").is_number_integer()) {
    agent.lastStatus = static_cast<int>(IntegerOf(entry, "status"));
  }
  return agent;
}

std::vector<SessionAgent> ParseAgents(const Json& list) {
  std::vector<SessionAgent> agents;
  if (!list.is_array()) return agents;
  for (const Json& entry : list) {
    if (agents.size() < kMaxJobs) agents.push_back(ParseAgent(entry));
  }
  return agents;
}

std::optional<GuiSession> ParseSession(const Json& file) {
  GuiSession session;
  session.uid = static_cast<uid_t>(IntegerOf(file, "uid"));
  session.pid = ProcessId(file, "pid");
  session.asid = ProcessId(file, "asid");
  session.agents = ParseAgents(FieldOf(file, "agents"));
  const bool whole = FieldOf(file, "uid").is_number_integer() && session.pid > 0;
  return whole ? std::optional(session) : std::nullopt;
}

/// The session of a file, whether it is open or not.
std::optional<GuiSession> ReadSessionFile(const MacTree& mac, const std::string& path) {
  // Who reads while the login window writes sees parts of both texts, and looks again.
  constexpr std::chrono::milliseconds kPatience{200};
  std::optional<Json> file;
  (void)WaitUntil(
      [&] { return (file = mac.readJson(path)).has_value() || !LockIsHeld(mac.path(path)); },
      kPatience);
  return file ? ParseSession(*file) : std::nullopt;
}

std::optional<GuiSession> ReadSession(const MacTree& mac, const std::string& path) {
  return LockIsHeld(mac.path(path)) ? ReadSessionFile(mac, path) : std::nullopt;
}

Json Describe(const SessionAgent& agent) {
  Json entry = {{"number", agent.number}, {"label", agent.label}};
  if (agent.pid > 0) entry["pid"] = agent.pid;
  if (agent.lastStatus) entry["status"] = *agent.lastStatus;
  return entry;
}

bool GroupIsGone(pid_t leader) { return kill(-leader, 0) != 0 && errno == ESRCH; }

}  // namespace

int UnloadAgentSignal() { return SIGRTMIN; }

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
  if (!file.valid() || !TakeLock(file.get()) || !WriteSessionAgents(file, uid, {})) {
    return Descriptor();
  }
  return file;
}

bool WriteSessionAgents(const Descriptor& session, uid_t uid,
                        const std::vector<SessionAgent>& agents) {
  Json file = {{"uid", uid}, {"pid", getpid()}, {"asid", getsid(0)}, {"agents", Json::array()}};
  for (const SessionAgent& agent : agents) file["agents"].push_back(Describe(agent));
  std::string text = file.dump(-1, ' ', false, Json::error_handler_t::replace);
  struct stat status {};
  if (fstat(session.get(), &status) != 0) return false;
  // Never shorter than before, so that one write makes the whole change: the lock is on this very
  // file, so another cannot take its place.
  const auto size = static_cast<std::size_t>(status.st_size);
  if (text.size() + 1 < size) text.append(size - text.size() - 1, ' ');
  return lseek(session.get(), 0, SEEK_SET) == 0 && WriteWhole(session.get(), text + "\n");
}

bool BootOutAgent(const GuiSession& session, const SessionAgent& agent) {
  sigval value{};
  value.sival_int = agent.number;
  return sigqueue(session.pid, UnloadAgentSignal(), value) == 0;
}

bool KillGuiSession(const MacTree& mac, uid_t uid) {
  const std::string path = GuiSessionPath(uid);
  const std::optional<GuiSession> session = ReadSession(mac, path);
  if (!session) return true;
  if (kill(session->pid, SIGKILL) != 0 && errno != ESRCH) return false;
  if (!WaitUntil([&] { return !LockIsHeld(mac.path(path)); }, kKilledSessionTimeOut)) return false;
  // Now nobody starts agents any more, and the file has the last ones.
  const std::vector<SessionAgent> agents = ReadSessionFile(mac, path).value_or(*session).agents;
  for (const SessionAgent& agent : agents) {
    if (agent.pid > 1) (void)kill(-agent.pid, SIGKILL);
  }
  return WaitUntil(
      [&agents] {
        return std::all_of(agents.begin(), agents.end(), [](const SessionAgent& agent) {
          return agent.pid <= 1 || GroupIsGone(agent.pid);
        });
      },
      kKilledSessionTimeOut);
}

}  // namespace simmac
