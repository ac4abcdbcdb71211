// The network preferences: SystemConfiguration.
#include "platform/NetworkPreferences.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include "platform/NetworkConfiguration.h"
#include "platform/macos/CfJson.h"

namespace platform {
namespace {

/// Refuses what CoreFoundation has no counterpart of as the system would if it were shown it: only
/// the system can set its error, here to "Invalid argument".
void refuse() {
  const SCNetworkProtocolRef none = nullptr;
  (void)SCNetworkProtocolSetConfiguration(none, nullptr);
}

template <class Ref>
CfRef<Ref> retained(Ref object) {
  return CfRef<Ref>(static_cast<Ref>(CFRetain(object)));
}

}  // namespace

std::string NetworkPreferencesError() { return SCErrorString(SCError()); }

struct NetworkProtocol::Impl {
  CfRef<SCNetworkProtocolRef> protocol;
};

std::optional<Json> NetworkProtocol::configuration() const {
  const CFDictionaryRef found = SCNetworkProtocolGetConfiguration(_impl->protocol.get());
  return found != nullptr ? CfToJson(found) : std::nullopt;
}

bool NetworkProtocol::setConfiguration(const std::optional<Json>& configuration) const {
  const Json stored = NetworkConfigurationToStore(configuration);
  std::string error;
  const CfRef<CFTypeRef> dictionary =
      stored.is_object() ? CfFromJson(stored, error) : CfRef<CFTypeRef>();
  if (!dictionary) {
    refuse();
    return false;
  }
  return SCNetworkProtocolSetConfiguration(_impl->protocol.get(),
                                           static_cast<CFDictionaryRef>(dictionary.get())) != 0;
}

bool NetworkProtocol::setEnabled(bool enabled) const {
  return SCNetworkProtocolSetEnabled(_impl->protocol.get(), enabled) != 0;
}

struct NetworkService::Impl {
  CfRef<SCNetworkServiceRef> service;
};

std::optional<std::string> NetworkService::bsdName() const {
  const SCNetworkInterfaceRef interface = SCNetworkServiceGetInterface(_impl->service.get());
  if (interface == nullptr) return std::nullopt;
  return CfTextOf(SCNetworkInterfaceGetBSDName(interface));
}

bool NetworkService::enabled() const {
  return SCNetworkServiceGetEnabled(_impl->service.get()) != 0;
}

std::optional<NetworkProtocol> NetworkService::protocol(const char* type) const {
  const CfRef<CFStringRef> name = CfString(type);
  if (!name) {
    refuse();
    return std::nullopt;
  }
  CfRef<SCNetworkProtocolRef> found(SCNetworkServiceCopyProtocol(_impl->service.get(), name.get()));
  if (!found) return std::nullopt;
  return NetworkProtocol(
      std::make_shared<NetworkProtocol::Impl>(NetworkProtocol::Impl{std::move(found)}));
}

bool NetworkService::addProtocolType(const char* type) const {
  const CfRef<CFStringRef> name = CfString(type);
  if (!name) {
    refuse();
    return false;
  }
  return SCNetworkServiceAddProtocolType(_impl->service.get(), name.get()) != 0;
}

struct NetworkPreferences::Impl {
  CfRef<SCPreferencesRef> preferences;
};

NetworkPreferences::NetworkPreferences(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}
NetworkPreferences::~NetworkPreferences() = default;
NetworkPreferences::NetworkPreferences(NetworkPreferences&&) noexcept = default;
NetworkPreferences& NetworkPreferences::operator=(NetworkPreferences&&) noexcept = default;

std::optional<NetworkPreferences> NetworkPreferences::create(const std::string& name) {
  const CfRef<CFStringRef> who = CfString(name);
  if (!who) {
    refuse();
    return std::nullopt;
  }
  CfRef<SCPreferencesRef> preferences(SCPreferencesCreate(nullptr, who.get(), nullptr));
  if (!preferences) return std::nullopt;
  return NetworkPreferences(std::make_unique<Impl>(Impl{std::move(preferences)}));
}

bool NetworkPreferences::lock(bool wait) const {
  return SCPreferencesLock(_impl->preferences.get(), wait) != 0;
}

bool NetworkPreferences::unlock() const {
  return SCPreferencesUnlock(_impl->preferences.get()) != 0;
}

bool NetworkPreferences::commitChanges() const {
  return SCPreferencesCommitChanges(_impl->preferences.get()) != 0;
}

bool NetworkPreferences::applyChanges() const {
  return SCPreferencesApplyChanges(_impl->preferences.get()) != 0;
}

std::optional<std::vector<NetworkService>> NetworkPreferences::currentServices() const {
  const CfRef<SCNetworkSetRef> set(SCNetworkSetCopyCurrent(_impl->preferences.get()));
  if (!set) return std::nullopt;
  const CfRef<CFArrayRef> found(SCNetworkSetCopyServices(set.get()));
  if (!found) return std::nullopt;
  std::vector<NetworkService> services;
  for (CFIndex i = 0; i < CFArrayGetCount(found.get()); ++i) {
    const auto* service = static_cast<SCNetworkServiceRef>(CFArrayGetValueAtIndex(found.get(), i));
    services.emplace_back(
        std::make_shared<NetworkService::Impl>(NetworkService::Impl{retained(service)}));
  }
  return services;
}

}  // namespace platform
