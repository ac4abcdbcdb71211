#include "tests/daemon/SoftwareUpdateTest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>

#include "tests/support/Child.h"

namespace {

constexpr char kFolder[] = "/usr/local/script/";
constexpr mode_t kExecutable = 0755;
constexpr mode_t kGateMode = 0600;
constexpr std::chrono::seconds kGenerousTime{60};

std::string FileContent(const char* path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

// As the tool's scripts have it.
std::string Escaped(const std::string& bytes) {
  std::string text;
  for (const char each : bytes) {
    const auto byte = static_cast<unsigned char>(each);
    char code[sizeof "\\xFF"];
    std::snprintf(code, sizeof code, "\\x%02X", byte);
    text += byte < ' ' || byte > '~' || byte == '\\' ? std::string(code) : std::string(1, each);
  }
  return text;
}

// A descriptor of the gate's writing end; negative while the tool is not there.
int OpenGate(const std::string& name) {
  return open((kFolder + name).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
}

}  // namespace

SoftwareUpdateTest::SoftwareUpdateTest() : mac({"--tools-only"}) {
  const std::string tool = FileContent(KIOSKD_SCRIPTED_TOOL);
  mac.enter();
  mac.remove(kTool);  // not to be written through, should it be a link
  mac.write(kTool, tool, kExecutable);
  std::filesystem::create_directories(kFolder);
}

SoftwareUpdateTest::~SoftwareUpdateTest() {
  for (const std::string& name : _gates) {
    const std::string path = kFolder + name;
    // A gate that is both ends at once holds nobody up.
    const int open = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    mac.remove(path);
    close(open);
  }
  settle();
}

std::string SoftwareUpdateTest::say(const std::string& bytes) { return "say " + Escaped(bytes); }

std::string SoftwareUpdateTest::complain(const std::string& bytes) {
  return "complain " + Escaped(bytes);
}

std::string SoftwareUpdateTest::gate(const std::string& name) {
  EXPECT_EQ(mkfifo((kFolder + name).c_str(), kGateMode), 0);
  _gates.push_back(name);
  return "await " + name;
}

KioskDescriptor SoftwareUpdateTest::holdGate(const std::string& name) const {
  int end = -1;
  EXPECT_TRUE(Eventually([&] { return (end = OpenGate(name)) >= 0; })) << name;
  return KioskDescriptor(end);
}

Json SoftwareUpdateTest::resultOf(Operation operation) {
  const auto result = std::make_shared<std::promise<Json>>();
  std::future<Json> future = result->get_future();
  EXPECT_TRUE(((*updates).*operation)([result](const Json& value) { result->set_value(value); }));
  if (future.wait_for(kGenerousTime) != std::future_status::ready) return "no result";
  return future.get();
}

void SoftwareUpdateTest::settle() const {
  EXPECT_TRUE(Eventually([this] { return !updates->busy(); }));
}

SoftwareUpdateTest::Lines SoftwareUpdateTest::runs() const {
  Lines lines;
  std::istringstream text(mac.read(kFolder + std::string("runs")));
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

void SoftwareUpdateTest::script(const std::string& argument, const Lines& steps) const {
  std::string text;
  for (const std::string& step : steps) text += step + "\n";
  mac.write(kFolder + argument, text);
}
