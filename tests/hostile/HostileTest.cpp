#include "tests/hostile/HostileTest.h"

#include <algorithm>

namespace {

std::string Head(int status, const std::string& headers) {
  return "HTTP/1.1 " + std::to_string(status) + " Answer\r\nContent-Type: application/json\r\n" +
         headers + "\r\n";
}

std::string WithLength(int status, const std::string& body) {
  return Head(status, "Content-Length: " + std::to_string(body.size()) + "\r\n") + body;
}

std::string Chunk(const std::string& bytes) {
  char size[24];
  std::snprintf(size, sizeof size, "%zx\r\n", bytes.size());
  return size + bytes + "\r\n";
}

// In two chunks, so that one of the ends of a chunk is not the body's.
std::string InChunks(int status, const std::string& body) {
  const std::size_t half = body.size() / 2;
  return Head(status, "Transfer-Encoding: chunked\r\n") + Chunk(body.substr(0, half)) +
         Chunk(body.substr(half)) + "0\r\n\r\n";
}

std::string UpToTheEnd(int status, const std::string& body) {
  return Head(status, "Connection: close\r\n") + body;
}

}  // namespace

void HostileTest::startAtRawPortal() {
  answerRaw("none", "");
  startSettled({{"authBaseUrl", raw.url()}});
  runNextCheckIn();
  ASSERT_EQ(virtual_time::NanosecondsUntilNext(), 30 * virtual_time::kSecondNs);
}

std::vector<HostileTest::Framed> HostileTest::framings(int status, const std::string& body) {
  // Of the last line end of chunks, which follows their end, half will do.
  return {{WithLength(status, body)}, {InChunks(status, body), 1}, {UpToTheEnd(status, body)}};
}

void HostileTest::cutEverywhere(const std::string& call, const std::vector<Framed>& answers,
                                const std::function<void()>& look) {
  for (const auto& [whole, unsaid] : answers) {
    for (std::size_t length = 0; length + unsaid < whole.size() && !HasFailure(); ++length) {
      const std::string cut = whole.substr(0, length);
      SCOPED_TRACE("cut after: " + cut);
      answerRaw(call, cut);
      look();
    }
  }
}

void HostileTest::answerRaw(const std::string& call, const std::string& bytes) {
  const std::string ordinary = WithLength(200, otherwise);
  raw.answer([call, bytes, ordinary](const std::string& request) {
    return RawAnswer{request.starts_with(call) ? bytes : ordinary};
  });
}

std::size_t HostileTest::countLinesThatBegin(const std::string& start) const {
  const std::vector<LogLine> lines = mac.log();
  return static_cast<std::size_t>(
      std::count_if(lines.begin(), lines.end(),
                    [&](const LogLine& line) { return line.text.starts_with(start); }));
}
