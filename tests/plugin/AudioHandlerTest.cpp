#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AudioHandler.h"
#include "MemorySource.h"
#include "ProcessorFault.h"

namespace {

constexpr float kUntouched = ChannelBuffers::kUntouched;

// 16-bit samples: that of frame f and channel c is f * 8 + c.
MemorySource numberedSource(std::uint32_t channels, int frames, int firstFrame = 0) {
  MemorySource source;
  source.frameBytes = 2 * channels;
  source.start = -static_cast<long long>(firstFrame) * source.frameBytes;
  for (int frame = firstFrame; frame < frames; ++frame) {
    for (std::uint32_t channel = 0; channel < channels; ++channel) {
      const int value = frame * 8 + static_cast<int>(channel);
      source.bytes.push_back(static_cast<char>(value & 0xFF));
      source.bytes.push_back(static_cast<char>((value >> 8) & 0xFF));
    }
  }
  return source;
}

float numbered(long long frame, int channel) {
  return static_cast<float>(static_cast<std::int16_t>(frame * 8 + channel)) * 0x1p-15f;
}

std::uint32_t configure(AudioHandler& handler, std::uint32_t channels, std::int64_t frames,
                        std::uint32_t bytes = 2, SampleKind kind = SampleKind::IntLittle) {
  return handler.ConfigureSource(channels, bytes, frames, kind, &MemorySource::read);
}

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

TEST(AudioHandler, AFrameLargerThanTheBlockAsksForNoFramesAndGives38) {
  AudioHandler handler;
  MemorySource source;
  source.bytes = std::string(100000, '\1');
  source.frameBytes = 40000;
  configure(handler, 20000, 2);
  EXPECT_EQ(handler.bufferFrames, 0);
  EXPECT_EQ(handler.blockSamples, 0);
  ChannelBuffers out(6, 1);
  EXPECT_EQ(handler.ServeAudio(0, 1, out.data(), &source), 38);
  EXPECT_EQ(source.requests, std::vector<unsigned int>{0});
  EXPECT_EQ(out[0][0], kUntouched);
}

TEST(AudioHandler, AFrameOfExactlyTheBlockIsServed) {
  AudioHandler handler;
  MemorySource source;
  source.frameBytes = 32768;
  source.bytes = std::string(32768 * 2, '\x40');
  configure(handler, 32768, 2, 1);
  ChannelBuffers out(6, 2);
  EXPECT_EQ(handler.ServeAudio(0, 2, out.data(), &source), 0);
  EXPECT_EQ(out[5], std::vector<float>(2, -0.5f));
}

// What the callback is given, seen from inside of it.
struct CallbackWitness {
  const AudioHandler* handler = nullptr;
  bool intoRawBlock = false;
  bool countsStraight = false;  // into the handler's own number of frames
  std::int64_t blockStart = 0;

  static std::int32_t read(void* context, AudioHandler& handler, long long, unsigned int frames,
                           char* destination, int& framesRead) {
    auto& self = *static_cast<CallbackWitness*>(context);
    self.handler = &handler;
    self.intoRawBlock = destination == handler.rawBlock.data();
    self.countsStraight = &framesRead == &handler.bufferFrames;
    self.blockStart = handler.bufferStartFrame;
    std::memset(destination, 0, std::size_t{frames} * 2);
    framesRead = static_cast<int>(frames);
    return 0;
  }
};

TEST(AudioHandler, TheCallbackIsGivenTheHandlerItsRawBlockAndItsNumberOfFrames) {
  AudioHandler handler;
  CallbackWitness witness;
  handler.ConfigureSource(1, 2, 50000, SampleKind::IntLittle, &CallbackWitness::read);
  ChannelBuffers out(1, 1);
  ASSERT_EQ(handler.ServeAudio(1234, 1, out.data(), &witness), 0);
  EXPECT_EQ(witness.handler, &handler);
  EXPECT_TRUE(witness.intoRawBlock);
  EXPECT_TRUE(witness.countsStraight);
  EXPECT_EQ(witness.blockStart, 1234) << "set before the read";
}

TEST(AudioHandler, AFailureOfTheCallbackReachesTheHostAsItIs) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 10);
  configure(handler, 1, 10);
  ChannelBuffers out(1, 4);
  for (const std::int32_t failure : {-1, 7, 400}) {
    source.failure = failure;
    EXPECT_EQ(handler.ServeAudio(0, 4, out.data(), &source), failure);
  }
  EXPECT_EQ(out[0], std::vector<float>(4, kUntouched));
  EXPECT_EQ(handler.nextFrame, -1);
}

TEST(AudioHandler, ASourceThatIsShorterThanToldDeliversWhatItHasAndThen38) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 10);
  configure(handler, 1, 100);
  ChannelBuffers out(1, 30);
  EXPECT_EQ(handler.ServeAudio(0, 30, out.data(), &source), 38);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(out[0][static_cast<std::size_t>(i)], numbered(i, 0));
  }
  EXPECT_EQ(out[0][10], kUntouched);
  EXPECT_EQ(handler.nextFrame, -1);
  EXPECT_EQ(handler.ServeAudio(0, 10, out.data(), &source), 0);
}

TEST(AudioHandler, ShortReadsAreContinued) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 100);
  source.mostFrames = 7;
  configure(handler, 1, 100);
  ChannelBuffers out(1, 100);
  ASSERT_EQ(handler.ServeAudio(0, 100, out.data(), &source), 0);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(out[0][static_cast<std::size_t>(i)], numbered(i, 0));
  }
  EXPECT_EQ(source.positions.size(), 15u);
}

TEST(AudioHandler, SamplesBehindAShortReadStayZero) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 100);
  source.mostFrames = 7;
  configure(handler, 1, 100);
  ASSERT_EQ(handler.TransferToAudioBuffer(1, &source), 0);
  EXPECT_EQ(handler.bufferFrames, 7);
  ASSERT_EQ(handler.floatBlock.size(), 16384u);
  EXPECT_EQ(handler.floatBlock[6], numbered(7, 0));
  EXPECT_EQ(std::vector<float>(handler.floatBlock.begin() + 7, handler.floatBlock.end()),
            std::vector<float>(16377, 0.0f));
}

TEST(AudioHandler, AfterAFailedReadTheBlockCountsAsStandingThere) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 50000);
  configure(handler, 1, 50000);
  ChannelBuffers out(1, 4);
  ASSERT_EQ(handler.ServeAudio(0, 4, out.data(), &source), 0);
  source.failure = -1;
  source.leaveFramesAlone = true;
  EXPECT_EQ(handler.ServeAudio(30000, 4, out.data(), &source), -1);
  EXPECT_EQ(handler.bufferStartFrame, 30000);
  EXPECT_EQ(handler.bufferFrames, 16384);
  // The block was cleared before it was read, so what it seems to hold is silence.
  EXPECT_EQ(handler.ServeAudio(30000, 4, out.data(), &source), 0);
  EXPECT_EQ(out[0], std::vector<float>(4, 0.0f));
  EXPECT_EQ(source.positions.size(), 2u);
}

TEST(AudioHandler, AFailureInTheMiddleKeepsWhatWasServedAndTheNextFrame) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 16384);
  configure(handler, 1, 50000);
  ChannelBuffers out(1, 20000);
  ASSERT_EQ(handler.ServeAudio(10, 1, out.data(), &source), 0);
  EXPECT_EQ(handler.nextFrame, 11);
  EXPECT_EQ(handler.ServeAudio(20, 20000, out.data(), &source), 38);
  EXPECT_EQ(out[0][16363], numbered(16383, 0));
  EXPECT_EQ(out[0][16364], kUntouched);
  EXPECT_EQ(handler.nextFrame, 11);
}

TEST(AudioHandler, ConfiguringAgainForgetsTheBlock) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 10);
  ChannelBuffers out(1, 4);
  for (int i = 0; i < 3; ++i) {
    configure(handler, 1, 10);
    ASSERT_EQ(handler.ServeAudio(0, 4, out.data(), &source), 0);
  }
  EXPECT_EQ(source.positions.size(), 3u);
}

// The frame that marks that no block is there is a frame like any other: the block counts as
// standing at it.
TEST(AudioHandler, RightAfterConfiguringTheFrame7FFFFFFFCountsAsHeld) {
  constexpr std::int64_t kMark = 0x7FFFFFFF;
  AudioHandler handler;
  MemorySource source = numberedSource(1, 16384);
  configure(handler, 1, kMark + 100000);
  ChannelBuffers out(1, 16384);
  EXPECT_EQ(handler.ServeAudio(kMark, 16384, out.data(), &source), 0);
  EXPECT_TRUE(source.positions.empty());
  EXPECT_EQ(out[0], std::vector<float>(16384, 0.0f)) << "there has been no block";
  EXPECT_EQ(handler.nextFrame, kMark + 16384);

  ASSERT_EQ(handler.ServeAudio(0, 1, out.data(), &source), 0);
  configure(handler, 1, kMark + 100000);
  EXPECT_EQ(handler.ServeAudio(kMark, 100, out.data(), &source), 0);
  EXPECT_EQ(source.positions, (std::vector<long long>{0}));
  EXPECT_EQ(out[0][99], numbered(99, 0)) << "the block of the earlier source";
}

TEST(AudioHandler, RightAfterConfiguringTheFramesAroundTheHeldOnesAreRead) {
  constexpr std::int64_t kMark = 0x7FFFFFFF;
  for (const std::int64_t position : {kMark - 1, kMark + 16384}) {
    AudioHandler handler;
    MemorySource source = numberedSource(1, 4);
    source.start = -position * 2;
    configure(handler, 1, kMark + 100000);
    ChannelBuffers out(1, 1);
    EXPECT_EQ(handler.ServeAudio(position, 1, out.data(), &source), 0);
    EXPECT_EQ(source.positions, (std::vector<long long>{position}));
  }
}

TEST(AudioHandler, ServingAllocatesItsBlocksOnce) {
  AudioHandler handler;
  MemorySource source = numberedSource(1, 50000);
  configure(handler, 1, 50000);
  ChannelBuffers out(1, 50000);
  ASSERT_EQ(handler.ServeAudio(0, 1, out.data(), &source), 0);
  const auto* const raw = handler.rawBlock.data();
  const auto* const block = handler.floatBlock.data();
  for (int i = 0; i < 5; ++i)
    ASSERT_EQ(handler.ServeAudio(0, 50000, out.data(), &source), 0);
  EXPECT_EQ(handler.rawBlock.data(), raw);
  EXPECT_EQ(handler.floatBlock.data(), block);
}

TEST(AudioHandlerDeathTest, AFrameOfNoBytesIsAProcessorFault) {
  AudioHandler handler;
  EXPECT_PROCESSOR_FAULT(SIGFPE, configure(handler, 0, 10));
  EXPECT_PROCESSOR_FAULT(SIGFPE, configure(handler, 1, 10, 0));
}

}  // namespace
