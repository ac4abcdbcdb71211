#include <plist/plist.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <optional>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/tools/PropertyListText.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

using platform::MacTree;
using PropertyList = std::unique_ptr<void, decltype(&plist_free)>;

constexpr int kFailed = 1;
constexpr int kUsage = 255;
constexpr char kAnyApplication[] = "kCFPreferencesAnyApplication";

/// A preferences domain: what messages call it, and its file.
struct Domain {
  std::string name;
  std::string path;
};

Domain ParseDomain(const std::string& text) {
  constexpr std::string_view kSuffix = ".plist";
  const char* home = std::getenv("HOME");
  const std::string own = std::string(home ? home : "/var/root") + "/Library/Preferences/";
  if (text == "-g" || text == "NSGlobalDomain" || text == "-globalDomain") {
    return {kAnyApplication, own + ".GlobalPreferences.plist"};
  }
  const bool suffixed = text.size() > kSuffix.size() &&
                        text.compare(text.size() - kSuffix.size(), kSuffix.size(), kSuffix) == 0;
  const std::string name = suffixed ? text.substr(0, text.size() - kSuffix.size()) : text;
  const bool absolute = name.rfind('/', 0) == 0;
  return {name, (absolute ? name : own + name) + std::string(kSuffix)};
}

/// The domain's dictionary; null when it has none.
PropertyList Load(const Domain& domain) {
  PropertyList list(nullptr, plist_free);
  const std::optional<std::string> bytes = MacTree().read(domain.path);
  if (!bytes) return list;
  plist_t root = nullptr;
  plist_from_memory(bytes->data(), static_cast<std::uint32_t>(bytes->size()), &root);
  list.reset(root);
  if (root && plist_get_node_type(root) != PLIST_DICT) list.reset();
  return list;
}

bool Save(const Domain& domain, const PropertyList& list) {
  constexpr mode_t kMode = 0644;
  char* bytes = nullptr;
  std::uint32_t size = 0;
  plist_to_bin(list.get(), &bytes, &size);
  if (!bytes) return false;
  const std::string contents(bytes, size);
  std::free(bytes);
  return MacTree().replace(domain.path, contents, kMode);
}

int Fail(const ToolCall& call, const std::string& text) {
  call.output.err(LogPrefix(call.name) + "\n" + text + "\n");
  return kFailed;
}

int CannotWrite(const ToolCall& call, const Domain& domain) {
  call.output.err(LogPrefix(call.name) + "Could not write domain " + domain.name + "; exiting\n");
  return kFailed;
}

int Usage(const ToolCall& call) {
  call.output.err(
      "Command line interface to a user's defaults.\nSyntax:\n\n"
      "'defaults' [-currentHost | -host <hostname>] followed by one of the following:\n\n"
      "  read <domain> [<key>]                shows defaults for given domain, key\n"
      "  write <domain> <key> <value>         writes key for domain\n"
      "  delete <domain> [<key>]              deletes domain or key in domain\n");
  return kUsage;
}

int Read(const ToolCall& call, const Domain& domain, const std::optional<std::string>& key) {
  const PropertyList list = Load(domain);
  if (!key) {
    if (!list) return Fail(call, "Domain " + domain.name + " does not exist");
    call.output.out(PropertyListText(list.get()) + "\n");
    return 0;
  }
  plist_t value = list ? plist_dict_get_item(list.get(), key->c_str()) : nullptr;
  if (!value) {
    return Fail(call,
                "The domain/default pair of (" + domain.name + ", " + *key + ") does not exist");
  }
  call.output.out(PropertyListText(value) + "\n");
  return 0;
}

plist_t BooleanNode(const std::string& text) {
  static const std::map<std::string, std::uint8_t> words = {
      {"true", 1},  {"TRUE", 1},  {"yes", 1}, {"YES", 1}, {"1", 1},
      {"false", 0}, {"FALSE", 0}, {"no", 0},  {"NO", 0},  {"0", 0}};
  const auto word = words.find(text);
  return word == words.end() ? nullptr : plist_new_bool(word->second);
}

plist_t IntegerNode(const std::string& text) {
  char* end = nullptr;
  const long long number = std::strtoll(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0') return nullptr;
  return plist_new_uint(static_cast<std::uint64_t>(number));
}

plist_t RealNode(const std::string& text) {
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  return text.empty() || *end != '\0' ? nullptr : plist_new_real(number);
}

plist_t StringNode(const std::string& text) { return plist_new_string(text.c_str()); }

/// The value that the arguments after the key describe; null when they describe none.
plist_t ParseValue(const std::vector<std::string>& arguments) {
  using Maker = plist_t (*)(const std::string&);
  static const std::map<std::string, Maker> makers = {
      {"-string", StringNode}, {"-bool", BooleanNode},    {"-boolean", BooleanNode},
      {"-int", IntegerNode},   {"-integer", IntegerNode}, {"-float", RealNode}};
  constexpr std::size_t kValue = 3;
  if (arguments.size() == kValue + 1) return StringNode(arguments[kValue]);
  if (arguments.size() != kValue + 2) return nullptr;
  const auto maker = makers.find(arguments[kValue]);
  return maker == makers.end() ? nullptr : maker->second(arguments[kValue + 1]);
}

int Write(const ToolCall& call, const Domain& domain, const std::optional<std::string>& key) {
  plist_t value = key ? ParseValue(call.arguments) : nullptr;
  if (!value) return Usage(call);
  PropertyList list = Load(domain);
  if (!list) list.reset(plist_new_dict());
  // Other keys stay the nodes they were, dates and data included.
  plist_dict_set_item(list.get(), key->c_str(), value);
  return Save(domain, list) ? 0 : CannotWrite(call, domain);
}

int Delete(const ToolCall& call, const Domain& domain, const std::optional<std::string>& key) {
  const PropertyList list = Load(domain);
  if (!list || (key && !plist_dict_get_item(list.get(), key->c_str()))) {
    return Fail(call, "Domain (" + domain.name + ") not found.\nDefaults have not been changed.");
  }
  if (!key) return unlink(domain.path.c_str()) == 0 ? 0 : CannotWrite(call, domain);
  plist_dict_remove_item(list.get(), key->c_str());
  return Save(domain, list) ? 0 : CannotWrite(call, domain);
}

}  // namespace

int Defaults(const ToolCall& call) {
  using Verb = int (*)(const ToolCall&, const Domain&, const std::optional<std::string>&);
  static const std::map<std::string, Verb> verbs = {
      {"read", Read}, {"write", Write}, {"delete", Delete}};
  if (call.arguments.size() < 2) return Usage(call);
  const auto verb = verbs.find(call.arguments[0]);
  if (verb == verbs.end()) return Usage(call);
  std::optional<std::string> key;
  if (call.arguments.size() > 2) key = call.arguments[2];
  return verb->second(call, ParseDomain(call.arguments[1]), key);
}

}  // namespace simmac
