#include "SampleKernels.h"

const SampleKernels* architectureKernels(InstructionSet /*instructions*/) noexcept {
  return nullptr;
}
