#include "settings/KioskNetworkService.h"

std::optional<platform::NetworkProtocol> KioskNetworkProtocol(
    const platform::NetworkService& service, const char* type) {
  std::optional<platform::NetworkProtocol> protocol = service.protocol(type);
  if (protocol || !service.addProtocolType(type)) return protocol;
  return service.protocol(type);
}
