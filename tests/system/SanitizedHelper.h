// A daemon that was built for a sanitizer, in place of a Mac's own.
#pragma once

#include <string>

#include "tests/support/MacFolder.h"

/// With KIOSKD_HELPER in the environment, the path of a kioskd that needs the same libraries as the
/// Mac's: installs it in the Mac, and shows it the host's /proc, without which a sanitizer does not
/// work, by a mount that this process and its children see. Whatever the sanitizer reports while
/// this object lives fails the test when it goes; a program without the Address- or the
/// ThreadSanitizer fails it at once. Without the variable nothing happens.
class SanitizedHelper {
 public:
  explicit SanitizedHelper(const MacFolder& mac);
  /// The Mac must be switched off.
  ~SanitizedHelper();
  SanitizedHelper(const SanitizedHelper&) = delete;
  SanitizedHelper& operator=(const SanitizedHelper&) = delete;

 private:
  void install() const;
  void showProc() const;
  void expectNoReport() const;

  const MacFolder& _mac;
  const std::string _helper;
};
