#include "SampleFormats.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr float kScale8 = 0x1p-7f;
constexpr float kScale16 = 0x1p-15f;
constexpr float kScale32 = 0x1p-31f;

template <class Value>
Value load(const char* bytes) {
  Value value;
  std::memcpy(&value, bytes, sizeof(value));
  return value;
}

std::uint32_t byteAt(const char* bytes, int index) {
  return static_cast<unsigned char>(bytes[index]);
}

std::uint16_t swapped(std::uint16_t value) {
  return static_cast<std::uint16_t>((value << 8) | (value >> 8));
}

std::uint32_t swapped(std::uint32_t value) {
  return (value << 24) | ((value & 0xFF00u) << 8) | ((value >> 8) & 0xFF00u) | (value >> 24);
}

// One sample of each integer format as a float.
struct Int8 {
  static constexpr std::size_t bytes = 1;
  static float decode(const char* raw) {
    return static_cast<float>(load<std::int8_t>(raw)) * kScale8;
  }
};

struct UInt8 {
  static constexpr std::size_t bytes = 1;
  static float decode(const char* raw) {
    return (static_cast<float>(load<std::uint8_t>(raw)) - 128.0f) * kScale8;
  }
};

struct Int16Little {
  static constexpr std::size_t bytes = 2;
  static float decode(const char* raw) {
    return static_cast<float>(load<std::int16_t>(raw)) * kScale16;
  }
};

struct Int16Big {
  static constexpr std::size_t bytes = 2;
  static float decode(const char* raw) {
    const auto value = static_cast<std::int16_t>(swapped(load<std::uint16_t>(raw)));
    return static_cast<float>(value) * kScale16;
  }
};

struct Int24Little {
  static constexpr std::size_t bytes = 3;
  static float decode(const char* raw) {
    const std::uint32_t word =
        (byteAt(raw, 0) << 8) | (byteAt(raw, 1) << 16) | (byteAt(raw, 2) << 24);
    return static_cast<float>(static_cast<std::int32_t>(word)) * kScale32;
  }
};

struct Int24Big {
  static constexpr std::size_t bytes = 3;
  static float decode(const char* raw) {
    const std::uint32_t word =
        (byteAt(raw, 2) << 8) | (byteAt(raw, 1) << 16) | (byteAt(raw, 0) << 24);
    return static_cast<float>(static_cast<std::int32_t>(word)) * kScale32;
  }
};

struct Int32Little {
  static constexpr std::size_t bytes = 4;
  static float decode(const char* raw) {
    return static_cast<float>(load<std::int32_t>(raw)) * kScale32;
  }
};

struct Int32Big {
  static constexpr std::size_t bytes = 4;
  static float decode(const char* raw) {
    return static_cast<float>(static_cast<std::int32_t>(swapped(load<std::uint32_t>(raw)))) *
           kScale32;
  }
};

struct Float64Little {
  static constexpr std::size_t bytes = 8;
  static float decode(const char* raw) { return static_cast<float>(load<double>(raw)); }
};

// Loops of a known length are what compilers vectorise at every level of optimisation.
constexpr std::size_t kRun = 64;

template <class Format>
void convert(char* __restrict raw, float* __restrict samples, std::size_t count) {
  std::size_t done = 0;
  for (; done + kRun <= count; done += kRun) {
    const char* const run = raw + done * Format::bytes;
    for (std::size_t i = 0; i < kRun; ++i) {
      samples[done + i] = Format::decode(run + i * Format::bytes);
    }
  }
  for (; done < count; ++done)
    samples[done] = Format::decode(raw + done * Format::bytes);
}

// Four samples are three words, which saves the loads of single bytes.
void convertInt24Little(char* __restrict raw, float* __restrict samples, std::size_t count) {
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
    for (std::size_t i = 0; i < kRun; ++i) {
      samples[done + i] = static_cast<float>(static_cast<std::int32_t>(words[i])) * kScale32;
    }
  }
  for (; done < count; ++done)
    samples[done] = Int24Little::decode(raw + done * Int24Little::bytes);
}

void copyFloats(char* raw, float* samples, std::size_t count) {
  std::memcpy(samples, raw, count * sizeof(float));
}

void swapFloats(char* raw, float* samples, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t word = swapped(load<std::uint32_t>(raw + i * sizeof(word)));
    std::memcpy(raw + i * sizeof(word), &word, sizeof(word));
  }
  copyFloats(raw, samples, count);
}

// Indexed by format number.
constexpr std::array<SampleFormat, 12> kFormats{{{0, nullptr},
                                                 {1, convert<Int8>},
                                                 {1, convert<UInt8>},
                                                 {2, convert<Int16Little>},
                                                 {3, convertInt24Little},
                                                 {4, convert<Int32Little>},
                                                 {4, copyFloats},
                                                 {8, convert<Float64Little>},
                                                 {2, convert<Int16Big>},
                                                 {3, convert<Int24Big>},
                                                 {4, convert<Int32Big>},
                                                 {4, swapFloats}}};

struct ChoiceRow {
  SampleKind kind;
  std::uint32_t bytesPerSample;
  SampleFormatChoice choice;
};

// 8-byte floats are converted, but the host is told that no format fits.
constexpr ChoiceRow kChoices[] = {
    {SampleKind::IntLittle, 1, {SampleFormatUInt8, SampleFormatUInt8}},
    {SampleKind::IntLittle, 2, {SampleFormatInt16Little, SampleFormatInt16Little}},
    {SampleKind::IntLittle, 3, {SampleFormatInt24Little, SampleFormatInt24Little}},
    {SampleKind::IntLittle, 4, {SampleFormatInt32Little, SampleFormatInt32Little}},
    {SampleKind::FloatLittle, 4, {SampleFormatFloat32Little, SampleFormatFloat32Little}},
    {SampleKind::FloatLittle, 8, {SampleFormatFloat64Little, SampleFormatOther}},
    {SampleKind::IntBig, 1, {SampleFormatInt8, SampleFormatInt8}},
    {SampleKind::IntBig, 2, {SampleFormatInt16Big, SampleFormatInt16Big}},
    {SampleKind::IntBig, 3, {SampleFormatInt24Big, SampleFormatInt24Big}},
    {SampleKind::IntBig, 4, {SampleFormatInt32Big, SampleFormatInt32Big}},
    {SampleKind::FloatBig, 4, {SampleFormatFloat32Big, SampleFormatFloat32Big}},
};

// The stride as a constant, for the layouts that are common enough to be worth their code.
template <std::size_t Stride>
void copyStrided(const float* __restrict source, float* __restrict destination,
                 std::size_t frames) {
  std::size_t done = 0;
  for (; done + kRun <= frames; done += kRun) {
    const float* const run = source + done * Stride;
    for (std::size_t i = 0; i < kRun; ++i)
      destination[done + i] = run[i * Stride];
  }
  for (; done < frames; ++done)
    destination[done] = source[done * Stride];
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

}  // namespace

SampleFormatChoice chooseSampleFormat(SampleKind kind, std::uint32_t bytesPerSample) noexcept {
  if (kind == SampleKind::Opaque) return {SampleFormatOpaque, SampleFormatOpaque};
  const auto fits = [&](const ChoiceRow& row) {
    return row.kind == kind && row.bytesPerSample == bytesPerSample;
  };
  const auto* const row = std::find_if(std::begin(kChoices), std::end(kChoices), fits);
  return row == std::end(kChoices) ? SampleFormatChoice{0, SampleFormatOther} : row->choice;
}

SampleFormat findSampleFormat(std::uint32_t number) noexcept {
  return number < kFormats.size() ? kFormats[number] : kFormats[0];
}

void copyChannel(const float* source, std::size_t stride, float* destination,
                 std::size_t frames) noexcept {
  for (std::size_t i = 0; i < frames; ++i)
    destination[i] = source[i * stride];
}

void deinterleave(const float* source, std::size_t channels, std::size_t outputs,
                  float* const* buffers, std::size_t offset, std::size_t frames) noexcept {
  if (frames == 0) return;
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
