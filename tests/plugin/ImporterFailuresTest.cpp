#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "package/detail/ZipPackageFactory.h"

#include "Documents.h"
#include "ImporterQSND.h"
#include "Plugin.h"
#include "QFL/Module.h"
#include "support/FileSystems.h"
#include "support/TempDir.h"

// Exceptions that end a step of the importer early: a document in a file system that fails.

namespace {

using ImporterQSND::SoundDocumentState;
using support::Failure;
using Span = support::FailingFileSystem::Span;

// Access to the document of an importer: an explicit instantiation may name it.
template <std::unique_ptr<SoundDocumentState> ImporterQSND::ImporterQSND::*state>
struct Reveal {
  friend SoundDocumentState& stateOf(ImporterQSND::ImporterQSND& importer) {
    return *(importer.*state);
  }
};
SoundDocumentState& stateOf(ImporterQSND::ImporterQSND& importer);
template struct Reveal<&ImporterQSND::ImporterQSND::documentState>;

// An importer that tells when it dies.
class MortalImporter : public ImporterQSND::ImporterQSND {
public:
  explicit MortalImporter(int& deaths) : fDeaths(deaths) {}
  ~MortalImporter() override { ++fDeaths; }

private:
  int& fDeaths;
};

// The default file system of the library is one of a test's for the life of this.
class DefaultFileSystem {
public:
  explicit DefaultFileSystem(pkg::IPkgFileSystem<>& system) { set(&system); }
  ~DefaultFileSystem() { set(pkg::BasePkgFileSystem<>::getInstance()); }
  DefaultFileSystem(const DefaultFileSystem&) = delete;
  DefaultFileSystem& operator=(const DefaultFileSystem&) = delete;

private:
  static void set(pkg::IPkgFileSystem<>* system) {
    pkg::zip::ZipPackageFactory<>::getInstance()->setDefaultFileSystem(system);
  }
};

// Opens a document of 10000 stereo frames of 16 bits in memory. `failures` begin at the n-th call.
class FailingDocument {
public:
  FailingDocument(bool deflated, int n, support::Failures failures)
      : fFiles(fRecorded, n, std::move(failures), Span::FromThereOn), fDefault(fFiles) {
    Wave wave;
    wave.channels = 2;
    wave.data = noise(40000, 1);
    if (deflated) {
      const support::TempDir folder;
      makeDeflatedDocument(folder / "d.qsnd", wave.bytes());
      fMemory.put("d.qsnd", support::readFile(folder / "d.qsnd"));
    } else {
      fMemory.put("d.qsnd", storedDocument(wave.bytes()));
    }
    imFileOpenRec8 record{};
    record.path = u"d.qsnd";
    record.privateData = fImporter;
    fIsOpen = select(39, &record) == 0;
  }
  ~FailingDocument() {
    if (deaths == 0) delete fImporter;
  }

  // A selector as the host calls it.
  std::int32_t select(int selector, void* param2) {
    static const QFL::ResourceCollection sNone;
    return ImporterQSND::ImporterQSND::ImportEntry(sNone, selector, nullptr, &reference, param2);
  }
  std::int32_t quiet() { return select(8, fImporter); }
  std::int32_t close() { return select(9, fImporter); }
  std::int32_t getInfo() {
    imFileInfoRec8 record{};
    record.privateData = fImporter;
    return select(37, &record);
  }
  std::int32_t read(std::int64_t position, ChannelBuffers& out) {
    imImportAudioRec7 record{};
    record.position = position;
    record.size = static_cast<std::uint32_t>(out[0].size());
    record.buffers = out.pointers.data();
    record.privateData = fImporter;
    return select(25, &record);
  }

  bool opened() const { return fIsOpen; }
  ImporterQSND::ImporterQSND& importer() { return *fImporter; }
  SoundDocumentState& state() { return stateOf(*fImporter); }
  int filesAlive() const { return fRecorded.filesAlive(); }
  bool hasFailed() const { return fFiles.hasFailed(); }
  int calls() const { return fFiles.calls(); }

  int deaths = 0;
  void* reference = nullptr;

private:
  support::MemoryFileSystem fMemory;
  support::RecordingFileSystem fRecorded{fMemory};
  support::FailingFileSystem fFiles;
  DefaultFileSystem fDefault;
  MortalImporter* fImporter = new MortalImporter(deaths);
  bool fIsOpen = false;
};

TEST(ImporterFailures, QuietThatCannotCloseThePackageReportsSuccessAndTheDocumentCountsAsOpen) {
  FailingDocument document(false, 1, {Failure::Close});
  ASSERT_TRUE(document.opened());
  ASSERT_EQ(document.getInfo(), 0);
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_EQ(document.quiet(), 0);
    EXPECT_TRUE(document.hasFailed());
    EXPECT_TRUE(document.state().isOpen);
    EXPECT_NE(document.state().audioStream, nullptr);
    EXPECT_NE(document.state().mixdownFile.get(), nullptr);
    EXPECT_NE(document.state().package, nullptr);
    EXPECT_EQ(document.filesAlive(), 1);
    EXPECT_EQ(document.getInfo(), 0);
    // The stream is closed: it takes no position, and there is nothing in it.
    ChannelBuffers out(2, 1);
    EXPECT_EQ(document.read(0, out), 38);
  }
  EXPECT_EQ(document.deaths, 0);
  EXPECT_EQ(document.close(), 0);
  EXPECT_EQ(document.deaths, 1);
  EXPECT_EQ(document.filesAlive(), 0);
}

// Reading in a deflated entry makes a temporary copy; it is the stream that holds it.
TEST(ImporterFailures, QuietThatCannotCloseTheStreamLeavesThePackageOpen) {
  FailingDocument document(true, 2, {Failure::Close});  // the first: where the copy is complete
  ASSERT_TRUE(document.opened());
  ASSERT_EQ(document.getInfo(), 0);
  ChannelBuffers out(2, 1);
  ASSERT_EQ(document.read(5000, out), 0);
  ASSERT_FALSE(document.hasFailed());
  EXPECT_EQ(document.quiet(), 0);
  EXPECT_TRUE(document.hasFailed());
  EXPECT_TRUE(document.state().isOpen);
  ASSERT_NE(document.state().package, nullptr);
  EXPECT_NO_THROW(document.state().package->getFile("Mixdown.wav", true)) << "a closed one refuses";
  EXPECT_EQ(document.getInfo(), 0);
  EXPECT_EQ(document.close(), 0);
  EXPECT_EQ(document.deaths, 1);
  EXPECT_EQ(document.filesAlive(), 0);
}

TEST(ImporterFailures, OpeningAgainAfterAQuietThatFailedReplacesWhatWasLeft) {
  FailingDocument document(false, 1, {Failure::Close});
  ASSERT_TRUE(document.opened());
  EXPECT_EQ(document.quiet(), 0);
  const auto* const left = document.state().package.get();
  document.importer().OpenQSND();
  EXPECT_TRUE(document.state().isOpen);
  EXPECT_NE(document.state().package.get(), left);
  ASSERT_EQ(document.getInfo(), 0);
  ChannelBuffers out(2, 1);
  EXPECT_EQ(document.read(9999, out), 0);
}

TEST(ImporterFailures, ASeekThatThrowsIsFalseAndReachesTheHostAsMinus1) {
  FailingDocument document(true, 1, {Failure::CreateTemp});  // which seeking needs here
  ASSERT_TRUE(document.opened());
  ASSERT_EQ(document.getInfo(), 0);
  document.state().audioStream->exceptions(std::ios::badbit);
  EXPECT_FALSE(document.importer().SetStreamPosition(5000));
  EXPECT_TRUE(document.hasFailed());

  document.state().audioStream->clear();
  AudioHandler handler;
  char buffer[64];
  int framesRead = -5;
  EXPECT_EQ(document.importer().ReadAudioData(handler, 5000, 10, buffer, framesRead), -1);
  EXPECT_EQ(framesRead, 0);

  document.state().audioStream->clear();
  ChannelBuffers out(2, 1);
  EXPECT_EQ(document.read(5000, out), -1);
  EXPECT_EQ(out[0][0], ChannelBuffers::kUntouched);
}

TEST(ImporterFailures, AReadThatThrowsIsMinus1AndReachesTheHost) {
  FailingDocument document(false, 1, {});
  ASSERT_TRUE(document.opened());
  ASSERT_EQ(document.getInfo(), 0);
  document.state().audioStream->exceptions(std::ios::failbit | std::ios::badbit);
  AudioHandler handler;
  char buffer[64];
  ASSERT_TRUE(document.importer().SetStreamPosition(9998));
  EXPECT_EQ(document.importer().StreamAudioFromQSND(10, buffer), -1);
  int framesRead = -5;
  EXPECT_EQ(ImporterQSND::ImporterQSND::AudioHandlerCallback(&document.importer(), handler, 9998,
                                                             10, buffer, framesRead),
            -1);
  EXPECT_EQ(framesRead, 0);
  // The block is read to the document's end and beyond.
  ChannelBuffers out(2, 1);
  EXPECT_EQ(document.read(9998, out), -1);
  EXPECT_EQ(out[0][0], ChannelBuffers::kUntouched);
}

TEST(ImporterFailures, AFileThatCannotBeReadGivesMinus1WhereTheStreamThrowsAnd38WhereItDoesNot) {
  const FailingDocument healthy(false, 1000000, {Failure::Read});
  for (const bool throws : {false, true}) {
    FailingDocument document(false, healthy.calls() + 1, {Failure::Read});
    ASSERT_TRUE(document.opened());
    ASSERT_EQ(document.getInfo(), 0);
    if (throws) document.state().audioStream->exceptions(std::ios::badbit);
    ChannelBuffers out(2, 1);
    EXPECT_EQ(document.read(5000, out), throws ? -1 : 38);
    EXPECT_TRUE(document.hasFailed());
    EXPECT_EQ(out[0][0], ChannelBuffers::kUntouched);
  }
}

}  // namespace
