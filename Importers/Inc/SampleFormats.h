#pragma once

#include <cstddef>
#include <cstdint>

// How stored samples become 32-bit floats between -1 and 1, and how interleaved floats become one
// buffer a channel.

// The family that a stored sample belongs to.
enum class SampleKind : std::uint32_t {
  IntLittle = 0,
  FloatLittle = 1,
  Opaque = 2,
  IntBig = 3,
  FloatBig = 4
};

// Numbers of stored sample formats.
enum SampleFormatNumber : std::uint32_t {
  SampleFormatInt8 = 1,
  SampleFormatUInt8 = 2,
  SampleFormatInt16Little = 3,
  SampleFormatInt24Little = 4,
  SampleFormatInt32Little = 5,
  SampleFormatFloat32Little = 6,
  SampleFormatFloat64Little = 7,
  SampleFormatInt16Big = 8,
  SampleFormatInt24Big = 9,
  SampleFormatInt32Big = 10,
  SampleFormatFloat32Big = 11,
  SampleFormatOpaque = 12,
  SampleFormatOther = 14
};

// What is to be kept and what the host is told for a kind and a size of samples.
struct SampleFormatChoice {
  std::uint32_t kept;  // 0: keep the earlier number
  std::uint32_t reported;
};
SampleFormatChoice chooseSampleFormat(SampleKind kind, std::uint32_t bytesPerSample) noexcept;

// Converts `count` samples from `raw` to `samples`. Integers become floats first and are scaled
// afterwards, both in single precision; big-endian floats are also swapped in place in `raw`. The
// two blocks must not overlap.
using SampleConverter = void (*)(char* raw, float* samples, std::size_t count);

struct SampleFormat {
  std::size_t storedBytes;    // of one sample; 0 for a number without a conversion
  SampleConverter converter;  // null for a number without a conversion
};

// The conversion of a format number, any number.
SampleFormat findSampleFormat(std::uint32_t number) noexcept;

// Swaps the bytes of `count` 32-bit words in place.
void swapFloats(char* raw, std::size_t count) noexcept;

// The widest frame that convertFrames() takes, in samples.
constexpr std::size_t kMostChannelsInOnePass = 1024;

// Converts the first `outputs` channels of `frames` frames of `channels` interleaved stored samples
// each, in one pass: channel c goes to buffers[c], from index `offset` on. `number` has a
// conversion, and is not that of big-endian floats: swap these, and they are little-endian ones.
// `channels` is 1 to kMostChannelsInOnePass, `outputs` at most `channels`. Where two buffers are
// the same memory, the later channel stays.
void convertFrames(std::uint32_t number, const char* raw, std::size_t channels, std::size_t outputs,
                   float* const* buffers, std::size_t offset, std::size_t frames) noexcept;

// Copies `frames` samples to `destination` from `source`, taking every `stride`-th.
void copyChannel(const float* source, std::size_t stride, float* destination,
                 std::size_t frames) noexcept;

// Copies the first `outputs` channels of `frames` frames of `channels` interleaved samples each:
// channel c goes to buffers[c], from index `offset` on. `outputs` is at most `channels`.
void deinterleave(const float* source, std::size_t channels, std::size_t outputs,
                  float* const* buffers, std::size_t offset, std::size_t frames) noexcept;
