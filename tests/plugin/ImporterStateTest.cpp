#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Documents.h"
#include "ImporterQSND.h"
#include "Plugin.h"
#include "support/TempDir.h"

// What an importer holds, and how calls that answer the same differ in what they leave.

namespace {

using Importer = ImporterQSND::ImporterQSND;
using ImporterQSND::SoundDocumentState;

// Access to the private fields: an explicit instantiation may name them.
template <std::unique_ptr<SoundDocumentState> Importer::*state, AudioHandler Importer::*handler>
struct Reveal {
  friend SoundDocumentState& stateOf(Importer& importer) { return *(importer.*state); }
  friend AudioHandler& handlerOf(Importer& importer) { return importer.*handler; }
};
SoundDocumentState& stateOf(Importer& importer);
AudioHandler& handlerOf(Importer& importer);
template struct Reveal<&Importer::documentState, &Importer::audioHandler>;

class ImporterState : public testing::Test {
protected:
  // A document of 100 stereo frames of 16 bits.
  void open() {
    Wave wave;
    wave.channels = 2;
    wave.data = std::string(400, '\1');
    const std::u16string path = widen(folder.write("sound.qsnd", storedDocument(wave.bytes())));
    imFileOpenRec8 record{};
    record.path = path.c_str();
    void* reference = nullptr;
    ASSERT_EQ(importer.OnOpenFile8(&reference, &record), 0);
  }
  std::int32_t getInfo() {
    imFileInfoRec8 info{};
    return importer.OnGetInfo8(nullptr, &info);
  }
  std::int32_t read(std::int64_t position) {
    imImportAudioRec7 record{};
    record.position = position;
    record.size = 10;
    record.buffers = out.pointers.data();
    return importer.OnImportAudio7(nullptr, &record);
  }
  std::streamoff streamPosition() {
    SoundDocumentState& document = stateOf(importer);
    return document.audioStream->tellg() - document.audioDataStart;
  }

  support::TempDir folder;
  std::unique_ptr<Importer> owned = std::make_unique<Importer>();
  Importer& importer = *owned;
  ChannelBuffers out{2, 10};
};

TEST_F(ImporterState, IsThatOfAClosedDocumentAtFirst) {
  const SoundDocumentState& document = stateOf(importer);
  EXPECT_FALSE(document.isOpen);
  EXPECT_TRUE(document.filePath.empty());
  EXPECT_EQ(document.channelCount, 0u);
  EXPECT_EQ(document.sampleRate, 0.0f);
  EXPECT_EQ(document.bytesPerSample, 0u);
  EXPECT_EQ(document.frameCount, 0);
  EXPECT_EQ(document.package, nullptr);
  EXPECT_FALSE(document.mixdownFile);
  EXPECT_EQ(document.audioStream, nullptr);
  EXPECT_EQ(handlerOf(importer).readFlags, -1);
  EXPECT_EQ(handlerOf(importer).totalFrames, -1);
}

TEST_F(ImporterState, QuietLetsGoOfEverythingButThePath) {
  open();
  const std::u16string path = stateOf(importer).filePath;
  EXPECT_FALSE(path.empty());
  EXPECT_EQ(importer.OnQuietFile(nullptr), 0);
  EXPECT_FALSE(stateOf(importer).isOpen);
  EXPECT_EQ(stateOf(importer).audioStream, nullptr);
  EXPECT_FALSE(stateOf(importer).mixdownFile);
  EXPECT_EQ(stateOf(importer).package, nullptr);
  EXPECT_EQ(stateOf(importer).filePath, path);
  EXPECT_EQ(importer.OnCloseFile(nullptr), 0);
  EXPECT_TRUE(stateOf(importer).filePath.empty());
}

TEST_F(ImporterState, AFailedOpenOverAnOpenDocumentKeepsItsReferencesUntilTheNextQuiet) {
  open();
  const auto package = stateOf(importer).package;
  const auto* const stream = stateOf(importer).audioStream.get();
  imFileOpenRec8 record{};
  record.path = u"/no/such/document.qsnd";
  void* reference = nullptr;
  EXPECT_EQ(importer.OnOpenFile8(&reference, &record), 31);
  EXPECT_FALSE(stateOf(importer).isOpen);
  EXPECT_EQ(stateOf(importer).package, package);
  EXPECT_EQ(stateOf(importer).audioStream.get(), stream);
  EXPECT_NO_THROW(package->getOpenMode(true));
  importer.OnQuietFile(nullptr);
  EXPECT_ANY_THROW(package->getOpenMode(true)) << "closed";
  EXPECT_EQ(stateOf(importer).package, nullptr);
}

TEST_F(ImporterState, AnImporterThatGoesClosesNothingThatOthersHold) {
  open();
  const auto package = stateOf(importer).package;
  const auto stream = stateOf(importer).audioStream;
  owned.reset();
  EXPECT_EQ(package->getOpenMode(true), std::ios::in);
  EXPECT_EQ(stream->get(), 1) << "the first byte of audio";
}

// Puts a reference in the place of another that writes its end down.
template <class Object>
void watchEnd(boost::shared_ptr<Object>& reference, const char* name,
              std::vector<std::string>& ends) {
  reference.reset(reference.get(), [name, &ends, held = reference](Object*) mutable {
    ends.push_back(name);
    held.reset();
  });
}

TEST_F(ImporterState, TheStreamIsLetGoBeforeThePackage) {
  for (const bool quiet : {true, false}) {
    open();
    std::vector<std::string> ends;
    watchEnd(stateOf(importer).audioStream, "stream", ends);
    watchEnd(stateOf(importer).package, "package", ends);
    if (quiet) {
      importer.OnQuietFile(nullptr);
    } else {
      owned.reset();
    }
    EXPECT_EQ(ends, (std::vector<std::string>{"stream", "package"})) << quiet;
  }
}

TEST_F(ImporterState, BeforeItsInfoOnlyARequestForTheStartRewinds) {
  open();
  ASSERT_TRUE(importer.SetStreamPosition(50));
  for (const std::int64_t position : {5, -1}) {
    EXPECT_EQ(read(position), 1);
    EXPECT_EQ(streamPosition(), 200);
    EXPECT_EQ(handlerOf(importer).nextFrame, -1);
  }
  EXPECT_EQ(read(0), 1);
  EXPECT_EQ(streamPosition(), 0);
  EXPECT_EQ(handlerOf(importer).nextFrame, 0);
}

TEST_F(ImporterState, AfterItsInfoARequestForTheStartMovesTheStreamOnlyToRead) {
  open();
  ASSERT_EQ(getInfo(), 0);
  ASSERT_EQ(read(0), 0);
  ASSERT_TRUE(importer.SetStreamPosition(50));
  EXPECT_EQ(read(0), 0);
  EXPECT_EQ(streamPosition(), 200) << "the block is in hand";
}

TEST_F(ImporterState, EachInfoRequestConfiguresTheHandlerAnew) {
  open();
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(getInfo(), 0);
    EXPECT_EQ(handlerOf(importer).nextFrame, -1);
    EXPECT_EQ(handlerOf(importer).bufferStartFrame, 0x7FFFFFFF);
    ASSERT_EQ(read(20), 0);
    EXPECT_EQ(handlerOf(importer).nextFrame, 30);
  }
}

TEST_F(ImporterState, AClosedDocumentHasNoAudioThoughItsHandlerHasABlockInHand) {
  open();
  ASSERT_EQ(getInfo(), 0);
  ASSERT_EQ(read(0), 0);
  importer.OnQuietFile(nullptr);
  EXPECT_EQ(read(0), 1);
  EXPECT_EQ(handlerOf(importer).nextFrame, 10);
}

}  // namespace
