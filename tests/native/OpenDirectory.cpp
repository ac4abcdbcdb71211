#include <OpenDirectory/OpenDirectory.h>
#include <membership.h>

#include <cstdio>
#include <cstring>

#include "tests/native/CoreFoundation.h"
#include "tests/native/Doubles.h"

using native::As;
using native::Begin;

namespace native {
namespace {

class OdNode : public CfObject {
 public:
  OdNode() : CfObject("ODNode", kOtherType) {}
};

class OdRecord : public CfObject {
 public:
  explicit OdRecord(std::string name) : CfObject("ODRecord", kOtherType), name(std::move(name)) {}

  const std::string name;
};

}  // namespace
}  // namespace native

extern "C" {

// Null stands for the session with the Mac's own directory service.
ODSessionRef kODSessionDefault = nullptr;
const ODRecordType kODRecordTypeUsers = native::RefOf<ODRecordType>(
    new native::CfString(u"dsRecTypeStandard:Users", native::Object::Life::kConstant));

ODNodeRef ODNodeCreateWithNodeType(CFAllocatorRef, ODSessionRef session, ODNodeType type,
                                   CFErrorRef* error) {
  if (session != nullptr || type != 0x2200) native::Crash("another node than the local one");
  if (!Begin(__func__)) return native::FailWith(error);
  return native::RefOf<ODNodeRef>(new native::OdNode);
}

ODRecordRef ODNodeCopyRecord(ODNodeRef node, ODRecordType type, CFStringRef name, CFTypeRef,
                             CFErrorRef* error) {
  (void)As<native::OdNode>(node);
  if (type != kODRecordTypeUsers) native::Crash("another type of record");
  const std::string user = native::Utf8Of(name);
  if (!Begin(__func__)) return native::FailWith(error);
  if (!native::TheMac().users.contains(user)) return nullptr;
  return native::RefOf<ODRecordRef>(new native::OdRecord(user));
}

bool ODRecordChangePassword(ODRecordRef record, CFStringRef oldPassword, CFStringRef newPassword,
                            CFErrorRef* error) {
  const std::string& name = As<native::OdRecord>(record)->name;
  if (oldPassword != nullptr) native::Crash("the old password was given");
  const std::string password = native::Utf8Of(newPassword);
  const auto user = native::TheMac().users.find(name);
  if (!Begin(__func__) || user == native::TheMac().users.end()) {
    native::FailWith(error);
    return false;
  }
  user->second.password = password;
  return true;
}

int mbr_uid_to_uuid(uid_t id, uuid_t uuid) {
  if (!Begin(__func__)) return 2;
  for (const auto& [name, user] : native::TheMac().users) {
    if (user.uid != id) continue;
    std::size_t digits = 0;
    for (const char digit : user.uuid) {
      if (digit == '-') continue;
      const char text[] = {digit, 0};
      const auto value = static_cast<unsigned char>(std::strtoul(text, nullptr, 16));
      unsigned char& byte = uuid[digits++ / 2];
      byte = static_cast<unsigned char>(byte << 4 | value);
    }
    return 0;
  }
  return 2;
}

void uuid_unparse_upper(const uuid_t uuid, uuid_string_t text) {
  char* end = text;
  for (int i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) *end++ = '-';
    end += std::snprintf(end, 3, "%02X", uuid[i]);
  }
}

}  // extern "C"
