// Holds records of HTTP traffic against an OpenAPI description.
#include <iostream>
#include <string>
#include <vector>

#include "tests/portal/OpenApi.h"
#include "tests/portal/RecordCheck.h"

namespace {

int CheckAll(const Json& description, const std::vector<std::string>& records,
             openapi::Refusals refusals) {
  int status = 0;
  for (const std::string& record : records)
    for (const std::string& violation : openapi::CheckRecord(description, record, refusals)) {
      std::cout << violation << "\n";
      status = 1;
    }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  openapi::Refusals refusals = openapi::Refusals::kForbidden;
  if (!arguments.empty() && arguments.front() == "--allow-refusals") {
    refusals = openapi::Refusals::kAllowed;
    arguments.erase(arguments.begin());
  }
  if (arguments.size() < 2) {
    std::cerr << "usage: openapi_check [--allow-refusals] FILE.yaml RECORD.jsonl...\n"
                 "Exit status: 0 all well, 1 violations, 2 wrong usage or description.\n"
                 "--allow-refusals: requests may be wrong where they were refused as described.\n";
    return 2;
  }
  std::string problem;
  const auto description = openapi::ReadDescription(arguments.front(), problem);
  if (!description) {
    std::cerr << "openapi_check: " << arguments.front() << ": " << problem << "\n";
    return 2;
  }
  arguments.erase(arguments.begin());
  return CheckAll(*description, arguments, refusals);
}
