#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "NumberedSource.h"
#include "ProcessorFault.h"

namespace {

constexpr float kUntouched = ChannelBuffers::kUntouched;

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
