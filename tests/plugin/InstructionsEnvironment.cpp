// Runs the whole suite that this is linked into with one set of instructions.

#include <gtest/gtest.h>

#include "Instructions.h"

namespace {

class InstructionsEnvironment : public testing::Environment {
public:
  void SetUp() override {
    const auto instructions = instructionsUnderTest();
    if (instructions && !chooseSampleKernels(*instructions)) {
      GTEST_SKIP() << "this processor does not have these instructions";
    }
  }
};

[[maybe_unused]] const testing::Environment* const kEnvironment =
    testing::AddGlobalTestEnvironment(new InstructionsEnvironment);

}  // namespace
