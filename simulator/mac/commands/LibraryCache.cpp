#include "simulator/mac/commands/LibraryCache.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "platform/Json.h"
#include "platform/simulated/MacFiles.h"
#include "simulator/mac/JsonFields.h"
#include "simulator/mac/Spawn.h"

namespace simmac {
namespace {

namespace fs = std::filesystem;

constexpr char kZones[] = "/usr/share/zoneinfo";
constexpr char kManifest[] = "/manifest.json";

/// What tells a changed file from an unchanged one; empty when there is none.
std::string Stamp(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return "";
  return std::to_string(status.st_size) + ":" + std::to_string(status.st_mtim.tv_sec) + ":" +
         std::to_string(status.st_mtim.tv_nsec) + ":" + std::to_string(status.st_ino);
}

std::string ReadToEnd(int descriptor) {
  std::string text;
  char buffer[4096];
  for (ssize_t count; (count = read(descriptor, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return text;
}

/// Runs a program of the host and returns what it printed; nothing unless it succeeded.
std::optional<std::string> RunHostProgram(const std::vector<std::string>& arguments) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return std::nullopt;
  const Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  SpawnRequest request;
  request.arguments = arguments;
  request.environment = {{"PATH", "/usr/bin:/bin"}, {"LC_ALL", "C"}};
  request.output = writing.get();
  const pid_t child = Spawn(request);
  writing = Descriptor();
  const std::string answer = ReadToEnd(reading.get());
  int status = 0;
  const bool succeeded = child > 0 && waitpid(child, &status, 0) == child && status == 0;
  return succeeded ? std::optional(answer) : std::nullopt;
}

bool CopyFile(const std::string& from, const std::string& to) {
  std::error_code error;
  return fs::copy_file(from, to, error);
}

bool CopyStripped(const std::string& from, const std::string& to) {
  constexpr char kObjcopy[] = "/usr/bin/objcopy";
  const bool stripped =
      access(kObjcopy, X_OK) == 0 && RunHostProgram({kObjcopy, "--strip-debug", from, to});
  return stripped || CopyFile(from, to);
}

/// Nobody but root writes such a file by mistake; whoever may run it still may.
mode_t ReadOnlyMode(const std::string& path) {
  constexpr mode_t kReadable = 0444;
  constexpr mode_t kExecutable = 0555;
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && (status.st_mode & S_IXUSR) ? kExecutable : kReadable;
}

bool MakeReadOnly(const std::string& path) { return chmod(path.c_str(), ReadOnlyMode(path)) == 0; }

/// The absolute paths in lines such as "libc.so.6 => /lib/libc.so.6 (0x7f…)" and
/// "/lib64/ld-linux.so.2 (0x7f…)".
std::vector<std::string> ParseLibraries(const std::string& answer) {
  std::vector<std::string> paths;
  std::istringstream lines(answer);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t arrow = line.find("=> ");
    const std::size_t start = line.find('/', arrow == std::string::npos ? 0 : arrow);
    const std::size_t end = line.find(" (", start);
    if (start == std::string::npos || end == std::string::npos) continue;
    paths.push_back(line.substr(start, end - start));
  }
  return paths;
}

/// The lock on the cache folder, which is made if need be; invalid when that is impossible.
Descriptor LockFolder(const std::string& folder) {
  std::error_code ignored;
  fs::create_directories(folder, ignored);
  Descriptor lock = OpenFile(folder + "/lock", O_RDWR | O_CREAT, 0644);
  const bool locked =
      lock.valid() && RetryInterrupted([&] { return flock(lock.get(), LOCK_EX); }) == 0;
  return locked ? std::move(lock) : Descriptor();
}

/// The cache folder under its lock: copies of libraries, and a manifest that says what they were
/// copied from and what each executable needs. A folder that cannot be locked keeps nothing.
class Cache {
 public:
  explicit Cache(std::string folder) : _folder(std::move(folder)), _lock(LockFolder(_folder)) {
    const Json manifest = platform::MacTree(_folder).readJson(kManifest).value_or(Json::object());
    // Rebuilt from what can be used of it.
    _executables = ObjectOf(manifest, "executables");
    _copies = ObjectOf(manifest, "copies");
  }

  ~Cache() {  // NOLINT(bugprone-exception-escape): without memory the program ends anyway
    if (!_changed || !_lock.valid()) return;
    constexpr mode_t kMode = 0644;
    const Json manifest = {{"executables", _executables}, {"copies", _copies}};
    const std::string text = manifest.dump(-1, ' ', false, Json::error_handler_t::replace);
    // A manifest that cannot be kept costs time at the next use, nothing else.
    (void)platform::MacTree(_folder).replace(kManifest, text, kMode);
  }

  Cache(const Cache&) = delete;
  Cache& operator=(const Cache&) = delete;

  /// The libraries of an executable.
  std::vector<std::string> librariesOf(const std::string& executable) {
    const std::string stamp = Stamp(executable);
    Json& entry = _executables[executable];
    if (TextOf(entry, "stamp") != stamp || TextsOf(entry, "libraries").empty()) {
      entry = {
          {"stamp", stamp},
          {"libraries", ParseLibraries(RunHostProgram({"/usr/bin/ldd", executable}).value_or(""))}};
      _changed = true;
    }
    return TextsOf(entry, "libraries");
  }

  /// A copy of a host's file that every Mac may link to; nothing when it cannot be kept.
  std::optional<std::string> copyOf(const std::string& path) { return keep(path, CopyFile); }

  /// The same for an executable, without its debugging information where objcopy is at hand.
  std::optional<std::string> strippedCopyOf(const std::string& path) {
    return keep(path, CopyStripped);
  }

 private:
  std::optional<std::string> keep(const std::string& path,
                                  bool (*copyFile)(const std::string&, const std::string&)) {
    if (!_lock.valid()) return std::nullopt;
    std::string copy = _folder + path;
    const std::string stamp = Stamp(path);
    Json& known = _copies[path];
    std::error_code error;
    if (known == stamp && fs::exists(copy, error)) return copy;
    fs::create_directories(fs::path(copy).parent_path(), error);
    // Removed first: Macs that link to the old copy keep it.
    fs::remove(copy, error);
    if (!copyFile(path, copy) || !MakeReadOnly(copy)) return std::nullopt;
    known = stamp;
    _changed = true;
    return copy;
  }

  const std::string _folder;
  const Descriptor _lock;
  Json _executables;
  Json _copies;
  bool _changed = false;
};

/// Gives the Mac a file of the host at the same place, by way of the cache. Without a cache it
/// becomes a file of the Mac's own: a second name of the host's would let the Mac's root write it.
void ShareHostFile(TreeBuilder& tree, Cache& cache, const std::string& path) {
  const std::optional<std::string> copy = cache.copyOf(path);
  if (copy)
    tree.share(path, *copy);
  else
    tree.copy(path, path, ReadOnlyMode(path));
}

bool IsVariant(const fs::path& entry) {
  return entry.filename() == "posix" || entry.filename() == "right";
}

}  // namespace

void InstallLibraries(TreeBuilder& tree, const std::vector<std::string>& executables,
                      const std::string& cacheFolder) {
  Cache cache(cacheFolder);
  std::set<std::string> libraries;
  for (const std::string& executable : executables) {
    const std::vector<std::string> needed = cache.librariesOf(executable);
    if (needed.empty()) tree.fail("The libraries of " + executable + " are not known to ldd");
    libraries.insert(needed.begin(), needed.end());
  }
  for (const std::string& library : libraries) ShareHostFile(tree, cache, library);
}

void InstallExecutable(TreeBuilder& tree, const std::string& path, const std::string& executable,
                       const std::string& cacheFolder) {
  constexpr mode_t kMode = 0755;
  tree.copy(path, Cache(cacheFolder).strippedCopyOf(executable).value_or(executable), kMode);
}

void InstallTimeZones(TreeBuilder& tree, const std::string& cacheFolder) {
  Cache cache(cacheFolder);
  std::error_code error;
  fs::recursive_directory_iterator entries(kZones, error);
  for (; !error && entries != fs::recursive_directory_iterator(); entries.increment(error)) {
    if (IsVariant(entries->path())) entries.disable_recursion_pending();
    if (entries->is_regular_file(error)) {
      ShareHostFile(tree, cache, entries->path());
    }
  }
}

}  // namespace simmac
