// What kioskctl can be told to do: one table row and one source file a verb.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "simulator/client/Session.h"

namespace client {

/// Does what a verb says once its arguments are read.
using VerbAction = std::function<ExitStatus(Session&)>;

/// Adds a verb's own arguments to its subcommand and returns its action, which keeps the values.
using VerbSetup = VerbAction (*)(CLI::App& command);

VerbAction VerbStatus(CLI::App& command);
VerbAction VerbPair(CLI::App& command);
VerbAction VerbCheck(CLI::App& command);
VerbAction VerbRestart(CLI::App& command);
VerbAction VerbSend(CLI::App& command);

/// A verb as the command line knows it.
struct Verb {
  const char* name;
  const char* description;
  VerbSetup setup;
};

/// Every verb.
inline constexpr Verb kVerbs[] = {
    {"status", "Show how the terminal stands", VerbStatus},
    {"pair", "Pair the terminal with the portal", VerbPair},
    {"check", "Ask once whether a pairing code was claimed", VerbCheck},
    {"restart", "Restart the Mac that waits for it after pairing", VerbRestart},
    {"send", "Send any request and print the reply", VerbSend},
};

}  // namespace client
