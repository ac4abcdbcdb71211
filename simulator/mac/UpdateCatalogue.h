// The software updates that are there for a Mac, as its updates.json has them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Json.h"

namespace simmac {

/// An update on offer. Texts are as the file has them, numbers within their limits.
struct SoftwareUpdate {
  std::string label;  ///< what it is installed by; never empty
  std::string title;
  std::string version;
  std::string build;      ///< of the system that a macOS update brings; may be empty
  std::string unit;       ///< of the size in the list, "KiB" or "K"
  std::string action;     ///< "restart", "shut down", or empty for none
  std::int64_t size = 0;  ///< KiB
  bool recommended = true;
  bool deferred = false;
  bool replacesSystem = false;  ///< whether it is macOS itself
  bool restartNotice = false;   ///< it asks for a restart that the list does not mention
  bool asksPassword = false;    ///< it fails at a prompt for a password
  std::chrono::milliseconds duration{0};
  std::optional<int> failureStatus;  ///< it fails with this status
  std::string failureText;

  /// Whether it is whole only once the Mac has booted again.
  bool needsBoot() const { return !action.empty() || restartNotice; }
};

/// What stands between the readings of a download.
enum class ProgressStyle { kLines, kReturns, kTogether, kNone };

/// The catalogue as the tool sees it.
struct UpdateCatalogue {
  bool oldFormat = false;
  ProgressStyle progress = ProgressStyle::kLines;
  bool reachable = true;
  std::string scanError;  ///< a scan fails with it, unless it is empty
  std::chrono::milliseconds scan{0};
  std::vector<std::string> noise;
  std::optional<int> listStatus;
  std::optional<int> installStatus;
  std::optional<std::int64_t> freeSpace;  ///< KiB; nothing: enough
  std::vector<SoftwareUpdate> updates;
};

/// What stands in a new Mac's updates.json.
Json UpdateCatalogueSeed();

/// Reads a catalogue; the value of a new Mac for what the file does not say, or says wrongly.
UpdateCatalogue ParseUpdateCatalogue(const Json& catalogue);

/// The update as lines of the list.
std::string UpdateListText(const UpdateCatalogue& catalogue, const SoftwareUpdate& update);

}  // namespace simmac
