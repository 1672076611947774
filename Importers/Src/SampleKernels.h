#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The inner loops of SampleFormats, in one set for each kind of processor. All sets give the same
// bits.

// Converts `count` samples from `raw` to `samples`. Nothing need be aligned; the two must not
// overlap.
using ConvertKernel = void (*)(const char* raw, float* samples, std::size_t count);
// Converts `frames` frames of two samples, the first of each to `left`, the second to `right`. No
// two of the three may overlap.
using StereoKernel = void (*)(const char* raw, float* left, float* right, std::size_t frames);

// deinterleave() of SampleFormats.h.
using TakeApartKernel = void (*)(const float* source, std::size_t channels, std::size_t outputs,
                                 float* const* buffers, std::size_t offset, std::size_t frames);

// Converts and takes apart as convertFrames() of SampleFormats.h does, for three channels or more.
// Returns how many of the frames it has done; the few that it leaves are the caller's.
using SquareKernel = std::size_t (*)(const char* raw, std::size_t channels, std::size_t outputs,
                                     float* const* buffers, std::size_t offset, std::size_t frames);

struct SampleKernels {
  static constexpr std::size_t kNumbers = 11;
  // Indexed by format number; null for numbers without a conversion, and for big-endian floats,
  // which are swapped first and are little-endian ones then. Stereo is null too where it is better
  // to convert and then to take apart.
  std::array<ConvertKernel, kNumbers + 1> convert;
  std::array<StereoKernel, kNumbers + 1> stereo;
  TakeApartKernel takeApart;
  std::array<SquareKernel, kNumbers + 1> squares;  // null where there is none
};

enum class InstructionSet { Portable, SSSE3, AVX2 };

// What this build holds for a processor and this one can execute, or null.
const SampleKernels* findSampleKernels(InstructionSet instructions) noexcept;

// The best set that the processor executes, or the one that was chosen for a test.
const SampleKernels& sampleKernels() noexcept;

// For tests: from now on sampleKernels() answers with this set. False, and no change, when the
// processor cannot execute it. No other thread may be converting.
bool chooseSampleKernels(InstructionSet instructions) noexcept;

// The room of one architecture: its sets, or null.
const SampleKernels* architectureKernels(InstructionSet instructions) noexcept;
// Portable code, on every architecture.
extern const SampleKernels kPortableKernels;
