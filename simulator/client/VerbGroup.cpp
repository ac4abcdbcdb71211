#include <utility>
#include <vector>

#include "simulator/client/Verb.h"

namespace client {

VerbAction VerbGroup(CLI::App& command, std::span<const Verb> verbs) {
  command.require_subcommand(1);
  std::vector<std::pair<CLI::App*, VerbAction>> actions;
  for (const Verb& verb : verbs) {
    CLI::App* const part = command.add_subcommand(verb.name, verb.description);
    actions.emplace_back(part, verb.setup(*part));
  }
  return [actions = std::move(actions)](Session& session) {
    for (const auto& [part, action] : actions) {
      if (part->parsed()) return action(session);
    }
    return ExitStatus::kUsage;
  };
}

}  // namespace client
