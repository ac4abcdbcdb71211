#include <unistd.h>

#include <iostream>
#include <memory>
#include <string>

#include "simulator/client/Limits.h"
#include "simulator/client/Printable.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

/// Standard input, as it stands; one byte more than a request can have is enough to see that it is
/// too long.
std::string ReadInput() {
  std::string text(kMaximumRequestBytes + 1, '\0');
  std::cin.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(std::cin.gcount()));
  return text;
}

ExitStatus RunSend(Session& session, const std::string& request) {
  const Answer answer = session.exchange(request == "-" ? ReadInput() : request);
  const bool replied =
      answer.status == ExitStatus::kSuccess || answer.status == ExitStatus::kRefused;
  // A program gets the reply as it is, a person what the terminal can show.
  if (replied && !session.json()) {
    std::cout << (isatty(STDOUT_FILENO) == 1 ? Printable(answer.text) : answer.text) << std::endl;
  }
  session.explain(answer);
  return answer.status;
}

}  // namespace

VerbAction VerbSend(CLI::App& command) {
  const auto request = std::make_shared<std::string>();
  command
      .add_option("JSON", *request,
                  "The request's text, sent as it stands; - reads it from standard input")
      ->required();
  return [request](Session& session) { return RunSend(session, *request); };
}

}  // namespace client
