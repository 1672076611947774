#include <string>

#include <gtest/gtest.h>

#include "Documents.h"
#include "ImporterQSND.h"
#include "Plugin.h"
#include "qvacore/Unicode.h"
#include "support/TempDir.h"

namespace {

// The class itself, for what a host cannot see from outside.
class ImporterObject : public testing::Test {
protected:
  ImporterObject() {
    Wave wave;
    wave.channels = 2;
    wave.data = std::string(400, '\1');
    path = widen(folder.write("sound.qsnd", storedDocument(wave.bytes())));
  }
  std::int32_t open() {
    imFileOpenRec8 record{};
    record.path = path.c_str();
    return importer.OnOpenFile8(&reference, &record);
  }
  bool isOpen() {
    imFileInfoRec8 info{};
    return importer.OnGetInfo8(nullptr, &info) == 0;
  }

  support::TempDir folder;
  std::u16string path;
  void* reference = nullptr;
  ImporterQSND::ImporterQSND importer;
};

TEST_F(ImporterObject, QuietKeepsThePath) {
  ASSERT_EQ(open(), 0);
  EXPECT_EQ(importer.OnQuietFile(nullptr), 0);
  EXPECT_FALSE(isOpen());
  importer.OpenQSND();
  EXPECT_TRUE(isOpen());
}

TEST_F(ImporterObject, CloseForgetsThePath) {
  ASSERT_EQ(open(), 0);
  EXPECT_EQ(importer.OnCloseFile(nullptr), 0);
  importer.OpenQSND();
  EXPECT_FALSE(isOpen());
}

TEST_F(ImporterObject, APathThatCannotBeConvertedIsSwallowed) {
  qvacore::utility::SetUTF16to8Converter(
      [](const char16_t*) -> std::string { throw std::runtime_error("no conversion"); });
  EXPECT_EQ(open(), 31);
  qvacore::utility::SetUTF16to8Converter([](const char16_t*) -> std::string { throw 1; });
  EXPECT_EQ(open(), 31);
  qvacore::utility::SetUTF16to8Converter({});
  EXPECT_EQ(open(), 0);
}

TEST_F(ImporterObject, ReadsAbsoluteFrames) {
  ASSERT_EQ(open(), 0);
  AudioHandler handler;
  char buffer[64];
  int framesRead = -5;
  EXPECT_EQ(importer.ReadAudioData(handler, 98, 10, buffer, framesRead), 0);
  EXPECT_EQ(framesRead, 2);
  EXPECT_EQ(ImporterQSND::ImporterQSND::AudioHandlerCallback(&importer, handler, 0, 10, buffer,
                                                             framesRead),
            0);
  EXPECT_EQ(framesRead, 10);
}

TEST_F(ImporterObject, PositionsAreCutTo32Bits) {
  ASSERT_EQ(open(), 0);
  AudioHandler handler;
  char buffer[64];
  int framesRead = 0;
  EXPECT_EQ(importer.ReadAudioData(handler, (1ll << 32) + 99, 10, buffer, framesRead), 0);
  EXPECT_EQ(framesRead, 1);
  // Four bytes a frame: the offset in bytes wraps as well.
  EXPECT_EQ(importer.ReadAudioData(handler, (1ll << 30) + 97, 10, buffer, framesRead), 0);
  EXPECT_EQ(framesRead, 3);
}

TEST_F(ImporterObject, APositionBeforeTheFileDeliversNothing) {
  ASSERT_EQ(open(), 0);
  AudioHandler handler;
  char buffer[64];
  int framesRead = -5;
  EXPECT_EQ(importer.ReadAudioData(handler, -100000, 10, buffer, framesRead), 0);
  EXPECT_EQ(framesRead, 0);
}

// Nothing but the end of the stream is forgotten before a seek.
TEST_F(ImporterObject, AfterASeekThatFailedEveryReadDeliversNothingUntilItIsOpenedAgain) {
  ASSERT_EQ(open(), 0);
  char buffer[64];
  EXPECT_TRUE(importer.SetStreamPosition(-100000)) << "it did not throw";
  EXPECT_EQ(importer.StreamAudioFromQSND(10, buffer), 0);
  EXPECT_TRUE(importer.SetStreamPosition(0));
  EXPECT_EQ(importer.StreamAudioFromQSND(10, buffer), 0);
  ASSERT_EQ(open(), 0);
  EXPECT_TRUE(importer.SetStreamPosition(0));
  EXPECT_EQ(importer.StreamAudioFromQSND(10, buffer), 10);
}

TEST_F(ImporterObject, AFrameThatTheFileCutsOffIsDropped) {
  for (const std::size_t cut : {1u, 2u, 3u}) {
    Wave wave;
    wave.channels = 2;
    wave.data = std::string(400 - cut, '\1');
    wave.dataSize = 400;
    path = widen(folder.write("cut.qsnd", storedDocument(wave.bytes())));
    ASSERT_EQ(open(), 0);
    ASSERT_TRUE(importer.SetStreamPosition(97));
    char buffer[64];
    EXPECT_EQ(importer.StreamAudioFromQSND(10, buffer), 2) << cut;
  }
}

TEST_F(ImporterObject, ReadsWholeFramesFromWhereTheStreamWasMoved) {
  ASSERT_EQ(open(), 0);
  EXPECT_TRUE(importer.SetStreamPosition(97));
  char buffer[64];
  EXPECT_EQ(importer.StreamAudioFromQSND(2, buffer), 2);
  EXPECT_EQ(importer.StreamAudioFromQSND(2, buffer), 1);
  EXPECT_EQ(importer.StreamAudioFromQSND(2, buffer), 0);
  EXPECT_TRUE(importer.SetStreamPosition(0));
  EXPECT_EQ(importer.StreamAudioFromQSND(2, buffer), 2);
}

}  // namespace
