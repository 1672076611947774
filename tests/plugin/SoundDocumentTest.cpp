#include <cstring>
#include <vector>

#include "SoundDocumentFixture.h"

namespace {

TEST_F(SoundDocument, TellsItsLayout) {
  Wave wave;
  wave.channels = 2;
  wave.rate = 48000;
  wave.data = counting(0, 2000);
  ASSERT_EQ(open(wave), 0);
  EXPECT_EQ(file.reference, reinterpret_cast<void*>(1));
  EXPECT_NE(file.instance, nullptr);
  ASSERT_EQ(file.getInfo(), 0);
  EXPECT_EQ(file.info.hasVideo, 0);
  EXPECT_EQ(file.info.hasAudio, 1);
  EXPECT_EQ(file.info.channelCount, 2u);
  EXPECT_EQ(file.info.sampleRate, 48000.0f);
  EXPECT_EQ(file.info.sampleFormat, 3);
  EXPECT_EQ(file.info.frameCount, 1000);
  EXPECT_EQ(file.info.word194, 0);
}

TEST_F(SoundDocument, InfoWritesItsFieldsOnly) {
  Wave wave;
  wave.data = counting(0, 10);
  ASSERT_EQ(open(wave), 0);
  std::vector<unsigned char> bytes(sizeof(imFileInfoRec8) + 64, 0xAA);
  std::memcpy(bytes.data() + 198, &file.instance, sizeof(void*));
  ASSERT_EQ(plugin(37, nullptr, bytes.data()), 0);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const bool written = i < 2 || (i >= 174 && i < 198 + sizeof(void*));
    EXPECT_TRUE(written || bytes[i] == 0xAA) << "byte " << i;
  }
}

TEST_F(SoundDocument, AFormatChunkOf16BytesOpens) {
  Wave wave;
  wave.data = counting(1, 10);
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  ChannelBuffers out(1, 10);
  ASSERT_EQ(file.read(0, 10, out), 0);
  EXPECT_EQ(out[0][9], sample16(10));
}

TEST_F(SoundDocument, TheRestOfALongerFormatChunkIsSkipped) {
  for (const std::size_t rest : {1u, 2u, 24u, 5000u}) {
    Wave wave;
    wave.formatTail = std::string(rest, 'd');
    wave.data = counting(1, 10);
    ASSERT_EQ(open(wave), 0) << rest;
    ASSERT_EQ(file.getInfo(), 0);
    ChannelBuffers out(1, 10);
    ASSERT_EQ(file.read(0, 10, out), 0);
    EXPECT_EQ(out[0][0], sample16(1));
    file.close();
  }
}

TEST_F(SoundDocument, AFormatChunkUnder16BytesDoesNotOpen) {
  const std::string format = chunk("fmt ", std::string(15, '\1'));
  EXPECT_EQ(openWaveBytes(chunk("RIFF", "WAVE" + format + chunk("data", "abcd"))), 31);
}

TEST_F(SoundDocument, AFormatChunkOfMoreThanTwoGigabytesIsNotSkipped) {
  // Behind its first 16 bytes the chunk is taken to end, since its rest does not fit in a signed
  // number.
  Wave wave;
  std::string format = wave.formatChunk();
  format.replace(4, 4, little(0xFFFFFFF0u, 4));
  ASSERT_EQ(openWaveBytes(chunk("RIFF", "WAVE" + format + chunk("data", counting(0, 4)))), 0);
  ASSERT_EQ(file.getInfo(), 0);
  EXPECT_EQ(file.info.frameCount, 4);
}

TEST_F(SoundDocument, OnlyTheBitsPerSampleChooseTheFormat) {
  for (const int tag : {1, 3, 7, 0xFFFE}) {
    Wave wave;
    wave.tag = static_cast<std::uint16_t>(tag);
    wave.bits = 32;
    const float value = 0.25f;
    wave.data.assign(reinterpret_cast<const char*>(&value), 4);
    ASSERT_EQ(open(wave), 0);
    ASSERT_EQ(file.getInfo(), 0);
    EXPECT_EQ(file.info.sampleFormat, 6);
    ChannelBuffers out(1, 1);
    ASSERT_EQ(file.read(0, 1, out), 0);
    EXPECT_EQ(out[0][0], 0.25f);
    file.close();
  }
}

TEST_F(SoundDocument, IntegersOf32BitsAreReadAsFloats) {
  Wave wave;
  wave.bits = 32;
  wave.data = little(0x40000000, 4);  // a half as an integer, two as a float
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  ChannelBuffers out(1, 1);
  ASSERT_EQ(file.read(0, 1, out), 0);
  EXPECT_EQ(out[0][0], 2.0f);
}

TEST_F(SoundDocument, EverySampleSizeHasItsReportedFormat) {
  const std::vector<std::pair<int, int>> formats = {{8, 2},   {12, 2},  {16, 3}, {20, 3},
                                                    {24, 4},  {31, 4},  {32, 6}, {39, 6},
                                                    {40, 14}, {48, 14}, {64, 14}};
  for (const auto& [bits, format] : formats) {
    Wave wave;
    wave.bits = static_cast<std::uint16_t>(bits);
    wave.data = noise(64, 1);
    ASSERT_EQ(open(wave), 0);
    ASSERT_EQ(file.getInfo(), 0);
    EXPECT_EQ(file.info.sampleFormat, format) << bits;
    file.close();
  }
}

TEST_F(SoundDocument, TwelveBitsPerSampleAreOneByte) {
  Wave wave;
  wave.bits = 12;
  wave.data = std::string("\x00\x80\xC0\xFF", 4);
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  EXPECT_EQ(file.info.frameCount, 4);
  ChannelBuffers out(1, 4);
  ASSERT_EQ(file.read(0, 4, out), 0);
  EXPECT_EQ(out[0], (std::vector<float>{-1.0f, 0.0f, 0.5f, 0.9921875f}));
}

TEST_F(SoundDocument, SamplesOfEightBytesAreServedAs16BitIntegers) {
  Wave wave;
  wave.tag = 3;
  wave.bits = 64;
  wave.data = counting(0, 400);
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  EXPECT_EQ(file.info.frameCount, 100);
  ChannelBuffers out(1, 100);
  ASSERT_EQ(file.read(0, 100, out), 0);
  for (int i = 0; i < 100; ++i)
    EXPECT_EQ(out[0][static_cast<std::size_t>(i)], sample16(i));
}

TEST_F(SoundDocument, TheLengthIsTheDataSizeByTheBlockAlign) {
  Wave wave;
  wave.channels = 2;
  wave.blockAlign = 3;
  wave.data = std::string(100, '\0');
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  EXPECT_EQ(file.info.frameCount, 33);
}

TEST_F(SoundDocument, APartialLastFrameIsNotCounted) {
  Wave wave;
  wave.channels = 2;
  wave.data = counting(0, 7);
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  EXPECT_EQ(file.info.frameCount, 3);
}

TEST_F(SoundDocument, WithoutAudioItOpensAndHasNothingToServe) {
  ASSERT_EQ(open(Wave()), 0);
  ASSERT_EQ(file.getInfo(), 0);
  EXPECT_EQ(file.info.frameCount, 0);
  ChannelBuffers out(1, 1);
  EXPECT_EQ(file.read(0, 1, out), 1);
  EXPECT_EQ(out[0][0], kUntouched);
}

TEST_F(SoundDocument, UnknownChunksAreSkippedByTheirSize) {
  Wave wave;
  wave.beforeFormat = chunk("JUNK", std::string(28, 'x'));
  wave.beforeData =
      chunk("LIST", std::string(90, 'y')) + chunk("fact", std::string(4, 'z')) + chunk("none", "");
  wave.data = counting(5, 10);
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  ChannelBuffers out(1, 10);
  ASSERT_EQ(file.read(0, 10, out), 0);
  EXPECT_EQ(out[0][0], sample16(5));
}

TEST_F(SoundDocument, AnOddChunkIsNotPadded) {
  Wave wave;
  wave.beforeData = chunk("LIST", "odd");
  wave.data = counting(5, 10);
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  EXPECT_EQ(file.info.frameCount, 10);
  file.close();
  wave.beforeData.push_back('\0');
  EXPECT_EQ(open(wave), 31);
}

TEST_F(SoundDocument, ADataChunkBeforeTheFormatChunkIsNeverFound) {
  Wave wave;
  const std::string data = chunk("data", counting(1, 4));
  EXPECT_EQ(openWaveBytes(chunk("RIFF", "WAVE" + data + wave.formatChunk())), 31);
  const std::string second = chunk("data", counting(7, 2));
  ASSERT_EQ(openWaveBytes(chunk("RIFF", "WAVE" + data + wave.formatChunk() + second)), 0);
  ASSERT_EQ(file.getInfo(), 0);
  EXPECT_EQ(file.info.frameCount, 2);
}

TEST_F(SoundDocument, TheSizeInTheRIFFHeaderMeansNothing) {
  Wave wave;
  wave.data = counting(0, 4);
  std::string bytes = wave.bytes();
  bytes.replace(4, 4, little(0, 4));
  EXPECT_EQ(openWaveBytes(bytes), 0);
}

TEST_F(SoundDocument, WrongTagsDoNotOpen) {
  const Wave wave;
  for (const auto& [offset, tag] : std::vector<std::pair<std::size_t, std::string>>{
           {0, "RIFX"}, {0, "RF64"}, {8, "WAVX"}, {12, "fmt_"}, {36, "DATA"}}) {
    std::string bytes = wave.bytes();
    bytes.replace(offset, 4, tag);
    EXPECT_EQ(openWaveBytes(bytes), 31) << tag;
  }
}

TEST_F(SoundDocument, CutOffAnywhereBeforeItsSamplesItDoesNotOpen) {
  Wave wave;
  wave.beforeData = chunk("LIST", std::string(20, 'x'));
  wave.data = counting(0, 4);
  const std::string bytes = wave.bytes();
  const std::size_t dataStart = bytes.size() - wave.data.size();
  for (std::size_t size = 0; size < dataStart; ++size) {
    EXPECT_EQ(openWaveBytes(bytes.substr(0, size)), 31) << size;
  }
  for (std::size_t size = dataStart; size <= bytes.size(); ++size) {
    EXPECT_EQ(openWaveBytes(bytes.substr(0, size)), 0) << size;
    file.close();
  }
}

TEST_F(SoundDocument, ADataChunkLongerThanTheFileDeliversWhatExistsAndThen38) {
  Wave wave;
  wave.data = counting(0, 100);
  wave.dataSize = 1000;
  for (const bool deflated : {false, true}) {
    ASSERT_EQ(deflated ? openDeflated(wave) : open(wave), 0);
    ASSERT_EQ(file.getInfo(), 0);
    EXPECT_EQ(file.info.frameCount, 500);
    ChannelBuffers out(1, 150);
    EXPECT_EQ(file.read(50, 150, out), 38);
    EXPECT_EQ(out[0][49], sample16(99));
    EXPECT_EQ(out[0][50], kUntouched);
    EXPECT_EQ(file.read(300, 10, out), 38);
    // The end was reached, which the next read forgets first.
    EXPECT_EQ(file.read(10, 5, out), 0);
    EXPECT_EQ(out[0][0], sample16(10));
    file.close();
  }
}

TEST_F(SoundDocument, ARequestPastTheEndIsPaddedWithSilence) {
  Wave wave;
  wave.data = counting(1, 10);
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  ChannelBuffers out(1, 8);
  ASSERT_EQ(file.read(6, 8, out), 0);
  EXPECT_EQ(out[0],
            (std::vector<float>{sample16(7), sample16(8), sample16(9), sample16(10), 0, 0, 0, 0}));
}

TEST_F(SoundDocument, ANegativePositionGoesOnFromTheLastRead) {
  Wave wave;
  wave.data = counting(0, 100);
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  ChannelBuffers out(1, 10);
  ASSERT_EQ(file.read(20, 10, out), 0);
  for (const std::int64_t position : {std::int64_t{-1}, std::int64_t{-1000}, INT64_MIN}) {
    ASSERT_EQ(file.read(position, 10, out), 0);
  }
  EXPECT_EQ(out[0][0], sample16(50));
}

TEST_F(SoundDocument, ANegativePositionRightAfterInfoBeginsOneFrameBeforeTheAudio) {
  Wave wave;
  wave.channels = 2;
  wave.data = counting(1, 20);
  for (const bool deflated : {false, true}) {
    ASSERT_EQ(deflated ? openDeflated(wave) : open(wave), 0);
    ASSERT_EQ(file.getInfo(), 0);
    ChannelBuffers out(2, 3);
    ASSERT_EQ(file.read(-1, 3, out), 0);
    // The frame before the first is the size of the data chunk.
    EXPECT_EQ(out[0], (std::vector<float>{sample16(40), sample16(1), sample16(3)}));
    EXPECT_EQ(out[1], (std::vector<float>{sample16(0), sample16(2), sample16(4)}));
    file.close();
  }
}

TEST_F(SoundDocument, EightChannelsAreReportedAndSixServed) {
  Wave wave;
  wave.channels = 8;
  wave.data = counting(0, 80);
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  EXPECT_EQ(file.info.channelCount, 8u);
  ChannelBuffers out(8, 10);
  ASSERT_EQ(file.read(0, 10, out), 0);
  for (int channel = 0; channel < 8; ++channel) {
    const float expected = channel < 6 ? sample16(72 + channel) : kUntouched;
    EXPECT_EQ(out[static_cast<std::size_t>(channel)][9], expected);
  }
}

TEST_F(SoundDocument, AFrameLargerThanABlockGives38) {
  Wave wave;
  wave.channels = 40000;
  wave.bits = 8;
  wave.data = std::string(80000, '\0');
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  EXPECT_EQ(file.info.channelCount, 40000u);
  ChannelBuffers out(6, 1);
  EXPECT_EQ(file.read(0, 1, out), 38);
}

TEST_F(SoundDocument, BeforeItsInfoThereIsNoAudio) {
  Wave wave;
  wave.data = counting(0, 100);
  ASSERT_EQ(open(wave), 0);
  ChannelBuffers out(1, 1);
  for (const std::int64_t position : {0, 5, -1, 0})
    EXPECT_EQ(file.read(position, 1, out), 1);
  EXPECT_EQ(out[0][0], kUntouched);
}

}  // namespace
