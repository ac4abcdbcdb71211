#include "platform/NetworkPreferences.h"

#include <algorithm>

#include "platform/NetworkConfiguration.h"
#include "platform/simulated/Faults.h"
#include "platform/simulated/NetworkSession.h"
#include "platform/simulated/PropertyListEncoding.h"

namespace platform {
namespace {

using Session = std::shared_ptr<NetworkSession>;

constexpr char kInactive[] = "__INACTIVE__";

/// Whether the service shall fail; the thread's error is set then.
bool fails(const char* service, const std::vector<std::string>& arguments = {}) {
  const std::optional<Fault> fault = TakeServiceFault(service, arguments);
  if (fault) NetworkFail(fault->errorOutput.value_or(kNetworkFailed));
  return fault.has_value();
}

/// What stands under a key of a dictionary, or null.
Json* valueOf(Json& dictionary, const std::string& key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : &*found;
}

std::optional<std::string> textOf(Json& dictionary, const std::string& key) {
  const Json* value = valueOf(dictionary, key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

/// The dictionary at a path from another one, or null.
Json* dictionaryAt(Json& top, const std::vector<std::string>& path) {
  Json* found = &top;
  for (const std::string& key : path) {
    found = valueOf(*found, key);
    if (found == nullptr) return nullptr;
  }
  return found->is_object() ? found : nullptr;
}

/// The dictionary "FOLDER/KEY" of the preferences that `path` names, or null.
Json* dictionaryNamed(Json& preferences, const std::string& folder, const std::string& path) {
  const std::string prefix = "/" + folder + "/";
  if (!path.starts_with(prefix)) return nullptr;
  return dictionaryAt(preferences, {folder, path.substr(prefix.size())});
}

Json* currentSet(Json& preferences) {
  const std::optional<std::string> path = textOf(preferences, "CurrentSet");
  return path ? dictionaryNamed(preferences, "Sets", *path) : nullptr;
}

/// A service of a set: behind its link, or there itself. Null when it is nowhere.
Json* serviceAt(Json& preferences, Json& entry) {
  const std::optional<std::string> link = textOf(entry, "__LINK__");
  if (link) return dictionaryNamed(preferences, "NetworkServices", *link);
  return entry.is_object() ? &entry : nullptr;
}

/// A set's entries for its services: those of its order first, the rest by name.
std::vector<Json*> entriesOf(Json& set) {
  std::vector<Json*> entries;
  Json* services = dictionaryAt(set, {"Network", "Service"});
  if (services == nullptr) return entries;
  const auto add = [&](Json* entry) {
    if (std::find(entries.begin(), entries.end(), entry) == entries.end()) entries.push_back(entry);
  };
  Json* global = dictionaryAt(set, {"Network", "Global", "IPv4"});
  const Json order = global == nullptr ? Json() : global->value("ServiceOrder", Json());
  for (const Json& id : order) {
    Json* entry = id.is_string() ? valueOf(*services, id.get<std::string>()) : nullptr;
    if (entry != nullptr) add(entry);
  }
  for (Json& entry : *services) add(&entry);
  return entries;
}

/// What a new protocol of a service is configured as, or nothing for an unknown type.
std::optional<Json> newConfiguration(const std::string& type) {
  static const Json* const templates = new Json{
      {kNetworkProtocolIPv4, {{kIPv4ConfigMethod, kIPv4ConfigMethodDhcp}}},
      {"IPv6", {{"ConfigMethod", "Automatic"}}},
      {kNetworkProtocolDns, Json::object()},
      {kNetworkProtocolProxies,
       {{kProxiesExceptionsList, {"*.local", "169.254/16"}}, {"FTPPassive", 1}}},
      {"SMB", Json::object()},
  };
  const auto found = templates->find(type);
  if (found == templates->end()) return std::nullopt;
  return *found;
}

bool isInactive(const Json& dictionary) { return dictionary.contains(kInactive); }

void setInactive(Json& dictionary, bool inactive) {
  dictionary.erase(kInactive);
  if (inactive) dictionary[kInactive] = true;
}

bool canBeWritten(const Json& configuration) {
  std::string error;
  return configuration.is_object() &&
         EncodePropertyList(configuration, PropertyListFormat::kXml, error).has_value();
}

}  // namespace

struct NetworkProtocol::Impl {
  Session session;
  Json& stored;  ///< in the session's preferences, where it stays
  std::string type;
};

std::optional<Json> NetworkProtocol::configuration() const {
  const Json& stored = _impl->stored;
  if (stored.size() == (isInactive(stored) ? 1 : 0)) return std::nullopt;
  return stored;
}

bool NetworkProtocol::setConfiguration(const std::optional<Json>& configuration) const {
  if (fails("network.setConfiguration", {_impl->type})) return false;
  Json replacement = NetworkConfigurationToStore(configuration);
  if (!canBeWritten(replacement)) return NetworkFail(kNetworkInvalidArgument);
  setInactive(replacement, isInactive(_impl->stored));
  _impl->stored = std::move(replacement);
  return true;
}

bool NetworkProtocol::setEnabled(bool enabled) const {
  if (fails("network.setEnabled", {_impl->type})) return false;
  setInactive(_impl->stored, !enabled);
  return true;
}

struct NetworkService::Impl {
  Session session;
  Json& stored;  ///< in the session's preferences, where it stays
};

std::optional<std::string> NetworkService::bsdName() const {
  Json* interface = dictionaryAt(_impl->stored, {"Interface"});
  return interface == nullptr ? std::nullopt : textOf(*interface, "DeviceName");
}

bool NetworkService::enabled() const { return !isInactive(_impl->stored); }

std::optional<NetworkProtocol> NetworkService::protocol(const char* type) const {
  if (fails("network.copyProtocol", {type})) return std::nullopt;
  Json* stored = dictionaryAt(_impl->stored, {type});
  const bool isKnown = newConfiguration(type).has_value();
  if (!isKnown || stored == nullptr) {
    NetworkFail(isKnown ? kNetworkNoKey : kNetworkInvalidArgument);
    return std::nullopt;
  }
  return NetworkProtocol(std::make_shared<NetworkProtocol::Impl>(
      NetworkProtocol::Impl{_impl->session, *stored, type}));
}

bool NetworkService::addProtocolType(const char* type) const {
  if (fails("network.addProtocolType", {type})) return false;
  std::optional<Json> configuration = newConfiguration(type);
  if (!configuration) return NetworkFail(kNetworkInvalidArgument);
  if (dictionaryAt(_impl->stored, {type}) != nullptr) return NetworkFail(kNetworkKeyExists);
  _impl->stored[type] = std::move(*configuration);
  return true;
}

struct NetworkPreferences::Impl {
  Session session = std::make_shared<NetworkSession>();
};

NetworkPreferences::NetworkPreferences(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}
NetworkPreferences::~NetworkPreferences() = default;
NetworkPreferences::NetworkPreferences(NetworkPreferences&&) noexcept = default;
NetworkPreferences& NetworkPreferences::operator=(NetworkPreferences&&) noexcept = default;

std::optional<NetworkPreferences> NetworkPreferences::create(const std::string& name) {
  if (fails("network.create", {name})) return std::nullopt;
  return NetworkPreferences(std::make_unique<Impl>());
}

bool NetworkPreferences::lock(bool wait) const {
  return !fails("network.lock") && _impl->session->lock(wait);
}

bool NetworkPreferences::unlock() const {
  return !fails("network.unlock") && _impl->session->unlock();
}

bool NetworkPreferences::commitChanges() const {
  return !fails("network.commit") && _impl->session->commit();
}

bool NetworkPreferences::applyChanges() const {
  return !fails("network.apply") && _impl->session->apply();
}

std::optional<std::vector<NetworkService>> NetworkPreferences::currentServices() const {
  if (fails("network.currentSet")) return std::nullopt;
  Json& preferences = _impl->session->preferences();
  Json* set = currentSet(preferences);
  if (set == nullptr) {
    NetworkFail(kNetworkNoKey);
    return std::nullopt;
  }
  if (fails("network.services")) return std::nullopt;
  std::vector<NetworkService> services;
  for (Json* entry : entriesOf(*set)) {
    Json* service = serviceAt(preferences, *entry);
    if (service == nullptr) continue;
    services.emplace_back(
        std::make_shared<NetworkService::Impl>(NetworkService::Impl{_impl->session, *service}));
  }
  return services;
}

}  // namespace platform
