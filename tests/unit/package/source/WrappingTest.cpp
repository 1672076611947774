#include <cstdint>

#include <gtest/gtest.h>

#include "package/source/Wrapping.h"

namespace {

using pkg::wrappingDifference;
using pkg::wrappingSum;

TEST(Wrapping, SmallNumbersAddAndSubtract) {
  EXPECT_EQ(wrappingSum(2, 3), 5);
  EXPECT_EQ(wrappingSum(2, -3), -1);
  EXPECT_EQ(wrappingDifference(2, 3), -1);
  EXPECT_EQ(wrappingDifference(-2, -3), 1);
}

TEST(Wrapping, BeyondTheRangeTheyGoOnAtTheOtherEnd) {
  EXPECT_EQ(wrappingSum(INT64_MAX, 1), INT64_MIN);
  EXPECT_EQ(wrappingSum(INT64_MIN, -1), INT64_MAX);
  EXPECT_EQ(wrappingSum(INT64_MIN, INT64_MIN), 0);
  EXPECT_EQ(wrappingDifference(INT64_MIN, 1), INT64_MAX);
  EXPECT_EQ(wrappingDifference(0, INT64_MIN), INT64_MIN);
}

}  // namespace
