// In place of the process runner, for a check-in without its tools: they answer at once, as on a
// Mac where all is as it should be.
#include "account/KioskRun.h"

namespace {
constexpr std::int32_t kNotAMember = 67;
}  // namespace

std::int32_t KioskRunFollowing(const std::string& path, const std::vector<std::string>& /*given*/,
                               std::string* output,
                               const std::function<void(std::string_view chunk)>& /*onChunk*/) {
  const bool isMembership = path.ends_with("/dseditgroup");
  if (output != nullptr) *output = path.ends_with("/defaults") ? "BrindlexKiosk" : "";
  return isMembership ? kNotAMember : 0;
}

std::int32_t KioskRun(const std::string& path, const std::vector<std::string>& arguments,
                      std::string* output) {
  return KioskRunFollowing(path, arguments, output, nullptr);
}

bool KioskRunChecked(const std::string& path, const std::vector<std::string>& arguments) {
  return KioskRun(path, arguments) == 0;
}
