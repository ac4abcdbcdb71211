#include <iomanip>
#include <iostream>
#include <string>

#include "simulator/client/ErrorTexts.h"
#include "simulator/client/Printable.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

constexpr int kLabelWidth = 16;

std::string Flag(const Json& object, const char* key) {
  if (!object.contains(key)) return "unknown";
  return ReplyFlag(object, key) ? "yes" : "no";
}

std::string Text(const Json& reply, const char* key) {
  const std::optional<std::string> text = ReplyString(reply, key);
  return text && !text->empty() ? Printable(*text) : "-";
}

Json Member(const Json& object, const char* key) {
  return object.contains(key) ? object[key] : Json();
}

std::string SignIn(const Json& reply, const char* key) {
  const Json signIn = Member(reply, "signIn");
  return signIn.is_object() ? Flag(signIn, key) : "unknown";
}

std::string ExtraHosts(const Json& reply, const char* key) {
  const Json signIn = Member(reply, "signIn");
  const Json hosts = signIn.is_object() ? Member(signIn, key) : Json();
  std::string list;
  for (const Json& host : hosts) {
    if (host.is_string()) list += (list.empty() ? "" : ", ") + Printable(host.get<std::string>());
  }
  return list.empty() ? "-" : list;
}

struct StatusRow {
  const char* label;
  const char* key;
  std::string (*value)(const Json& reply, const char* key);
};

constexpr StatusRow kStatusRows[] = {
    {"Paired", "enrolled", Flag},
    {"Set up", "provisioned", Flag},
    {"Maintenance", "maintenance", Flag},
    {"Kiosk account", "account", Text},
    {"Terminal name", "terminalName", Text},
    {"Microsoft login", "microsoft", SignIn},
    {"E-mail login", "email", SignIn},
    {"Extra hosts", "extraHosts", ExtraHosts},
    {"Kiosk session", "kioskSession", Flag},
    {"Problem", "error", ProblemText},
};

ExitStatus RunStatus(Session& session) {
  const Answer answer = session.ask({{"cmd", "status"}});
  if (answer.status != ExitStatus::kSuccess || session.json()) return answer.status;
  for (const StatusRow& row : kStatusRows) {
    std::cout << std::left << std::setw(kLabelWidth) << row.label
              << row.value(answer.reply, row.key) << '\n';
  }
  return ExitStatus::kSuccess;
}

}  // namespace

VerbAction VerbStatus(CLI::App&) { return RunStatus; }

}  // namespace client
