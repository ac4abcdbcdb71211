#include "tests/support/MacFolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/support/Child.h"

namespace {

constexpr char kStateFile[] = "/Library/Application Support/Brindlex/Kiosk/state.json";
constexpr char kFaultsFile[] = "/private/var/simulated/faults.json";
constexpr char kJournalFile[] = "/private/var/simulated/journal.jsonl";
constexpr char kLogFile[] = "/private/var/log/system.log";

std::string NewFolder() {
  std::filesystem::create_directories(KIOSKD_TEST_MACS);
  std::string path = std::string(KIOSKD_TEST_MACS) + "/mac-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("no folder for a Mac");
  chmod(path.c_str(), 0755);
  return path;
}

// "TIME LEVEL SUBSYSTEM CATEGORY[PID]: TEXT"
LogLine LogLineFrom(const std::string& line) {
  const std::size_t level = line.find(' ') + 1;
  const std::size_t levelEnd = line.find(' ', level);
  const std::size_t text = line.find("]: ", levelEnd);
  if (text == std::string::npos) return {"?", line};
  return {line.substr(level, levelEnd - level), line.substr(text + 3)};
}

}  // namespace

MacFolder::MacFolder(const std::vector<std::string>& arguments)
    : _folder(NewFolder()), _root(_folder) {
  std::vector<std::string> command{KIOSKD_SIMMAC, "create", _folder, "--force"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const Finished finished = RunToEnd(command);
  if (finished.status != 0) throw std::runtime_error("simmac create: " + finished.output);
}

MacFolder::~MacFolder() {
  if (_outerRoot >= 0) {
    // Back to the original root, so that coverage counters and the like are written where they
    // belong.
    if (fchdir(_outerRoot) != 0 || chroot(".") != 0) std::abort();
    close(_outerRoot);
  }
  std::error_code ignored;
  std::filesystem::remove_all(_folder, ignored);
}

void MacFolder::enter() {
  _outerRoot = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (_outerRoot < 0 || chroot(_folder.c_str()) != 0 || chdir("/") != 0) {
    throw std::runtime_error("cannot enter the Mac; the tests run as root");
  }
  _root.clear();
}

bool MacFolder::exists(const std::string& path) const { return info(path).st_ino != 0; }

std::string MacFolder::read(const std::string& path) const {
  std::ifstream file(at(path), std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

Json MacFolder::readJson(const std::string& path) const {
  return Json::parse(read(path), nullptr, false);
}

void MacFolder::write(const std::string& path, const std::string& content, mode_t mode) const {
  std::filesystem::create_directories(std::filesystem::path(at(path)).parent_path());
  std::ofstream(at(path), std::ios::binary | std::ios::trunc) << content;
  chmod(at(path).c_str(), mode);
}

void MacFolder::replace(const std::string& path, const std::string& content, mode_t mode) const {
  const std::string fresh = path + ".new";
  write(fresh, content, mode);
  std::filesystem::rename(at(fresh), at(path));
}

struct stat MacFolder::info(const std::string& path) const {
  struct stat result = {};
  if (lstat(at(path).c_str(), &result) != 0) return {};
  return result;
}

std::string MacFolder::modeAndOwner(const std::string& path) const {
  const struct stat entry = info(path);
  char text[64];
  std::snprintf(text, sizeof text, "%04o %u:%u", entry.st_mode & 07777U, entry.st_uid,
                entry.st_gid);
  return text;
}

void MacFolder::remove(const std::string& path) const { std::filesystem::remove_all(at(path)); }

std::vector<std::string> MacFolder::list(const std::string& path) const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(at(path))) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

Json MacFolder::state() const { return readJson(kStateFile); }

void MacFolder::writeState(const Json& state) const { replace(kStateFile, state.dump(), 0600); }

void MacFolder::addFault(const Json& fault) const {
  Json faults = readJson(kFaultsFile);
  if (!faults.is_array()) faults = Json::array();
  faults.push_back(fault);
  replace(kFaultsFile, faults.dump(), 0644);
}

void MacFolder::clearFaults() const { remove(kFaultsFile); }

std::vector<ToolRun> MacFolder::journal() const {
  std::vector<ToolRun> runs;
  std::istringstream lines(read(kJournalFile));
  for (std::string line; std::getline(lines, line);) {
    const Json entry = Json::parse(line);
    runs.push_back({entry["tool"], entry["arguments"], entry["status"]});
  }
  return runs;
}

std::vector<ToolRun> MacFolder::runs(const std::string& tool) const {
  std::vector<ToolRun> all = journal();
  std::erase_if(all, [&](const ToolRun& run) { return run.tool != tool; });
  return all;
}

std::size_t MacFolder::countRuns(const std::string& tool,
                                 const std::vector<std::string>& arguments) const {
  const std::vector<ToolRun> all = runs(tool);
  return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&](const ToolRun& run) {
    return run.arguments.size() >= arguments.size() &&
           std::equal(arguments.begin(), arguments.end(), run.arguments.begin());
  }));
}

std::vector<LogLine> MacFolder::log() const {
  std::vector<LogLine> found;
  std::istringstream lines(read(kLogFile));
  for (std::string line; std::getline(lines, line);) found.push_back(LogLineFrom(line));
  return found;
}

std::size_t MacFolder::countLog(const std::string& text, const std::string& level) const {
  const std::vector<LogLine> lines = log();
  return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), LogLine{level, text}));
}
