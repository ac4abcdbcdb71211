#include "platform/simulated/MacFiles.h"

#include <crypt.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>

#include "platform/simulated/Descriptor.h"
#include "platform/simulated/Limits.h"
#include "platform/simulated/PropertyListEncoding.h"

namespace platform {
namespace {

constexpr mode_t kRecordMode = 0600;
constexpr mode_t kFlatFileMode = 0644;
constexpr char kRecordSuffix[] = ".plist";

/// What a record's `passwd` says when the hash is kept elsewhere.
constexpr char kShadowed[] = "********";

struct CloseDirectory {
  void operator()(DIR* directory) const { (void)closedir(directory); }
};

bool isRecordName(const std::string& name) {
  return !name.empty() && name.front() != '.' &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string::npos;
}

std::string recordPath(const char* folder, const std::string& name) {
  return std::string(folder) + "/" + name + kRecordSuffix;
}

/// Names of the records in a folder, sorted.
std::vector<std::string> recordNames(const std::string& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir(folder.c_str()));
  if (directory == nullptr) return names;
  while (const dirent* entry = readdir(directory.get())) {
    const std::string name = entry->d_name;
    if (!name.ends_with(kRecordSuffix)) continue;
    names.push_back(name.substr(0, name.size() - (sizeof kRecordSuffix - 1)));
  }
  std::sort(names.begin(), names.end());
  return names;
}

/// All values of an attribute; empty when it is absent or not an array of strings.
std::vector<std::string> values(const Json& record, const char* attribute) {
  std::vector<std::string> texts;
  const auto found = record.find(attribute);
  if (found == record.end() || !found->is_array()) return texts;
  for (const Json& value : *found) {
    if (value.is_string()) texts.push_back(value.get<std::string>());
  }
  return texts;
}

std::optional<std::string> firstValue(const Json& record, const char* attribute) {
  const std::vector<std::string> texts = values(record, attribute);
  if (texts.empty()) return std::nullopt;
  return texts.front();
}

std::string text(const Json& record, const char* attribute) {
  return firstValue(record, attribute).value_or("");
}

std::optional<std::uint32_t> number(const Json& record, const char* attribute) {
  const std::string digits = text(record, attribute);
  std::int64_t value = 0;  // "-2" is nobody's id
  const char* end = digits.data() + digits.size();
  const auto [last, error] = std::from_chars(digits.data(), end, value);
  if (error != std::errc() || last != end) return std::nullopt;
  return static_cast<std::uint32_t>(value);
}

std::optional<MacUser> userFrom(const std::optional<Json>& record) {
  if (!record || !record->is_object()) return std::nullopt;
  const std::optional<std::uint32_t> uid = number(*record, "uid");
  const std::optional<std::uint32_t> gid = number(*record, "gid");
  if (!uid || !gid || text(*record, "name").empty()) return std::nullopt;
  return MacUser{.name = text(*record, "name"),
                 .realName = text(*record, "realname"),
                 .uid = *uid,
                 .gid = *gid,
                 .home = text(*record, "home"),
                 .shell = text(*record, "shell"),
                 .generatedUid = text(*record, "generateduid"),
                 .passwordHash = firstValue(*record, "password_hash")};
}

std::optional<MacGroup> groupFrom(const std::optional<Json>& record) {
  if (!record || !record->is_object()) return std::nullopt;
  const std::optional<std::uint32_t> gid = number(*record, "gid");
  if (!gid || text(*record, "name").empty()) return std::nullopt;
  return MacGroup{.name = text(*record, "name"),
                  .gid = *gid,
                  .generatedUid = text(*record, "generateduid"),
                  .users = values(*record, "users")};
}

/// The record as it is, for a change that keeps what it does not know.
Json existingRecord(const MacTree& tree, const std::string& path) {
  std::optional<Json> record = tree.readPropertyList(path);
  return record && record->is_object() ? *record : Json::object();
}

std::string idText(std::uint32_t id) { return std::to_string(static_cast<std::int32_t>(id)); }

void update(Json& record, const MacUser& user) {
  record["name"] = {user.name};
  record["realname"] = {user.realName};
  record["uid"] = {idText(user.uid)};
  record["gid"] = {idText(user.gid)};
  record["home"] = {user.home};
  record["shell"] = {user.shell};
  record["generateduid"] = {user.generatedUid};
  record["passwd"] = {kShadowed};
  record.erase("password_hash");
  if (user.passwordHash) record["password_hash"] = {*user.passwordHash};
}

void update(Json& record, const MacGroup& group) {
  record["name"] = {group.name};
  record["gid"] = {idText(group.gid)};
  record["generateduid"] = {group.generatedUid};
  record["users"] = group.users;
}

/// A field of a flat file: without the characters that would end it.
std::string flat(std::string field) {
  std::erase_if(field, [](char c) { return c == ':' || c == '\n'; });
  return field;
}

std::string passwdLine(const MacUser& user) {
  return flat(user.name) + ":x:" + std::to_string(user.uid) + ":" + std::to_string(user.gid) + ":" +
         flat(user.realName) + ":" + flat(user.home) + ":" + flat(user.shell) + "\n";
}

std::string groupLine(const MacGroup& group) {
  std::string line = flat(group.name) + ":x:" + std::to_string(group.gid) + ":";
  for (std::size_t i = 0; i < group.users.size(); ++i) {
    line += (i == 0 ? "" : ",") + flat(group.users[i]);
  }
  return line + "\n";
}

bool writeAndRename(const std::string& temporary, int descriptor, const std::string& target,
                    const std::string& contents, mode_t mode) {
  const Descriptor file(descriptor);
  if (fchmod(file.get(), mode) != 0 || !WriteWhole(file.get(), contents)) return false;
  return rename(temporary.c_str(), target.c_str()) == 0;
}

std::optional<std::string> cryptWith(const std::string& password, const char* setting) {
  const auto data = std::make_unique<crypt_data>();
  const char* hash = crypt_r(password.c_str(), setting, data.get());
  if (hash == nullptr || hash[0] == '*') return std::nullopt;
  return hash;
}

}  // namespace

std::optional<std::string> MacTree::read(const std::string& file) const {
  // Without O_NONBLOCK a pipe in a file's place would hold the caller up.
  const Descriptor descriptor(
      open(path(file).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!descriptor.valid() || fstat(descriptor.get(), &status) != 0) return std::nullopt;
  if (!S_ISREG(status.st_mode)) return std::nullopt;
  std::string contents;
  char buffer[64 * 1024];
  for (;;) {
    const ssize_t count =
        RetryInterrupted([&] { return ::read(descriptor.get(), buffer, sizeof buffer); });
    if (count < 0) return std::nullopt;
    if (count == 0) return contents;
    contents.append(buffer, static_cast<std::size_t>(count));
    if (contents.size() > kMaximumFileBytes) return std::nullopt;
  }
}

bool MacTree::replace(const std::string& file, const std::string& contents, mode_t mode) const {
  const std::string target = path(file);
  std::string temporary = target + ".XXXXXX";
  const int descriptor = mkostemp(temporary.data(), O_CLOEXEC);
  if (descriptor < 0) return false;
  if (writeAndRename(temporary, descriptor, target, contents, mode)) return true;
  const int error = errno;
  (void)unlink(temporary.c_str());  // the failure to report is the one before
  errno = error;
  return false;
}

std::optional<Json> MacTree::readJson(const std::string& file) const {
  const std::optional<std::string> contents = read(file);
  if (!contents) return std::nullopt;
  Json value = Json::parse(*contents, nullptr, false);
  if (value.is_discarded()) return std::nullopt;
  return value;
}

std::optional<Json> MacTree::readPropertyList(const std::string& file) const {
  const std::optional<std::string> contents = read(file);
  return contents ? PropertyListParse(*contents) : std::nullopt;
}

bool MacTree::writePropertyList(const std::string& file, const Json& value,
                                PropertyListFormat format, mode_t mode) const {
  std::string error;
  const std::optional<std::string> bytes = EncodePropertyList(value, format, error);
  return bytes && replace(file, *bytes, mode);
}

std::vector<MacUser> MacTree::users() const {
  std::vector<MacUser> all;
  for (const std::string& name : recordNames(path(kMacUsers))) {
    if (std::optional<MacUser> user = userNamed(name)) all.push_back(std::move(*user));
  }
  return all;
}

std::optional<MacUser> MacTree::userNamed(const std::string& name) const {
  if (!isRecordName(name)) return std::nullopt;
  return userFrom(readPropertyList(recordPath(kMacUsers, name)));
}

std::optional<MacUser> MacTree::userWithUid(uid_t uid) const {
  for (const MacUser& user : users()) {
    if (user.uid == uid) return user;
  }
  return std::nullopt;
}

bool MacTree::writeUser(const MacUser& user) const {
  if (!isRecordName(user.name)) return false;
  const std::string file = recordPath(kMacUsers, user.name);
  Json record = existingRecord(*this, file);
  update(record, user);
  return writePropertyList(file, record, PropertyListFormat::kXml, kRecordMode);
}

bool MacTree::removeUser(const std::string& name) const {
  return isRecordName(name) && unlink(path(recordPath(kMacUsers, name)).c_str()) == 0;
}

std::vector<MacGroup> MacTree::groups() const {
  std::vector<MacGroup> all;
  for (const std::string& name : recordNames(path(kMacGroups))) {
    if (std::optional<MacGroup> group = groupNamed(name)) all.push_back(std::move(*group));
  }
  return all;
}

std::optional<MacGroup> MacTree::groupNamed(const std::string& name) const {
  if (!isRecordName(name)) return std::nullopt;
  return groupFrom(readPropertyList(recordPath(kMacGroups, name)));
}

bool MacTree::writeGroup(const MacGroup& group) const {
  if (!isRecordName(group.name)) return false;
  const std::string file = recordPath(kMacGroups, group.name);
  Json record = existingRecord(*this, file);
  update(record, group);
  return writePropertyList(file, record, PropertyListFormat::kXml, kRecordMode);
}

bool MacTree::removeGroup(const std::string& name) const {
  return isRecordName(name) && unlink(path(recordPath(kMacGroups, name)).c_str()) == 0;
}

bool MacTree::writeFlatView() const { return writeFlatView(MacDirectoryLock(*this)); }

bool MacTree::writeFlatView(const MacDirectoryLock& lock) const {
  if (!lock.held()) return false;
  std::string passwd;
  for (const MacUser& user : users()) passwd += passwdLine(user);
  std::string group;
  for (const MacGroup& record : groups()) group += groupLine(record);
  return replace(kMacPasswdFile, passwd, kFlatFileMode) &&
         replace(kMacGroupFile, group, kFlatFileMode);
}

MacDirectoryLock::MacDirectoryLock(const MacTree& mac)
    : _node(open(mac.path(kMacDirectoryNode).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (!_node.valid()) return;
  if (RetryInterrupted([&] { return flock(_node.get(), LOCK_EX); }) != 0) _node = Descriptor();
}

std::optional<std::string> MacPasswordHash(const std::string& password) {
  char setting[CRYPT_GENSALT_OUTPUT_SIZE] = {};
  // No random bytes given: the library takes them from the kernel.
  if (crypt_gensalt_rn("$6$", 0, nullptr, 0, setting, sizeof setting) == nullptr) {
    return std::nullopt;
  }
  return cryptWith(password, setting);
}

bool MacPasswordMatches(const std::string& password, const std::string& hash) {
  const std::optional<std::string> again = cryptWith(password, hash.c_str());
  return again == hash;
}

}  // namespace platform
