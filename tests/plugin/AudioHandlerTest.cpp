#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "NumberedSource.h"

namespace {

constexpr float kUntouched = ChannelBuffers::kUntouched;

TEST(AudioHandler, IsUnconfiguredAfterConstruction) {
  const AudioHandler handler;
  EXPECT_EQ(handler.totalFrames, -1);
  EXPECT_EQ(handler.sourceChannels, 0u);
  EXPECT_EQ(handler.outputChannels, 0u);
  EXPECT_EQ(handler.bytesPerSample, 2u);
  EXPECT_EQ(handler.sampleFormat, 3u);
  EXPECT_EQ(handler.readFlags, -1);
  EXPECT_EQ(handler.spareWord, -1);
  EXPECT_EQ(handler.bufferFrames, -1);
  EXPECT_EQ(handler.blockSamples, -1);
  EXPECT_EQ(handler.bufferStartFrame, -1);
  EXPECT_EQ(handler.nextFrame, -1);
  EXPECT_TRUE(handler.channelMap.empty());
  EXPECT_FALSE(handler.useChannelMap);
  EXPECT_EQ(handler.readCallback, nullptr);
  EXPECT_EQ(handler.maxChannels, 6u);
  EXPECT_TRUE(handler.rawBlock.empty());
  EXPECT_TRUE(handler.floatBlock.empty());
  EXPECT_EQ(handler.bufferSuite, nullptr);
  EXPECT_EQ(handler.bufferCreatorSuite, nullptr);
  EXPECT_EQ(handler.bufferCacheSuite, nullptr);
  EXPECT_EQ(handler.cachedBuffer, nullptr);
  EXPECT_FALSE(handler.cacheEnabled);
}

TEST(AudioHandler, AnUnconfiguredHandlerHasNoAudio) {
  AudioHandler handler;
  ChannelBuffers out(1, 4);
  for (const std::int64_t position : {-1ll, 0ll, 100ll}) {
    EXPECT_EQ(handler.ServeAudio(position, 4, out.data(), nullptr), 1);
  }
  EXPECT_EQ(out[0], std::vector<float>(4, kUntouched));
}

TEST(AudioHandler, ConfiguringSetsEveryFieldOfTheSource) {
  AudioHandler handler;
  EXPECT_EQ(configure(handler, 3, 1000, 3), 4u);
  EXPECT_EQ(handler.sourceChannels, 3u);
  EXPECT_EQ(handler.outputChannels, 3u);
  EXPECT_EQ(handler.bytesPerSample, 3u);
  EXPECT_EQ(handler.totalFrames, 1000);
  EXPECT_EQ(handler.rawBlock.size(), 32768u);
  EXPECT_EQ(handler.bufferStartFrame, 0x7FFFFFFF);
  EXPECT_EQ(handler.nextFrame, -1);
  EXPECT_EQ(handler.readFlags, 0);
  EXPECT_EQ(handler.spareWord, 0);
  EXPECT_EQ(handler.bufferFrames, 32768 / 9);
  EXPECT_EQ(handler.blockSamples, 32768 / 9 * 3);
  EXPECT_EQ(handler.sampleFormat, 4u);
}

TEST(AudioHandler, ConfiguringLeavesTheChannelMapSilentAndUnused) {
  AudioHandler handler;
  handler.useChannelMap = true;
  configure(handler, 8, 10);
  EXPECT_EQ(handler.channelMap, std::vector<int>(6, -1));
  EXPECT_FALSE(handler.useChannelMap);
  configure(handler, 2, 10);
  EXPECT_EQ(handler.channelMap, std::vector<int>(2, -1));
}

TEST(AudioHandler, DeliversAtMostAsManyChannelsAsTheMostAllowed) {
  AudioHandler handler;
  handler.maxChannels = 2;
  configure(handler, 5, 10);
  EXPECT_EQ(handler.outputChannels, 2u);
}

TEST(AudioHandler, KeepsTheFormatWhereNoneFits) {
  AudioHandler handler;
  EXPECT_EQ(configure(handler, 1, 10, 8), 14u);
  EXPECT_EQ(handler.sampleFormat, 3u);
  EXPECT_EQ(configure(handler, 1, 10, 4, SampleKind::FloatLittle), 6u);
  EXPECT_EQ(configure(handler, 1, 10, 5), 14u);
  EXPECT_EQ(handler.sampleFormat, 6u);
}

TEST(AudioHandler, KeepsTheFormatOfDoublesButReportsNone) {
  AudioHandler handler;
  EXPECT_EQ(configure(handler, 1, 10, 8, SampleKind::FloatLittle), 14u);
  EXPECT_EQ(handler.sampleFormat, 7u);
}

TEST(AudioHandler, ServesAWholeSourceInOneRequest) {
  AudioHandler handler;
  MemorySource source = numberedSource(2, 20000);
  configure(handler, 2, 20000);
  ChannelBuffers out(2, 20000);
  ASSERT_EQ(handler.ServeAudio(0, 20000, out.data(), &source), 0);
  for (int frame = 0; frame < 20000; ++frame) {
    for (int channel = 0; channel < 2; ++channel) {
      ASSERT_EQ(out[static_cast<std::size_t>(channel)][static_cast<std::size_t>(frame)],
                numbered(frame, channel));
    }
  }
  EXPECT_EQ(source.positions, (std::vector<long long>{0, 8192, 16384}));
  EXPECT_EQ(handler.nextFrame, 20000);
}

TEST(AudioHandler, SequentialRequestsAreServedFromTheBlockInHand) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 40000);
  configure(handler, 1, 40000);
  ChannelBuffers out(1, 1000);
  for (int position = 0; position < 16000; position += 1000) {
    ASSERT_EQ(handler.ServeAudio(position, 1000, out.data(), &source), 0);
    ASSERT_EQ(out[0][999], numbered(position + 999, 0));
  }
  EXPECT_EQ(source.positions, std::vector<long long>{0});
  EXPECT_EQ(source.requests, std::vector<unsigned int>{16384});
}

TEST(AudioHandler, ARequestAcrossABlockEndReadsTheNextBlockAtOnce) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 40000);
  configure(handler, 1, 40000);
  ChannelBuffers out(1, 20);
  ASSERT_EQ(handler.ServeAudio(0, 1, out.data(), &source), 0);
  ASSERT_EQ(handler.ServeAudio(16380, 20, out.data(), &source), 0);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(out[0][static_cast<std::size_t>(i)], numbered(16380 + i, 0));
  }
  EXPECT_EQ(source.positions, (std::vector<long long>{0, 16384}));
}

TEST(AudioHandler, ARequestUpToTheBlockEndDoesNotReadTheNextBlock) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 40000);
  configure(handler, 1, 40000);
  ChannelBuffers out(1, 16384);
  ASSERT_EQ(handler.ServeAudio(0, 16384, out.data(), &source), 0);
  EXPECT_EQ(source.positions, std::vector<long long>{0});
}

TEST(AudioHandler, ARequestBeforeTheBlockReadsABlockFromThere) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 40000);
  configure(handler, 1, 40000);
  ChannelBuffers out(1, 2);
  ASSERT_EQ(handler.ServeAudio(500, 2, out.data(), &source), 0);
  ASSERT_EQ(handler.ServeAudio(499, 2, out.data(), &source), 0);
  EXPECT_EQ(out[0][0], numbered(499, 0));
  EXPECT_EQ(source.positions, (std::vector<long long>{500, 499}));
}

TEST(AudioHandler, PadsARequestPastTheEndWithSilence) {
  AudioHandler handler;
  MemorySource source = numberedSource(2, 10);
  configure(handler, 2, 10);
  ChannelBuffers out(2, 8);
  ASSERT_EQ(handler.ServeAudio(7, 8, out.data(), &source), 0);
  for (int channel = 0; channel < 2; ++channel) {
    const auto& samples = out[static_cast<std::size_t>(channel)];
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(samples[static_cast<std::size_t>(i)], numbered(7 + i, channel));
    }
    EXPECT_EQ(std::vector<float>(samples.begin() + 3, samples.end()), std::vector<float>(5, 0.0f));
  }
  EXPECT_EQ(handler.nextFrame, 10);
}

TEST(AudioHandler, ARequestThatEndsAtTheEndIsServedWhole) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 10);
  configure(handler, 1, 10);
  ChannelBuffers out(1, 4);
  ASSERT_EQ(handler.ServeAudio(6, 4, out.data(), &source), 0);
  EXPECT_EQ(out[0][3], numbered(9, 0));
}

TEST(AudioHandler, ARequestAtOrBehindTheEndGivesOneAndWritesNothing) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 10);
  configure(handler, 1, 10);
  ChannelBuffers out(1, 4);
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  for (const std::int64_t position : {std::int64_t{10}, std::int64_t{11}, kMost}) {
    EXPECT_EQ(handler.ServeAudio(position, 4, out.data(), &source), 1);
    EXPECT_EQ(handler.ServeAudio(position, 0, out.data(), &source), 1);
  }
  EXPECT_EQ(out[0], std::vector<float>(4, kUntouched));
  EXPECT_TRUE(source.positions.empty());
  EXPECT_EQ(handler.nextFrame, -1);
}

TEST(AudioHandler, ARequestOfNoFramesInsideSetsTheNextFrameOnly) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 10);
  configure(handler, 1, 10);
  ChannelBuffers out(1, 1);
  EXPECT_EQ(handler.ServeAudio(4, 0, out.data(), &source), 0);
  EXPECT_EQ(handler.nextFrame, 4);
  EXPECT_EQ(out[0][0], kUntouched);
  EXPECT_TRUE(source.positions.empty());
}

TEST(AudioHandler, ThePositionMinusOneReadsOneFrameBeforeTheAudio) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 10, -1);
  configure(handler, 1, 10);
  ChannelBuffers out(1, 3);
  ASSERT_EQ(handler.nextFrame, -1);
  ASSERT_EQ(handler.ServeAudio(handler.nextFrame, 3, out.data(), &source), 0);
  EXPECT_EQ(source.positions, std::vector<long long>{-1});
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(out[0][static_cast<std::size_t>(i)], numbered(i - 1, 0));
  }
  EXPECT_EQ(handler.nextFrame, 2);
}

TEST(AudioHandler, EightChannelsDeliverTheFirstSixWithAStrideOfEight) {
  AudioHandler handler;
  MemorySource source = numberedSource(8, 5000);
  configure(handler, 8, 5000);
  EXPECT_EQ(handler.outputChannels, 6u);
  ChannelBuffers out(8, 5000);
  ASSERT_EQ(handler.ServeAudio(0, 5000, out.data(), &source), 0);
  for (int frame = 0; frame < 5000; ++frame) {
    for (int channel = 0; channel < 8; ++channel) {
      const float expected = channel < 6 ? numbered(frame, channel) : kUntouched;
      ASSERT_EQ(out[static_cast<std::size_t>(channel)][static_cast<std::size_t>(frame)], expected);
    }
  }
}

TEST(AudioHandler, AChannelMapChoosesTheSourceChannelOrSilence) {
  AudioHandler handler;
  MemorySource source = numberedSource(3, 50);
  configure(handler, 3, 50);
  handler.channelMap = {2, -1, 0};
  handler.useChannelMap = true;
  ChannelBuffers out(3, 50);
  ASSERT_EQ(handler.ServeAudio(0, 50, out.data(), &source), 0);
  for (std::size_t frame = 0; frame < 50; ++frame) {
    const auto position = static_cast<long long>(frame);
    EXPECT_EQ(out[0][frame], numbered(position, 2));
    EXPECT_EQ(out[1][frame], 0.0f);
    EXPECT_EQ(out[2][frame], numbered(position, 0));
  }
}

TEST(AudioHandler, TheChannelMapThatConfiguringLeavesIsAllSilence) {
  AudioHandler handler;
  MemorySource source = numberedSource(2, 50);
  configure(handler, 2, 50);
  handler.useChannelMap = true;
  ChannelBuffers out(2, 50);
  ASSERT_EQ(handler.ServeAudio(0, 50, out.data(), &source), 0);
  EXPECT_EQ(out[0], std::vector<float>(50, 0.0f));
  EXPECT_EQ(out[1], std::vector<float>(50, 0.0f));
}

TEST(AudioHandler, SamplesOfEightBytesAreConvertedAs16BitIntegers) {
  AudioHandler handler;
  MemorySource source;
  source.frameBytes = 8;
  for (int i = 0; i < 400; ++i) {
    source.bytes.push_back(static_cast<char>(i & 0xFF));
    source.bytes.push_back(static_cast<char>(i >> 8));
  }
  EXPECT_EQ(configure(handler, 1, 100, 8), 14u);
  ChannelBuffers out(1, 100);
  ASSERT_EQ(handler.ServeAudio(0, 100, out.data(), &source), 0);
  for (std::size_t i = 0; i < 100; ++i)
    EXPECT_EQ(out[0][i], static_cast<float>(i) * 0x1p-15f);
}

TEST(AudioHandler, AFormatWithoutAConversionIsSilence) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 50);
  EXPECT_EQ(configure(handler, 1, 50, 2, SampleKind::Opaque), 12u);
  ChannelBuffers out(1, 50);
  ASSERT_EQ(handler.ServeAudio(0, 50, out.data(), &source), 0);
  EXPECT_EQ(out[0], std::vector<float>(50, 0.0f));
}

TEST(AudioHandler, BigEndianFloatsAreSwappedInTheRawBlockToo) {
  AudioHandler handler;
  MemorySource source;
  source.frameBytes = 4;
  source.bytes = std::string("\x3F\x00\x00\x00", 4);
  EXPECT_EQ(configure(handler, 1, 1, 4, SampleKind::FloatBig), 11u);
  ChannelBuffers out(1, 1);
  ASSERT_EQ(handler.ServeAudio(0, 1, out.data(), &source), 0);
  EXPECT_EQ(out[0][0], 0.5f);
  EXPECT_EQ(std::memcmp(handler.rawBlock.data(), "\x00\x00\x00\x3F", 4), 0);
}

TEST(AudioHandler, ANarrowSourceWithAWideFormatKeptStaysInsideTheRawBlock) {
  AudioHandler handler;
  configure(handler, 1, 10, 8, SampleKind::FloatLittle);
  MemorySource source;
  source.bytes = std::string(32768, '\0');
  EXPECT_EQ(configure(handler, 1, 32768, 1, SampleKind::FloatLittle), 14u);
  ASSERT_EQ(handler.sampleFormat, 7u);
  ChannelBuffers out(1, 32768);
  EXPECT_EQ(handler.ServeAudio(0, 32768, out.data(), &source), 0);
  EXPECT_EQ(out[0], std::vector<float>(32768, 0.0f));
}

}  // namespace
