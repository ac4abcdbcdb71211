#include "simulator/mac/commands/Follow.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>

namespace simmac {
namespace {

/// Reads what is there and hands over the lines that are whole; `rest` keeps the last one's start.
void ReadLines(int file, std::string& rest, const std::function<void(const std::string&)>& use) {
  char buffer[16 * 1024];
  for (ssize_t count;
       (count = RetryInterrupted([&] { return read(file, buffer, sizeof buffer); })) > 0;) {
    rest.append(buffer, static_cast<std::size_t>(count));
    std::size_t end;
    while ((end = rest.find('\n')) != std::string::npos) {
      use(rest.substr(0, end));
      rest.erase(0, end + 1);
    }
  }
}

}  // namespace

FolderWatch::FolderWatch(const std::string& folder)
    : _descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  (void)inotify_add_watch(_descriptor.get(), folder.c_str(), IN_MODIFY | IN_MOVED_TO | IN_CREATE);
}

void FolderWatch::wait(int milliseconds) {
  pollfd source{_descriptor.get(), POLLIN, 0};
  (void)poll(&source, 1, milliseconds);
  char events[4096];
  while (read(_descriptor.get(), events, sizeof events) > 0) {
  }
}

bool EachLine(const std::string& path, bool follow,
              const std::function<void(const std::string&)>& use) {
  FolderWatch watch(std::filesystem::path(path).parent_path());
  const Descriptor file = OpenFile(path, O_RDONLY);
  if (!file.valid()) return false;
  std::string rest;
  ReadLines(file.get(), rest, use);
  if (!follow) return true;
  for (;;) {
    watch.wait(-1);
    ReadLines(file.get(), rest, use);
  }
}

}  // namespace simmac
