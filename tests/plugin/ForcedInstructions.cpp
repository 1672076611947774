// Makes a bundle convert with one set of instructions, for the tests of that set. On a processor
// without it the bundle keeps its own choice, and the suites skip themselves.

#include "SampleKernels.h"

namespace {

[[maybe_unused]] const bool kForced = chooseSampleKernels(InstructionSet::QSND_FORCED_INSTRUCTIONS);

}  // namespace
