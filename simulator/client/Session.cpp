#include "simulator/client/Session.h"

#include <iostream>
#include <optional>
#include <utility>
#include <variant>

#include "simulator/client/ErrorTexts.h"
#include "simulator/client/Printable.h"

namespace client {

std::string RequestText(const Json& request) {
  return request.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Session::Session(const CommonOptions& options) : _options(options), _connection(ChannelPath()) {}

void Session::complain(const std::string& sentence) const {
  std::cerr << "kioskctl: " << sentence << std::endl;
}

Answer Session::send(const std::string& request) {
  ChannelResult result = _connection.exchange(request, _options.timeout);
  if (auto* const failure = std::get_if<ChannelFailure>(&result)) {
    const bool ours = failure->kind == ChannelFailureKind::kUnsendable;
    const ExitStatus status = ours ? ExitStatus::kUsage : ExitStatus::kNoAnswer;
    return {status, Json::object(), std::move(failure->text)};
  }
  const std::string text = OneLine(std::get<std::string>(std::move(result)));
  std::optional<Json> reply = ReplyParse(text);
  if (!reply) return {ExitStatus::kNoAnswer, Json::object(), "kioskd's reply is no JSON object."};
  const bool ok = ReplyFlag(*reply, "ok");
  return {ok ? ExitStatus::kSuccess : ExitStatus::kRefused, std::move(*reply), text};
}

void Session::show(const Answer& answer) const {
  const bool replied =
      answer.status == ExitStatus::kSuccess || answer.status == ExitStatus::kRefused;
  if (_options.json && replied) std::cout << answer.text << std::endl;
}

Answer Session::exchange(const std::string& request) {
  Answer answer = send(request);
  show(answer);
  return answer;
}

Answer Session::ask(const Json& request) {
  Answer answer = exchange(RequestText(request));
  explain(answer);
  return answer;
}

void Session::explain(const Answer& answer) const {
  if (answer.status == ExitStatus::kSuccess) return;
  if (answer.status != ExitStatus::kRefused) return complain(answer.text);
  if (_options.json) return;
  const std::optional<std::string> code = ReplyString(answer.reply, "error");
  complain(code ? ErrorText(*code) : "kioskd refused without a reason.");
}

ExitStatus Session::incomplete(const char* key) const {
  complain("kioskd's reply lacks \"" + std::string(key) + "\".");
  return ExitStatus::kNoAnswer;
}

}  // namespace client
