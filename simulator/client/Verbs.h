// What kioskctl can be told to do: one table row and one source file a verb.
#pragma once

#include "simulator/client/Verb.h"

namespace client {

VerbAction VerbStatus(CLI::App& command);
VerbAction VerbPair(CLI::App& command);
VerbAction VerbCheck(CLI::App& command);
VerbAction VerbRestart(CLI::App& command);
VerbAction VerbUnlock(CLI::App& command);
VerbAction VerbMaintenance(CLI::App& command);
VerbAction VerbPower(CLI::App& command);
VerbAction VerbNet(CLI::App& command);
VerbAction VerbProxy(CLI::App& command);
VerbAction VerbTime(CLI::App& command);
VerbAction VerbUpdates(CLI::App& command);
VerbAction VerbSession(CLI::App& command);
VerbAction VerbSend(CLI::App& command);

/// Every verb.
inline constexpr Verb kVerbs[] = {
    {"status", "Show how the terminal stands", VerbStatus},
    {"pair", "Pair the terminal with the portal", VerbPair},
    {"check", "Ask once whether a pairing code was claimed", VerbCheck},
    {"restart", "Restart the Mac that waits for it after pairing", VerbRestart},
    {"unlock", "Unlock the settings for this terminal session", VerbUnlock},
    {"maintenance", "End the kiosk session and stay out of it until a restart", VerbMaintenance},
    {"power", "Show or change when the screen and the Mac sleep", VerbPower},
    {"net", "Set an adapter's address and name servers", VerbNet},
    {"proxy", "Set the web proxy", VerbProxy},
    {"time", "Set the time zone, set the clock, show when it was set", VerbTime},
    {"updates", "List and install updates of macOS", VerbUpdates},
    {"session", "Report how the kiosk session is used", VerbSession},
    {"send", "Send any request and print the reply", VerbSend},
};

}  // namespace client
