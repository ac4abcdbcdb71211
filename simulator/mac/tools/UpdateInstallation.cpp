#include "simulator/mac/tools/UpdateInstallation.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>
#include <optional>
#include <thread>

#include "simulator/mac/InstalledUpdates.h"

namespace simmac {
namespace {

constexpr int kFailed = 1;

/// Readings of one download.
constexpr int kReadings = 20;

std::string Reading(int number) {
  // The first one comes before anything is there to measure.
  const double percent = number == 0 ? 0.1 : 100.0 * number / kReadings;
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "Downloading: %.2f%%", percent);
  return text.data();
}

/// A reading with what stands around it.
std::string Styled(ProgressStyle style, const std::string& reading) {
  switch (style) {
    case ProgressStyle::kLines:
      return reading + "\n";
    case ProgressStyle::kReturns:
      return "\r" + reading;
    case ProgressStyle::kTogether:
      return reading;
    case ProgressStyle::kNone:
      break;
  }
  return "";
}

/// Waits for a share of the time that an update takes.
void Work(const SoftwareUpdate& update, int parts) {
  std::this_thread::sleep_for(std::chrono::microseconds(update.duration) / parts);
}

void DownloadSystem(const ToolCall& call, ProgressStyle style, const SoftwareUpdate& update) {
  call.output.out("Downloading " + update.title + "\n");
  for (int number = 0; number <= kReadings; ++number) {
    if (number > 0) Work(update, kReadings);
    call.output.out(Styled(style, Reading(number)));
  }
  const bool endsLine = style == ProgressStyle::kLines;
  call.output.out((endsLine ? "Downloaded: " : "\nDownloaded: ") + update.title + "\n");
}

/// A package's time goes half into its download, half into what follows.
constexpr int kPackageParts = 2;

void DownloadPackage(const ToolCall& call, const SoftwareUpdate& update) {
  call.output.out("Downloading " + update.title + "\n");
  Work(update, kPackageParts);
  call.output.out("Downloaded " + update.title + "\n");
}

void UnpackPackage(const ToolCall& call, const SoftwareUpdate& update) {
  call.output.out("Installing " + update.title + "\n");
  Work(update, kPackageParts);
  call.output.out("Done with " + update.title + "\n");
}

/// The status that the update fails with, said why.
std::optional<int> Failure(const ToolCall& call, const SoftwareUpdate& update) {
  if (update.asksPassword) {
    // Nobody is there to type it.
    call.output.err("Failed to authenticate\nPassword:");
    return kFailed;
  }
  if (update.failureStatus && !update.failureText.empty()) {
    call.output.err(update.failureText + "\n");
  }
  return update.failureStatus;
}

/// The exit status when the update is not installed.
std::optional<int> Install(const ToolCall& call, ProgressStyle style,
                           const SoftwareUpdate& update) {
  if (update.replacesSystem)
    DownloadSystem(call, style, update);
  else
    DownloadPackage(call, update);
  if (const std::optional<int> status = Failure(call, update)) return status;
  if (!update.replacesSystem) UnpackPackage(call, update);
  if (NoteInstalled(platform::MacTree(), update)) return std::nullopt;
  call.output.err("Error installing updates.\n");
  return kFailed;
}

/// Whether the disk has room for all of them; says so when it has not.
bool HasRoom(const ToolCall& call, const UpdateCatalogue& catalogue,
             const std::vector<SoftwareUpdate>& updates) {
  constexpr double kGigabyte = 1e9;
  constexpr double kKibibyte = 1024;
  const std::int64_t needed =
      std::accumulate(updates.begin(), updates.end(), std::int64_t{0},
                      [](std::int64_t sum, const SoftwareUpdate& each) { return sum + each.size; });
  if (!catalogue.freeSpace || needed <= *catalogue.freeSpace) return true;
  std::array<char, 96> text{};
  (void)std::snprintf(text.data(), text.size(),
                      "Not enough free disk space: a total of %.2f GB is required.\n",
                      static_cast<double>(needed) * kKibibyte / kGigabyte);
  call.output.err(text.data());
  return false;
}

void SayDone(const ToolCall& call, const UpdateCatalogue& catalogue,
             const std::vector<SoftwareUpdate>& updates) {
  const auto isPackage = [](const SoftwareUpdate& each) { return !each.replacesSystem; };
  if (std::any_of(updates.begin(), updates.end(), isPackage)) call.output.out("Done.\n");
  const auto asks = [&catalogue](const SoftwareUpdate& each) {
    return each.restartNotice || (catalogue.oldFormat && each.action == "restart");
  };
  if (std::none_of(updates.begin(), updates.end(), asks)) return;
  call.output.out(
      "You have installed one or more updates that requires that you restart your\n"
      "computer.  Please restart immediately.\n");
}

}  // namespace

int InstallUpdates(const ToolCall& call, const UpdateCatalogue& catalogue,
                   const std::vector<SoftwareUpdate>& updates) {
  if (!HasRoom(call, catalogue, updates)) return kFailed;
  if (!updates.front().replacesSystem) call.output.out("\n");
  for (const SoftwareUpdate& update : updates) {
    if (const std::optional<int> status = Install(call, catalogue.progress, update)) return *status;
  }
  SayDone(call, catalogue, updates);
  return 0;
}

}  // namespace simmac
