#include "SampleKernels.h"

#include <cstring>

#include "SampleLoops.h"

namespace {

using namespace sampleloops;

template <class Format>
void convertPortably(const char* raw, float* samples, std::size_t count) {
  convert<Format>(raw, samples, count);
}

template <class Format>
void stereoPortably(const char* raw, float* left, float* right, std::size_t frames) {
  stereo<Format>(raw, left, right, frames);
}

// Four samples are three words, which saves the loads of single bytes.
void convertInt24(const char* __restrict raw, float* __restrict samples, std::size_t count) {
  std::size_t done = 0;
  for (; done + kRun <= count; done += kRun) {
    std::array<std::uint32_t, kRun> words;
    for (std::size_t i = 0; i < kRun; i += 4) {
      const char* const group = raw + (done + i) * Int24Little::bytes;
      const auto first = load<std::uint32_t>(group);
      const auto second = load<std::uint32_t>(group + 4);
      const auto third = load<std::uint32_t>(group + 8);
      words[i] = first << 8;
      words[i + 1] = ((first >> 16) & 0xFF00u) | (second << 16);
      words[i + 2] = ((second >> 8) & 0xFFFF00u) | (third << 24);
      words[i + 3] = third & 0xFFFFFF00u;
    }
    for (std::size_t i = 0; i < kRun; ++i)
      samples[done + i] = scaled32(words[i]);
  }
  convert<Int24Little>(raw + done * Int24Little::bytes, samples + done, count - done);
}

void copyFloats(const char* raw, float* samples, std::size_t count) {
  if (count != 0) std::memcpy(samples, raw, count * sizeof(float));
}

const SampleKernels& bestKernels() noexcept {
  for (const InstructionSet instructions : {InstructionSet::AVX2, InstructionSet::SSSE3}) {
    if (const SampleKernels* const kernels = findSampleKernels(instructions)) return *kernels;
  }
  return kPortableKernels;
}

const SampleKernels*& chosenKernels() noexcept {
  static const SampleKernels* chosen = &bestKernels();
  return chosen;
}

}  // namespace

const SampleKernels kPortableKernels = {
    {nullptr, convertPortably<Int8>, convertPortably<UInt8>, convertPortably<Int16Little>,
     convertInt24, convertPortably<Int32Little>, copyFloats, convertPortably<Float64Little>,
     convertPortably<Int16Big>, convertPortably<Int24Big>, convertPortably<Int32Big>,
     convertPortably<Float32Big>},
    {nullptr, stereoPortably<Int8>, stereoPortably<UInt8>, stereoPortably<Int16Little>, nullptr,
     stereoPortably<Int32Little>, stereoPortably<Float32Little>, stereoPortably<Float64Little>,
     stereoPortably<Int16Big>, stereoPortably<Int24Big>, stereoPortably<Int32Big>,
     stereoPortably<Float32Big>}};

const SampleKernels* findSampleKernels(InstructionSet instructions) noexcept {
  return instructions == InstructionSet::Portable ? &kPortableKernels
                                                  : architectureKernels(instructions);
}

const SampleKernels& sampleKernels() noexcept {
  return *chosenKernels();
}

bool chooseSampleKernels(InstructionSet instructions) noexcept {
  const SampleKernels* const kernels = findSampleKernels(instructions);
  if (kernels == nullptr) return false;
  chosenKernels() = kernels;
  return true;
}
