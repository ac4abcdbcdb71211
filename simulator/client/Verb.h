// A verb of kioskctl, and verbs that are made of verbs.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <span>
#include <string>

#include "simulator/client/Session.h"

namespace client {

/// Does what a verb says once its arguments are read.
using VerbAction = std::function<ExitStatus(Session&)>;

/// Adds a verb's own arguments to its subcommand and returns its action, which keeps the values.
using VerbSetup = VerbAction (*)(CLI::App& command);

/// A verb as the command line knows it.
struct Verb {
  const char* name;
  const char* description;
  VerbSetup setup;
};

/// Adds verbs as subcommands, of which the command line has to name exactly one; the action
/// returned is that one's.
VerbAction VerbGroup(CLI::App& command, std::span<const Verb> verbs);

/// What is wrong with a command line that could not be read, as the parser has it; but where a verb
/// is missing, the word that stands in its place is named, and so are the verbs that are there.
std::string VerbFailure(const CLI::App* application, const CLI::Error& error);

}  // namespace client
