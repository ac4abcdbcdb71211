#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <variant>

#include "simulator/client/ErrorTexts.h"
#include "simulator/client/Limits.h"
#include "simulator/client/PairDisplay.h"
#include "simulator/client/PairOutcome.h"
#include "simulator/client/VerbOptions.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Time = steady_clock::time_point;

struct PairOptions {
  bool noWait = false;
  milliseconds interval = std::chrono::seconds(2);
};

/// A code that was handed out.
struct Pairing {
  std::string code;
  milliseconds life;
  Time expiry;
};

int WholeSeconds(steady_clock::duration time) {
  return std::max(0, static_cast<int>(std::chrono::ceil<std::chrono::seconds>(time).count()));
}

/// Waits for `interval`, the display kept up to date.
void WaitShowingTime(PairDisplay& display, milliseconds interval, Time expiry) {
  const Time until = steady_clock::now() + interval;
  Time now = until - interval;
  do {
    display.remaining(WholeSeconds(expiry - now));
    std::this_thread::sleep_until(std::min(until, now + std::chrono::seconds(1)));
    now = steady_clock::now();
  } while (now < until);
}

bool PortalUnreachable(const Answer& answer) {
  return answer.status == ExitStatus::kRefused &&
         ReplyString(answer.reply, "error") == "unreachable";
}

/// Whether the code still waits to be claimed. A portal that cannot be reached may be back before
/// the code expires, so that does not end pairing.
bool IsUnclaimed(const Answer& answer) {
  if (PortalUnreachable(answer)) return true;
  return answer.status == ExitStatus::kSuccess && !ReplyFlag(answer.reply, "paired");
}

/// Whether a later check may say more: each check of a paired terminal tries again to set it up.
bool IsOpen(const Answer& answer) {
  return IsUnclaimed(answer) ||
         (answer.status == ExitStatus::kSuccess && !ReplyFlag(answer.reply, "provisioned"));
}

/// Asks until the answer is final or the code's time is up; the last check comes after that, since
/// the code may have been claimed in its last moment.
Answer Poll(Session& session, PairDisplay& display, const PairOptions& options,
            const Pairing& pairing) {
  const std::string request = RequestText(PairCheckRequest(pairing.code));
  for (;;) {
    WaitShowingTime(display, options.interval, pairing.expiry);
    const bool last = steady_clock::now() >= pairing.expiry;
    Answer answer = session.exchange(request);
    if (!IsOpen(answer) || last || !display.works()) return answer;
    display.note(PortalUnreachable(answer) ? ErrorText("unreachable") : "");
  }
}

ExitStatus Finish(Session& session, PairDisplay& display, const Answer& answer) {
  if (!display.works()) {
    session.complain("Standard output cannot be written to.");
    return ExitStatus::kRefused;
  }
  if (IsUnclaimed(answer)) {
    // Also with --json, where the last reply says "ok": true.
    session.complain(ErrorText("expired"));
    return ExitStatus::kRefused;
  }
  session.explain(answer);
  if (answer.status != ExitStatus::kSuccess) return answer.status;
  display.sentence(PairOutcomeText(answer.reply));
  if (ReplyFlag(answer.reply, "restarting")) display.restart(PairRestartSeconds(answer.reply));
  return ExitStatus::kSuccess;
}

/// Begins pairing, or says why that cannot be.
std::variant<Pairing, ExitStatus> Begin(Session& session) {
  const Answer begun = session.ask({{"cmd", "pair.begin"}});
  if (begun.status != ExitStatus::kSuccess) return begun.status;
  const std::optional<std::string> code = ReplyString(begun.reply, "code");
  if (!code) return session.incomplete("code");
  const std::optional<double> life = ReplyNumber(begun.reply, "expiresInSeconds");
  if (!life) return session.incomplete("expiresInSeconds");
  const double seconds = std::min(*life, kMaximumCodeLifeSeconds);
  const milliseconds duration(std::llround(seconds * 1000));
  return Pairing{*code, duration, steady_clock::now() + duration};
}

ExitStatus RunPair(Session& session, const PairOptions& options) {
  const std::variant<Pairing, ExitStatus> begun = Begin(session);
  if (const auto* const status = std::get_if<ExitStatus>(&begun)) return *status;
  const auto& pairing = std::get<Pairing>(begun);
  PairDisplay display(session.json());
  display.code(pairing.code);
  display.remaining(WholeSeconds(pairing.life));
  if (options.noWait) {
    display.endLine();
    return ExitStatus::kSuccess;
  }
  const Answer answer = Poll(session, display, options, pairing);
  display.endLine();
  return Finish(session, display, answer);
}

}  // namespace

VerbAction VerbPair(CLI::App& command) {
  const auto options = std::make_shared<PairOptions>();
  command.add_flag("--no-wait", options->noWait, "Only begin: show the code and return");
  AddSecondsOption(command, "--interval", options->interval,
                   "How long to wait between two checks (default: 2)");
  return [options](Session& session) { return RunPair(session, *options); };
}

}  // namespace client
