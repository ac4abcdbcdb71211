#include <unistd.h>

#include <optional>

#include "simulator/mac/Accounts.h"
#include "simulator/mac/FlatView.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

using platform::MacGroup;
using platform::MacTree;
using platform::MacUser;

constexpr int kError = 64;
constexpr int kNotAMember = 67;  // an answer, not a failure
constexpr int kRecordNotFound =
    200;  // the directory's error -14136, of which a status keeps a byte

struct Options {
  std::string operation;
  std::string group;
  std::string member;  // -m
  std::string add;     // -a
  std::string remove;  // -d
  std::string type = "user";
  std::string node = ".";
};

std::string* OptionField(const std::string& flag, Options& options) {
  if (flag == "-o") return &options.operation;
  if (flag == "-m") return &options.member;
  if (flag == "-a") return &options.add;
  if (flag == "-d") return &options.remove;
  if (flag == "-t") return &options.type;
  if (flag == "-n") return &options.node;
  return nullptr;
}

std::optional<Options> ParseOptions(const std::vector<std::string>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (std::string* field = OptionField(arguments[i], options)) {
      if (++i == arguments.size()) return std::nullopt;
      *field = arguments[i];
    } else if (arguments[i].rfind('-', 0) == 0 || !options.group.empty()) {
      return std::nullopt;
    } else {
      options.group = arguments[i];
    }
  }
  return options;
}

int Fail(const ToolCall& call, const std::string& text, int status) {
  call.output.err(text + "\n");
  return status;
}

int Usage(const ToolCall& call) {
  return Fail(call,
              "usage: dseditgroup [-o edit|checkmember] [-n nodename] [-m member] [-a addmember] "
              "[-d deletemember] [-t membertype] groupname",
              kError);
}

std::string CallersName(const FlatView& view) {
  const MacUser* caller = view.userWithUid(getuid());
  return caller ? caller->name : "root";
}

/// Answers everybody, so it looks where everybody may: the records are for root only.
int CheckMember(const ToolCall& call, const Options& options) {
  const FlatView view{MacTree()};
  const MacGroup* group = view.groupNamed(options.group);
  if (!group) return Fail(call, "Group not found.", kError);
  const std::string name = options.member.empty() ? CallersName(view) : options.member;
  const MacUser* user = view.userNamed(name);
  if (!user) return Fail(call, "Unable to find the user record", kError);
  const bool member = IsMember(*user, *group);
  call.output.out((member ? "yes " + name + " is a" : "no " + name + " is NOT a") + " member of " +
                  group->name + "\n");
  return member ? 0 : kNotAMember;
}

int Edit(const ToolCall& call, const Options& options) {
  if (geteuid() != 0) return Fail(call, "Username and password must be provided.", kError);
  const MacTree mac;
  const platform::MacDirectoryLock lock(mac);
  const std::optional<MacGroup> group = mac.groupNamed(options.group);
  if (!group) return Fail(call, "Group not found.", kError);
  const bool adds = !options.add.empty();
  const std::string& name = adds ? options.add : options.remove;
  if (name.empty() || options.type != "user") return Usage(call);
  if (!mac.userNamed(name)) return Fail(call, "Record was not found.", kRecordNotFound);
  const bool edited = SetMember(mac, lock, *group, name, adds);
  return edited ? 0 : Fail(call, "Unable to edit the group.", kError);
}

}  // namespace

int DsEditGroup(const ToolCall& call) {
  const std::optional<Options> options = ParseOptions(call.arguments);
  if (!options) return Usage(call);
  if (options->group.empty()) return Fail(call, "No group name provided", kError);
  if (options->operation == "checkmember") return CheckMember(call, *options);
  if (options->operation == "edit") return Edit(call, *options);
  return Usage(call);
}

}  // namespace simmac
