#include "tests/portal/SchemaCheck.h"

// valijson's headers do not stand the project's warnings.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>
#pragma GCC diagnostic pop

namespace openapi {
namespace {

/// The first error is the outermost one, the last names the cause.
std::string Describe(valijson::ValidationResults& results) {
  std::string text;
  valijson::ValidationResults::Error error;
  while (results.popError(error)) {
    if (!text.empty()) text += "; ";
    for (const std::string& step : error.context) text += step;
    text += ": " + error.description;
  }
  return text;
}

}  // namespace

std::optional<std::string> FindViolation(const Json& schema, const Json& value) {
  try {
    valijson::Schema parsed;
    valijson::SchemaParser(valijson::SchemaParser::kDraft4)
        .populateSchema(valijson::adapters::NlohmannJsonAdapter(schema), parsed);
    valijson::Validator validator(valijson::Validator::kStrongTypes);
    valijson::ValidationResults results;
    if (validator.validate(parsed, valijson::adapters::NlohmannJsonAdapter(value), &results))
      return std::nullopt;
    return Describe(results);
  } catch (const std::exception& error) {
    return std::string("the schema cannot be used: ") + error.what();
  }
}

}  // namespace openapi
