// Options that several verbs share.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <string>

#include "simulator/client/Session.h"

namespace client {

/// Adds the options of every verb to a command; values go to `options`, which must outlive it.
void AddCommonOptions(CLI::App& command, CommonOptions& options);

/// Adds an option that takes seconds ("2", "0.5") within kMinimumOptionSeconds and
/// kMaximumOptionSeconds; the value goes to `value`, which must outlive the command.
void AddSecondsOption(CLI::App& command, const std::string& name, std::chrono::milliseconds& value,
                      const std::string& description);

}  // namespace client
