// The record of the portal's traffic, one JSON line per exchange.
#pragma once

#include <filesystem>
#include <mutex>

#include "simulator/portal/Files.h"
#include "simulator/portal/Http.h"

namespace portal {

/// Appends exchanges to a file; records nothing until it is opened. Tokens and passwords are
/// replaced by something of their shape, and bodies that are not JSON are only mentioned.
class Recorder {
 public:
  /// Opens the file, which is made when it does not exist, and takes it away from everybody but its
  /// owner.
  /// @return false when that failed
  bool open(const std::filesystem::path& path);

  /// Appends one exchange before its answer is sent, so that whoever has the answer finds it in the
  /// record. May be called on any thread.
  void write(const HttpRequest& request, const HttpResponse& response);

 private:
  std::mutex _mutex;
  Descriptor _file;
};

}  // namespace portal
