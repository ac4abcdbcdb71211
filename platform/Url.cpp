// The form of URLs, by RFC 3986.
#include <algorithm>
#include <string_view>

#include "platform/UrlSession.h"

namespace platform {
namespace {

constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";
constexpr std::string_view kOtherUnreserved = "-._~";
constexpr std::string_view kSubDelimiters = "!$&'()*+,;=";
constexpr int kHighestPort = 65535;

bool isOneOf(char c, std::string_view characters) {
  return characters.find(c) != std::string_view::npos;
}

/// Whether a part is made of unreserved characters, sub-delimiters, percent escapes and `others`.
bool isMadeOf(std::string_view part, std::string_view others) {
  for (std::size_t i = 0; i < part.size(); ++i) {
    const char c = part[i];
    if (c == '%') {
      if (i + 2 >= part.size()) return false;
      if (!isOneOf(part[i + 1], kHexDigits) || !isOneOf(part[i + 2], kHexDigits)) return false;
      i += 2;
    } else if (!isOneOf(c, kLetters) && !isOneOf(c, kDigits) && !isOneOf(c, kOtherUnreserved) &&
               !isOneOf(c, kSubDelimiters) && !isOneOf(c, others)) {
      return false;
    }
  }
  return true;
}

bool isScheme(std::string_view part) {
  return !part.empty() && isOneOf(part.front(), kLetters) &&
         std::all_of(part.begin(), part.end(), [](char c) {
           return isOneOf(c, kLetters) || isOneOf(c, kDigits) || isOneOf(c, "+-.");
         });
}

bool isPort(std::string_view part) {
  int port = 0;
  for (const char c : part) {
    if (!isOneOf(c, kDigits)) return false;
    port = port * 10 + (c - '0');
    if (port > kHighestPort) return false;
  }
  return true;
}

/// What stands after the host: nothing, or a colon and a port, which may be empty.
bool isPortSuffix(std::string_view part) {
  return part.empty() || (part.front() == ':' && isPort(part.substr(1)));
}

bool isAddressLiteral(std::string_view part) {
  const std::size_t end = part.find(']');
  if (end == std::string_view::npos || end == 1) return false;
  return isMadeOf(part.substr(1, end - 1), ":") && isPortSuffix(part.substr(end + 1));
}

bool isHostAndPort(std::string_view part) {
  if (part.starts_with('[')) return isAddressLiteral(part);
  const std::size_t colon = std::min(part.find(':'), part.size());
  return isMadeOf(part.substr(0, colon), "") && isPortSuffix(part.substr(colon));
}

bool isAuthority(std::string_view part) {
  const std::size_t at = part.rfind('@');
  if (at == std::string_view::npos) return isHostAndPort(part);
  return isMadeOf(part.substr(0, at), ":") && isHostAndPort(part.substr(at + 1));
}

/// What stands after the scheme and before query and fragment.
bool isHierarchicalPart(std::string_view part) {
  if (!part.starts_with("//")) return isMadeOf(part, ":@/");
  part.remove_prefix(2);
  const std::size_t slash = std::min(part.find('/'), part.size());
  return isAuthority(part.substr(0, slash)) && isMadeOf(part.substr(slash), ":@/");
}

/// Cuts off what follows the first `mark` and returns it; empty when there is none.
std::string_view cutAfter(std::string_view& text, char mark) {
  const std::size_t position = std::min(text.find(mark), text.size());
  const std::string_view tail = text.substr(std::min(position + 1, text.size()));
  text = text.substr(0, position);
  return tail;
}

/// What a method and a header's name are made of (RFC 9110, section 5.6.2).
bool isToken(std::string_view text) {
  constexpr std::string_view kAllowed =
      "!#$%&'*+-.^_`|~0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  return !text.empty() && text.find_first_not_of(kAllowed) == std::string_view::npos;
}

bool isHeaderValue(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

}  // namespace

bool UrlIsValid(const std::string& text) {
  std::string_view rest = text;
  const std::string_view fragment = cutAfter(rest, '#');
  const std::string_view query = cutAfter(rest, '?');
  if (!isMadeOf(fragment, ":@/?") || !isMadeOf(query, ":@/?")) return false;
  // A colon before the first slash ends a scheme; a relative path cannot have one there.
  const std::size_t colon = rest.substr(0, rest.find('/')).find(':');
  if (colon != std::string_view::npos) {
    if (!isScheme(rest.substr(0, colon))) return false;
    rest.remove_prefix(colon + 1);
  }
  return !text.empty() && isHierarchicalPart(rest);
}

const char* UrlRequestFlaw(const UrlRequest& request) {
  constexpr const char* kNotAllowed = "The request has a character that HTTP does not allow.";
  if (!UrlIsValid(request.url)) return "The URL is not valid.";
  if (!isToken(request.method)) return kNotAllowed;
  for (const auto& [name, value] : request.headers) {
    if (!isToken(name) || !isHeaderValue(value)) return kNotAllowed;
  }
  return nullptr;
}

}  // namespace platform
