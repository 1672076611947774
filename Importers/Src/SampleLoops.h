#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// Samples of each stored format as floats, and loops over them. The loops are inlined into
// functions that say which instructions the compiler may use.

namespace sampleloops {

constexpr float kScale8 = 0x1p-7f;
constexpr float kScale16 = 0x1p-15f;
constexpr float kScale32 = 0x1p-31f;

#define QSND_INLINE [[gnu::always_inline]] inline

template <class Value>
QSND_INLINE Value load(const char* bytes) {
  Value value;
  std::memcpy(&value, bytes, sizeof(value));
  return value;
}

QSND_INLINE std::uint32_t byteAt(const char* bytes, int index) {
  return static_cast<unsigned char>(bytes[index]);
}

QSND_INLINE std::uint16_t swapped(std::uint16_t value) {
  return static_cast<std::uint16_t>((value << 8) | (value >> 8));
}

QSND_INLINE std::uint32_t swapped(std::uint32_t value) {
  return (value << 24) | ((value & 0xFF00u) << 8) | ((value >> 8) & 0xFF00u) | (value >> 24);
}

// The top `Bits` of a word that is read as a signed number.
QSND_INLINE float scaled32(std::uint32_t word) {
  return static_cast<float>(static_cast<std::int32_t>(word)) * kScale32;
}

struct Int8 {
  static constexpr std::size_t bytes = 1;
  QSND_INLINE static float decode(const char* raw) {
    return static_cast<float>(load<std::int8_t>(raw)) * kScale8;
  }
};

struct UInt8 {
  static constexpr std::size_t bytes = 1;
  QSND_INLINE static float decode(const char* raw) {
    return (static_cast<float>(load<std::uint8_t>(raw)) - 128.0f) * kScale8;
  }
};

struct Int16Little {
  static constexpr std::size_t bytes = 2;
  QSND_INLINE static float decode(const char* raw) {
    return static_cast<float>(load<std::int16_t>(raw)) * kScale16;
  }
};

struct Int16Big {
  static constexpr std::size_t bytes = 2;
  QSND_INLINE static float decode(const char* raw) {
    return static_cast<float>(static_cast<std::int16_t>(swapped(load<std::uint16_t>(raw)))) *
           kScale16;
  }
};

struct Int24Little {
  static constexpr std::size_t bytes = 3;
  QSND_INLINE static float decode(const char* raw) {
    return scaled32((byteAt(raw, 0) << 8) | (byteAt(raw, 1) << 16) | (byteAt(raw, 2) << 24));
  }
};

struct Int24Big {
  static constexpr std::size_t bytes = 3;
  QSND_INLINE static float decode(const char* raw) {
    return scaled32((byteAt(raw, 2) << 8) | (byteAt(raw, 1) << 16) | (byteAt(raw, 0) << 24));
  }
};

struct Int32Little {
  static constexpr std::size_t bytes = 4;
  QSND_INLINE static float decode(const char* raw) { return scaled32(load<std::uint32_t>(raw)); }
};

struct Int32Big {
  static constexpr std::size_t bytes = 4;
  QSND_INLINE static float decode(const char* raw) {
    return scaled32(swapped(load<std::uint32_t>(raw)));
  }
};

struct Float64Little {
  static constexpr std::size_t bytes = 8;
  QSND_INLINE static float decode(const char* raw) { return static_cast<float>(load<double>(raw)); }
};

// Floats are moved as words: a number that passes a floating-point register may lose the bits of a
// signalling NaN.
struct Float32Little {
  static constexpr std::size_t bytes = 4;
  QSND_INLINE static std::uint32_t word(const char* raw) { return load<std::uint32_t>(raw); }
};

template <class Format>
QSND_INLINE auto store(const char* raw, float* sample) -> decltype(Format::decode(raw), void()) {
  *sample = Format::decode(raw);
}

template <class Format>
QSND_INLINE auto store(const char* raw, float* sample) -> decltype(Format::word(raw), void()) {
  const std::uint32_t word = Format::word(raw);
  std::memcpy(sample, &word, sizeof(word));
}

// Floats are copied as words too.
QSND_INLINE void copySample(const float* from, float* to) {
  std::uint32_t word;
  std::memcpy(&word, from, sizeof(word));
  std::memcpy(to, &word, sizeof(word));
}

// Loops of a known length are what compilers vectorise at every level of optimisation.
constexpr std::size_t kRun = 64;

template <class Format>
QSND_INLINE void convert(const char* __restrict raw, float* __restrict samples, std::size_t count) {
  std::size_t done = 0;
  for (; done + kRun <= count; done += kRun) {
    const char* const run = raw + done * Format::bytes;
    for (std::size_t i = 0; i < kRun; ++i)
      store<Format>(run + i * Format::bytes, samples + done + i);
  }
  for (; done < count; ++done)
    store<Format>(raw + done * Format::bytes, samples + done);
}

template <class Format>
QSND_INLINE void stereo(const char* __restrict raw, float* __restrict left, float* __restrict right,
                        std::size_t frames) {
  constexpr std::size_t frameBytes = 2 * Format::bytes;
  std::size_t done = 0;
  for (; done + kRun <= frames; done += kRun) {
    const char* const run = raw + done * frameBytes;
    for (std::size_t i = 0; i < kRun; ++i) {
      store<Format>(run + i * frameBytes, left + done + i);
      store<Format>(run + i * frameBytes + Format::bytes, right + done + i);
    }
  }
  for (; done < frames; ++done) {
    store<Format>(raw + done * frameBytes, left + done);
    store<Format>(raw + done * frameBytes + Format::bytes, right + done);
  }
}

#undef QSND_INLINE

}  // namespace sampleloops
