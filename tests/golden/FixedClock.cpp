#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

// The clock of this program stands at 3 February 2001, 04:05:06 UTC: the library asks the C
// library, and finds this.
extern "C" std::time_t time(std::time_t* result) noexcept {
  constexpr std::time_t kNow = 981173106;
  if (result != nullptr) *result = kNow;
  return kNow;
}

namespace {

class Greenwich : public testing::Environment {
public:
  void SetUp() override { ::setenv("TZ", "UTC0", 1); }
};

const auto* const gGreenwich = testing::AddGlobalTestEnvironment(new Greenwich);

}  // namespace
