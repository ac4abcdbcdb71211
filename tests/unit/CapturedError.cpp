#include "tests/unit/CapturedError.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

CapturedError::CapturedError()
    : _original(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)), _file(std::tmpfile()) {
  if (_original < 0 || _file == nullptr || dup2(fileno(_file), STDERR_FILENO) < 0) {
    ADD_FAILURE() << "standard error cannot be captured";
  }
}

CapturedError::~CapturedError() {
  if (_original >= 0) {
    dup2(_original, STDERR_FILENO);
    close(_original);
  }
  if (_file != nullptr) static_cast<void>(std::fclose(_file));
}

std::string CapturedError::text() const {
  std::string all;
  std::array<char, 4096> part{};
  for (;;) {
    const ssize_t count =
        pread(fileno(_file), part.data(), part.size(), static_cast<off_t>(all.size()));
    if (count <= 0) return all;
    all.append(part.data(), static_cast<std::size_t>(count));
  }
}
