#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "simulator/client/Printable.h"
#include "simulator/client/Verb.h"

namespace client {
namespace {

/// The group of verbs down to which the command line was understood.
const CLI::App* LastGroup(const CLI::App* application) {
  while (!application->get_subcommands().empty()) {
    application = application->get_subcommands().front();
  }
  return application;
}

/// The first word that no verb and no option is; empty when there is none.
std::string UnknownWord(const CLI::App& group) {
  const std::vector<std::string> rest = group.remaining();
  const auto word = std::find_if(rest.begin(), rest.end(),
                                 [](const std::string& each) { return !each.starts_with('-'); });
  return word == rest.end() ? "" : *word;
}

std::string Names(const CLI::App& group) {
  std::string names;
  for (const CLI::App* const verb : group.get_subcommands({})) {
    names += (names.empty() ? "" : ", ") + verb->get_name();
  }
  return names;
}

}  // namespace

std::string VerbFailure(const CLI::App* application, const CLI::Error& error) {
  const CLI::App* const group = LastGroup(application);
  const std::string word = UnknownWord(*group);
  const std::string names = Names(*group);
  const bool missing = error.get_name() == "RequiredError" && !names.empty();
  if (!missing || word.empty()) return CLI::FailureMessage::simple(application, error);
  const std::string sentence = "There is no \"" + Printable(word) + "\" here: " + names;
  return CLI::FailureMessage::simple(application, CLI::ValidationError(sentence));
}

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
