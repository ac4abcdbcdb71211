#include <charconv>
#include <csignal>
#include <map>
#include <optional>

#include "simulator/mac/GuiSessions.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

constexpr int kNoneMatched = 1;
constexpr int kUsage = 2;
constexpr char kLoginWindow[] = "loginwindow";

struct Options {
  int signal = SIGTERM;
  std::optional<uid_t> uid;
  bool exact = false;
  std::string pattern;
};

template <typename Number>
std::optional<Number> ParseNumber(const std::string& text) {
  Number number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::optional<int> ParseSignal(const std::string& text) {
  static const std::map<std::string, int> names = {
      {"HUP", SIGHUP}, {"INT", SIGINT}, {"KILL", SIGKILL}, {"TERM", SIGTERM}};
  const auto name = names.find(text);
  return name != names.end() ? std::optional(name->second) : ParseNumber<int>(text);
}

std::optional<Options> ParseOptions(const std::vector<std::string>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "-x") {
      options.exact = true;
    } else if (argument == "-U" && i + 1 < arguments.size()) {
      options.uid = ParseNumber<uid_t>(arguments[++i]);
      if (!options.uid) return std::nullopt;
    } else if (argument.rfind('-', 0) == 0) {
      const std::optional<int> number = ParseSignal(argument.substr(1));
      if (!number) return std::nullopt;
      options.signal = *number;
    } else {
      options.pattern = argument;
    }
  }
  return options.pattern.empty() ? std::nullopt : std::optional(options);
}

bool Matches(const Options& options, const GuiSession& session) {
  const std::string name = kLoginWindow;
  const bool named =
      options.exact ? name == options.pattern : name.find(options.pattern) != std::string::npos;
  return named && (!options.uid || *options.uid == session.uid);
}

}  // namespace

/// Of the processes of this Mac only login windows can be found: they are the ones that tell where
/// they are.
int PKill(const ToolCall& call) {
  const std::optional<Options> options = ParseOptions(call.arguments);
  if (!options) {
    call.output.err(
        "usage: pkill [-signal] [-ILfilnovx] [-F pidfile] [-G gid]\n"
        "             [-P ppid] [-U uid] [-g pgrp]\n"
        "             [-t tty] [-u euid] pattern ...\n");
    return kUsage;
  }
  int status = kNoneMatched;
  for (const GuiSession& session : GuiSessions(platform::MacTree())) {
    if (!Matches(*options, session)) continue;
    if (kill(session.pid, options->signal) == 0)
      status = 0;
    else
      call.output.err("pkill: kill: Operation not permitted\n");
  }
  return status;
}

}  // namespace simmac
