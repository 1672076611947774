#include <vector>

#include "SoundDocumentFixture.h"

namespace {

TEST_F(SoundDocument, FilesThatAreNoDocumentsGive31AndLeaveTheReferenceAlone) {
  const std::string wave = Wave().bytes();
  const std::vector<std::string> packages = {"",
                                             "PK",
                                             "RIFF",
                                             noise(5000, 3),
                                             wave,
                                             package({}),
                                             package({{"mimetype", "application/x-qsnd"}}),
                                             package({{"mixdown.wav", wave}}),
                                             package({{"Mixdown.wav/", ""}}),
                                             package({{"audio/Mixdown.wav", wave}}),
                                             "PK\7\10" + storedDocument(wave)};
  char token;
  for (const std::string& bytes : packages) {
    file.reference = &token;
    EXPECT_EQ(openBytes(bytes), 31);
    EXPECT_EQ(file.reference, &token);
    EXPECT_EQ(file.instance, nullptr);
  }
  EXPECT_EQ(file.open((folder / "absent.qsnd").string()), 31);
  EXPECT_EQ(file.open(folder.path().string()), 31);
  EXPECT_EQ(file.open(std::string()), 31);
  EXPECT_EQ(file.reference, &token);
}

TEST_F(SoundDocument, TheTypeEntryIsNotNeeded) {
  EXPECT_EQ(openBytes(package({{"Mixdown.wav", Wave().bytes()}})), 0);
}

TEST_F(SoundDocument, OfTwoMixdownsTheFirstIsHeard) {
  Wave first, second;
  first.data = counting(7, 1);
  second.data = counting(9, 1);
  ASSERT_EQ(openBytes(package({{"Mixdown.wav", first.bytes()}, {"Mixdown.wav", second.bytes()}})),
            0);
  ASSERT_EQ(file.getInfo(), 0);
  ChannelBuffers out(1, 1);
  ASSERT_EQ(file.read(0, 1, out), 0);
  EXPECT_EQ(out[0][0], sample16(7));
}

TEST_F(SoundDocument, PathsMayHaveAnyCharacter) {
  const std::string document = storedDocument(Wave().bytes());
  folder.write("\xC3\xA4 \xF0\x9F\x8E\xB5.qsnd", document);
  EXPECT_EQ(file.open(widen(folder.path().string()) + u"/\u00E4 \U0001F3B5.qsnd"), 0);
  file.close();
  folder.write("lone \xEF\xBF\xBD.qsnd", document);
  const char16_t lone = 0xD800;
  EXPECT_EQ(file.open(widen(folder.path().string()) + u"/lone " + lone + u".qsnd"), 0);
}

TEST_F(SoundDocument, QuietClosesAndOpeningAgainWorks) {
  Wave wave;
  wave.data = counting(0, 100);
  ASSERT_EQ(open(wave), 0);
  ASSERT_EQ(file.getInfo(), 0);
  ChannelBuffers out(1, 1);
  ASSERT_EQ(file.read(42, 1, out), 0);
  void* const instance = file.instance;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(file.quiet(), 0);
    EXPECT_EQ(file.quiet(), 0);
    EXPECT_EQ(file.read(0, 1, out), 1);
    EXPECT_EQ(file.getInfo(), 31);
    ASSERT_EQ(open(wave), 0);
    EXPECT_EQ(file.instance, instance);
    // The handler kept its settings.
    ASSERT_EQ(file.read(43, 1, out), 0);
    EXPECT_EQ(out[0][0], sample16(43));
  }
}

TEST_F(SoundDocument, AFailedReopeningKeepsTheInstanceClosed) {
  ASSERT_EQ(open(Wave()), 0);
  file.quiet();
  void* const instance = file.instance;
  EXPECT_EQ(file.open((folder / "absent.qsnd").string()), 31);
  EXPECT_EQ(file.instance, instance);
  EXPECT_EQ(file.getInfo(), 31);
}

TEST_F(SoundDocument, OpeningAnOpenInstanceTakesTheNewDocument) {
  Wave first, second;
  first.data = counting(1, 50);
  second.data = counting(1000, 70);
  makeDeflatedDocument(folder / "first.qsnd", first.bytes());
  makeDeflatedDocument(folder / "second.qsnd", second.bytes());
  ChannelBuffers out(1, 1);
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(file.open((folder / "first.qsnd").string()), 0);
    ASSERT_EQ(file.getInfo(), 0);
    EXPECT_EQ(file.info.frameCount, 50);
    ASSERT_EQ(file.read(20, 1, out), 0);
    EXPECT_EQ(out[0][0], sample16(21));
    ASSERT_EQ(file.open((folder / "second.qsnd").string()), 0);
    ASSERT_EQ(file.getInfo(), 0);
    EXPECT_EQ(file.info.frameCount, 70);
    ASSERT_EQ(file.read(20, 1, out), 0);
    EXPECT_EQ(out[0][0], sample16(1020));
  }
}

TEST_F(SoundDocument, FieldsOfAStoppedOpenStayWritten) {
  Wave wave;
  wave.data = counting(0, 10);
  ASSERT_EQ(open(wave), 0);
  Wave broken;
  broken.channels = 5;
  broken.rate = 8000;
  broken.bits = 24;
  std::string bytes = broken.bytes();
  EXPECT_EQ(openWaveBytes(bytes.substr(0, bytes.size() - 8)), 31);
  EXPECT_EQ(file.getInfo(), 31);
  EXPECT_EQ(file.info.channelCount, 5u);
  EXPECT_EQ(file.info.sampleRate, 8000.0f);
  EXPECT_EQ(file.info.sampleFormat, 4);
  EXPECT_EQ(file.info.frameCount, 10);
}

TEST_F(SoundDocument, TwoDocumentsAreReadInTurn) {
  Wave first, second;
  first.data = counting(0, 30000);
  second.channels = 2;
  second.data = counting(5, 30000);
  makeDeflatedDocument(folder / "second.qsnd", second.bytes());
  ASSERT_EQ(open(first), 0);
  HostFile other(plugin);
  ASSERT_EQ(other.open((folder / "second.qsnd").string()), 0);
  ASSERT_EQ(file.getInfo(), 0);
  ASSERT_EQ(other.getInfo(), 0);
  ChannelBuffers out(2, 100);
  for (int position = 0; position < 14000; position += 700) {
    ASSERT_EQ(file.read(2 * position, 100, out), 0);
    ASSERT_EQ(out[0][99], sample16(2 * position + 99));
    ASSERT_EQ(other.read(position, 100, out), 0);
    ASSERT_EQ(out[1][99], sample16(5 + 2 * (position + 99) + 1));
  }
}

TEST_F(SoundDocument, OneDocumentOpenedTwiceServesBoth) {
  Wave wave;
  wave.data = counting(0, 30000);
  ASSERT_EQ(openDeflated(wave), 0);
  HostFile other(plugin);
  ASSERT_EQ(other.open((folder / "deflated.qsnd").string()), 0);
  ASSERT_EQ(file.getInfo(), 0);
  ASSERT_EQ(other.getInfo(), 0);
  ChannelBuffers out(1, 1);
  for (int position = 29000; position > 0; position -= 1000) {
    ASSERT_EQ(file.read(position, 1, out), 0);
    EXPECT_EQ(out[0][0], sample16(position));
    ASSERT_EQ(other.read(30000 - position, 1, out), 0);
    EXPECT_EQ(out[0][0], sample16(30000 - position));
  }
}

}  // namespace
