#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "SampleFormats.h"

namespace {

// Enough samples for whole runs and a rest.
std::vector<float> convert(std::uint32_t number, std::string raw) {
  const SampleFormat format = findSampleFormat(number);
  std::vector<float> samples(raw.size() / format.storedBytes);
  format.converter(raw.data(), samples.data(), samples.size());
  return samples;
}

std::string repeated(const std::string& sample, std::size_t count) {
  std::string raw;
  for (std::size_t i = 0; i < count; ++i)
    raw += sample;
  return raw;
}

std::uint32_t bitsOf(float value) {
  std::uint32_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

// Every byte pattern of a sample's high bytes, with a low part that needs rounding.
std::string varied(std::size_t sampleBytes, std::size_t count) {
  std::string raw;
  std::uint64_t state = 0x243F6A8885A308D3u;
  for (std::size_t i = 0; i < sampleBytes * count; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    raw.push_back(static_cast<char>(state >> 56));
  }
  return raw;
}

std::int64_t integerAt(const std::string& raw, std::size_t index, std::size_t bytes, bool big) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < bytes; ++i) {
    const std::size_t at = index * bytes + (big ? i : bytes - 1 - i);
    value = value << 8 | static_cast<unsigned char>(raw[at]);
  }
  const std::uint64_t sign = std::uint64_t{1} << (8 * bytes - 1);
  return static_cast<std::int64_t>((value ^ sign) - sign);
}

void expectIntegers(std::uint32_t number, std::size_t bytes, bool big) {
  const std::size_t count = 1000;
  const std::string raw = varied(bytes, count);
  const std::vector<float> samples = convert(number, raw);
  ASSERT_EQ(samples.size(), count);
  for (std::size_t i = 0; i < count; ++i) {
    const auto value = static_cast<double>(integerAt(raw, i, bytes, big));
    // Scaling by a power of two does not round, so the one rounding is that of the integer.
    const auto expected = static_cast<float>(std::ldexp(value, 1 - 8 * static_cast<int>(bytes)));
    ASSERT_EQ(bitsOf(samples[i]), bitsOf(expected)) << "sample " << i;
  }
}

TEST(SampleFormats, SignedBytesAreScaledByTheirRange) {
  expectIntegers(1, 1, false);
}
TEST(SampleFormats, LittleEndianIntegersOf16BitsAreScaledByTheirRange) {
  expectIntegers(3, 2, false);
}
TEST(SampleFormats, LittleEndianIntegersOf24BitsAreScaledByTheirRange) {
  expectIntegers(4, 3, false);
}
TEST(SampleFormats, LittleEndianIntegersOf32BitsAreRoundedAndScaled) {
  expectIntegers(5, 4, false);
}
TEST(SampleFormats, BigEndianIntegersOf16BitsAreSwappedAndScaled) {
  expectIntegers(8, 2, true);
}
TEST(SampleFormats, BigEndianIntegersOf24BitsTakeTheFirstByteAsHighest) {
  expectIntegers(9, 3, true);
}
TEST(SampleFormats, BigEndianIntegersOf32BitsAreSwappedAndScaled) {
  expectIntegers(10, 4, true);
}

TEST(SampleFormats, UnsignedBytesHaveTheirZeroAt128) {
  std::string raw;
  for (int i = 0; i < 256; ++i)
    raw.push_back(static_cast<char>(i));
  const auto samples = convert(2, raw);
  EXPECT_EQ(bitsOf(samples[128]), bitsOf(0.0f));
  EXPECT_EQ(samples[0], -1.0f);
  EXPECT_EQ(samples[255], 0.9921875f);
  for (int i = 0; i < 256; ++i) {
    EXPECT_EQ(samples[static_cast<std::size_t>(i)], static_cast<float>(i - 128) / 128.0f);
  }
}

TEST(SampleFormats, TheLargestIntegersOf32BitsRoundUpToOne) {
  for (const float sample : convert(5, repeated(std::string("\xFF\xFF\xFF\x7F", 4), 70))) {
    EXPECT_EQ(sample, 1.0f);
  }
}

TEST(SampleFormats, LittleEndianFloatsAreCopiedBitForBit) {
  // A signalling NaN, a denormal and a value beyond the range survive.
  const std::string raw("\x01\x00\xA0\x7F\x01\x00\x00\x00\x00\x00\x48\x42", 12);
  const auto samples = convert(6, raw);
  EXPECT_EQ(bitsOf(samples[0]), 0x7FA00001u);
  EXPECT_EQ(bitsOf(samples[1]), 0x00000001u);
  EXPECT_EQ(samples[2], 50.0f);
}

TEST(SampleFormats, DoublesAreNarrowedByRounding) {
  std::string raw;
  std::vector<double> values;
  for (int i = 0; i < 200; ++i)
    values.push_back(std::sin(i) * 1.0000000001);
  for (const double value : values)
    raw.append(reinterpret_cast<const char*>(&value), 8);
  const auto samples = convert(7, raw);
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(samples[i], static_cast<float>(values[i]));
  }
}

TEST(SampleFormats, BigEndianFloatsAreSwappedAlsoWhereTheyWereStored) {
  std::string raw("\x3F\x00\x00\x00\xBE\x80\x00\x00", 8);
  std::vector<float> samples(2);
  findSampleFormat(11).converter(raw.data(), samples.data(), 2);
  EXPECT_EQ(samples, (std::vector<float>{0.5f, -0.25f}));
  EXPECT_EQ(raw, std::string("\x00\x00\x00\x3F\x00\x00\x80\xBE", 8));
}

TEST(SampleFormats, BigEndianFloatsOfEveryLengthAndAlignmentAreSwapped) {
  std::mt19937 random(11);
  for (std::size_t count = 0; count <= 70; ++count) {
    for (std::size_t shift = 0; shift < 64; ++shift) {
      std::vector<std::uint32_t> words(count);
      alignas(64) char raw[64 + 4 * 70 + 1];
      std::memset(raw, '\x77', sizeof raw);
      for (std::size_t i = 0; i < count; ++i) {
        words[i] = static_cast<std::uint32_t>(random());
        for (std::size_t byte = 0; byte < 4; ++byte)
          raw[shift + 4 * i + byte] = static_cast<char>(words[i] >> (24 - 8 * byte));
      }
      std::vector<float> samples(count);
      findSampleFormat(11).converter(raw + shift, samples.data(), count);
      for (std::size_t i = 0; i < count; ++i)
        ASSERT_EQ(bitsOf(samples[i]), words[i]) << count << " at " << shift;
      ASSERT_EQ(raw[shift + 4 * count], '\x77') << count << " at " << shift;
      ASSERT_TRUE(shift == 0 || raw[shift - 1] == '\x77') << count << " at " << shift;
    }
  }
}

TEST(SampleFormats, OtherNumbersHaveNoConversion) {
  for (const std::uint32_t number : {0u, 12u, 13u, 14u, 15u, 0xFFFFFFFFu}) {
    EXPECT_EQ(findSampleFormat(number).converter, nullptr) << number;
  }
}

TEST(SampleFormats, ConversionStopsAtTheCount) {
  for (std::uint32_t number = 1; number <= 11; ++number) {
    const SampleFormat format = findSampleFormat(number);
    for (const std::size_t count : {0u, 1u, 63u, 64u, 65u, 130u}) {
      std::string raw(format.storedBytes * count, '\x11');
      std::vector<float> samples(count + 1, 77.0f);
      format.converter(raw.data(), samples.data(), count);
      EXPECT_EQ(samples.back(), 77.0f);
      EXPECT_EQ(std::count(samples.begin(), samples.end(), 77.0f), 1);
    }
  }
}

struct Choice {
  std::uint32_t kind, bytes, kept, reported;
};

TEST(SampleFormats, EveryKindAndSizeHasItsKeptAndItsReportedNumber) {
  const std::vector<Choice> choices = {
      {0, 1, 2, 2},   {0, 2, 3, 3},   {0, 3, 4, 4},   {0, 4, 5, 5},   {0, 0, 0, 14},
      {0, 5, 0, 14},  {0, 8, 0, 14},  {1, 4, 6, 6},   {1, 8, 7, 14},  {1, 1, 0, 14},
      {1, 2, 0, 14},  {1, 3, 0, 14},  {1, 16, 0, 14}, {2, 0, 12, 12}, {2, 1, 12, 12},
      {2, 4, 12, 12}, {2, 9, 12, 12}, {3, 1, 1, 1},   {3, 2, 8, 8},   {3, 3, 9, 9},
      {3, 4, 10, 10}, {3, 5, 0, 14},  {3, 8, 0, 14},  {4, 4, 11, 11}, {4, 8, 0, 14},
      {4, 2, 0, 14},  {5, 4, 0, 14}};
  for (const Choice& row : choices) {
    const auto choice = chooseSampleFormat(static_cast<SampleKind>(row.kind), row.bytes);
    EXPECT_EQ(choice.kept, row.kept) << row.kind << ", " << row.bytes;
    EXPECT_EQ(choice.reported, row.reported) << row.kind << ", " << row.bytes;
  }
}

// The source and the buffers stand `shift` samples behind the start of their memory, each buffer
// elsewhere.
void expectTakenApart(std::size_t channels, std::size_t outputs, std::size_t frames,
                      std::size_t shift) {
  // Exactly as long as what is read, so that a sanitizer sees a step beyond it.
  std::vector<float> source(shift + channels * frames);
  for (std::size_t i = shift; i < source.size(); ++i)
    source[i] = static_cast<float>(i - shift);
  const auto start = [=](std::size_t channel) { return 3 + (shift + channel * 3) % 16; };
  std::vector<std::vector<float>> out(outputs, std::vector<float>(frames + 20, -1.0f));
  std::vector<float*> buffers;
  for (std::size_t c = 0; c < outputs; ++c)
    buffers.push_back(out[c].data() + start(c) - 3);
  deinterleave(source.data() + shift, channels, outputs, buffers.data(), 3, frames);
  for (std::size_t c = 0; c < outputs; ++c) {
    for (std::size_t i = 0; i < out[c].size(); ++i) {
      const bool inside = i >= start(c) && i < start(c) + frames;
      const float expected = inside ? static_cast<float>((i - start(c)) * channels + c) : -1.0f;
      ASSERT_EQ(out[c][i], expected) << outputs << " of " << channels << " channels, " << frames
                                     << " frames, channel " << c << ", " << i;
    }
  }
}

TEST(Deinterleave, EachChannelTakesItsOwnSampleOfEveryFrame) {
  for (const std::size_t channels : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 40u}) {
    for (const std::size_t outputs :
         std::set<std::size_t>{channels, std::min<std::size_t>(channels, 6)}) {
      for (std::size_t frames = 0; frames <= 70; ++frames) {
        for (std::size_t shift = 0; shift < 16; ++shift) {
          expectTakenApart(channels, outputs, frames, shift);
          if (testing::Test::HasFatalFailure()) return;
        }
      }
      expectTakenApart(channels, outputs, 200, 0);
    }
  }
}

}  // namespace
