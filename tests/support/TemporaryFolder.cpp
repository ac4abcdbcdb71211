#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <system_error>

TemporaryFolder::TemporaryFolder() : _path(testing::TempDir() + "kioskd-testXXXXXX") {
  EXPECT_NE(mkdtemp(_path.data()), nullptr);
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;  // a folder that stays is no reason to fail the test
  std::filesystem::remove_all(_path, ignored);
}
