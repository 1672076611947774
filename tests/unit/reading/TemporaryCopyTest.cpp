#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;
using std::ios_base;
using support::FileCall;

namespace {

const std::string kData = pattern(20000);

// Temporary files that cannot seek.
class UnseekableTemporaries : public support::FileSystemWrapper {
public:
  using FileSystemWrapper::FileSystemWrapper;

protected:
  std::uint32_t capabilities(InnerFile& file) override {
    return file.getName()->getName().rfind("temporary/", 0) == 0 ? 0 : file.getCapabilities();
  }
};

// How many calls of a kind went to the package's own file.
int onPackage(const support::RecordingFileSystem& files, FileCall kind) {
  int count = 0;
  for (const auto& call : files.calls())
    count += call.kind == kind && call.name == "a.pkg" ? 1 : 0;
  return count;
}

}  // namespace

TEST(TemporaryCopy, BrokenDataEndsTheCopyEarlyAndWithoutAnError) {
  std::string broken = zipbytes::storedDeflate(kData.substr(0, 6000)) + "\xFF\xFF";
  broken[0] = 0;
  zipbytes::File file;
  const MemoryPackage package(
      file.add(zipbytes::deflatedEntry("a", kData, broken), broken).bytes());
  const Stream stream = package.stream("a");
  stream->exceptions(ios_base::badbit);
  EXPECT_NO_THROW(stream->seekg(0, ios_base::end));
  EXPECT_EQ(4096, stream->tellg());  // the block that failed is lost
  stream->seekg(0);
  EXPECT_EQ(kData.substr(0, 4096), readAll(*stream));
}

TEST(TemporaryCopy, ACopyThatCannotSeekRaises23) {
  support::MemoryFileSystem memory;
  UnseekableTemporaries files(memory);
  memory.put("x", deflatedPackage(kData));
  const Package package = pkg::QCFPackageFactory().openPackage("x", kIn, &files, nullptr, nullptr);
  const Stream stream = package->getFile("a", true)->open(kIn, false);
  stream->exceptions(ios_base::badbit);
  const Raised raised = raisedBy([&] { stream->seekg(100); });
  EXPECT_EQ(23, raised.code);
  EXPECT_FALSE(raised.isIO);
  // Nor can a stream begin in it.
  stream->close();
  EXPECT_RAISES(23, package->getFile("a", true)->open(kIn, false));
}

TEST(TemporaryCopy, ACopyThatCannotBeMadeRaisesWhatTheFilesRaise) {
  using support::Failure;
  for (const Failure failure : {Failure::CreateTemp, Failure::Write, Failure::Flush}) {
    support::MemoryFileSystem memory;
    support::FailingFileSystem files(memory, 1, {failure});
    memory.put("x", deflatedPackage(kData));
    const Package package =
        pkg::QCFPackageFactory().openPackage("x", kIn, &files, nullptr, nullptr);
    const File file = package->getFile("a", true);
    const Stream stream = file->open(kIn, false);
    stream->exceptions(ios_base::badbit);
    const Raised raised = raisedBy([&] { stream->seekg(100); });
    EXPECT_EQ(50, raised.code);
    EXPECT_TRUE(raised.isIO);
    // A copy that is not whole is nobody's: new streams read the package.
    stream->close();
    EXPECT_EQ(kData, readAll(*file->open(kIn, false)));
    package->close();
    EXPECT_EQ(0, memory.temporaryFiles());
  }
}

TEST(TemporaryCopy, ACopyThatStoppedHalfWayIsMadeAnewAndWholeByTheNextSeek) {
  using support::Failure;
  support::MemoryFileSystem memory;
  support::FailingFileSystem files(memory, 3, {Failure::Write});  // two blocks are copied
  memory.put("x", deflatedPackage(kData));
  const Package package = pkg::QCFPackageFactory().openPackage("x", kIn, &files, nullptr, nullptr);
  const File file = package->getFile("a", true);
  const Stream stream = file->open(kIn, false);
  stream->exceptions(ios_base::badbit);
  EXPECT_RAISES(50, stream->seekg(100));
  EXPECT_EQ(1, memory.temporaryFiles());
  // Another stream makes the copy; the one that failed finds it.
  const Stream other = file->open(kIn, false);
  other->seekg(0, ios_base::end);
  EXPECT_EQ(20000, other->tellg());
  EXPECT_EQ(1, memory.temporaryFiles());
  stream->clear();
  stream->seekg(100);
  EXPECT_EQ(kData.substr(100), readAll(*stream));
  package->close();
  EXPECT_EQ(0, memory.temporaryFiles());
}

TEST(TemporaryCopy, AChangeMadeAfterACopyStoppedHalfWayIsReadAndSaved) {
  using support::Failure;
  support::MemoryFileSystem memory;
  support::FailingFileSystem files(memory, 3, {Failure::Write});
  memory.put("x", deflatedPackage(kData));
  const Package package =
      pkg::QCFPackageFactory().openPackage("x", kIn | kOut, &files, nullptr, nullptr);
  const File file = package->getFile("a", true);
  const Stream reader = file->open(kIn, false);
  reader->exceptions(ios_base::badbit);
  EXPECT_RAISES(50, reader->seekg(100));
  reader->close();
  const Stream writer = file->open(kOut, false);
  *writer << "a change";
  writer->close();
  EXPECT_EQ(1, memory.temporaryFiles());
  EXPECT_EQ("a change", readAll(*file));
  package->doUNSAFEUpdateInPlace();
  EXPECT_EQ(0, memory.temporaryFiles());
  EXPECT_EQ("a change", contents(MemoryPackage(memory.bytes("x")), "a"));
}

TEST(TemporaryCopy, EveryFailureOfTheFilesLeavesAPackageThatCloses) {
  const std::string bytes = deflatedPackage(kData);
  for (int n = 1;; ++n) {  // the n-th call into the file system fails
    support::MemoryFileSystem memory;
    support::RecordingFileSystem recording(memory);
    support::FailingFileSystem files(recording, n);
    memory.put("x", bytes);
    Package package;
    if (raisedBy([&] {
          package = pkg::QCFPackageFactory().openPackage("x", kIn, &files, nullptr, nullptr);
          const Stream stream = package->getFile("a", true)->open(kIn, false);
          stream->exceptions(ios_base::badbit);
          take(*stream, 10);
          stream->seekg(100);
          take(*stream, 10);
          stream->close();
          take(*package->getFile("a", true)->open(kIn, false), kData.size());
          package->close();
        }).code == -1 &&
        !files.hasFailed()) {
      EXPECT_GT(n, 20);
      break;
    }
    package.reset();
    EXPECT_EQ(0, recording.filesAlive()) << "call " << n;
    EXPECT_EQ(0, memory.temporaryFiles()) << "call " << n;
  }
}

TEST(TemporaryCopy, TheCopyLivesAsLongAsThePackageIsOpen) {
  const MemoryPackage package(deflatedPackage(kData));
  package.stream("a")->seekg(100);
  EXPECT_EQ(1, package.memory.temporaryFiles());
  package->close();
  EXPECT_EQ(0, package.memory.temporaryFiles());
}

TEST(TemporaryCopy, TheCopyGoesWithAPackageThatIsNeverClosed) {
  support::MemoryFileSystem memory;
  memory.put("x", deflatedPackage(kData));
  {
    const Package package =
        pkg::QCFPackageFactory().openPackage("x", kIn, &memory, nullptr, nullptr);
    package->getFile("a", true)->open(kIn, false)->seekg(100);
    EXPECT_EQ(1, memory.temporaryFiles());
  }
  EXPECT_EQ(0, memory.temporaryFiles());
}

TEST(TemporaryCopy, ALaterStreamBeginsInTheCopy) {
  const MemoryPackage package(deflatedPackage(kData));
  package.stream("a")->seekg(100);
  package.files.forget();
  EXPECT_EQ(kData, contents(package, "a"));
  EXPECT_EQ(0, onPackage(package.files, FileCall::Read));
  EXPECT_EQ(0, package.files.count(FileCall::CreateTemp));
}

TEST(TemporaryCopy, AnyStreamThatClosesClosesTheCopysFileAndTheNextOpensItAgain) {
  const MemoryPackage package(deflatedPackage(kData));
  const Stream first = package.stream("a");
  const Stream idle = package.stream("a");
  first->seekg(100);
  package.files.forget();
  idle->close();
  EXPECT_EQ(1, package.files.count(FileCall::Close));
  // Its own file was that one: it fails in it, and nothing else happens.
  EXPECT_EQ("", take(*first, 10));
  EXPECT_TRUE(first->bad());
  first->close();
  EXPECT_EQ(1, package.files.count(FileCall::Close));
  const Stream next = package.stream("a");
  EXPECT_EQ(1, package.files.count(FileCall::Reopen));
  next->seekg(300);
  EXPECT_EQ(kData.substr(300), readAll(*next));
}

TEST(TemporaryCopy, TheSecondOfTwoStreamsFindsTheCopyOfTheFirst) {
  const MemoryPackage package(deflatedPackage(kData));
  const Stream first = package.stream("a");
  const Stream second = package.stream("a");
  take(*second, 10);
  first->seekg(100);
  package.files.forget();
  second->seekg(200);
  EXPECT_EQ(0, package.files.count(FileCall::CreateTemp));
  EXPECT_EQ(0, package.files.count(FileCall::Write));
  EXPECT_EQ(0, onPackage(package.files, FileCall::Read));
  EXPECT_EQ(kData.substr(200, 10), take(*second, 10));
  EXPECT_EQ(kData.substr(100, 10), take(*first, 10));
}
