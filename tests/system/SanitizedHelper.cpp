#include "tests/system/SanitizedHelper.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "tests/support/Child.h"
#include "tests/system/SystemTest.h"

namespace {

namespace fs = std::filesystem;

constexpr char kProc[] = "/proc";
// Every user of the Mac may write here. A report's name is followed by the process id.
constexpr char kReports[] = "/private/tmp";
constexpr char kReportName[] = "sanitizer";
// Where a sanitizer writes that does not come so far as to heed its options.
constexpr char kErrors[] = "/private/var/log/com.brindlex.stream.kioskd.stderr.log";

/// Whether a program was linked with a sanitizer's library.
bool IsSanitized(const std::string& program) {
  std::ostringstream bytes;
  bytes << std::ifstream(program, std::ios::binary).rdbuf();
  const std::string text = bytes.str();
  return text.find("__tsan_init") != std::string::npos ||
         text.find("__asan_init") != std::string::npos;
}

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

/// Adds to what the caller says of the sanitizers, who may have more to say.
void SetOptions() {
  const std::string path = std::string(":log_path=") + kReports + "/" + kReportName;
  for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    const std::string options = Environment(name) + path + ":handle_abort=1:print_stacktrace=1";
    setenv(name, options.c_str(), 1);
  }
}

/// Where in the sources the daemon's frames in a report are; a Mac has nothing to look it up with.
std::string Places(const std::string& report, const std::string& helper) {
  static const std::regex frame("kioskd\\+(0x[0-9a-f]+)\\)");
  std::vector<std::string> command{"/usr/bin/llvm-symbolizer", "--pretty-print", "--obj=" + helper};
  for (std::sregex_iterator each(report.begin(), report.end(), frame), end; each != end; ++each) {
    command.push_back((*each)[1]);
  }
  return RunToEnd(command).output;
}

}  // namespace

SanitizedHelper::SanitizedHelper(const MacFolder& mac)
    : _mac(mac), _helper(Environment("KIOSKD_HELPER")) {
  if (_helper.empty()) return;
  install();
  showProc();
  SetOptions();
}

SanitizedHelper::~SanitizedHelper() {
  if (_helper.empty()) return;
  // The Mac is about to be removed with everything in it.
  if (umount2(_mac.at(kProc).c_str(), MNT_DETACH) != 0) std::abort();
  expectNoReport();
}

void SanitizedHelper::install() const {
  if (!IsSanitized(_helper)) {
    throw std::runtime_error("KIOSKD_HELPER is no program with a sanitizer: " + _helper);
  }
  _mac.remove(kHelper);
  fs::copy_file(_helper, _mac.at(kHelper));
}

void SanitizedHelper::showProc() const {
  fs::create_directory(_mac.at(kProc));
  const bool shown = unshare(CLONE_NEWNS) == 0 &&
                     mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                     mount(kProc, _mac.at(kProc).c_str(), nullptr, MS_BIND, nullptr) == 0;
  if (!shown) throw std::runtime_error("/proc cannot be mounted in the Mac");
}

void SanitizedHelper::expectNoReport() const {
  for (const std::string& name : _mac.list(kReports)) {
    if (!name.starts_with(kReportName)) continue;
    const std::string report = _mac.read(std::string(kReports) + "/" + name);
    ADD_FAILURE() << report << "Its frames:\n" << Places(report, _helper);
  }
  const std::string errors = _mac.read(kErrors);
  EXPECT_EQ(errors.find("Sanitizer"), std::string::npos) << errors;
}
