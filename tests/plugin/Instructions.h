#pragma once

#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>

#include "SampleKernels.h"

// The set of instructions that a run of a suite is for, by the variable QSND_TEST_INSTRUCTIONS;
// none where the choice is the program's own. Raises std::runtime_error for a name that there
// isn't.
inline std::optional<InstructionSet> instructionsUnderTest() {
  const char* const name = std::getenv("QSND_TEST_INSTRUCTIONS");
  if (name == nullptr) return std::nullopt;
  if (name == std::string("portable")) return InstructionSet::Portable;
  if (name == std::string("ssse3")) return InstructionSet::SSSE3;
  if (name == std::string("avx2")) return InstructionSet::AVX2;
  throw std::runtime_error(std::string("no such set of instructions: ") + name);
}
