#include "simulator/mac/JsonFields.h"

namespace simmac {

const Json& FieldOf(const Json& object, const char* key) {
  static const Json none;
  if (!object.is_object()) return none;
  const auto field = object.find(key);
  return field == object.end() ? none : *field;
}

std::string TextOf(const Json& object, const char* key) {
  const Json& field = FieldOf(object, key);
  return field.is_string() ? field.get<std::string>() : "";
}

std::int64_t IntegerOf(const Json& object, const char* key) {
  const Json& field = FieldOf(object, key);
  return field.is_number_integer() ? field.get<std::int64_t>() : 0;
}

bool FlagOf(const Json& object, const char* key, bool otherwise) {
  const Json& field = FieldOf(object, key);
  return field.is_boolean() ? field.get<bool>() : otherwise;
}

Json ObjectOf(const Json& object, const char* key) {
  const Json& field = FieldOf(object, key);
  return field.is_object() ? field : Json::object();
}

std::vector<std::string> TextsOf(const Json& object, const char* key) {
  std::vector<std::string> texts;
  const Json& field = FieldOf(object, key);
  if (!field.is_array()) return texts;
  for (const Json& text : field) {
    if (text.is_string()) texts.push_back(text.get<std::string>());
  }
  return texts;
}

}  // namespace simmac
