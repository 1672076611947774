#include <cstring>

#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;
using zipbytes::storedEntry;

namespace {

constexpr char kLocalSignature[] = "PK\x03\x04";

// A file of nobody: it does not know its file system.
class FileOfNoSystem : public support::FileSystemWrapper {
public:
  using FileSystemWrapper::FileSystemWrapper;

  static File strip(File file) { return boost::make_shared<Stripped>(std::move(file)); }

private:
  class Stripped : public pkg::IPkgFSFile<> {
  public:
    explicit Stripped(File inner) : fInner(std::move(inner)) {}
    openmode getMode() const override { return fInner->getMode(); }
    void close() override { fInner->close(); }
    int read(void* buffer, int size) override { return fInner->read(buffer, size); }
    void write(const void* buffer, int size) override { fInner->write(buffer, size); }
    void seek(long long offset, int whence) override { fInner->seek(offset, whence); }
    long long tell() override { return fInner->tell(); }
    void flush() override { fInner->flush(); }
    void truncate(long long size) override { fInner->truncate(size); }
    std::uint32_t getCapabilities() override { return fInner->getCapabilities(); }
    pkg::IPkgFileSystem<>* getFileSystem() const override { return nullptr; }
    FileName getName() const override { return fInner->getName(); }

  private:
    File fInner;
  };
};

class CountingParser : public pkg::IXMLParser {
public:
  void setEventHandler(pkg::IXMLParser_EventHandler*) override {}
  void parse(std::istream&) override { ++calls; }
  void parseChunk(const char*, int, bool) override {}
  const char* getErrorText() override { return ""; }
  void finish() override {}

  int calls = 0;
};

}  // namespace

TEST(Opening, AFileOfFewerThanFourBytesIsNoPackage) {
  EXPECT_RAISES(20, MemoryPackage(""));
  EXPECT_RAISES(20, MemoryPackage("PK\x03"));
}

TEST(Opening, AZipFileWithoutEntriesIsNoPackage) {
  EXPECT_RAISES(20, MemoryPackage(zipbytes::File().bytes()));
}

TEST(Opening, AFileThatDoesNotBeginWithALocalHeaderIsNoPackage) {
  EXPECT_RAISES(20, MemoryPackage("Hello, " + packageOf({"a"})));
}

TEST(Opening, ASplitArchiveIsToldFromWhatIsNoPackage) {
  const Raised raised = opening("PK\x07\x08" + packageOf({"a"}));
  EXPECT_EQ(16, raised.code);
  EXPECT_FALSE(raised.isIO);
}

TEST(Opening, AFileTooShortForAnEndRecordFailsInTheFileLayer) {
  const Raised raised = opening(std::string(kLocalSignature) + "12345");
  EXPECT_EQ(50, raised.code);
  EXPECT_TRUE(raised.isIO);
}

TEST(Opening, ASystemFailureCarriesTheSystemsText) {
  support::MemoryFileSystem memory;
  const Raised raised = raisedBy(
      [&] { pkg::QCFPackageFactory().openPackage("absent", kIn, &memory, nullptr, nullptr); });
  EXPECT_EQ(50, raised.code);
  EXPECT_TRUE(raised.isIO);
  EXPECT_EQ(std::strerror(ENOENT), raised.text);
}

TEST(Opening, LeavesAnUnmodifiedPackageWithARoot) {
  const MemoryPackage package(packageOf({"mimetype", "a/b"}));
  EXPECT_EQ(kIn, package->getOpenMode(true));
  EXPECT_FALSE(package->isModified());
  EXPECT_EQ(pkg::CompressionDeflated, package->getDefaultCompressionMethod());
  EXPECT_EQ("a.pkg", package->getName());
  EXPECT_EQ("a.pkg", package->getFSFile()->getName()->getName());
  EXPECT_EQ("/", package->getRootDirectory()->getName());
  EXPECT_EQ(pkg::PkgEntryDirectory, package->getRootDirectory()->getEntryType());
  EXPECT_EQ(0, package->checkConformance());
}

TEST(Opening, AModeWithoutReadingMakesANewPackage) {
  const MemoryPackage package(packageOf({"a"}), nullptr, kOut);
  EXPECT_EQ(Strings{}, walk(*package));
  EXPECT_EQ("/", package->getRootDirectory()->getName());
  EXPECT_EQ(0, package->checkConformance());
}

TEST(Opening, AModeThatTruncatesMakesANewPackage) {
  const MemoryPackage package(packageOf({"a"}), nullptr, kIn | kOut | kTrunc);
  EXPECT_EQ(Strings{}, walk(*package));
  EXPECT_EQ(0, package->checkConformance());
}

TEST(Opening, ANewPackageIsHeldToNoMimetypeRule) {
  const Policy refuse(2);
  EXPECT_NO_THROW(MemoryPackage("", &refuse, kOut | kTrunc));
}

TEST(Opening, ForReadingAndWritingReadsWhatIsThere) {
  const MemoryPackage package(packageOf({"a"}), nullptr, kIn | kOut);
  EXPECT_EQ(Strings{"a"}, walk(*package));
}

TEST(Opening, AnOpenFileIsTakenWithItsModeAndName) {
  support::MemoryFileSystem memory;
  memory.put("x", packageOf({"a"}));
  const auto file = memory.openFile(memory.getFSFileName("x"), kIn | std::ios_base::ate);
  const Package package = pkg::QCFPackageFactory().openPackage(file, nullptr, nullptr);
  EXPECT_EQ(kIn | std::ios_base::ate, package->getOpenMode(true));
  EXPECT_EQ("x", package->getName());
  EXPECT_EQ(file, package->getFSFile());
  EXPECT_EQ("x", readAll(*package->getFile("a", true)));
}

TEST(Opening, AnOpenFileIsRecognisedFromWhereItStands) {
  support::MemoryFileSystem memory;
  memory.put("x", packageOf({"a"}));
  const auto file = memory.openFile(memory.getFSFileName("x"), kIn);
  file->seek(4, SEEK_SET);
  EXPECT_RAISES(20, pkg::QCFPackageFactory().openPackage(file, nullptr, nullptr));
}

TEST(Opening, AFileOfNoFileSystemUsesTheDefaultOne) {
  support::MemoryFileSystem memory;
  support::MemoryFileSystem standard;
  const std::string data = pattern(100);
  zipbytes::File bytes;
  memory.put("x", addDeflated(bytes, "a", data).bytes());
  pkg::QCFPackageFactory factory;
  factory.setDefaultFileSystem(&standard);
  {
    const auto file = FileOfNoSystem::strip(memory.openFile(memory.getFSFileName("x"), kIn));
    const Package package = factory.openPackage(file, nullptr, nullptr);
    const Stream stream = package->getFile("a", true)->open(kIn, false);
    stream->seekg(50);
    EXPECT_EQ(data.substr(50), readAll(*stream));
    EXPECT_EQ(1, standard.temporaryFiles());
    stream->close();
    package->close();
  }
  factory.setDefaultFileSystem(pkg::BasePkgFileSystem<>::getInstance());
}

TEST(Opening, AFailureLeavesNoFileBehind) {
  const std::string good = packageOf({"a"});
  for (const std::string& bytes :
       {std::string(), "PK\x07\x08" + good, std::string(100, 'x'),
        kLocalSignature + std::string(100, 'x'), good.substr(0, good.size() - 30)}) {
    support::MemoryFileSystem memory;
    support::RecordingFileSystem files(memory);
    memory.put("x", bytes);
    EXPECT_NE(-1, raisedBy([&] {
                    pkg::QCFPackageFactory().openPackage("x", kIn, &files, nullptr, nullptr);
                  }).code);
    EXPECT_EQ(1, files.count(support::FileCall::Open));
    EXPECT_EQ(0, files.filesAlive());
  }
}

TEST(Opening, EveryFailureOfTheFileReachesTheClientAndLeavesNothingOpen) {
  const std::string bytes = packageOf({"mimetype", "a", "b"});
  for (int n = 1;; ++n) {  // the n-th call into the file system fails
    support::MemoryFileSystem memory;
    support::RecordingFileSystem files(memory);
    support::FailingFileSystem failing(files, n);
    memory.put("x", bytes);
    const Raised raised = raisedBy(
        [&] { pkg::QCFPackageFactory().openPackage("x", kIn, &failing, nullptr, nullptr); });
    EXPECT_EQ(0, files.filesAlive()) << "call " << n;
    if (!failing.hasFailed()) {
      EXPECT_EQ(-1, raised.code);
      EXPECT_GT(n, 10);
      break;
    }
    EXPECT_EQ(50, raised.code) << "call " << n;
  }
}

TEST(Opening, ReadsNoLocalHeaderButThatOfMimetype) {
  zipbytes::File file;
  addStored(file, "mimetype", "text");
  zipbytes::Entry damaged = storedEntry("a", "x");
  damaged.localSignature = 0;
  const MemoryPackage package(file.add(damaged, "x").bytes());
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("a"));
  EXPECT_RAISES(8, package->getFile("a", true));
}

TEST(Opening, DoesNotReadThePropertiesDocument) {
  CountingParser parser;
  const MemoryPackage package(packageOf({"a", "META-INF/pkgproperties.xml"}), nullptr, kIn,
                              &parser);
  EXPECT_EQ(0, parser.calls);
  package->getFile("a", true)->getProperty(pkg::QCFPropertyMacType);
  EXPECT_EQ(1, parser.calls);
}

TEST(Opening, EveryReadThatComesShortIsNoticed) {
  support::MemoryFileSystem memory;
  const std::string bytes = packageOf({"a"});
  memory.put("x", bytes);
  for (int n = 1;; ++n) {
    support::FailingFileSystem files(memory, n, {support::Failure::ShortRead});
    const Raised raised =
        raisedBy([&] { pkg::QCFPackageFactory().openPackage("x", kIn, &files, nullptr, nullptr); });
    if (!files.hasFailed()) break;
    EXPECT_NE(-1, raised.code) << "read " << n;
  }
}
