// A tool for the benchmarks of the process runner: does nothing, or writes as many MiB as its
// argument says.
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {
constexpr long kPiecesPerMebibyte = 16;
char piece[65536];
}  // namespace

int main(int count, char** values) {
  if (count < 2) return 0;
  std::memset(piece, 'x', sizeof piece);
  for (long left = std::strtol(values[1], nullptr, 10) * kPiecesPerMebibyte; left > 0; --left) {
    for (std::size_t done = 0; done < sizeof piece;) {
      const ssize_t written = write(STDOUT_FILENO, piece + done, sizeof piece - done);
      if (written <= 0) return 1;
      done += static_cast<std::size_t>(written);
    }
  }
  return 0;
}
