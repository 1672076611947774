#pragma once

#include <filesystem>

#include <gtest/gtest.h>

namespace support {

// A file of the shared fixtures, as "zip/name" or "wav/name".
inline std::filesystem::path fixture(const std::filesystem::path& name) {
  return std::filesystem::path(QCF_SHARED_DIR) / "fixtures" / name;
}

}  // namespace support

// At the head of a test: skips it where the fixture is not at hand.
#define QCF_REQUIRE_FIXTURE(name)                              \
  do {                                                         \
    if (!std::filesystem::exists(support::fixture(name))) {    \
      GTEST_SKIP() << "no fixture " << support::fixture(name); \
    }                                                          \
  } while (false)
