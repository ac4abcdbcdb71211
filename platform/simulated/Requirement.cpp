#include "platform/simulated/Requirement.h"

#include "platform/Json.h"
#include "platform/simulated/Limits.h"
#include "platform/simulated/TextMember.h"

namespace platform {
namespace {

bool isWordCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '-' || c == '_';
}

/// Reads the text once from left to right; a result of nothing means that it is malformed. Both
/// sides of a connective are always read, because an error on either makes the whole malformed.
class Evaluation {
 public:
  Evaluation(std::string_view text, const Signature& signature)
      : _rest(text), _signature(signature) {}

  std::optional<bool> whole() {
    const std::optional<bool> result = requirement();
    skipSpace();
    return _rest.empty() ? result : std::nullopt;
  }

 private:
  std::optional<bool> requirement() {
    std::optional<bool> result = conjunction();
    while (result && acceptWord("or")) {
      const std::optional<bool> next = conjunction();
      result = next ? std::optional(*result || *next) : std::nullopt;
    }
    return result;
  }

  std::optional<bool> conjunction() {
    std::optional<bool> result = term();
    while (result && acceptWord("and")) {
      const std::optional<bool> next = term();
      result = next ? std::optional(*result && *next) : std::nullopt;
    }
    return result;
  }

  std::optional<bool> term() {
    if (++_depth > kMaximumRequirementDepth) return std::nullopt;
    const std::optional<bool> result = nestedTerm();
    --_depth;
    return result;
  }

  std::optional<bool> nestedTerm() {
    if (acceptSign('!')) {
      const std::optional<bool> negated = term();
      return negated ? std::optional(!*negated) : std::nullopt;
    }
    if (acceptSign('(')) {
      const std::optional<bool> inner = requirement();
      return acceptSign(')') ? inner : std::nullopt;
    }
    if (acceptWord("anchor")) return anchor();
    if (acceptWord("identifier")) return identifier();
    if (acceptWord("certificate")) return certificate();
    return std::nullopt;
  }

  std::optional<bool> anchor() {
    if (!acceptWord("apple")) return std::nullopt;
    const bool apple = _signature.anchor == "apple";
    if (!acceptWord("generic")) return apple;
    return apple || _signature.anchor == "apple generic";
  }

  std::optional<bool> identifier() {
    (void)acceptSign('=');  // may be left out
    const std::optional<std::string> wanted = text();
    if (!wanted) return std::nullopt;
    return _signature.identifier == *wanted;
  }

  std::optional<bool> certificate() {
    if (!acceptWord("leaf") || !acceptSign('[') || !acceptWord("subject.OU") || !acceptSign(']') ||
        !acceptSign('=')) {
      return std::nullopt;
    }
    const std::optional<std::string> wanted = text();
    if (!wanted) return std::nullopt;
    return _signature.team == *wanted;
  }

  std::optional<std::string> text() {
    if (acceptSign('"')) return quoted();
    const std::string_view next = word();
    if (next.empty()) return std::nullopt;
    _rest.remove_prefix(next.size());
    return std::string(next);
  }

  /// What follows an opening quote, up to the closing one.
  std::optional<std::string> quoted() {
    std::string value;
    while (!_rest.empty()) {
      char c = take();
      if (c == '"') return value;
      if (c == '\\') {
        if (_rest.empty()) return std::nullopt;
        c = take();
      }
      value += c;
    }
    return std::nullopt;
  }

  char take() {
    const char c = _rest.front();
    _rest.remove_prefix(1);
    return c;
  }

  void skipSpace() {
    while (!_rest.empty() && std::string_view(" \t\r\n").find(_rest.front()) != _rest.npos) {
      _rest.remove_prefix(1);
    }
  }

  /// The word that comes next, not taken yet; empty when there is none.
  std::string_view word() {
    skipSpace();
    std::size_t end = 0;
    while (end < _rest.size() && isWordCharacter(_rest[end])) ++end;
    return _rest.substr(0, end);
  }

  bool acceptWord(std::string_view wanted) {
    if (word() != wanted) return false;
    _rest.remove_prefix(wanted.size());
    return true;
  }

  bool acceptSign(char wanted) {
    skipSpace();
    if (_rest.empty() || _rest.front() != wanted) return false;
    _rest.remove_prefix(1);
    return true;
  }

  std::string_view _rest;
  const Signature& _signature;
  int _depth = 0;
};

}  // namespace

std::optional<Signature> ParseSignature(const std::string& contents) {
  const Json object = Json::parse(contents, nullptr, false);
  if (!object.is_object()) return std::nullopt;
  return Signature{.anchor = TextMember(object, "anchor").value_or(""),
                   .identifier = TextMember(object, "identifier").value_or(""),
                   .team = TextMember(object, "team").value_or("")};
}

std::optional<bool> EvaluateRequirement(std::string_view requirement,
                                        const std::optional<Signature>& signature) {
  if (requirement.size() > kMaximumRequirementBytes) return std::nullopt;
  const Signature unsignedCode;
  const std::optional<bool> satisfied =
      Evaluation(requirement, signature ? *signature : unsignedCode).whole();
  if (!satisfied) return std::nullopt;
  return *satisfied && signature.has_value();
}

}  // namespace platform
