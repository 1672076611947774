#include <cstdlib>
#include <memory>

#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace {

// The user's cache directory is a folder of this run, so that no test leaves a trace in the real
// one.
class IsolatedCache : public testing::Environment {
public:
  void SetUp() override {
    if (std::getenv(kMark) != nullptr) return;  // a child of a run that has done it
    fFolder = std::make_unique<support::TempDir>();
    ::setenv("XDG_CACHE_HOME", fFolder->path().c_str(), 1);
    ::setenv(kMark, "1", 1);
  }
  void TearDown() override { fFolder.reset(); }

private:
  static constexpr const char* kMark = "QCF_TEST_CACHE_IS_ISOLATED";

  std::unique_ptr<support::TempDir> fFolder;
};

const testing::Environment* const kIsolated =
    testing::AddGlobalTestEnvironment(new IsolatedCache);  // owned by GoogleTest

}  // namespace
