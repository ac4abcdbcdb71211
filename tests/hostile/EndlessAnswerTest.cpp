// Answers that do not end, as fast as loopback takes them: each is given up long before it could
// fill the memory. What comes slowly is held against the time-outs elsewhere.
#include <sys/resource.h>

#include <chrono>

#include "tests/daemon/BrandingPhoto.h"
#include "tests/hostile/HostileTest.h"

namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;
constexpr char kOk[] = "HTTP/1.1 200 OK\r\n";

// A body of 16 MiB is the largest that is kept, in a buffer that grew by doubling (the old and the
// new one are there at a time), and what the sockets and the library hold comes on top.
constexpr std::size_t kMostMemory = KIOSKD_MEMORY_FACTOR * 64 * kMebibyte;
// And the sockets of both sides may have taken some more off the portal than was read.
constexpr std::size_t kMostSent = 32 * kMebibyte;

// More than would pass for a body.
constexpr std::size_t kLongExtension = 64 * kMebibyte;

std::size_t PeakMemory() {
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

struct EndlessCase {
  const char* name;
  RawAnswer answer;
};

std::vector<EndlessCase> EndlessAnswers() {
  const std::string kibibyte(1024, 'x');
  const std::string line = "X-Filler: " + kibibyte + "\r\n";
  return {
      {"body", {std::string(kOk) + "\r\n{\"status\":\"", kibibyte}},
      {"body that is said to be short", {std::string(kOk) + "Content-Length: 4\r\n\r\n", kibibyte}},
      {"body that is said to be huge",
       {std::string(kOk) + "Content-Length: 99999999999\r\n\r\n", kibibyte}},
      {"chunks",
       {std::string(kOk) + "Transfer-Encoding: chunked\r\n\r\n", "400\r\n" + kibibyte + "\r\n"}},
      {"chunk",
       {std::string(kOk) + "Transfer-Encoding: chunked\r\n\r\n7fffffffffff\r\n", kibibyte}},
      {"size of a chunk", {std::string(kOk) + "Transfer-Encoding: chunked\r\n\r\n", "0000"}},
      {"trailers", {std::string(kOk) + "Transfer-Encoding: chunked\r\n\r\n0\r\n", line}},
      {"headers", {kOk, line}},
      {"header", {std::string(kOk) + "X-Filler: ", kibibyte}},
      {"status line", {"HTTP/1.1 200 ", kibibyte}},
      {"informational answers", {"", "HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n"}},
      {"bytes of no protocol", {"", std::string(1024, '\0')}},
  };
}

class EndlessAnswer : public HostileTest {};

TEST_F(EndlessAnswer, IsGivenUpWhateverPartOfItDoesNotEnd) {
  startAtRawPortal();
  const std::string before = mac.read(kStateFile);
  for (const EndlessCase& each : EndlessAnswers()) {
    SCOPED_TRACE(each.name);
    const std::size_t memory = PeakMemory();
    const std::size_t sent = raw.endlessBytes();
    const auto start = std::chrono::steady_clock::now();
    raw.answer(each.answer);
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(25))
        << "the longest time is no limit that this should need";
    EXPECT_LE(PeakMemory() - memory, kMostMemory);
    EXPECT_LE(raw.endlessBytes() - sent, kMostSent);
  }
  EXPECT_EQ(mac.read(kStateFile), before);
  EXPECT_EQ(status()["ok"], true);
  answerRaw("none", "");
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
}

// Of a chunk's extension nothing is kept and nothing is counted, so only the exchange's time ends
// it; here the portal does, which need not be waited for.
TEST_F(EndlessAnswer, CostsNoMemoryInAChunksExtension) {
  startAtRawPortal();
  const std::size_t memory = PeakMemory();
  raw.answer({std::string(kOk) + "Transfer-Encoding: chunked\r\n\r\n4;extension=",
              std::string(64 * 1024, 'x'), kLongExtension});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  EXPECT_EQ(raw.endlessBytes(), kLongExtension) << "it was given up before";
  EXPECT_LE(PeakMemory() - memory, kMostMemory / 4);
}

TEST_F(EndlessAnswer, LeavesNoPhoto) {
  const BrandingPhoto photo = PhotoOf("hills");
  otherwise =
      Json{{"status", "enrolled"},
           {"branding", {{"displayName", "Acme"}, {"photos", {{{"sha256", photo.digest}}}}}}}
          .dump();
  startAtRawPortal();
  const std::string ordinary = framed(200, otherwise);
  raw.answer([&](const std::string& request) {
    return request.starts_with("GET")
               ? RawAnswer{std::string(kOk) + "\r\n" + photo.bytes, std::string(1024, 'x')}
               : RawAnswer{ordinary};
  });
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
  EXPECT_EQ(mac.list(kBrandingCache), std::vector<std::string>{kBrandingJson});
  EXPECT_LE(raw.endlessBytes(), kMostSent);
}

}  // namespace
