#include <iostream>
#include <string>

#include "simulator/client/Occupancy.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

void Explain(const Session& session, const Answer& answer) {
  const bool foreign = answer.status == ExitStatus::kRefused &&
                       ReplyString(answer.reply, "error") == "not_permitted";
  if (!foreign) return session.explain(answer);
  if (session.json()) return;
  session.complain("Only the kiosk account may report how its session is used. (not_permitted)");
}

ExitStatus Report(Session& session, const Occupancy& occupancy, const std::string& sentence) {
  const Answer answer = session.exchange(RequestText(OccupancyReport(occupancy)));
  Explain(session, answer);
  if (answer.status == ExitStatus::kSuccess && !session.json()) {
    std::cout << "Reported: " << sentence
              << " It counts for 150 seconds, or until the next report.\n";
  }
  return answer.status;
}

ExitStatus ReportLive(Session& session) {
  return Report(session, kLive, "a stream is live and somebody is signed in.");
}

ExitStatus ReportSignedIn(Session& session) {
  return Report(session, kSignedIn, "somebody is signed in, and no stream is live.");
}

ExitStatus ReportIdle(Session& session) {
  return Report(session, kIdle, "nobody is signed in, and no stream is live.");
}

constexpr Verb kSessionParts[] = {
    {"live", "A stream is live and somebody is signed in",
     [](CLI::App&) -> VerbAction { return ReportLive; }},
    {"signed-in", "Somebody is signed in, and no stream is live",
     [](CLI::App&) -> VerbAction { return ReportSignedIn; }},
    {"idle", "Nobody is signed in, and no stream is live",
     [](CLI::App&) -> VerbAction { return ReportIdle; }},
};

}  // namespace

VerbAction VerbSession(CLI::App& command) {
  command.footer(
      "Only the kiosk account may report. The application that runs in its session reports as\n"
      "well, and the last report counts.\n\n" +
      command.get_footer());
  return VerbGroup(command, kSessionParts);
}

}  // namespace client
