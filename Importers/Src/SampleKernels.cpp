#include "SampleKernels.h"

#include <algorithm>
#include <cstring>

#include "SampleFormats.h"
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

// The stride as a constant, for the layouts that are common enough to be worth their code.
template <std::size_t Stride>
void copyStrided(const float* __restrict source, float* __restrict destination,
                 std::size_t frames) {
  std::size_t done = 0;
  for (; done + kRun <= frames; done += kRun) {
    const float* const run = source + done * Stride;
    for (std::size_t i = 0; i < kRun; ++i)
      copySample(run + i * Stride, destination + done + i);
  }
  for (; done < frames; ++done)
    copySample(source + done * Stride, destination + done);
}

// Frame by frame within a run, so that the interleaved block is read once. A run keeps the order of
// the channels: where two buffers are the same memory, the later channel stays.
template <std::size_t Channels, std::size_t Outputs>
void deinterleaveRuns(const float* source, float* const* buffers, std::size_t offset,
                      std::size_t frames) {
  for (std::size_t done = 0; done < frames; done += kRun) {
    const std::size_t run = std::min(kRun, frames - done);
    for (std::size_t channel = 0; channel < Outputs; ++channel) {
      copyStrided<Channels>(source + done * Channels + channel, buffers[channel] + offset + done,
                            run);
    }
  }
}

void takeApartPortably(const float* source, std::size_t channels, std::size_t outputs,
                       float* const* buffers, std::size_t offset, std::size_t frames) {
  if (channels == 1 && outputs == 1) {
    std::copy_n(source, frames, buffers[0] + offset);
  } else if (channels == 2 && outputs == 2) {
    deinterleaveRuns<2, 2>(source, buffers, offset, frames);
  } else if (channels == 6 && outputs == 6) {
    deinterleaveRuns<6, 6>(source, buffers, offset, frames);
  } else if (channels == 8 && outputs == 6) {
    deinterleaveRuns<8, 6>(source, buffers, offset, frames);
  } else {
    for (std::size_t channel = 0; channel < outputs; ++channel) {
      copyChannel(source + channel, channels, buffers[channel] + offset, frames);
    }
  }
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
     convertPortably<Int16Big>, convertPortably<Int24Big>, convertPortably<Int32Big>, nullptr},
    {nullptr, stereoPortably<Int8>, stereoPortably<UInt8>, stereoPortably<Int16Little>, nullptr,
     stereoPortably<Int32Little>, stereoPortably<Float32Little>, stereoPortably<Float64Little>,
     stereoPortably<Int16Big>, stereoPortably<Int24Big>, stereoPortably<Int32Big>, nullptr},
    takeApartPortably,
    {}};

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
