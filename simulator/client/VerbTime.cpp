#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "simulator/client/Printable.h"
#include "simulator/client/Unlocked.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

VerbAction Zone(CLI::App& command) {
  const auto zone = std::make_shared<std::string>();
  command.add_option("NAME", *zone, "The time zone, as in Europe/Berlin")->required();
  return [zone](Session& session) {
    return ChangeUnlocked(session, {{"cmd", "time.zone"}, {"zone", *zone}},
                          "The time zone is " + *zone + ".");
  };
}

/// A whole number's digits; which way the clock was off is of no use to the reader.
std::optional<std::string> Magnitude(const Json& reply, const char* key) {
  const auto found = reply.find(key);
  if (found == reply.end() || !found->is_number_integer()) return std::nullopt;
  const std::string text = found->dump();
  return text.substr(text.front() == '-' ? 1 : 0);
}

ExitStatus ShowSync(const Session& session, const Json& reply) {
  const std::optional<std::string> offset = Magnitude(reply, "offsetMs");
  if (!offset) return session.incomplete("offsetMs");
  const std::optional<std::string> server = ReplyString(reply, "server");
  if (!server) return session.incomplete("server");
  const std::optional<std::string> at = ReplyString(reply, "at");
  if (!at) return session.incomplete("at");
  std::cout << "The clock was " << *offset << " ms off; set by " << Printable(*server) << " at "
            << Printable(*at) << ".\n";
  return ExitStatus::kSuccess;
}

ExitStatus Sync(Session& session) {
  const Answer answer = AskUnlocked(session, {{"cmd", "time.sync"}});
  if (session.json()) return answer.status;
  if (answer.status == ExitStatus::kSuccess) return ShowSync(session, answer.reply);
  const std::optional<std::string> server = ReplyString(answer.reply, "server");
  if (server) session.complain("The time server is " + Printable(*server) + ".");
  return answer.status;
}

ExitStatus ShowLastSync(const Session& session, const Json& last) {
  const std::optional<std::string> server = ReplyString(last, "server");
  if (!server) return session.incomplete("server");
  const std::optional<std::string> at = ReplyString(last, "at");
  if (!at) return session.incomplete("at");
  std::cout << "The clock was last set by " << Printable(*server) << " at " << Printable(*at)
            << ".\n";
  return ExitStatus::kSuccess;
}

ExitStatus Show(Session& session) {
  const Answer answer = AskUnlocked(session, {{"cmd", "time.get"}});
  if (answer.status != ExitStatus::kSuccess || session.json()) return answer.status;
  const auto last = answer.reply.find("lastSync");
  if (last == answer.reply.end()) return session.incomplete("lastSync");
  if (last->is_object()) return ShowLastSync(session, *last);
  std::cout << "The clock was never set from a time server.\n";
  return ExitStatus::kSuccess;
}

constexpr Verb kTimeParts[] = {
    {"zone", "Set the time zone", Zone},
    {"sync", "Set the clock from the time server now",
     [](CLI::App&) -> VerbAction { return Sync; }},
    {"show", "Show when the clock was last set", [](CLI::App&) -> VerbAction { return Show; }},
};

}  // namespace

VerbAction VerbTime(CLI::App& command) { return VerbGroup(command, kTimeParts); }

}  // namespace client
