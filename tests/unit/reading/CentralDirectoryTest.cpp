#include <memory>

#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;
using zipbytes::storedEntry;

namespace {

constexpr std::uint32_t kAllOnes = 0xFFFFFFFF;

std::string comment(const MemoryPackage& package) {
  return package->getProperty(pkg::QCFPropertyPackageComment);
}

std::string property(const MemoryPackage& package, const std::string& path,
                     pkg::QCFPropertyName name) {
  return package->getFile(path, true)->getProperty(name);
}

// One file "a" of eight bytes, whose record carries `extra` and the 32-bit numbers given.
std::string withExtra(const std::string& extra, std::uint32_t size, std::uint32_t compressed,
                      std::uint32_t offset = 0) {
  const zipbytes::Entry local = storedEntry("a", "12345678");
  zipbytes::Entry central = local;
  central.centralExtra = extra;
  central.size = size;
  central.compressedSize = compressed;
  central.offset = offset;
  zipbytes::File file;
  file.raw(localHeader(local) + "12345678").list(central);
  return file.bytes();
}

// A directory on its own, read from bytes that need not be a package.
class Reader {
public:
  explicit Reader(const std::string& bytes) {
    fMemory.put("x", bytes);
    file = fMemory.openFile(fMemory.getFSFileName("x"), kIn);
  }

  void readECD() { directory.readECD(file.get(), package()); }
  void readZip64Data() { directory.readZip64Data(file.get()); }
  void readCDEntries() { directory.readCDEntries(file.get(), package()); }
  pkg::zip::ZipPackage<>* package() const {
    return dynamic_cast<pkg::zip::ZipPackage<>*>(&*fPackage);
  }

  pkg::zip::ZpCentralDir<> directory;
  boost::shared_ptr<pkg::IPkgFSFile<>> file;

private:
  support::MemoryFileSystem fMemory;
  MemoryPackage fPackage{packageOf({"a"})};
};

}  // namespace

TEST(CentralDirectory, ARecordAtTheVeryEndIsTakenWithoutReadingAComment) {
  zipbytes::File file;
  addStored(file, "a", "x");
  zipbytes::End end = file.end();
  end.commentLength = 100;
  const MemoryPackage package(file.bytes(end));
  EXPECT_EQ(Strings{"a"}, walk(*package));
  EXPECT_EQ("", comment(package));
}

TEST(CentralDirectory, ACommentOf100BytesBecomesTheProperty) {
  const std::string text(100, 'c');
  zipbytes::File file;
  addStored(file, "a", "x");
  const MemoryPackage package(file.bytes(file.end(text)));
  EXPECT_EQ(Strings{"a"}, walk(*package));
  EXPECT_EQ(text, comment(package));
}

TEST(CentralDirectory, ACommentOfAnyLengthIsFound) {
  zipbytes::File file;
  addStored(file, "a", "x");
  // Around the seams of the slices in which the end is looked for, and the longest.
  for (const std::size_t length :
       {1u,    3u,    4u,    18u,   22u,   4000u, 4050u, 4070u, 4071u, 4072u, 4073u, 4074u,
        4075u, 4076u, 4092u, 4093u, 4094u, 4095u, 4096u, 4097u, 8180u, 8186u, 8190u, 65535u}) {
    const std::string text(length, 'c');
    const MemoryPackage package(file.bytes(file.end(text)));
    EXPECT_EQ(text, comment(package)) << length;
  }
}

TEST(CentralDirectory, ACommentEndsAtItsFirstNul) {
  zipbytes::File file;
  addStored(file, "a", "x");
  EXPECT_EQ("ab", comment(MemoryPackage(file.bytes(file.end(std::string("ab\0cd", 5))))));
}

TEST(CentralDirectory, ASignatureInsideTheCommentWins) {
  zipbytes::File file;
  addStored(file, "a", "x");
  // The comment is an end record of no entries with a comment of its own.
  zipbytes::End inner;
  inner.comment = "inner";
  const MemoryPackage package(file.bytes(file.end(zipbytes::endRecord(inner))));
  EXPECT_EQ(Strings{}, walk(*package));
  EXPECT_EQ("inner", comment(package));
}

TEST(CentralDirectory, ARecordCutOffByTheEndOfTheFileIsReadAsFarAsItGoes) {
  // A signature in the last 21 bytes, whose numbers come out of what is there and of zeros.
  zipbytes::File file;
  addStored(file, "a", "x");
  const MemoryPackage package(file.bytes(file.end("PK\x05\x06")));
  EXPECT_EQ(Strings{"a"}, walk(*package));
}

TEST(CentralDirectory, BytesBehindTheRecordAreNoComment) {
  zipbytes::File file;
  addStored(file, "a", "x");
  const MemoryPackage package(file.bytes() + "appended");
  EXPECT_EQ(Strings{"a"}, walk(*package));
  EXPECT_EQ("", comment(package));
}

TEST(CentralDirectory, TheNumberOfEntriesComesFromTheTotalField) {
  zipbytes::File file;
  addStored(file, "a", "x");
  addStored(file, "b", "x");
  zipbytes::End end = file.end();
  end.entriesOnDisk = 77;
  end.disk = 5;
  end.directorySize = 1;
  EXPECT_EQ((Strings{"a", "b"}), walk(*MemoryPackage(file.bytes(end))));
  end.entries = 1;
  EXPECT_EQ(Strings{"a"}, walk(*MemoryPackage(file.bytes(end))));
}

TEST(CentralDirectory, ARecordInTheFirstThreeBytesIsNotFoundByTheScan) {
  const auto readBehind = [](std::size_t before) {
    Reader reader(std::string(before, 'x') + zipbytes::endRecord({}) + "behind");
    reader.readECD();
  };
  for (const std::size_t before : {0u, 1u, 2u})
    EXPECT_RAISES(11, readBehind(before));
  EXPECT_NO_THROW(readBehind(3));
}

TEST(CentralDirectory, AFileOf22BytesThatIsAnEndRecordHasNoEntries) {
  Reader reader(zipbytes::endRecord({}));
  reader.readECD();
  reader.readZip64Data();
  reader.readCDEntries();
  EXPECT_EQ(0u, reader.directory.fEntryCount);
  EXPECT_TRUE(reader.directory.fEntries.empty());
  EXPECT_GE(reader.directory.fEntries.capacity(), 10u);
}

TEST(CentralDirectory, AFileSmallerThanARecordFailsInTheFileLayer) {
  Reader reader(std::string(21, 'x'));
  const Raised raised = raisedBy([&] { reader.readECD(); });
  EXPECT_EQ(50, raised.code);
  EXPECT_TRUE(raised.isIO);
}

TEST(CentralDirectory, MarkersInTheEndRecordDoNotLeadToZip64Records) {
  zipbytes::File file;
  addStored(file, "a", "x");
  zipbytes::End end = file.end();
  zipbytes::Zip64End zip64;
  zip64.entries = 1;
  zip64.directorySize = end.directorySize;
  zip64.directoryOffset = end.directoryOffset;
  end.entries = 0xFFFF;
  end.directoryOffset = kAllOnes;
  const std::size_t at = file.offset() + file.directory().size();
  const std::string bytes = file.bytes(end);
  const int code = opening(bytes.substr(0, at) + zip64EndRecord(zip64) +
                           zipbytes::zip64Locator(at) + bytes.substr(at))
                       .code;
  EXPECT_TRUE(code == 2 || code == 3) << code;
}

TEST(CentralDirectory, AZip64BlockOfEightBytesGivesTheUncompressedSizeOnly) {
  Reader reader(withExtra(zipbytes::zip64Block({8}), kAllOnes, kAllOnes));
  reader.readECD();
  reader.readCDEntries();
  const auto& record = *reader.directory.fEntries.at(0);
  EXPECT_EQ(8u, record.fUncompressedSize);
  EXPECT_EQ(kAllOnes, record.fCompressedSize);
}

TEST(CentralDirectory, AZip64BlockHoldsOnlyTheMarkedNumbersInOrder) {
  const auto numbersOf = [](const std::string& bytes) {
    Reader reader(bytes);
    reader.readECD();
    reader.readCDEntries();
    const auto& record = *reader.directory.fEntries.at(0);
    return std::vector<std::uint64_t>{record.fUncompressedSize, record.fCompressedSize,
                                      record.fLocalOffset};
  };
  using Numbers = std::vector<std::uint64_t>;
  const std::string three = zipbytes::zip64Block({11, 12, 13});
  EXPECT_EQ((Numbers{11, 12, 13}), numbersOf(withExtra(three, kAllOnes, kAllOnes, kAllOnes)));
  EXPECT_EQ((Numbers{8, 11, 12}), numbersOf(withExtra(three, 8, kAllOnes, kAllOnes)));
  EXPECT_EQ((Numbers{11, 8, 12}), numbersOf(withExtra(three, kAllOnes, 8, kAllOnes)));
  EXPECT_EQ((Numbers{8, 8, 11}), numbersOf(withExtra(three, 8, 8, kAllOnes)));
  EXPECT_EQ((Numbers{8, 8, 0}), numbersOf(withExtra(three, 8, 8, 0)));
  // One half of the offset is not enough.
  EXPECT_EQ((Numbers{8, 8, 0xFFFF}), numbersOf(withExtra(three, 8, 8, 0xFFFF)));
}

TEST(CentralDirectory, AZip64BlockThatIsCutOffLeavesTheSizeAndReadsOnBehindIt) {
  // The block claims 16 bytes of which 7 are there, then 15.
  for (const std::size_t there : {7u, 8u, 15u}) {
    const std::string whole = zipbytes::zip64Block({8, 9});
    Reader reader(withExtra(whole.substr(0, 4 + there), kAllOnes, kAllOnes));
    reader.readECD();
    reader.readCDEntries();
    const auto& record = *reader.directory.fEntries.at(0);
    EXPECT_EQ(there < 8 ? kAllOnes : 8u, record.fUncompressedSize) << there;
    EXPECT_EQ(kAllOnes, record.fCompressedSize) << there;
  }
}

TEST(CentralDirectory, AZip64OffsetLeadsToTheLocalHeader) {
  const MemoryPackage package(withExtra(zipbytes::zip64Block({0}), 8, 8, kAllOnes));
  EXPECT_EQ("12345678", contents(package, "a"));
}

TEST(CentralDirectory, TypeAndCreatorBecomeAProperty) {
  const MemoryPackage package(withExtra(zipbytes::typeCreatorBlock("TEXTttxt"), 8, 8));
  EXPECT_EQ("5445585474747874", property(package, "a", pkg::QCFPropertyZipTypeCreator));
}

TEST(CentralDirectory, AShortOrUnmarkedBlockOfTypeAndCreatorIsPassedOver) {
  for (const std::string& block :
       {zipbytes::extraBlock(0x2705, "ZPITTEXTttx"), zipbytes::extraBlock(0x2705, "zpitTEXTttxt"),
        zipbytes::extraBlock(0x2706, "ZPITTEXTttxt"), zipbytes::extraBlock(0x2705, "")}) {
    const MemoryPackage package(withExtra(block, 8, 8));
    EXPECT_EQ("", property(package, "a", pkg::QCFPropertyZipTypeCreator));
    EXPECT_EQ("12345678", contents(package, "a"));
  }
}

TEST(CentralDirectory, UnknownBlocksArePassedOver) {
  const MemoryPackage package(withExtra(zipbytes::extraBlock(0x5455, "12345") +
                                            zipbytes::extraBlock(0x9999, "") +
                                            zipbytes::typeCreatorBlock("TEXTttxt"),
                                        8, 8));
  EXPECT_EQ("5445585474747874", property(package, "a", pkg::QCFPropertyZipTypeCreator));
}

TEST(CentralDirectory, ALastBlockThatRunsPastTheEndEndsTheWalkWithoutAnError) {
  for (const std::string& tail :
       {zipbytes::u16(0x5455) + zipbytes::u16(0xFFFF),
        zipbytes::u16(0x0001) + zipbytes::u16(0xFFFF) + "12",
        zipbytes::u16(0x2705) + zipbytes::u16(12) + "ZPIT", std::string("abc")}) {
    const MemoryPackage package(withExtra(zipbytes::typeCreatorBlock("TEXTttxt") + tail, 8, 8));
    EXPECT_EQ("5445585474747874", property(package, "a", pkg::QCFPropertyZipTypeCreator));
    EXPECT_EQ("12345678", contents(package, "a"));
  }
}

TEST(CentralDirectory, TwoRecordsOfOneNameBothStay) {
  zipbytes::File file;
  addStored(file, "a", "first");
  addStored(file, "a", "second");
  Reader reader(file.bytes());
  reader.readECD();
  reader.readCDEntries();
  EXPECT_EQ(2u, reader.directory.fEntries.size());
  EXPECT_EQ((Strings{"a", "a"}), walk(*MemoryPackage(file.bytes())));
}

TEST(CentralDirectory, DatesAndTimesBecomeProperties) {
  zipbytes::Entry entry = storedEntry("a", "x");
  entry.date = 0x1234;
  entry.time = 0x5678;
  zipbytes::File file;
  const MemoryPackage package(file.add(entry, "x").bytes());
  EXPECT_EQ("3412", property(package, "a", pkg::QCFPropertyZipDate));
  EXPECT_EQ("7856", property(package, "a", pkg::QCFPropertyZipTime));
}

TEST(CentralDirectory, TheVersionFlagsMethodDiskAndAttributesAreNotLookedAt) {
  zipbytes::Entry entry = storedEntry("a", "x");
  entry.versionNeeded = 0xFFFF;
  entry.versionMadeBy = 0xFFFF;
  entry.flags = 0xFFFF;  // encryption among them
  entry.disk = 7;
  entry.internalAttributes = 0xFFFF;
  entry.externalAttributes = kAllOnes;
  entry.comment = "of the entry";
  zipbytes::File file;
  const MemoryPackage package(file.add(entry, "x").bytes());
  EXPECT_EQ("x", contents(package, "a"));
  EXPECT_EQ("", comment(package));
}

TEST(CentralDirectory, ARecordWithoutANameIsRefused) {
  zipbytes::File file;
  addStored(file, "", "x");
  EXPECT_RAISES(4, MemoryPackage(file.bytes()));
}

TEST(CentralDirectory, RecordsBeforeAFailureStay) {
  zipbytes::File file;
  addStored(file, "a", "x");
  zipbytes::Entry damaged = storedEntry("b", "x");
  damaged.centralSignature = 0;
  Reader reader(file.add(damaged, "x").bytes());
  reader.readECD();
  EXPECT_RAISES(3, reader.readCDEntries());
  ASSERT_EQ(1u, reader.directory.fEntries.size());
  EXPECT_STREQ("a", reader.directory.fEntries[0]->fName.get());
}

// The road of the Zip64 end records, which the numbers of an end record never lead to.
class Zip64EndRecords : public testing::Test {
protected:
  static std::string file(std::uint32_t locatorSignature, std::uint32_t recordSignature,
                          std::uint64_t offset = 0) {
    zipbytes::Zip64End end;
    end.entries = 3;
    end.directorySize = 4;
    end.directoryOffset = 5;
    end.signature = recordSignature;
    return zip64EndRecord(end) + zipbytes::zip64Locator(offset, 1, locatorSignature) +
           zipbytes::endRecord({});
  }
  static constexpr std::uint32_t kLocator = 0x07064b50;
  static constexpr std::uint32_t kRecord = 0x06064b50;
  static constexpr std::uint64_t kMarker = ~std::uint64_t{0};

  static Raised readFrom(const std::string& bytes) {
    Reader reader(bytes);
    reader.directory.fEntryCount = kMarker;
    return raisedBy([&] { reader.readZip64Data(); });
  }
};

TEST_F(Zip64EndRecords, AreReadWhenAnyNumberIsTheMarker) {
  using CentralDir = pkg::zip::ZpCentralDir<>;
  for (const auto number :
       {&CentralDir::fEntryCount, &CentralDir::fDirectorySize, &CentralDir::fDirectoryOffset}) {
    Reader reader(file(kLocator, kRecord));
    reader.directory.*number = kMarker;
    reader.readZip64Data();
    EXPECT_EQ(3u, reader.directory.fEntryCount);
    EXPECT_EQ(4u, reader.directory.fDirectorySize);
    EXPECT_EQ(5u, reader.directory.fDirectoryOffset);
  }
}

TEST_F(Zip64EndRecords, AreLeftAloneOtherwise) {
  Reader reader(file(0, 0));
  reader.directory.fEntryCount = 0xFFFF;
  reader.directory.fDirectoryOffset = kAllOnes;
  EXPECT_NO_THROW(reader.readZip64Data());
  EXPECT_EQ(0xFFFFu, reader.directory.fEntryCount);
}

TEST_F(Zip64EndRecords, FailWithANumberForEachStep) {
  EXPECT_EQ(13, readFrom(file(1, kRecord)).code);
  EXPECT_EQ(14, readFrom(file(kLocator, kRecord, 80)).code);
  EXPECT_EQ(15, readFrom(file(kLocator, 1)).code);
  EXPECT_EQ(-1, readFrom(file(kLocator, kRecord)).code);
}

TEST_F(Zip64EndRecords, AnEntryCountBeyondEveryVectorIsRefused) {
  Reader reader(file(kLocator, kRecord));
  reader.directory.fEntryCount = (std::uint64_t{1} << 60);
  const Raised raised = raisedBy([&] { reader.readCDEntries(); });
  EXPECT_EQ(9, raised.code);
  EXPECT_TRUE(raised.isIO);
}
