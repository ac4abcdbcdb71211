// The time zone of a test.
#pragma once

#include <stdlib.h>
#include <time.h>

#include <optional>
#include <string>

/// Puts the process into a time zone while it lives, and back into its own afterwards.
class InZone {
 public:
  explicit InZone(const std::string& zone) {
    if (const char* own = getenv("TZ")) _own = own;
    setenv("TZ", zone.c_str(), 1);
    tzset();
  }
  InZone(const InZone&) = delete;
  InZone& operator=(const InZone&) = delete;
  ~InZone() {
    if (_own) {
      setenv("TZ", _own->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  std::optional<std::string> _own;
};
