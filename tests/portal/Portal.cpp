#include "tests/portal/Portal.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include "simulator/portal/Secrets.h"
#include "tests/portal/OpenApi.h"
#include "tests/portal/RecordCheck.h"

namespace {

constexpr std::chrono::seconds kPatience{60};

/// @param input the child's standard input; -1 leaves it alone
/// @param output the child's standard output and standard error; -1 leaves them alone
pid_t Spawn(const std::vector<std::string>& command, int input, int output) {
  std::vector<std::string> strings = command;
  std::vector<char*> arguments;
  for (std::string& argument : strings) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (input >= 0) posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  for (const int fd : {STDOUT_FILENO, STDERR_FILENO})
    if (output >= 0) posix_spawn_file_actions_adddup2(&actions, output, fd);
  pid_t process = -1;
  if (posix_spawn(&process, arguments[0], &actions, nullptr, arguments.data(), environ) != 0)
    process = -1;
  posix_spawn_file_actions_destroy(&actions);
  return process;
}

int Wait(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string ReadToEnd(int fd) {
  std::string text;
  std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t count = read(fd, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

std::string BigEndian(unsigned number, unsigned bytes) {
  std::string text;
  while (bytes-- > 0) text += static_cast<char>(number >> (8 * bytes));
  return text;
}

}  // namespace

ProgramResult RunProgram(const std::vector<std::string>& command, const std::string& input) {
  std::array<int, 2> given{};
  std::array<int, 2> ends{};
  if (pipe2(given.data(), O_CLOEXEC) != 0 || pipe2(ends.data(), O_CLOEXEC) != 0) return {};
  const bool written = write(given[1], input.data(), input.size()) >= 0;
  close(given[1]);
  const pid_t process = written ? Spawn(command, given[0], ends[1]) : -1;
  close(given[0]);
  close(ends[1]);
  ProgramResult result;
  result.output = ReadToEnd(ends[0]);
  close(ends[0]);
  if (process > 0) result.status = Wait(process);
  return result;
}

std::string FileText(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

Json PairRequest() {
  return {{"hostname", "lobby.local"},
          {"platform", "macOS"},
          {"osVersion", "14.6.1"},
          {"appVersion", "2026.10.15"}};
}

Json CheckInRequest() {
  return {{"appVersion", "2026.10.15"},
          {"powerLocal", nullptr},
          {"powerError", nullptr},
          {"osUpdates", nullptr}};
}

std::string PngPhoto(unsigned width, unsigned height, const std::string& more) {
  return std::string("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16) + BigEndian(width, 4) +
         BigEndian(height, 4) + more;
}

std::string JpegPhoto(unsigned width, unsigned height, const std::string& more) {
  return "\xff\xd8\xff\xe0" + BigEndian(4, 2) + "JF\xff\xc0" + BigEndian(8, 2) + "\x08" +
         BigEndian(height, 2) + BigEndian(width, 2) + "\x01" + more;
}

std::string DigestOf(const std::string& photo) { return portal::Sha256Hex(photo).value_or(""); }

Answer Exchange(portal::HttpsClient& client, const std::string& method, const std::string& path,
                const std::string& body, const std::string& token, const std::string& type) {
  portal::HttpRequest request{method, path, {}, body};
  if (!body.empty() && !type.empty()) request.headers["content-type"] = type;
  if (!token.empty()) request.headers["authorization"] = "Bearer " + token;
  const auto response = client.send(request);
  if (!response) return {0, nullptr, "", client.error(), {}};
  Json parsed = Json::parse(response->body, nullptr, false);
  if (parsed.is_discarded()) parsed = nullptr;
  return {response->status, parsed, response->body, "", response->headers};
}

void PortalTest::SetUp() {
  // A client may write to a connection that the portal has just closed.
  std::signal(SIGPIPE, SIG_IGN);
  start();
}

void PortalTest::start() {
  _process = Spawn({PORTAL_PROGRAM, "--dir", dir(), "serve", "--record", record()}, -1, -1);
  ASSERT_GT(_process, 0);
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!std::filesystem::exists(dir() / "ready.json")) {
    ASSERT_EQ(waitpid(_process, nullptr, WNOHANG), 0) << "the portal ended";
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  _ready = Json::parse(FileText(dir() / "ready.json"));
}

int PortalTest::stop() {
  if (_process <= 0) return -1;
  kill(_process, SIGTERM);
  const int status = Wait(_process);
  _process = -1;
  return status;
}

void PortalTest::TearDown() {
  if (_process > 0) {
    EXPECT_EQ(stop(), 0);
  }
  if (!std::filesystem::exists(record()) || std::filesystem::file_size(record()) == 0) return;
  std::string problem;
  const auto description = openapi::ReadDescription(PORTAL_API_FILE, problem);
  ASSERT_TRUE(description) << problem;
  for (const std::string& violation :
       openapi::CheckRecord(*description, record(), openapi::Refusals::kAllowed))
    ADD_FAILURE() << violation;
}

portal::HttpsClient PortalTest::deviceClient() const {
  return {_ready["url"].get<std::string>(), dir() / "ca.pem"};
}

portal::HttpsClient PortalTest::adminClient() const {
  return {_ready["adminUrl"].get<std::string>(), dir() / "ca.pem"};
}

Answer PortalTest::device(const std::string& method, const std::string& path,
                          const std::string& body, const std::string& token) const {
  portal::HttpsClient client = deviceClient();
  return Exchange(client, method, path, body, token);
}

Answer PortalTest::admin(const std::string& method, const std::string& path,
                         const Json& body) const {
  portal::HttpsClient client = adminClient();
  return Exchange(client, method, path, body.is_null() ? "" : body.dump(),
                  _ready["adminToken"].get<std::string>());
}

Answer PortalTest::checkIn(const std::string& token, const Json& changes) const {
  Json body = CheckInRequest();
  body.update(changes);
  return device("POST", "/api/kiosk/check-in", body.dump(), token);
}

Answer PortalTest::upload(const std::string& id, const std::string& photo, const std::string& query,
                          const std::string& type) const {
  portal::HttpsClient client = adminClient();
  return Exchange(client, "POST", "/api/admin/terminals/" + id + "/photos" + query, photo,
                  _ready["adminToken"].get<std::string>(), type);
}

Answer PortalTest::photo(const std::string& digest, const std::string& token) const {
  return device("GET", "/api/kiosk/branding/photos/" + digest, "", token);
}

ProgramResult PortalTest::command(const std::vector<std::string>& arguments,
                                  const std::string& input) const {
  std::vector<std::string> whole = {PORTAL_PROGRAM, "--dir", dir()};
  whole.insert(whole.end(), arguments.begin(), arguments.end());
  return RunProgram(whole, input);
}

std::string PortalTest::newCode() const {
  const Answer answer = device("POST", "/api/kiosk/pair", PairRequest().dump());
  EXPECT_EQ(answer.status, 200);
  return answer.body.value("pairingCode", "");
}

std::string PortalTest::pair(std::string* id) const {
  const std::string code = newCode();
  const Answer claimed = admin("POST", "/api/admin/codes/" + code + "/claim");
  EXPECT_EQ(claimed.status, 200);
  if (id != nullptr) *id = claimed.body.value("id", "");
  return device("GET", "/api/kiosk/pair/" + code).body.value("deviceToken", "");
}
