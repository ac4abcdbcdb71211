// What the fuzz harnesses have in common. A harness defines LLVMFuzzerTestOneInput; libFuzzer calls
// it with inputs of its own making, the replay with those of the harness's corpus.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Standard error as it was when the process began: libFuzzer closes it to the daemon's own lines.
inline const int kFuzzReport = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);

/// Ends the process with a word on what was promised and is not so, and the values that
/// show it.
template <class... Shown>
void FuzzExpect(bool holds, const char* promise, const Shown&... shown) {
  if (holds) return;
  std::ostringstream report;
  report << "BROKEN PROMISE: " << promise;
  ((report << "\n  " << shown), ...);
  const std::string text = report.str() + "\n";
  static_cast<void>(!write(kFuzzReport, text.data(), text.size()));
  std::abort();
}

/// An input that begins with one character that chooses what it is for: '0' the first of the
/// possibilities, and so on round.
struct FuzzInput {
  FuzzInput(const std::uint8_t* data, std::size_t size, std::size_t possibilities)
      : choice(size == 0 ? 0 : static_cast<std::uint8_t>(data[0] - '0') % possibilities),
        text(size == 0 ? std::string_view()
                       : std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1)) {}

  std::size_t choice;
  std::string_view text;
};
