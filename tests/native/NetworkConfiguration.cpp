// SCPreferences, SCNetworkConfiguration and their errors.
#include <SystemConfiguration/SystemConfiguration.h>

#include <condition_variable>
#include <mutex>

#include "tests/native/CoreFoundation.h"
#include "tests/native/Doubles.h"

using native::As;

namespace native {
namespace {

// Source: SystemConfiguration.h of the open-source configd; the texts are its too.
enum Status {
  kOk = 0,
  kFailed = 1001,
  kInvalidArgument = 1002,
  kAccessError = 1003,
  kNoKey = 1004,
  kKeyExists = 1005,
  kLocked = 1006,
  kNeedLock = 1007,
  kBusy = 3002,
  kStale = 3005,
};

thread_local int lastStatus = kOk;
thread_local std::string lastFailure;  ///< what a failure says that a test asked for

const char* textOf(int status) {
  static const auto* const texts =
      new std::map<int, const char*>{{kOk, "Success!"},
                                     {kInvalidArgument, "Invalid argument"},
                                     {kAccessError, "Permission denied"},
                                     {kNoKey, "No such key"},
                                     {kKeyExists, "Key already defined"},
                                     {kLocked, "Lock already held"},
                                     {kNeedLock, "Lock required for this operation"},
                                     {kBusy, "Preferences update currently in progress"},
                                     {kStale, "Write attempted on stale version of object"}};
  return texts->at(status);
}

/// Null, for the call to return.
std::nullptr_t fail(Status status) {
  lastStatus = status;
  return nullptr;
}

/// Notes a call. False with the error set when the test wants it to fail.
bool begin(const char* function, const std::string& arguments = {}) {
  if (Begin(function, arguments)) return true;
  lastFailure = FailureText();
  fail(kFailed);
  return false;
}

/// Who may change the Mac's preferences, of all sessions and threads.
struct Lock {
  std::mutex mutex;
  std::condition_variable released;
  const CfObject* holder = nullptr;
};

Lock& lock() {
  static auto* const only = new Lock;
  return *only;
}

using Path = Json::json_pointer;

class Preferences : public CfObject {
 public:
  Preferences() : CfObject("SCPreferences", kOtherType) {}

  /// What this session sees, a copy of the Mac's from the first look on.
  Json& seen() {
    const std::lock_guard guard(lock().mutex);
    if (!_read) _seen = *(_read = TheMac().networkPreferences);
    return _seen;
  }

  /// The object at a path, or null.
  Json* at(const std::string& path) {
    Json& tree = seen();
    return tree.contains(Path(path)) ? &tree[Path(path)] : nullptr;
  }

  bool holdsLock() const { return lock().holder == this; }
  Status take(bool wait);
  Status drop();
  Status commit();

 protected:
  ~Preferences() override { (void)drop(); }

 private:
  std::optional<Json> _read;
  Json _seen;
};

Status Preferences::take(bool wait) {
  std::unique_lock guard(lock().mutex);
  if (holdsLock()) return kLocked;
  if (!TheMac().isRoot) return kAccessError;
  if (!wait && lock().holder != nullptr) return kBusy;
  lock().released.wait(guard, [] { return lock().holder == nullptr; });
  if (_read && *_read != TheMac().networkPreferences) return kStale;
  lock().holder = this;
  return kOk;
}

Status Preferences::drop() {
  const std::lock_guard guard(lock().mutex);
  if (!holdsLock()) return kNeedLock;
  lock().holder = nullptr;
  lock().released.notify_all();
  return kOk;
}

Status Preferences::commit() {
  const std::lock_guard guard(lock().mutex);
  if (_read) TheMac().networkPreferences = *(_read = _seen);
  return kOk;
}

/// Does something under the session's lock, or under one of its own.
template <class Work>
Status whileLocked(Preferences* preferences, Work work) {
  const Status taken = preferences->take(true);
  if (taken != kOk && taken != kLocked) return taken;
  const Status done = work();
  if (taken == kOk) (void)preferences->drop();
  return done;
}

/// Keeps the preferences that it is part of.
class Part : public CfObject {
 public:
  Part(const char* kind, Preferences* preferences, std::string path)
      : CfObject(kind, kOtherType), preferences(preferences), path(std::move(path)) {
    preferences->retain();
  }

  Json* find() const { return preferences->at(path); }
  bool isEnabled() const { return find() == nullptr || !find()->contains("__INACTIVE__"); }

  Preferences* const preferences;
  const std::string path;

 protected:
  ~Part() override { preferences->release(); }
};

class Set : public Part {
 public:
  Set(Preferences* preferences, std::string path)
      : Part("SCNetworkSet", preferences, std::move(path)) {}
};

class Interface : public CfObject {
 public:
  explicit Interface(CFStringRef bsdName)
      : CfObject("SCNetworkInterface", kOtherType), bsdName(bsdName) {}

  const CFStringRef bsdName;

 protected:
  ~Interface() override {
    if (bsdName != nullptr) CFRelease(bsdName);
  }
};

class Service : public Part {
 public:
  Service(Preferences* preferences, std::string path)
      : Part("SCNetworkService", preferences, std::move(path)) {}

  Interface* interface = nullptr;  ///< lent to whoever asks for it

 protected:
  ~Service() override {
    if (interface != nullptr) interface->release();
  }
};

class Protocol : public Part {
 public:
  Protocol(Service* service, const std::string& type)
      : Part("SCNetworkProtocol", service->preferences, service->path + "/" + type) {}

  /// Lends a configuration, until the next one or a change.
  CFTypeRef lend(CFTypeRef configuration) {
    if (_lent != nullptr) CFRelease(_lent);
    return _lent = configuration;
  }

 protected:
  ~Protocol() override { lend(nullptr); }

 private:
  CFTypeRef _lent = nullptr;
};

CFTypeRef newFrom(const Json& value);

CFTypeRef newCollection(const Json& items) {
  const bool isArray = items.is_array();
  auto* made = isArray ? new CfCollection("CFArray", kArrayType)
                       : new CfCollection("CFDictionary", kDictionaryType);
  for (const auto& [key, item] : items.items()) {
    if (!isArray) made->keys.push_back(NewString(key));
    made->values.push_back(newFrom(item));
  }
  return RefOf<CFTypeRef>(made);
}

CFTypeRef newFrom(const Json& value) {
  if (value.is_structured()) return newCollection(value);
  if (value.is_string()) return NewString(value.get<std::string>());
  if (value.is_boolean()) return CFRetain(value.get<bool>() ? kCFBooleanTrue : kCFBooleanFalse);
  if (!value.is_number()) Crash("a property list with something else");
  const bool isReal = value.is_number_float();
  return RefOf<CFTypeRef>(
      new CfNumber(isReal, isReal ? 0 : value.get<std::int64_t>(), value.get<double>()));
}

Json jsonOf(CFTypeRef object);

Json jsonOfCollection(const CfCollection* items) {
  Json made = items->type == kArrayType ? Json::array() : Json::object();
  for (std::size_t i = 0; i < items->values.size(); ++i) {
    Json value = jsonOf(items->values[i]);
    if (items->type == kArrayType) {
      made.push_back(std::move(value));
    } else {
      made[Utf8Of(static_cast<CFStringRef>(items->keys[i]))] = std::move(value);
    }
  }
  return made;
}

Json jsonOf(CFTypeRef object) {
  switch (CFGetTypeID(object)) {
    case kStringType:
      return Utf8Of(static_cast<CFStringRef>(object));
    case kBooleanType:
      return As<CfBoolean>(object)->value;
    case kNumberType: {
      const auto* number = As<CfNumber>(object);
      return number->isReal ? Json(number->real) : Json(number->integer);
    }
    default:
      return jsonOfCollection(As<CfCollection>(object));
  }
}

/// What new protocols of an Ethernet service have; nothing for an unknown type.
std::optional<Json> templateOf(const std::string& type) {
  if (type == "IPv4") return Json{{"ConfigMethod", "DHCP"}};
  if (type == "IPv6") return Json{{"ConfigMethod", "Automatic"}};
  if (type == "DNS" || type == "SMB") return Json::object();
  if (type != "Proxies") return std::nullopt;
  return Json{{"ExceptionsList", {"*.local", "169.254/16"}}, {"FTPPassive", 1}};
}

/// A protocol's object to change, made when there is none; null when its service has gone.
Json* toChange(Protocol* protocol) {
  if (protocol->preferences->at(Path(protocol->path).parent_pointer().to_string()) == nullptr) {
    return nullptr;
  }
  protocol->lend(nullptr);
  Json& found = protocol->preferences->seen()[Path(protocol->path)];
  if (found.is_null()) found = Json::object();
  return &found;
}

void setEnabled(Json& object, bool enabled) {
  object.erase("__INACTIVE__");
  if (!enabled) object["__INACTIVE__"] = true;
}

Boolean resultOf(Status status) {
  if (status != kOk) fail(status);
  return status == kOk ? 1 : 0;
}

}  // namespace
}  // namespace native

using native::begin;
using native::fail;

extern "C" {

int SCError(void) { return native::lastStatus; }

const char* SCErrorString(int status) {
  return status == native::kFailed ? native::lastFailure.c_str() : native::textOf(status);
}

SCPreferencesRef SCPreferencesCreate(CFAllocatorRef, CFStringRef name, CFStringRef identifier) {
  if (identifier != nullptr) native::Crash("other preferences than the system's own");
  if (!begin(__func__, native::Utf8Of(name))) return nullptr;
  return native::RefOf<SCPreferencesRef>(new native::Preferences);
}

Boolean SCPreferencesLock(SCPreferencesRef preferences, Boolean wait) {
  auto* session = As<native::Preferences>(preferences);
  if (!begin(__func__, wait != 0 ? "true" : "false")) return 0;
  return native::resultOf(session->take(wait != 0));
}

Boolean SCPreferencesUnlock(SCPreferencesRef preferences) {
  auto* session = As<native::Preferences>(preferences);
  return begin(__func__) ? native::resultOf(session->drop()) : Boolean{0};
}

Boolean SCPreferencesCommitChanges(SCPreferencesRef preferences) {
  auto* session = As<native::Preferences>(preferences);
  if (!begin(__func__)) return 0;
  return native::resultOf(native::whileLocked(session, [&] { return session->commit(); }));
}

Boolean SCPreferencesApplyChanges(SCPreferencesRef preferences) {
  auto* session = As<native::Preferences>(preferences);
  if (!begin(__func__)) return 0;
  return native::resultOf(native::whileLocked(session, [] { return native::kOk; }));
}

SCNetworkSetRef SCNetworkSetCopyCurrent(SCPreferencesRef preferences) {
  auto* session = As<native::Preferences>(preferences);
  if (!begin(__func__)) return nullptr;
  const Json* path = session->at("/CurrentSet");
  if (path == nullptr || session->at(*path) == nullptr) return fail(native::kNoKey);
  return native::RefOf<SCNetworkSetRef>(new native::Set(session, *path));
}

CFArrayRef SCNetworkSetCopyServices(SCNetworkSetRef set) {
  const auto* found = As<native::Set>(set);
  if (!begin(__func__)) return nullptr;
  auto* services = new native::CfCollection("CFArray", native::kArrayType);
  const std::string folder = found->path + "/Network/Service";
  const Json* there = found->preferences->at(folder);
  const Json entries = there != nullptr ? *there : Json::object();
  for (const auto& [id, entry] : entries.items()) {
    const std::string path = entry.value("__LINK__", folder + "/" + id);
    services->values.push_back(
        native::RefOf<CFTypeRef>(new native::Service(found->preferences, path)));
  }
  return native::RefOf<CFArrayRef>(services);
}

SCNetworkInterfaceRef SCNetworkServiceGetInterface(SCNetworkServiceRef service) {
  auto* found = As<native::Service>(service);
  if (!begin(__func__)) return nullptr;
  const Json* description = found->preferences->at(found->path + "/Interface");
  if (description == nullptr) return nullptr;
  if (found->interface == nullptr) {
    const std::string name = description->value("DeviceName", "");
    found->interface = new native::Interface(name.empty() ? nullptr : native::NewString(name));
  }
  return native::RefOf<SCNetworkInterfaceRef>(found->interface);
}

CFStringRef SCNetworkInterfaceGetBSDName(SCNetworkInterfaceRef interface) {
  const auto* found = As<native::Interface>(interface);
  return begin(__func__) ? found->bsdName : nullptr;
}

Boolean SCNetworkServiceGetEnabled(SCNetworkServiceRef service) {
  const auto* found = As<native::Service>(service);
  return begin(__func__) && found->isEnabled() ? 1 : 0;
}

SCNetworkProtocolRef SCNetworkServiceCopyProtocol(SCNetworkServiceRef service, CFStringRef type) {
  auto* found = As<native::Service>(service);
  const std::string name = native::Utf8Of(type);
  if (!begin(__func__, name)) return nullptr;
  if (!native::templateOf(name)) return fail(native::kInvalidArgument);
  if (found->preferences->at(found->path + "/" + name) == nullptr) return fail(native::kNoKey);
  return native::RefOf<SCNetworkProtocolRef>(new native::Protocol(found, name));
}

Boolean SCNetworkServiceAddProtocolType(SCNetworkServiceRef service, CFStringRef type) {
  const auto* found = As<native::Service>(service);
  const std::string name = native::Utf8Of(type);
  if (!begin(__func__, name)) return 0;
  const std::optional<Json> configuration = native::templateOf(name);
  Json* entity = found->find();
  if (!configuration || entity == nullptr) return native::resultOf(native::kInvalidArgument);
  if (entity->contains(name)) return native::resultOf(native::kKeyExists);
  (*entity)[name] = *configuration;
  return 1;
}

CFDictionaryRef SCNetworkProtocolGetConfiguration(SCNetworkProtocolRef protocol) {
  auto* found = As<native::Protocol>(protocol);
  if (!begin(__func__)) return nullptr;
  const Json* entity = found->find();
  if (entity == nullptr || entity->size() == (found->isEnabled() ? 0 : 1)) return nullptr;
  return static_cast<CFDictionaryRef>(found->lend(native::newFrom(*entity)));
}

Boolean SCNetworkProtocolSetConfiguration(SCNetworkProtocolRef protocol,
                                          CFDictionaryRef configuration) {
  if (!begin(__func__)) return 0;
  if (protocol == nullptr) return native::resultOf(native::kInvalidArgument);
  auto* found = As<native::Protocol>(protocol);
  Json* entity = native::toChange(found);
  if (entity == nullptr) return native::resultOf(native::kInvalidArgument);
  const bool enabled = found->isEnabled();
  *entity = configuration == nullptr ? Json::object() : native::jsonOf(configuration);
  native::setEnabled(*entity, enabled);
  return 1;
}

Boolean SCNetworkProtocolSetEnabled(SCNetworkProtocolRef protocol, Boolean enabled) {
  auto* found = As<native::Protocol>(protocol);
  if (!begin(__func__, enabled != 0 ? "true" : "false")) return 0;
  Json* entity = native::toChange(found);
  if (entity == nullptr) return native::resultOf(native::kInvalidArgument);
  native::setEnabled(*entity, enabled != 0);
  return 1;
}

}  // extern "C"
