// The parsers of what the system's tools print: well-formed results, equal to what the patterns
// say. An input's first character chooses the parser.
#include <algorithm>
#include <array>
#include <string>

#include "core/KioskJson.h"
#include "core/KioskText.h"
#include "platform/Text.h"
#include "settings/KioskPowerApply.h"
#include "settings/KioskTime.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/unit/OutputRules.h"
#include "tests/unit/Spaces.h"
#include "tests/unit/UpdatePatterns.h"
#include "updates/KioskSoftwareUpdate.h"

namespace {

bool IsAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > 0; });
}

bool IsUpdate(const Json& update) {
  return update.size() == 4 && update["id"].is_string() && update["id"] != "" &&
         update["title"].is_string() && update["sizeBytes"].is_number_integer() &&
         update["sizeBytes"] >= 0 && update["restartRequired"].is_boolean();
}

void FuzzUpdates(const std::string& text) {
  const Json updates = KioskSoftwareUpdateParse(text);
  FuzzExpect(updates.is_array(), "updates are an array");
  FuzzExpect(std::all_of(updates.begin(), updates.end(), IsUpdate), "each is an update");
  if (KioskIsUtf8(text)) {
    FuzzExpect(KioskJsonText(updates).has_value(), "updates of UTF-8 are UTF-8");
  }
  if (!IsAscii(text)) return;
  const Json expected = UpdatesByPattern(text);
  FuzzExpect(updates == expected, "updates are as the patterns have them", text, updates.dump(),
             expected.dump());
}

void FuzzProgress(const std::string& text) {
  const double progress = KioskSoftwareUpdateProgress(text);
  FuzzExpect(progress == -1.0 || (progress >= 0 && progress <= 100), "progress is a percentage");
  FuzzExpect(progress == ProgressByPattern(text), "progress is as the pattern has it", text,
             progress, ProgressByPattern(text));
}

void FuzzUpdateError(const std::string& text) {
  const std::string error = KioskSoftwareUpdateError(text);
  FuzzExpect(!error.empty(), "a failure has a code");
  FuzzExpect(platform::TextToUtf16(error).size() <= 200, "a failure's code is short", error);
  if (!KioskIsUtf8(text)) return;
  FuzzExpect(KioskIsUtf8(error), "a failure's code is UTF-8");
  const bool authorization = error == "authorization_required";
  const bool asks = AsksForPasswordByPattern(text);
  // The output's last line may consist of the code itself.
  FuzzExpect(!asks || authorization, "a question for a password is about authorization", text);
  if (asks) return;
  const std::string last = LinesOf(text).back();
  FuzzExpect(error == "failed" || last.find(error) != std::string::npos,
             "a failure's code is from the last line", last, error);
}

void FuzzPowerSettings(const std::string& text) {
  const std::optional<Json> settings = KioskPowerParsePmset(text);
  FuzzExpect(settings == PowerSettingsByPattern(text), "timeouts are as the pattern has them", text,
             settings.value_or(Json()).dump(),
             PowerSettingsByPattern(text).value_or(Json()).dump());
}

void FuzzOffset(const std::string& text) {
  double offsetMs = 42;
  const bool found = KioskSntpParse(text, offsetMs);
  const std::optional<double> expected = OffsetByPattern(text);
  FuzzExpect(found == expected.has_value(), "an offset is found as by the pattern", text);
  FuzzExpect(offsetMs == expected.value_or(42), "an offset is as the pattern has it", text,
             offsetMs);
}

void FuzzTimeServer(const std::string& text) {
  const std::optional<std::string> server = KioskTimeServerParse(text);
  FuzzExpect(server == TimeServerByPattern(text), "a time server is as the pattern has it", text,
             server.value_or("none"));
}

constexpr std::array kParsers{FuzzUpdates,       FuzzProgress, FuzzUpdateError,
                              FuzzPowerSettings, FuzzOffset,   FuzzTimeServer};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const FuzzInput input(data, size, kParsers.size());
  // Runs of tools whose output is not UTF-8 count as having none, so that zero bytes may occur but
  // no other disorder; the parsers hold out against that as well.
  kParsers[input.choice](std::string(input.text));
  return 0;
}
