#include "tests/portal/OpenApi.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string_view>

namespace openapi {
namespace {

/// Deeper than any sensible description; a "$ref" that leads to itself is found so.
constexpr int kMaxDepth = 64;

Json Scalar(const YAML::Node& node) {
  const std::string& text = node.Scalar();
  const bool plain = node.Tag() == "?";
  if (plain && (text == "true" || text == "false")) return text == "true";
  if (plain) {
    const Json number = Json::parse(text, nullptr, false);
    if (number.is_number()) return number;
  }
  return text;
}

Json ToJson(const YAML::Node& node) {
  if (node.IsMap()) {
    Json object = Json::object();
    for (const auto& entry : node) object[entry.first.Scalar()] = ToJson(entry.second);
    return object;
  }
  if (node.IsSequence()) {
    Json array = Json::array();
    for (const auto& element : node) array.push_back(ToJson(element));
    return array;
  }
  return node.IsScalar() ? Scalar(node) : Json();
}

/// Follows "#/a/b"; null when there is nothing.
const Json* Resolve(const Json& document, const std::string& reference) {
  if (!reference.starts_with("#/")) return nullptr;
  const Json* value = &document;
  std::istringstream keys(reference.substr(2));
  for (std::string key; std::getline(keys, key, '/');) {
    if (!value->is_object() || !value->contains(key)) return nullptr;
    value = &(*value)[key];
  }
  return value;
}

/// Replaces the references in `value`.
/// @return false when one leads nowhere or in a circle
bool Inline(const Json& document, Json& value, int depth) {
  if (depth > kMaxDepth) return false;
  if (value.is_object() && value.contains("$ref")) {
    const Json* const target =
        value["$ref"].is_string() ? Resolve(document, value["$ref"].get<std::string>()) : nullptr;
    if (target == nullptr) return false;
    Json copy = *target;
    value = std::move(copy);
    return Inline(document, value, depth + 1);
  }
  return !value.is_structured() || std::all_of(value.begin(), value.end(), [&](Json& element) {
    return Inline(document, element, depth + 1);
  });
}

Json ToJsonSchema(const Json& schema);

Json ToJsonSchemas(const Json& schemas) {
  Json converted = schemas;
  for (Json& schema : converted) schema = ToJsonSchema(schema);
  return converted;
}

/// OpenAPI's dialect differs from JSON Schema in "nullable" and in keywords that only inform.
Json ToJsonSchema(const Json& schema) {
  Json converted = schema;
  for (const char* key : {"example", "description", "nullable", "format", "default", "title"})
    converted.erase(key);
  for (const char* key : {"properties", "allOf", "anyOf", "oneOf"})
    if (converted.contains(key)) converted[key] = ToJsonSchemas(converted[key]);
  for (const char* key : {"items", "not", "additionalProperties"})
    if (converted.contains(key) && converted[key].is_object())
      converted[key] = ToJsonSchema(converted[key]);
  if (schema.value("nullable", false)) return {{"anyOf", {converted, {{"type", "null"}}}}};
  return converted;
}

void ConvertContent(Json& body) {
  if (!body.contains("content")) return;
  for (Json& media : body["content"])
    if (media.contains("schema")) media["schema"] = ToJsonSchema(media["schema"]);
}

void ConvertOperation(Json& operation) {
  if (operation.contains("requestBody")) ConvertContent(operation["requestBody"]);
  for (Json& response : operation["responses"]) ConvertContent(response);
}

std::optional<Json> Prepare(Json document, std::string& problem) {
  problem = "not an OpenAPI description";
  if (!document.is_object() || !document.contains("paths") || !document["paths"].is_object())
    return std::nullopt;
  problem = "a $ref leads nowhere or in a circle";
  Json whole = document;
  if (!Inline(document, whole, 0)) return std::nullopt;
  problem = "an operation is not an object";
  for (Json& item : whole["paths"])
    for (auto& [name, operation] : item.items()) {
      if (name == "parameters" || name == "description" || name == "summary") continue;
      if (!operation.is_object()) return std::nullopt;
      ConvertOperation(operation);
    }
  return whole;
}

std::string_view NextSegment(std::string_view& path) {
  const std::size_t slash = path.find('/');
  const std::string_view segment = path.substr(0, slash);
  path = slash == path.npos ? std::string_view() : path.substr(slash + 1);
  return segment;
}

bool Matches(std::string_view pattern, std::string_view path) {
  if (std::count(pattern.begin(), pattern.end(), '/') != std::count(path.begin(), path.end(), '/'))
    return false;
  while (!pattern.empty()) {
    const std::string_view expected = NextSegment(pattern);
    const std::string_view segment = NextSegment(path);
    const bool parameter = expected.starts_with('{') && expected.ends_with('}');
    if (parameter ? segment.empty() : segment != expected) return false;
  }
  return true;
}

}  // namespace

std::optional<Json> ReadDescription(const std::string& path, std::string& problem) {
  try {
    return Prepare(ToJson(YAML::LoadFile(path)), problem);
  } catch (const std::exception& error) {
    problem = error.what();
    return std::nullopt;
  }
}

const Json* FindPath(const Json& description, const std::string& path) {
  const Json& paths = description["paths"];
  if (paths.contains(path)) return &paths[path];
  for (const auto& [pattern, item] : paths.items())
    if (Matches(pattern, path)) return &item;
  return nullptr;
}

const Json* FindOperation(const Json& pathItem, const std::string& method) {
  std::string key = method;
  std::transform(key.begin(), key.end(), key.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return pathItem.contains(key) && key != "parameters" ? &pathItem[key] : nullptr;
}

}  // namespace openapi
