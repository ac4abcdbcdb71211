#include "simulator/portal/AdminPaths.h"

#include <cctype>

#include "simulator/portal/JsonText.h"

namespace portal {
namespace {

/// Codes are read aloud and typed: neither case nor grouping matters.
std::string NormaliseCode(const std::string& typed) {
  std::string code;
  for (const char c : typed)
    if (c != '-' && c != ' ')
      code += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return code;
}

/// A path segment that may hold anything the user typed.
std::string Encode(const std::string& segment) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : segment) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0)
      encoded += c;
    else
      encoded.append({'%', kDigits[byte >> 4U], kDigits[byte & 15U]});
  }
  return encoded;
}

}  // namespace

std::string TerminalPath(const Json& terminal) {
  return "/api/admin/terminals/" + Encode(terminal["id"].get<std::string>());
}

std::string PhotosPath(const Json& terminal) { return TerminalPath(terminal) + "/photos"; }

std::string CodePath(const std::string& code, const char* action) {
  return "/api/admin/codes/" + Encode(NormaliseCode(code)) + "/" + action;
}

std::string Query(const Json& values) {
  std::string query;
  for (const auto& [name, value] : values.items())
    query += (query.empty() ? "?" : "&") + name + "=" +
             Encode(value.is_string() ? value.get<std::string>() : JsonText(value));
  return query;
}

}  // namespace portal
