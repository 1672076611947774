#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Instructions.h"
#include "SampleFormats.h"
#include "SampleKernels.h"

namespace {

// A sample as the table of formats tells it, a byte at a time and in double precision.
struct Reference {
  const char* name;
  std::size_t bytes;
  bool big;
  enum { Signed, Unsigned, Floating } kind;
};

// Indexed by format number. Big-endian floats are swapped as they are read and have no kernels.
const Reference kReferences[] = {{"none", 0, false, Reference::Signed},
                                 {"Int8", 1, false, Reference::Signed},
                                 {"UInt8", 1, false, Reference::Unsigned},
                                 {"Int16Little", 2, false, Reference::Signed},
                                 {"Int24Little", 3, false, Reference::Signed},
                                 {"Int32Little", 4, false, Reference::Signed},
                                 {"Float32Little", 4, false, Reference::Floating},
                                 {"Float64Little", 8, false, Reference::Floating},
                                 {"Int16Big", 2, true, Reference::Signed},
                                 {"Int24Big", 3, true, Reference::Signed},
                                 {"Int32Big", 4, true, Reference::Signed}};

std::uint32_t bitsOf(float value) {
  std::uint32_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

std::uint32_t referenceBits(const Reference& format, const char* raw) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < format.bytes; ++i)
    value = value << 8 | static_cast<unsigned char>(raw[format.big ? i : format.bytes - 1 - i]);
  if (format.kind == Reference::Floating) {
    if (format.bytes == 4) return static_cast<std::uint32_t>(value);
    double wide;
    std::memcpy(&wide, &value, sizeof(wide));
    return bitsOf(static_cast<float>(wide));
  }
  const double range = std::ldexp(1.0, static_cast<int>(8 * format.bytes - 1));
  auto number = static_cast<double>(value);
  if (format.kind == Reference::Unsigned || number >= range) {
    number -= format.kind == Reference::Unsigned ? range : 2 * range;
  }
  return bitsOf(static_cast<float>(number / range));
}

// `count` samples of random bytes. Floats of 64 bits are kept finite: which bits of a NaN survive
// narrowing is the processor's affair.
std::string randomSamples(const Reference& format, std::size_t count) {
  static std::mt19937 random(7);
  std::string raw;
  for (std::size_t i = 0; i < count * format.bytes; ++i)
    raw.push_back(static_cast<char>(random() >> 13));
  if (format.bytes == 8) {
    for (std::size_t i = 0; i < count; ++i) {
      const double value = std::ldexp(static_cast<double>(random()) - 0x1p31, -32);
      std::memcpy(&raw[i * 8], &value, sizeof(value));
    }
  }
  return raw;
}

// Every value of 8 and of 16 bits; of the wider formats the edges of each byte, and random ones.
std::string tellingSamples(const Reference& format) {
  std::string raw;
  if (format.bytes <= 2) {
    for (int value = 0; value < (format.bytes == 1 ? 0x100 : 0x10000); ++value) {
      raw.push_back(static_cast<char>(value));
      if (format.bytes == 2) raw.push_back(static_cast<char>(value >> 8));
    }
    return raw;
  }
  if (format.bytes <= 4) {
    const unsigned char edges[] = {0x00, 0x01, 0x7F, 0x80, 0x81, 0xFE, 0xFF};
    const std::size_t combinations = format.bytes == 3 ? 7 * 7 * 7 : 7 * 7 * 7 * 7;
    for (std::size_t number = 0; number < combinations; ++number) {
      std::size_t rest = number;
      for (std::size_t i = 0; i < format.bytes; ++i, rest /= 7)
        raw.push_back(static_cast<char>(edges[rest % 7]));
    }
  }
  return raw + randomSamples(format, 100000);
}

// Memory whose first element stands `shift` elements behind a boundary of 64 bytes, with a guard
// on both sides of what is used.
class Room {
public:
  static constexpr float kGuard = 77.0f;

  Room(std::size_t shift, std::size_t count) : fCount(count), fAll(count + 64, kGuard) {
    const auto address = reinterpret_cast<std::uintptr_t>(fAll.data());
    fStart = (64 - address % 64) / sizeof(float) % 16 + 16 + shift;
  }
  float* data() { return fAll.data() + fStart; }
  bool guardsHold() const {
    for (std::size_t i = 0; i < fAll.size(); ++i) {
      const bool inside = i >= fStart && i < fStart + fCount;
      if (!inside && fAll[i] != kGuard) return false;
    }
    return true;
  }

private:
  std::size_t fCount;
  std::size_t fStart;
  std::vector<float> fAll;
};

class SampleKernelsOf : public testing::TestWithParam<int> {
protected:
  void SetUp() override {
    ASSERT_LT(number, std::size(kReferences));
    ASSERT_NE(sampleKernels().convert[number], nullptr);
  }
  const std::size_t number = static_cast<std::size_t>(GetParam());
  const Reference& format = kReferences[number];
};

TEST_P(SampleKernelsOf, ConvertEveryTellingValue) {
  const std::string raw = tellingSamples(format);
  std::vector<float> samples(raw.size() / format.bytes);
  sampleKernels().convert[number](raw.data(), samples.data(), samples.size());
  for (std::size_t i = 0; i < samples.size(); ++i)
    ASSERT_EQ(bitsOf(samples[i]), referenceBits(format, &raw[i * format.bytes])) << i;
}

TEST_P(SampleKernelsOf, ConvertEveryLengthAtEveryAlignment) {
  for (std::size_t count = 0; count <= 70; ++count) {
    for (std::size_t shift = 0; shift < 16; ++shift) {
      // Exactly as long as what is read, so that a sanitizer sees a step beyond it.
      const std::string bytes = randomSamples(format, count);
      const std::vector<char> raw = [&] {
        std::vector<char> shifted(shift + bytes.size());
        if (!bytes.empty()) std::memcpy(shifted.data() + shift, bytes.data(), bytes.size());
        return shifted;
      }();
      Room out(shift, count);
      sampleKernels().convert[number](raw.data() + shift, out.data(), count);
      for (std::size_t i = 0; i < count; ++i)
        ASSERT_EQ(bitsOf(out.data()[i]), referenceBits(format, &bytes[i * format.bytes])) << count;
      ASSERT_TRUE(out.guardsHold()) << count << " samples, shifted by " << shift;
    }
  }
}

TEST_P(SampleKernelsOf, TakeStereoApartAtEveryLengthAndAlignment) {
  const StereoKernel kernel = sampleKernels().stereo[number];
  if (kernel == nullptr) GTEST_SKIP() << "such frames take the road of more channels";
  for (std::size_t frames = 0; frames <= 70; ++frames) {
    for (std::size_t shift = 0; shift < 16; ++shift) {
      const std::string bytes = randomSamples(format, 2 * frames);
      std::vector<char> raw(shift + bytes.size());
      if (!bytes.empty()) std::memcpy(raw.data() + shift, bytes.data(), bytes.size());
      Room left(shift, frames);
      Room right((shift * 5) % 16, frames);
      kernel(raw.data() + shift, left.data(), right.data(), frames);
      for (std::size_t i = 0; i < frames; ++i) {
        const char* const frame = &bytes[2 * i * format.bytes];
        ASSERT_EQ(bitsOf(left.data()[i]), referenceBits(format, frame)) << frames;
        ASSERT_EQ(bitsOf(right.data()[i]), referenceBits(format, frame + format.bytes)) << frames;
      }
      ASSERT_TRUE(left.guardsHold() && right.guardsHold()) << frames << " frames, " << shift;
    }
  }
}

TEST_P(SampleKernelsOf, TakeStereoApartForEveryTellingValue) {
  const StereoKernel kernel = sampleKernels().stereo[number];
  if (kernel == nullptr) GTEST_SKIP() << "such frames take the road of more channels";
  const std::string raw = tellingSamples(format);
  const std::size_t frames = raw.size() / format.bytes / 2;
  std::vector<float> sides[2] = {std::vector<float>(frames), std::vector<float>(frames)};
  kernel(raw.data(), sides[0].data(), sides[1].data(), frames);
  for (std::size_t i = 0; i < 2 * frames; ++i)
    ASSERT_EQ(bitsOf(sides[i % 2][i / 2]), referenceBits(format, &raw[i * format.bytes])) << i;
}

// The first `outputs` channels of raw frames, by convertFrames(), against the reference. The raw
// bytes and the buffers stand `shift` bytes and samples behind a boundary, each buffer elsewhere.
void expectFramesApart(std::size_t number, const std::string& bytes, std::size_t channels,
                       std::size_t outputs, std::size_t shift) {
  constexpr std::size_t kOffset = 5;
  const Reference& format = kReferences[number];
  const std::size_t frames = bytes.size() / format.bytes / channels;
  // Exactly as long as what is read, so that a sanitizer sees a step beyond it.
  std::vector<char> raw(shift + bytes.size());
  std::copy(bytes.begin(), bytes.end(), raw.begin() + static_cast<std::ptrdiff_t>(shift));
  std::vector<Room> rooms;
  std::vector<float*> buffers;
  // Moving a vector of rooms keeps their memory, so the pointers stay.
  for (std::size_t c = 0; c < outputs; ++c)
    buffers.push_back(rooms.emplace_back((shift + c * 3) % 16, frames).data() - kOffset);
  convertFrames(static_cast<std::uint32_t>(number), raw.data() + shift, channels, outputs,
                buffers.data(), kOffset, frames);
  for (std::size_t i = 0; i < frames * channels; ++i) {
    if (i % channels >= outputs) continue;
    ASSERT_EQ(bitsOf(buffers[i % channels][kOffset + i / channels]),
              referenceBits(format, &bytes[i * format.bytes]))
        << outputs << " of " << channels << " channels, " << frames << " frames, sample " << i;
  }
  for (const Room& room : rooms) {
    ASSERT_TRUE(room.guardsHold())
        << outputs << " of " << channels << " channels, " << frames << " frames, " << shift;
  }
}

// All channels, and the most that a host is given.
std::set<std::size_t> deliveredOf(std::size_t channels) {
  return {channels, std::min<std::size_t>(channels, 6)};
}

TEST_P(SampleKernelsOf, ConvertFramesTakesEveryLengthApartAtEveryAlignment) {
  for (std::size_t channels = 1; channels <= 8; ++channels) {
    for (std::size_t frames = 0; frames <= 70; ++frames) {
      const std::string bytes = randomSamples(format, channels * frames);
      for (const std::size_t outputs : deliveredOf(channels)) {
        for (std::size_t shift = 0; shift < 16; ++shift) {
          expectFramesApart(number, bytes, channels, outputs, shift);
          if (HasFatalFailure()) return;
        }
      }
    }
  }
}

// Frames of many channels have arithmetic of their own, four channels at a time.
TEST_P(SampleKernelsOf, ConvertFramesConvertsEveryTellingValueInEveryChannel) {
  const std::string values = tellingSamples(format);
  for (std::size_t channels = 1; channels <= 8; ++channels) {
    // Each value comes to stand in each channel, among whole frames.
    for (std::size_t first = 0; first < channels; ++first) {
      std::string bytes = values.substr(values.size() - first * format.bytes) + values;
      const std::size_t frameBytes = channels * format.bytes;
      bytes += values.substr(0, (frameBytes - bytes.size() % frameBytes) % frameBytes);
      for (const std::size_t outputs : deliveredOf(channels)) {
        expectFramesApart(number, bytes, channels, outputs, 0);
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST_P(SampleKernelsOf, ConvertFramesTakesLongStretchesAndWideFrames) {
  for (const std::size_t channels : {1u, 2u, 3u, 6u, 8u, 40u, 1023u, 1024u}) {
    const std::string bytes = randomSamples(format, channels * (3000 / channels + 2));
    for (const std::size_t outputs : deliveredOf(channels))
      expectFramesApart(number, bytes, channels, outputs, 0);
  }
}

TEST_P(SampleKernelsOf, OneBufferForBothChannelsEndsWithTheSecond) {
  const std::string raw = randomSamples(format, 2 * 200);
  std::vector<float> out(200);
  float* const buffers[] = {out.data(), out.data()};
  convertFrames(static_cast<std::uint32_t>(number), raw.data(), 2, 2, buffers, 0, 200);
  for (std::size_t i = 0; i < out.size(); ++i)
    ASSERT_EQ(bitsOf(out[i]), referenceBits(format, &raw[(2 * i + 1) * format.bytes])) << i;
}

std::string nameOf(const testing::TestParamInfo<int>& parameter) {
  return kReferences[parameter.param].name;
}
INSTANTIATE_TEST_SUITE_P(EveryFormat, SampleKernelsOf, testing::Range(1, 11), nameOf);

TEST(SampleKernels, PortableCodeIsAlwaysThere) {
  EXPECT_EQ(findSampleKernels(InstructionSet::Portable), &kPortableKernels);
}

TEST(SampleKernels, AreThoseOfTheWidestInstructionsOrTheChosenOnes) {
  if (const auto chosen = instructionsUnderTest()) {
    EXPECT_EQ(&sampleKernels(), findSampleKernels(*chosen));
    return;
  }
  const SampleKernels* best = &kPortableKernels;
  for (const auto instructions : {InstructionSet::SSSE3, InstructionSet::AVX2}) {
    if (const auto* const kernels = findSampleKernels(instructions)) best = kernels;
  }
  EXPECT_EQ(&sampleKernels(), best);
}

}  // namespace
