// The system's network preferences: the services of the current network set and their protocols.
// Native counterpart: SystemConfiguration (SCPreferences.h, SCNetworkConfiguration.h), one call
// each. A session is used from one thread at a time.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Json.h"

namespace platform {

// Types of protocols and keys of their configurations (SCSchemaDefinitions.h).
inline constexpr char kNetworkProtocolIPv4[] = "IPv4";
inline constexpr char kNetworkProtocolDns[] = "DNS";
inline constexpr char kNetworkProtocolProxies[] = "Proxies";
inline constexpr char kIPv4ConfigMethod[] = "ConfigMethod";
inline constexpr char kIPv4ConfigMethodDhcp[] = "DHCP";
inline constexpr char kIPv4ConfigMethodManual[] = "Manual";
inline constexpr char kIPv4Addresses[] = "Addresses";
inline constexpr char kIPv4SubnetMasks[] = "SubnetMasks";
inline constexpr char kIPv4Router[] = "Router";
inline constexpr char kDnsServerAddresses[] = "ServerAddresses";
inline constexpr char kProxiesHttpEnable[] = "HTTPEnable";
inline constexpr char kProxiesHttpProxy[] = "HTTPProxy";
inline constexpr char kProxiesHttpPort[] = "HTTPPort";
inline constexpr char kProxiesHttpsEnable[] = "HTTPSEnable";
inline constexpr char kProxiesHttpsProxy[] = "HTTPSProxy";
inline constexpr char kProxiesHttpsPort[] = "HTTPSPort";
inline constexpr char kProxiesExceptionsList[] = "ExceptionsList";
inline constexpr char kProxiesExcludeSimpleHostnames[] = "ExcludeSimpleHostnames";
inline constexpr char kProxiesAutoConfigEnable[] = "ProxyAutoConfigEnable";
inline constexpr char kProxiesAutoConfigUrl[] = "ProxyAutoConfigURLString";

/// What the last failed call of this thread failed of, in the system's words.
/// Native: SCErrorString of SCError.
std::string NetworkPreferencesError();

/// One protocol of a service. Copies name the same protocol; none outlives its session.
class NetworkProtocol {
 public:
  /// The configuration, or nothing when it is empty. Native: SCNetworkProtocolGetConfiguration.
  std::optional<Json> configuration() const;

  /// Replaces the whole configuration; nothing empties it. A boolean under one of the proxies'
  /// enable keys or under ExcludeSimpleHostnames is written as the number 1 or 0, because the
  /// system takes no boolean for it. False on failure. Native: SCNetworkProtocolSetConfiguration.
  [[nodiscard]] bool setConfiguration(const std::optional<Json>& configuration) const;

  /// False on failure. Native: SCNetworkProtocolSetEnabled.
  [[nodiscard]] bool setEnabled(bool enabled) const;

  struct Impl;
  explicit NetworkProtocol(std::shared_ptr<Impl> impl) : _impl(std::move(impl)) {}

 private:
  std::shared_ptr<Impl> _impl;
};

/// One service of a set. Copies name the same service; none outlives its session.
class NetworkService {
 public:
  /// The BSD name of its interface ("en0"), or nothing when it has none.
  /// Native: SCNetworkServiceGetInterface, SCNetworkInterfaceGetBSDName.
  std::optional<std::string> bsdName() const;

  bool enabled() const;  ///< Native: SCNetworkServiceGetEnabled.

  /// The protocol of a type, or nothing when the service has none or it cannot be had.
  /// Native: SCNetworkServiceCopyProtocol.
  std::optional<NetworkProtocol> protocol(const char* type) const;

  /// Gives the service a protocol that it lacks, with the configuration that new ones have. False
  /// on failure. Native: SCNetworkServiceAddProtocolType.
  [[nodiscard]] bool addProtocolType(const char* type) const;

  struct Impl;
  explicit NetworkService(std::shared_ptr<Impl> impl) : _impl(std::move(impl)) {}

 private:
  std::shared_ptr<Impl> _impl;
};

/// A session with the preferences: reads them as they are, and changes a copy until it is
/// committed. Move-only. Needs root to lock.
class NetworkPreferences {
 public:
  /// Opens the system's own preferences; `name` says who does. Nothing on failure.
  /// Native: SCPreferencesCreate.
  static std::optional<NetworkPreferences> create(const std::string& name);
  ~NetworkPreferences();
  NetworkPreferences(NetworkPreferences&&) noexcept;
  NetworkPreferences& operator=(NetworkPreferences&&) noexcept;

  /// Keeps other editors out; with `wait`, waits until they are done. False on failure, and when
  /// the preferences have changed since this session read them. Native: SCPreferencesLock.
  [[nodiscard]] bool lock(bool wait) const;

  /// Lets others in again. False when it was not locked. Native: SCPreferencesUnlock.
  bool unlock() const;

  /// Makes this session's changes everybody's. False on failure.
  /// Native: SCPreferencesCommitChanges.
  [[nodiscard]] bool commitChanges() const;

  /// Has the system use what was committed. False on failure. Native: SCPreferencesApplyChanges.
  [[nodiscard]] bool applyChanges() const;

  /// The services of the current set, in no order; nothing when there is no current set.
  /// Native: SCNetworkSetCopyCurrent, SCNetworkSetCopyServices.
  std::optional<std::vector<NetworkService>> currentServices() const;

 private:
  struct Impl;
  explicit NetworkPreferences(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> _impl;
};

}  // namespace platform
