// A peer of the command channel that means ill: hostile_peer ROLE USER-ID SOCKET. Plays its role
// until it is ended, and says "ready" when all that it wants to hold is held.
#include <grp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/hostile/HostileRoles.h"
#include "tests/support/ChannelClient.h"

namespace {

constexpr int kPauseMs = 20;
constexpr int kLongPauseMs = 300;
constexpr char kStatus[] = R"({"cmd": "status"})";

using Crowd = std::vector<ChannelClient>;

void Pause(int milliseconds = kPauseMs) { static_cast<void>(poll(nullptr, 0, milliseconds)); }

void SayReady() {
  std::puts("ready");
  static_cast<void>(std::fflush(stdout));
}

[[noreturn]] void StayForEver() {
  SayReady();
  for (;;) pause();
}

std::string Request(const std::string& text) {
  return ChannelClient::frame(kMessageWithReply, 1, {{"request", text}});
}

std::string Times(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

// Far more connections than one process gets, again and again.
void OpenIdleConnections(const std::string& socket) {
  for (bool said = false;; said = true) {
    Crowd crowd;
    for (std::size_t i = 0; i < kIdleConnections; ++i) crowd.emplace_back(socket);
    if (!said) SayReady();
    Pause(kLongPauseMs);
  }
}

void SendHalfFrames(const std::string& socket) {
  const std::string whole = Request(std::string(2 * kHalfFrameBytes, 'x'));
  Crowd crowd;
  for (std::size_t i = 0; i < kHalfFrames; ++i) {
    crowd.emplace_back(socket);
    crowd.back().sendBytes(whole.substr(0, kHalfFrameBytes));
  }
  StayForEver();
}

void SendOversizedFrames(const std::string& socket) {
  const std::string huge = std::string("\xFF\xFF\xFF\x7F\x02", 5) + std::string(100'000, 'x');
  const std::string oneTooMany("\x01\x00\x10\x00\x02", 5);
  for (bool said = false;; said = true) {
    for (const std::string& bytes : {huge, oneTooMany}) {
      ChannelClient client(socket);
      client.sendBytes(bytes);
      static_cast<void>(client.isClosed());
    }
    if (!said) SayReady();
    Pause();
  }
}

// Requests whose replies are never read: some stay below what a peer may owe, one does not.
void NeverRead(const std::string& socket) {
  const std::string requests = Times(100, Request(kStatus));
  Crowd crowd;
  for (std::size_t i = 0; i < kUnreadConnections; ++i) {
    crowd.emplace_back(socket);
    for (std::size_t sent = 0; sent < kUnreadRequests; sent += 100) {
      crowd.back().sendBytes(requests);
    }
  }
  ChannelClient greedy(socket);
  while (greedy.sendBytes(requests)) {
  }
  StayForEver();
}

void SendDeepJson(const std::string& socket) {
  const std::string deep = "{\"cmd\": " + std::string(30'000, '[') + std::string(30'000, ']') + "}";
  for (bool said = false;; said = true) {
    ChannelClient client(socket);
    for (const std::string& text : {std::string(60'000, '['), deep, std::string(60'000, '{')}) {
      static_cast<void>(client.ask(text));
    }
    if (!said) SayReady();
    Pause();
  }
}

// As many of the largest requests as one connection may have pending, each of the JSON that takes
// most room, for the work queue to answer when it comes to it.
void SendLargeRequests(const std::string& socket) {
  const std::string start = R"({"cmd": "no.such", "a": [)";
  const std::string many = Times((kLargeRequestBytes - start.size() - 4) / 3, "{},");
  const std::string request = Request(start + many + "{}]}");
  Crowd crowd;
  for (std::size_t i = 0; i < kLargeConnections; ++i) {
    crowd.emplace_back(socket);
    for (std::size_t sent = 0; sent < kLargeRequests; ++sent) crowd.back().sendBytes(request);
  }
  StayForEver();
}

// One connection after the other, each of which says something.
void Knock(const std::string& socket) {
  for (std::size_t i = 0; i < kKnocks; ++i) {
    ChannelClient client(socket);
    client.sendBytes(Request(kStatus));
    static_cast<void>(client.isClosed());
  }
  SayReady();
}

const std::map<std::string, void (*)(const std::string&)> kRoles{{"idle", OpenIdleConnections},
                                                                 {"half", SendHalfFrames},
                                                                 {"oversized", SendOversizedFrames},
                                                                 {"unread", NeverRead},
                                                                 {"deep", SendDeepJson},
                                                                 {"large", SendLargeRequests},
                                                                 {"knock", Knock}};

void RaiseDescriptorLimit() {
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

bool Become(unsigned user) {
  return setgroups(0, nullptr) == 0 && setgid(user) == 0 && setuid(user) == 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4 || !kRoles.contains(arguments[1])) return 2;
  RaiseDescriptorLimit();
  // The folders above the Mac may be closed to the user, so the socket's is entered before.
  const std::filesystem::path socket = arguments[3];
  if (chdir(socket.parent_path().c_str()) != 0) return 1;
  if (!Become(static_cast<unsigned>(std::atoi(arguments[2])))) return 1;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  kRoles.at(arguments[1])("./" + socket.filename().string());
  return 0;
}
