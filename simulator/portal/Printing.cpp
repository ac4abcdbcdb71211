#include "simulator/portal/Printing.h"

#include <iomanip>
#include <iostream>

#include "simulator/portal/JsonText.h"
#include "simulator/portal/Printable.h"
#include "simulator/portal/UpdateRun.h"

namespace portal {
namespace {

bool ReportsUpdates(const Json& terminal) {
  return terminal.contains("osUpdates") && !terminal["osUpdates"].is_null();
}

void PrintField(const std::string& key, const std::string& value) {
  std::cout << std::left << std::setw(16) << Printable(key) << value << "\n";
}

/// A photo's width and height.
std::string Size(const Json& photo) { return Cell(photo, "width") + "x" + Cell(photo, "height"); }

void PrintPhoto(const char* outcome, const Json& photo) {
  std::cout << outcome << ": " << Cell(photo, "sha256") << ", " << Cell(photo, "contentType")
            << ", " << Size(photo) << "\n";
}

}  // namespace

std::string Cell(const Json& record, const char* key) {
  if (!record.is_object() || !record.contains(key) || record[key].is_null()) return "-";
  const Json& value = record[key];
  return Printable(value.is_string() ? value.get<std::string>() : JsonText(value));
}

void PrintTerminals(const Json& body) {
  std::cout << std::left << std::setw(18) << "ID" << std::setw(10) << "STATUS" << std::setw(22)
            << "LAST CHECK-IN" << std::setw(14) << "VERSION"
            << "NAME\n";
  for (const Json& terminal : body["terminals"]) {
    std::cout << std::setw(18) << Cell(terminal, "id") << std::setw(10) << Cell(terminal, "status")
              << std::setw(22) << Cell(terminal, "lastCheckInAt") << std::setw(14)
              << Cell(terminal, "appVersion") << Cell(terminal, "name") << "\n";
    if (ReportsUpdates(terminal))
      std::cout << "  OS updates: " << DescribeUpdateRun(terminal["osUpdates"]) << "\n";
  }
}

void PrintTerminal(const Json& body) {
  for (const auto& [key, value] : body.items())
    PrintField(key, key == "osUpdates" && ReportsUpdates(body) ? DescribeUpdateRun(value)
                                                               : Cell(body, key.c_str()));
}

void PrintCodes(const Json& body) {
  std::cout << std::left << std::setw(10) << "CODE" << std::setw(11) << "STATUS" << std::setw(22)
            << "EXPIRES"
            << "HOST\n";
  for (const Json& code : body["codes"])
    std::cout << std::setw(10) << Cell(code, "code") << std::setw(11) << Cell(code, "status")
              << std::setw(22) << Cell(code, "expiresAt") << Cell(code, "hostname") << "\n";
}

void PrintRecord(const Json& body) {
  for (const auto& [key, value] : body.items()) PrintField(key, Cell(body, key.c_str()));
}

void PrintClaimed(const Json& body) {
  std::cout << "claimed: terminal " << Cell(body, "id") << ", \"" << Cell(body, "name") << "\"\n";
}

void PrintPhotos(const Json& body) {
  std::cout << std::left << std::setw(66) << "SHA-256" << std::setw(13) << "TYPE" << std::setw(13)
            << "SIZE"
            << "CREDIT\n";
  for (const Json& photo : body["photos"]) {
    std::cout << std::setw(66) << Cell(photo, "sha256") << std::setw(13)
              << Cell(photo, "contentType") << std::setw(13) << Size(photo) << Cell(photo, "credit")
              << "\n";
  }
}

void PrintNoBranding(const Json&) { std::cout << "the terminal has no branding\n"; }

void PrintAddedPhoto(const Json& body) { PrintPhoto("added", body); }

void PrintKnownPhoto(const Json& body) { PrintPhoto("already there", body); }

void PrintNothing(const Json&) {}

void PrintDone(const Json&) { std::cout << "done\n"; }

}  // namespace portal
