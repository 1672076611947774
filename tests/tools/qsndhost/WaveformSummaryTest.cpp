#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "WaveformSummary.h"

namespace {

std::vector<float> noiseOf(std::size_t frames, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> level(-1, 1);
  std::vector<float> samples(frames);
  for (float& sample : samples)
    sample = level(random);
  return samples;
}

// One column by the definition.
WaveformColumn plainColumn(const std::vector<float>& samples, std::size_t column,
                           std::size_t columns) {
  const std::size_t begin = column * samples.size() / columns;
  const std::size_t end = (column + 1) * samples.size() / columns;
  WaveformColumn plain{samples[begin], samples[begin], 0};
  long double squares = 0;
  for (std::size_t i = begin; i < end; ++i) {
    if (samples[i] < plain.minimum) plain.minimum = samples[i];
    if (samples[i] > plain.maximum) plain.maximum = samples[i];
    squares += static_cast<long double>(samples[i]) * static_cast<long double>(samples[i]);
  }
  plain.rms = static_cast<float>(std::sqrt(squares / static_cast<long double>(end - begin)));
  return plain;
}

void feed(WaveformSummary& summary, const std::vector<std::vector<float>>& channels,
          std::size_t block) {
  for (std::size_t done = 0; done < channels[0].size(); done += block) {
    std::vector<const float*> buffers;
    for (const auto& channel : channels)
      buffers.push_back(channel.data() + done);
    summary.add(buffers, std::min(block, channels[0].size() - done));
  }
}

TEST(WaveformSummary, IsThatOfAPlainReferenceForAnySizes) {
  for (const std::size_t frames : {1u, 2u, 7u, 100u, 999u, 1000u, 1001u, 65537u}) {
    for (const std::size_t columns : {1u, 3u, 100u, 999u, 1000u}) {
      for (const std::size_t block : {1u, 13u, 65536u}) {
        const std::vector<std::vector<float>> channels{noiseOf(frames, 1), noiseOf(frames, 2)};
        WaveformSummary summary(2, static_cast<std::int64_t>(frames), columns);
        feed(summary, channels, block);
        ASSERT_EQ(summary.columns(), std::min(frames, columns));
        for (std::size_t c = 0; c < 2; ++c) {
          for (std::size_t i = 0; i < summary.columns(); ++i) {
            const auto plain = plainColumn(channels[c], i, summary.columns());
            const auto& column = summary.channel(c)[i];
            ASSERT_EQ(column.minimum, plain.minimum) << frames << " " << columns << " " << i;
            ASSERT_EQ(column.maximum, plain.maximum);
            ASSERT_NEAR(column.rms, plain.rms, 1e-6);
          }
        }
      }
    }
  }
}

TEST(WaveformSummary, NoFramesAreNoColumns) {
  WaveformSummary summary(2, 0, 100);
  EXPECT_EQ(summary.columns(), 0u);
  summary.add({nullptr, nullptr}, 0);
  EXPECT_TRUE(summary.channel(1).empty());
}

TEST(WaveformSummary, WhatIsNoNumberIsSilentAndWhatIsInfiniteIsLarge) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  WaveformSummary summary(1, 4, 2);
  feed(summary, {{NAN, 0.5f, kInfinity, -kInfinity}}, 4);
  EXPECT_EQ(summary.channel(0)[0].minimum, 0);
  EXPECT_EQ(summary.channel(0)[0].maximum, 0.5f);
  EXPECT_EQ(summary.channel(0)[1].maximum, std::numeric_limits<float>::max());
  EXPECT_TRUE(std::isfinite(summary.channel(0)[1].rms));
}

TEST(WaveformSummary, FramesBehindTheEndAreIgnored) {
  WaveformSummary summary(1, 2, 2);
  feed(summary, {{0.1f, 0.2f, 0.9f}}, 3);
  EXPECT_EQ(summary.channel(0)[1].maximum, 0.2f);
}

TEST(WaveformSummary, HugeLengthsDoNotOverflow) {
  constexpr std::int64_t kFrames = std::int64_t{1} << 61;
  WaveformSummary summary(1, kFrames, 1000);
  const std::vector<float> samples(1000, 0.5f);
  summary.add({samples.data()}, samples.size());
  EXPECT_EQ(summary.channel(0)[0].maximum, 0);  // its first column is far from full
}

}  // namespace
