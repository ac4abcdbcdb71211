// What stands in a new Mac's property lists.
#pragma once

#include <string>

#include "platform/Json.h"

namespace simmac {

/// Network preferences with three services: Ethernet by DHCP with name servers of its own, Wi-Fi
/// without any, and a disabled one.
Json NetworkPreferencesSeed(const std::string& computerName);

/// /System/Library/CoreServices/SystemVersion.plist.
Json SystemVersionSeed(const std::string& version, const std::string& build);

/// The application bundle's Info.plist.
Json BundleSeed(const std::string& version);

}  // namespace simmac
