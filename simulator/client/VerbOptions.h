// Options that several verbs share.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <string>
#include <vector>

#include "simulator/client/Session.h"

namespace client {

/// Adds the options of every verb to a command and to all its subcommands; values go to `options`,
/// which must outlive it.
void AddCommonOptions(CLI::App& command, CommonOptions& options);

/// Adds an option that takes seconds ("2", "0.5") within kMinimumOptionSeconds and
/// kMaximumOptionSeconds; the value goes to `value`, which must outlive the command.
void AddSecondsOption(CLI::App& command, const std::string& name, std::chrono::milliseconds& value,
                      const std::string& description);

/// The items of a list ("a,b"), without regard to what they are; none in an empty text.
std::vector<std::string> SplitList(const std::string& list);

/// The whole number that a text is, or a CLI::ValidationError under the argument's name.
long long WholeNumber(const std::string& text, const std::string& argument);

}  // namespace client
