#include "platform/simulated/ChannelIdentity.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdlib>

#include "platform/simulated/Descriptor.h"
#include "platform/simulated/Limits.h"
#include "platform/simulated/MacFiles.h"

namespace platform {
namespace {

constexpr char kSignatureSuffix[] = ".signature";

std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

/// The number of a descriptor or a process, or -1.
int numberFrom(std::string_view digits) {
  int number = -1;
  const char* end = digits.data() + digits.size();
  const auto [last, error] = std::from_chars(digits.data(), end, number);
  return error == std::errc() && last == end ? number : -1;
}

/// Calls `visit(name, descriptor)` for every service in the environment.
template <typename Visit>
void forEachService(Visit visit) {
  std::string_view rest = variable(kMacServicesVariable);
  while (!rest.empty()) {
    const std::string_view entry = rest.substr(0, rest.find(','));
    rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
    const std::size_t equals = entry.rfind('=');
    if (equals == std::string_view::npos) continue;
    visit(entry.substr(0, equals), numberFrom(entry.substr(equals + 1)));
  }
}

void closeOnExec(int descriptor) {
  if (descriptor >= 0) (void)fcntl(descriptor, F_SETFD, FD_CLOEXEC);  // fails if it is not open
}

/// -1 for a process that is gone or that this system does not see, which has the id 0.
std::int32_t sessionOf(pid_t pid) { return pid > 0 ? getsid(pid) : -1; }

/// The executable's path inside the Mac; nothing for a process that is gone or lives elsewhere.
std::optional<std::string> executableOf(pid_t pid) {
  const int proc = numberFrom(variable(kMacProcVariable));
  if (proc < 0) return std::nullopt;
  const std::string link = std::to_string(pid) + "/exe";
  char path[PATH_MAX];
  const ssize_t length = readlinkat(proc, link.c_str(), path, sizeof path);
  if (length <= 0 || path[0] != '/') return std::nullopt;
  return std::string(path, static_cast<std::size_t>(length));
}

/// A signature counts only if nobody but the system could have put it there.
bool isTrustworthy(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  // A second name may be a link that somebody made beside a program of their own.
  return (status.st_uid == 0 || status.st_uid == geteuid()) && (status.st_mode & S_IWOTH) == 0 &&
         status.st_nlink == 1;
}

std::optional<Signature> signatureBeside(const std::string& executable) {
  const Descriptor file(open((executable + kSignatureSuffix).c_str(),
                             O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY));
  if (!file.valid() || !isTrustworthy(file.get())) return std::nullopt;
  std::string contents(kMaximumSignatureBytes + 1, '\0');
  const ssize_t count =
      RetryInterrupted([&] { return read(file.get(), contents.data(), contents.size()); });
  if (count < 0 || static_cast<std::size_t>(count) > kMaximumSignatureBytes) return std::nullopt;
  contents.resize(static_cast<std::size_t>(count));
  return ParseSignature(contents);
}

}  // namespace

std::optional<PeerIdentity> IdentifyPeer(int connection) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
    return std::nullopt;
  }
  PeerIdentity peer{.pid = credentials.pid,
                    .euid = credentials.uid,
                    .asid = sessionOf(credentials.pid),
                    .signature = std::nullopt};
  if (const std::optional<std::string> executable = executableOf(credentials.pid)) {
    peer.signature = signatureBeside(*executable);
  }
  return peer;
}

void AdoptInheritedDescriptors() {
  closeOnExec(numberFrom(variable(kMacProcVariable)));
  forEachService([](std::string_view, int descriptor) { closeOnExec(descriptor); });
}

void CheckInWithLaunchd() {
  const int launchd = numberFrom(variable(kMacLaunchdVariable));
  if (launchd > 1) (void)kill(launchd, SIGUSR1);  // it may be about to end
}

int RegisteredServiceSocket(const std::string& service) {
  int found = -1;
  forEachService([&](std::string_view name, int descriptor) {
    if (name == service) found = descriptor;
  });
  return found;
}

}  // namespace platform
