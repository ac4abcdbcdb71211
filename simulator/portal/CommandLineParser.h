// The grammar of the program's command line.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulator/portal/Commands.h"
#include "simulator/portal/Serve.h"

namespace portal {

/// Everything that the command line can say.
struct Arguments {
  std::string dir;
  bool json = false;
  ServeOptions serve;
  std::string terminal;
  std::string code;
  std::optional<std::string> text;
  std::optional<std::string> microsoft;
  std::optional<std::string> email;
  std::optional<std::vector<std::string>> hosts;
  bool noHosts = false;
  std::optional<std::string> policy;
  std::optional<std::string> source;
  UpdatePolicyChange updates;
  bool raw = false;
  bool none = false;
  BrandingChange branding;
  std::string photo;
  PhotoDetails details;
  std::string mode;
  std::optional<std::string> path;
  std::optional<int> times;
  std::optional<int> delayMs;
  std::optional<int> status;
  std::optional<std::string> body;
};

/// The program's commands, wired to what they do.
class CommandLineParser {
 public:
  CommandLineParser();

  /// @return the process's exit status, an `ExitStatus`
  int run(int argc, char** argv);

 private:
  using Action = std::function<int(const Commands&)>;

  CLI::App* add(const std::string& name, const std::string& what, Action action);
  CLI::App* addForTerminal(const std::string& name, const std::string& what, Action action);
  CLI::App* takeTerminal(CLI::App* command);
  void addServe();
  void addCodes();
  void addTerminals();
  void addExitPassword();
  void addSignIn();
  CLI::App* addPolicy(const std::string& kind, const std::string& what, const std::string& choices);
  void addPower();
  void addUpdates();
  void addBranding();
  void addPhoto();
  void addPhotoAdd(CLI::App* photo);
  void addMisbehave();
  CLI::App* nest(CLI::App* command, const std::string& name, const std::string& what,
                 Action action);
  int setPolicy(const Commands& commands, const std::string& kind) const;
  Json misbehaviour() const;

  CLI::App _app{
      "The reference portal that kiosk terminals talk to, and its administrator's commands"};
  Arguments _given;
  Action _action;
};

/// Why an argument is refused: it is not JSON; empty when it is.
std::string CheckJson(const std::string& text);

/// A check of an argument that has so many characters.
std::function<std::string(const std::string&)> CheckLength(std::size_t least, std::size_t most);

/// What "on" and "off" mean; nothing without a word.
std::optional<bool> Switch(const std::optional<std::string>& word);

}  // namespace portal
