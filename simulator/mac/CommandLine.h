// How simmac's commands are put on its command line.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace simmac {

/// What the command line asked for: the Mac, and what is to be done with it.
struct Request {
  std::string mac;
  std::function<int(const std::string& root)> action;
};

/// A command that has a Mac's directory as its first argument.
inline CLI::App* AddCommand(CLI::App& app, Request& request, const std::string& name,
                            const std::string& description) {
  CLI::App* command = app.add_subcommand(name, description);
  command->add_option("MAC", request.mac, "Directory of the simulated Mac")->required();
  return command;
}

/// Options live as long as the program, since they are filled while the line is parsed.
template <typename Options>
Options& Keep() {
  static Options options;
  return options;
}

void AddUpdates(CLI::App& app, Request& request);  ///< simmac updates
void AddClock(CLI::App& app, Request& request);    ///< simmac clock

}  // namespace simmac
