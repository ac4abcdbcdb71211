// What the code under test writes to standard error.
#pragma once

#include <cstdio>
#include <string>

/// Takes standard error over while it lives. One at a time.
class CapturedError {
 public:
  CapturedError();
  CapturedError(const CapturedError&) = delete;
  CapturedError& operator=(const CapturedError&) = delete;
  ~CapturedError();

  /// Everything that was written so far.
  std::string text() const;

 private:
  int _original;
  std::FILE* _file;
};
