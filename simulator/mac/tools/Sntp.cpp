#include <arpa/inet.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <optional>

#include "simulator/mac/SettingsFile.h"
#include "simulator/mac/TimeSettings.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

using platform::MacTree;

constexpr int kWrongUsage = 64;
constexpr int kUnavailable = 69;
constexpr int kNoPermission = 77;

/// What a call asks for.
struct Query {
  std::string server;
  bool setsClock = false;
};

/// Options that stand alone, in one word or several, and then the server.
std::optional<Query> ParseQuery(const std::vector<std::string>& arguments) {
  Query query;
  std::size_t next = 0;
  for (; next < arguments.size() && arguments[next].rfind('-', 0) == 0; ++next) {
    const std::string letters = arguments[next].substr(1);
    if (letters.empty() || letters.find_first_not_of("sS") != std::string::npos) {
      return std::nullopt;
    }
    query.setsClock = true;
  }
  if (next + 1 != arguments.size() || arguments[next].empty()) return std::nullopt;
  query.server = arguments[next];
  return query;
}

bool IsAddress(const std::string& server) {
  std::array<unsigned char, sizeof(in6_addr)> address{};
  return inet_pton(AF_INET, server.c_str(), address.data()) == 1 ||
         inet_pton(AF_INET6, server.c_str(), address.data()) == 1;
}

int DnsFailure(const ToolCall& call) {
  call.output.err("sntp: Exchange failed: DNS lookup failure\n");
  call.output.out(
      "sntp_exchange {\n"
      "        result: 1 (DNS lookup failure)\n"
      "        header: 00 (li:0 vn:0 mode:0)\n"
      "       stratum: 00 (0)\n"
      "          poll: 00 (1)\n"
      "     precision: 00 (1.000000e+00)\n"
      "         delay: 0000.0000 (0.000000000)\n"
      "    dispersion: 0000.0000 (0.000000000)\n"
      "}\n");
  return kUnavailable;
}

int TimeOut(const ToolCall& call) {
  constexpr int kExchanges = 5;
  for (int i = 0; i < kExchanges; ++i) call.output.err("sntp: Exchange failed: Timeout\n");
  call.output.err("sntp: Clock select failed\n");
  return kUnavailable;
}

/// Remembers that the clock was put right, and by how much.
int SetClock(const ToolCall& call, const Query& query, double offset) {
  const bool written = geteuid() == 0 && ChangeSettings(MacTree(), kTimeSettings, [&](Json& time) {
                         time["lastStep"] = {{"server", query.server}, {"offset", offset}};
                         time["offset"] = 0.0;
                       });
  if (written) return 0;
  call.output.err("sntp: settimeofday: Operation not permitted\n");
  return kNoPermission;
}

}  // namespace

int Sntp(const ToolCall& call) {
  const std::optional<Query> query = ParseQuery(call.arguments);
  if (!query) {
    call.output.err("usage: sntp [-sS] server\n");
    return kWrongUsage;
  }
  const TimeSettings time = ParseTimeSettings(ReadSettings(MacTree(), kTimeSettings));
  const bool address = IsAddress(query->server);
  if (!address && !time.resolves) return DnsFailure(call);
  if (!time.reachable) return TimeOut(call);
  std::array<char, 128> numbers{};
  (void)std::snprintf(numbers.data(), numbers.size(), "%+f +/- %f", time.offset, time.error);
  call.output.out(std::string(numbers.data()) + " " + query->server + " " +
                  (address ? query->server : time.address) + "\n");
  return query->setsClock ? SetClock(call, *query, time.offset) : 0;
}

}  // namespace simmac
