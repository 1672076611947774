#include <unistd.h>

#include "ProcessorFault.h"
#include "SoundDocumentFixture.h"

namespace {

// Audio of 16-bit samples, deflated, with `good` bytes before a block of a type that does not
// exist.
std::string damagedDocument(std::size_t good) {
  Wave wave;
  wave.data = counting(0, 60000);
  const std::string bytes = wave.bytes();
  const std::string stream = openDeflateStream(bytes.substr(0, good)) + '\7' + noise(100, 1);
  return package({{"Mixdown.wav", stream, 8, static_cast<std::uint32_t>(bytes.size())}});
}

TEST_F(SoundDocument, AudioDamagedInItsFirstBlockGives38UntilItIsOpenedAgain) {
  ASSERT_EQ(openBytes(damagedDocument(20044)), 0);
  ASSERT_EQ(file.getInfo(), 0);
  ChannelBuffers out(1, 10);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(file.read(0, 10, out), 38);
  EXPECT_EQ(out[0][0], kUntouched);
  file.quiet();
  EXPECT_EQ(openBytes(storedDocument(Wave().bytes())), 0);
}

TEST_F(SoundDocument, AudioDamagedLaterDeliversWhatCanBeInflated) {
  ASSERT_EQ(openBytes(damagedDocument(44 + 40000)), 0);
  ASSERT_EQ(file.getInfo(), 0);
  ChannelBuffers out(1, 10);
  ASSERT_EQ(file.read(0, 10, out), 0);
  // The inflated copy ends with the last block of 4096 bytes that came whole: 9 of them.
  ChannelBuffers tail(1, 4000);
  EXPECT_EQ(file.read(18000, 4000, tail), 38);
  EXPECT_EQ(tail[0][0], sample16(18000));
  EXPECT_EQ(tail[0][409], sample16(18409));
  EXPECT_EQ(tail[0][410], kUntouched);
  EXPECT_EQ(file.read(30000, 10, out), 38);
  ASSERT_EQ(file.read(100, 10, out), 0);
  EXPECT_EQ(out[0][0], sample16(100));
}

TEST_F(SoundDocument, AudioWithAnEncodingThatIsNotDeflateDoesNotOpen) {
  Wave wave;
  wave.data = counting(0, 100);
  EXPECT_EQ(openBytes(package({{"Mixdown.wav", wave.bytes(), 12}})), 31);
}

TEST_F(SoundDocument, AFileThatLosesItsEndWhileOpenGives38) {
  Wave wave;
  wave.data = counting(0, 60000);
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  ASSERT_EQ(truncate((folder / "sound.qsnd").c_str(), 1000), 0);
  ChannelBuffers out(1, 10);
  EXPECT_EQ(file.read(50000, 10, out), 38);
  EXPECT_EQ(out[0][0], kUntouched);
}

class UnguardedDeathTest : public SoundDocument {};

TEST_F(UnguardedDeathTest, ABlockAlignOfZeroIsAProcessorFault) {
  Wave wave;
  wave.blockAlign = 0;
  wave.data = counting(0, 10);
  EXPECT_PROCESSOR_FAULT(SIGFPE, open(wave));
}

TEST_F(UnguardedDeathTest, InfoOnADocumentThatNeverOpenedIsAProcessorFault) {
  EXPECT_PROCESSOR_FAULT(SIGFPE, file.getInfo());
}

TEST_F(UnguardedDeathTest, InfoOnFramesOfNoBytesIsAProcessorFault) {
  Wave wave;
  wave.bits = 7;
  wave.blockAlign = 1;
  wave.data = counting(0, 10);
  ASSERT_EQ(open(wave), 0);
  EXPECT_PROCESSOR_FAULT(SIGFPE, file.getInfo());
  wave.bits = 16;
  wave.channels = 0;
  file.close();
  ASSERT_EQ(open(wave), 0);
  EXPECT_PROCESSOR_FAULT(SIGFPE, file.getInfo());
}

TEST_F(UnguardedDeathTest, SelectorsThatNeedAnInstanceDoNotTestForIt) {
  EXPECT_PROCESSOR_FAULT(SIGSEGV, plugin(8, nullptr, nullptr));
  imImportAudioRec7 audio{};
  EXPECT_PROCESSOR_FAULT(SIGSEGV, plugin(25, nullptr, &audio));
}

TEST_F(UnguardedDeathTest, SelectorsThatNeedARecordDoNotTestForIt) {
  for (const int selector : {0, 14, 25, 37, 39})
    EXPECT_PROCESSOR_FAULT(SIGSEGV, plugin(selector, nullptr, nullptr)) << selector;
}

#ifdef __SANITIZE_ADDRESS__  // else nobody tells
TEST_F(UnguardedDeathTest, AnInstanceThatWasClosedIsReadAllTheSame) {
  Wave wave;
  wave.data = counting(0, 10);
  ASSERT_EQ(open(wave), 0);
  void* const dead = file.instance;
  file.close();
  EXPECT_DEATH(plugin(8, nullptr, dead), "heap-use-after-free");
}
#endif

}  // namespace
