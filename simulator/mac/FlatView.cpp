#include "simulator/mac/FlatView.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <sstream>

namespace simmac {
namespace {

using platform::MacGroup;
using platform::MacTree;
using platform::MacUser;

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

std::optional<std::uint32_t> Id(const std::string& text) {
  std::uint32_t id = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, id);
  return error == std::errc() && stop == end ? std::optional(id) : std::nullopt;
}

/// name:x:uid:gid:real name:home:shell
std::optional<MacUser> ParseUser(const std::string& line) {
  const std::vector<std::string> fields = Split(line, ':');
  if (fields.size() < 6) return std::nullopt;
  const std::optional<std::uint32_t> uid = Id(fields[2]);
  const std::optional<std::uint32_t> gid = Id(fields[3]);
  if (!uid || !gid) return std::nullopt;
  return MacUser{.name = fields[0],
                 .realName = fields[4],
                 .uid = *uid,
                 .gid = *gid,
                 .home = fields[5],
                 .shell = fields.size() > 6 ? fields[6] : "",
                 .generatedUid = "",
                 .passwordHash = std::nullopt};
}

/// name:x:gid:member,member
std::optional<MacGroup> ParseGroup(const std::string& line) {
  const std::vector<std::string> fields = Split(line, ':');
  const std::optional<std::uint32_t> gid = fields.size() > 2 ? Id(fields[2]) : std::nullopt;
  if (!gid) return std::nullopt;
  const std::string members = fields.size() > 3 ? fields[3] : "";
  return MacGroup{.name = fields[0], .gid = *gid, .generatedUid = "", .users = Split(members, ',')};
}

template <typename Entry>
std::vector<Entry> ParseFile(const MacTree& mac, const char* path,
                             std::optional<Entry> (*parse)(const std::string&)) {
  std::vector<Entry> entries;
  for (const std::string& line : Split(mac.read(path).value_or(""), '\n')) {
    if (std::optional<Entry> entry = parse(line)) entries.push_back(std::move(*entry));
  }
  return entries;
}

template <typename Entry, typename Condition>
const Entry* Find(const std::vector<Entry>& entries, Condition condition) {
  const auto found = std::find_if(entries.begin(), entries.end(), condition);
  return found == entries.end() ? nullptr : &*found;
}

}  // namespace

FlatView::FlatView(const MacTree& mac)
    : _users(ParseFile(mac, platform::kMacPasswdFile, ParseUser)),
      _groups(ParseFile(mac, platform::kMacGroupFile, ParseGroup)) {}

const MacUser* FlatView::userNamed(const std::string& name) const {
  return Find(_users, [&name](const MacUser& user) { return user.name == name; });
}

const MacUser* FlatView::userWithUid(uid_t uid) const {
  return Find(_users, [uid](const MacUser& user) { return user.uid == uid; });
}

const MacGroup* FlatView::groupNamed(const std::string& name) const {
  return Find(_groups, [&name](const MacGroup& group) { return group.name == name; });
}

}  // namespace simmac
