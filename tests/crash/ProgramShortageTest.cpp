#include <algorithm>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "crash/Changes.h"
#include "crash/Shortages.h"

// Each allocation of the programs fails, and each call that they make into zlib: they tell it in
// one line and leave the old file, or get along without and leave the new one. QCF_LONG_TESTS=1
// tries each of them, else it is one in so many.

namespace crash {

namespace {

class ProgramShortage : public ChangeTrial {
protected:
  void SetUp() override {
    ChangeTrial::SetUp();
    fShortages.emplace(change());
    const auto whole = fShortages->count();
    ASSERT_EQ(whole.status, 0) << whole.err;
    ASSERT_GT(fShortages->allocations(), 100);
    adoptNew();
  }

  // Returns whether the program got along without.
  bool tryPoint(const std::string& what, long n) {
    const std::string point = what + " " + std::to_string(n);
    SCOPED_TRACE(point);
    restore();
    const auto finished = fShortages->runWithout(point);
    const bool isNew = expectOldOrNew();
    if (finished.status == 0) {
      EXPECT_EQ(leftovers(), std::vector<std::string>());
      EXPECT_TRUE(isNew);
      return true;
    }
    EXPECT_EQ(leftovers(), std::vector<std::string>());
    expectToldOnce(finished);
    return false;
  }

  // The call behind the last one fails, which is none.
  void expectUndisturbed(const std::string& kind, long calls) {
    SCOPED_TRACE("behind the last");
    restore();
    const auto finished = fShortages->runBeyond(kind, calls);
    EXPECT_EQ(finished.status, 0) << finished.err;
    EXPECT_TRUE(expectOldOrNew()) << "it is not the new file";
    EXPECT_EQ(leftovers(), std::vector<std::string>());
  }

  std::optional<Shortages> fShortages;
};

TEST_P(ProgramShortage, AnAllocationThatFailsIsToldInOneLineAndLeavesTheOldFileOrTheNew) {
  const long step = fShortages->step(GetParam().isVariant ? 10 : 30);
  long points = 0;
  long survived = 0;
  for (long n = 1; n <= fShortages->allocations() && !HasFailure(); n += step, ++points)
    survived += tryPoint("memory", n) ? 1 : 0;
  expectUndisturbed("memory", fShortages->allocations());
  std::cout << GetParam().name << ", without memory at " << points << " of "
            << fShortages->allocations() << " allocations: told " << points - survived
            << ", survived " << survived << "\n";
}

TEST_P(ProgramShortage, ACallOfZlibThatFailsIsToldInOneLineAndLeavesTheOldFileOrTheNew) {
  const long calls = fShortages->zlibCalls();
  EXPECT_EQ(calls > 0, GetParam().usesZlib);
  const long step = isLong() ? 1 : std::max(1L, calls / (GetParam().isVariant ? 5 : 20));
  long points = 0;
  long survived = 0;
  for (long n = 1; n <= calls && !HasFailure(); n += step, ++points)
    survived += tryPoint("zlib", n) ? 1 : 0;
  expectUndisturbed("zlib", calls);
  std::cout << GetParam().name << ", zlib failed at " << points << " calls: told "
            << points - survived << ", survived " << survived << "\n";
}

INSTANTIATE_TEST_SUITE_P(Changes, ProgramShortage, testing::ValuesIn(changes()),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace

}  // namespace crash
