// What "proxy.set" takes, once more, in the plainest form.
#pragma once

#include <optional>
#include <string>

#include "platform/Json.h"

/// Whether the text is a host name, or an address where it is made of digits and dots.
bool HostByTheRule(const std::string& text);

/// The proxies that the request `given` amounts to.
std::optional<Json> ProxyByTheRules(const Json& given);
