#include "package/detail/ZpCentralDir.h"
#include "package/detail/ZpLocalFileEntry.h"

#include "unit/writing/Writing.h"

// The writers of headers and end records, one record at a time.

namespace {

using namespace writing;
using pkg::QCFPropertyPackageComment;
using pkg::QCFPropertyZipDate;
using pkg::QCFPropertyZipTime;
using pkg::QCFPropertyZipTypeCreator;
using Record = pkg::zip::ZpCentralDirEntry<>;
using Directory64 = pkg::zip::ZpCentralDir<>;
using Local = pkg::zip::ZpLocalFileEntry<>;

class HeaderWriters : public Writing {
protected:
  HeaderWriters() : fPackage(create("package")) {}

  void setProperty(const char* path, pkg::QCFPropertyName name, const Bytes& value) {
    zipPackage(fPackage)->getPropertyMgr()->setZipProperty(path, name, value, false);
  }
  // What a writer writes.
  template <class Writer>
  Bytes writtenBy(const Writer& writer) {
    const auto file = fMemory.openFile(fMemory.getFSFileName("out"), kOut | kTrunc);
    writer(file.get(), zipPackage(fPackage));
    return fMemory.bytes("out");
  }
  Bytes centralHeader(Record& record) {
    return writtenBy([&](auto* file, auto* package) { record.writeCDH(file, package); });
  }
  Bytes localHeader(Local& local) {
    return writtenBy([&](auto* file, auto* package) { local.writeLFH(file, package); });
  }
  Bytes endRecords(std::uint64_t entries, std::uint64_t size, std::uint64_t offset) {
    Directory64 directory;
    directory.fEntryCount = entries;
    directory.fDirectorySize = size;
    directory.fDirectoryOffset = offset;
    return writtenBy([&](auto* file, auto* package) { directory.writeECD(file, package); });
  }
  // A record "a.txt" as the reader makes it, with an extra field.
  std::unique_ptr<Record> recordWith(const Bytes& extra) {
    Entry entry = storedEntry("a.txt", "alpha");
    entry.centralExtra = extra;
    fMemory.put("in", zipbytes::centralHeader(entry));
    auto record = std::make_unique<Record>();
    record->readCDH(fMemory.openFile(fMemory.getFSFileName("in"), kIn).get(), zipPackage(fPackage));
    return record;
  }
  static Bytes centralOf(const Bytes& extra) {
    Entry entry = storedEntry("a.txt", "alpha");
    entry.centralExtra = extra;
    return zipbytes::centralHeader(entry);
  }

  Package fPackage;
};

TEST_F(HeaderWriters, OnlyNumbersAboveTheirLimitsBringZip64EndRecords) {
  zipbytes::End end;
  end.entries = 65534;
  end.directorySize = 0xFFFFFFFE;
  end.directoryOffset = 0xFFFFFFFE;
  EXPECT_TRUE(sameBytes(zipbytes::endRecord(end), endRecords(65534, 0xFFFFFFFE, 0xFFFFFFFE)));
}

class EndRecords : public HeaderWriters,
                   public testing::WithParamInterface<std::array<std::uint64_t, 3>> {};

TEST_P(EndRecords, ALargeNumberGoesToTheZip64RecordAndAllOnesToTheEndRecord) {
  const auto [entries, size, offset] = GetParam();
  zipbytes::Zip64End zip64;
  zip64.entries = entries;
  zip64.directorySize = size;
  zip64.directoryOffset = offset;
  zip64.versionNeeded = 0;
  zipbytes::End end;
  end.entries = static_cast<std::uint16_t>(entries > 65534 ? 0xFFFF : entries);
  end.directorySize = static_cast<std::uint32_t>(size > 0xFFFFFFFE ? 0xFFFFFFFF : size);
  end.directoryOffset = static_cast<std::uint32_t>(offset > 0xFFFFFFFE ? 0xFFFFFFFF : offset);
  EXPECT_TRUE(sameBytes(
      zipbytes::zip64EndRecord(zip64) + zipbytes::zip64Locator(0) + zipbytes::endRecord(end),
      endRecords(entries, size, offset)));
}

INSTANTIATE_TEST_SUITE_P(Numbers, EndRecords,
                         testing::Values(std::array<std::uint64_t, 3>{65535, 1, 2},
                                         std::array<std::uint64_t, 3>{65536, 1, 2},
                                         std::array<std::uint64_t, 3>{70000, 1, 2},
                                         std::array<std::uint64_t, 3>{1, 0xFFFFFFFF, 2},
                                         std::array<std::uint64_t, 3>{1, 0x100000000, 2},
                                         std::array<std::uint64_t, 3>{1, 2, 0xFFFFFFFF},
                                         std::array<std::uint64_t, 3>{1, 2, 0x123456789A},
                                         std::array<std::uint64_t, 3>{1 << 20, 1ull << 40,
                                                                      1ull << 50}));

TEST_F(HeaderWriters, ThePackagesCommentIsTakenUpToItsFirstNUL) {
  setProperty("/", QCFPropertyPackageComment, Bytes("seen\0unseen", 11));
  zipbytes::End end;
  end.comment = "seen";
  EXPECT_TRUE(sameBytes(zipbytes::endRecord(end), endRecords(0, 0, 0)));
}

TEST_F(HeaderWriters, AnEmptyCommentHasNoBytes) {
  setProperty("/", QCFPropertyPackageComment, "");
  EXPECT_TRUE(sameBytes(zipbytes::endRecord({}), endRecords(0, 0, 0)));
}

// Its length is cut to 16 bits, and so are its bytes.
TEST_F(HeaderWriters, ACommentOf65536BytesAndMoreIsCut) {
  setProperty("/", QCFPropertyPackageComment, Bytes(65536, 'c'));
  EXPECT_TRUE(sameBytes(zipbytes::endRecord({}), endRecords(0, 0, 0)));
  setProperty("/", QCFPropertyPackageComment, Bytes(65540, 'c'));
  zipbytes::End end;
  end.comment = "cccc";
  EXPECT_TRUE(sameBytes(zipbytes::endRecord(end), endRecords(0, 0, 0)));
}

TEST_F(HeaderWriters, ATypedRecordWithoutExtraFieldGetsABlockOf16Bytes) {
  const auto record = recordWith("");
  setProperty("a.txt", QCFPropertyZipTypeCreator, "5445585474747874");
  EXPECT_TRUE(sameBytes(centralOf(zipbytes::typeCreatorBlock("TEXTttxt")), centralHeader(*record)));
  EXPECT_EQ(record->fHeader.extraLength, 16);
}

TEST_F(HeaderWriters, WrittenAgainATypedRecordIsTheSame) {
  const auto record = recordWith(zipbytes::extraBlock(0x1234, "unknown"));
  setProperty("a.txt", QCFPropertyZipTypeCreator, "5445585474747874");
  const Bytes first = centralHeader(*record);
  EXPECT_TRUE(sameBytes(first, centralHeader(*record)));
}

TEST_F(HeaderWriters, ANewTypeBlockComesBehindTheOthers) {
  const Bytes others = zipbytes::extraBlock(0x1234, "unknown") + zipbytes::extraBlock(0x5678, "");
  const auto record = recordWith(others);
  setProperty("a.txt", QCFPropertyZipTypeCreator, "5445585474747874");
  EXPECT_TRUE(sameBytes(centralOf(others + zipbytes::typeCreatorBlock("TEXTttxt")),
                        centralHeader(*record)));
}

// They are no block, and the record could not be read past without them.
TEST_F(HeaderWriters, BytesThatAreTooFewForABlockStayBehindAllBlocks) {
  const Bytes block = zipbytes::extraBlock(0x1234, "unknown");
  for (const Bytes& rest : {Bytes("\0", 1), Bytes("UT"), Bytes(3, '\0')}) {
    EXPECT_TRUE(sameBytes(centralOf(rest), centralHeader(*recordWith(rest))));
    EXPECT_TRUE(sameBytes(centralOf(block + rest), centralHeader(*recordWith(block + rest))));
  }
  const auto record = recordWith(block + "UT");
  setProperty("a.txt", QCFPropertyZipTypeCreator, "5445585474747874");
  const Bytes typed = centralOf(block + zipbytes::typeCreatorBlock("TEXTttxt") + "UT");
  EXPECT_TRUE(sameBytes(typed, centralHeader(*record)));
  EXPECT_TRUE(sameBytes(typed, centralHeader(*record)));
}

TEST_F(HeaderWriters, AnEmptyTypeTakesTheBlockAwayAndTheOthersKeepTheirPlaces) {
  const Bytes before = zipbytes::extraBlock(0x1234, "before");
  const Bytes behind = zipbytes::extraBlock(0x5678, "behind it");
  const auto record = recordWith(before + behind + zipbytes::typeCreatorBlock("TEXTttxt"));
  setProperty("a.txt", QCFPropertyZipTypeCreator, "");
  EXPECT_TRUE(sameBytes(centralOf(before + behind), centralHeader(*record)));
}

// The second walk is as long as the adjusted length says: what stood behind a dropped block loses
// as many bytes from its end, by whole blocks.
TEST_F(HeaderWriters, BlocksBehindADroppedTypeBlockFallOutOfTheWalk) {
  const Bytes behind = zipbytes::extraBlock(0x5678, "behind");
  const auto record = recordWith(zipbytes::typeCreatorBlock("TEXTttxt") + behind);
  setProperty("a.txt", QCFPropertyZipTypeCreator, "");
  Entry entry = storedEntry("a.txt", "alpha");
  entry.centralExtraLength = static_cast<int>(behind.size());
  EXPECT_TRUE(sameBytes(zipbytes::centralHeader(entry), centralHeader(*record)));
}

TEST_F(HeaderWriters, ATypeBlockOf20BytesIsWrittenBackAs16) {
  const auto record = recordWith(zipbytes::extraBlock(0x2705, "ZPITTEXTttxtmore"));
  EXPECT_TRUE(sameBytes(centralOf(zipbytes::typeCreatorBlock("TEXTttxt")), centralHeader(*record)));
}

TEST_F(HeaderWriters, ATypeBlockWithoutItsMarkIsFoundByItsNumberAlone) {
  const auto record = recordWith(zipbytes::extraBlock(0x2705, "????TEXTttxt"));
  EXPECT_TRUE(sameBytes(centralOf(""), centralHeader(*record)));
}

TEST_F(HeaderWriters, DateAndTimeComeFromThePropertiesAndTheTimeNeedsADate) {
  const auto record = recordWith("");
  Local local(*record, zipPackage(fPackage));
  const Bytes asRead = zipbytes::u16(kTime) + zipbytes::u16(kDate);
  setProperty("a.txt", QCFPropertyZipDate, "");
  setProperty("a.txt", QCFPropertyZipTime, "0100");
  EXPECT_EQ(centralHeader(*record).substr(12, 4), asRead);
  EXPECT_EQ(localHeader(local).substr(10, 4), asRead);
  setProperty("a.txt", QCFPropertyZipDate, "3412");
  EXPECT_EQ(centralHeader(*record).substr(12, 4), Bytes("\x01\x00\x34\x12", 4));
  EXPECT_EQ(localHeader(local).substr(10, 4), Bytes("\x01\x00\x34\x12", 4));
  setProperty("a.txt", QCFPropertyZipTime, "");  // decodes as nothing
  EXPECT_EQ(centralHeader(*record).substr(12, 4), Bytes("\x00\x00\x34\x12", 4));
}

TEST_F(HeaderWriters, TheLocalHeaderTakesOverNoBlocksButItsOwn) {
  const auto record = recordWith(zipbytes::extraBlock(0x1234, "unknown"));
  Local plain(*record, zipPackage(fPackage));
  EXPECT_EQ(localHeader(plain).size(), 35u);

  setProperty("a.txt", QCFPropertyZipTypeCreator, "5445585474747874");
  Local typed(*record, zipPackage(fPackage));
  EXPECT_EQ(localHeader(typed).substr(28),
            zipbytes::u16(16) + "a.txt" + zipbytes::typeCreatorBlock("TEXTttxt"));

  record->fUncompressedSize = 0x123456789;
  record->fCompressedSize = 0x98765432;
  Local zip64(*record, zipPackage(fPackage));
  EXPECT_EQ(localHeader(zip64).substr(28), zipbytes::u16(36) + "a.txt" +
                                               zipbytes::zip64Block({0x123456789, 0x98765432}) +
                                               zipbytes::typeCreatorBlock("TEXTttxt"));
}

TEST_F(HeaderWriters, AHeaderThatEqualsItsRecordNeedsNoRewriting) {
  const auto record = recordWith("");
  Local local(*record, zipPackage(fPackage));
  EXPECT_FALSE(local.updateFromCDEntry(false, *record));
  EXPECT_FALSE(local.updateFromCDEntry(true, *record));
}

TEST_F(HeaderWriters, AnotherCRCOrSizeMeansRewriting) {
  const auto record = recordWith("");
  Local local(*record, zipPackage(fPackage));
  record->fHeader.crc32 ^= 0x10000;
  EXPECT_TRUE(local.updateFromCDEntry(false, *record));
  EXPECT_FALSE(local.updateFromCDEntry(false, *record));
  record->fHeader.compressedSize = 0x10005;
  EXPECT_TRUE(local.updateFromCDEntry(false, *record));
  record->fHeader.uncompressedSize = 6;
  EXPECT_TRUE(local.updateFromCDEntry(false, *record));
  EXPECT_EQ(localHeader(local).substr(18, 8), zipbytes::u32(0x10005) + zipbytes::u32(6));
}

TEST_F(HeaderWriters, WhereSizesAreFinalAnotherSizeRaises17AndAnotherCRCDoesNot) {
  const auto record = recordWith("");
  Local local(*record, zipPackage(fPackage));
  record->fHeader.crc32 ^= 1;
  EXPECT_TRUE(local.updateFromCDEntry(true, *record));
  record->fHeader.uncompressedSize = 6;
  EXPECT_RAISED("17", local.updateFromCDEntry(true, *record));
}

TEST_F(HeaderWriters, WithADescriptorTheHeaderIsAlwaysOutOfDateAndNeverChanged) {
  const auto record = recordWith("");
  record->fHeader.flags |= kDescriptor;
  Local local(*record, zipPackage(fPackage));
  const Bytes before = localHeader(local);
  record->fHeader.uncompressedSize = 6;
  EXPECT_TRUE(local.updateFromCDEntry(true, *record));
  EXPECT_TRUE(local.updateFromCDEntry(true, *record));
  EXPECT_EQ(localHeader(local), before);
  EXPECT_EQ(writtenBy([&](auto* file, auto*) { local.writeDescriptor(file); }),
            zipbytes::dataDescriptor(zipbytes::crc32("alpha"), 5, 6));
}

TEST_F(HeaderWriters, AZip64DescriptorHasSizesOf64Bits) {
  const auto record = recordWith("");
  record->fHeader.flags |= kDescriptor;
  record->fUncompressedSize = 0x1FFFFFFFF;
  Local local(*record, zipPackage(fPackage));
  record->fCompressedSize = 0x234567890;
  EXPECT_TRUE(local.updateFromCDEntry(false, *record));
  EXPECT_EQ(writtenBy([&](auto* file, auto*) { local.writeDescriptor(file); }),
            zipbytes::dataDescriptor64(zipbytes::crc32("alpha"), 0x234567890, 0x1FFFFFFFF));
}

// The header has no room for more; all ones, which only the constructor takes for large, still fit.
TEST_F(HeaderWriters, ASizeAbove32BitsNeedsAHeaderThatWasMadeForIt) {
  const auto record = recordWith("");
  Local local(*record, zipPackage(fPackage));
  record->fUncompressedSize = 0xFFFFFFFF;
  record->fCompressedSize = 0xFFFFFFFF;
  EXPECT_NO_THROW(local.updateFromCDEntry(false, *record));
  record->fUncompressedSize = 0x100000000;
  EXPECT_RAISED("7", local.updateFromCDEntry(false, *record));
  record->fUncompressedSize = 0;
  record->fCompressedSize = 0x100000000;
  EXPECT_RAISED("7", local.updateFromCDEntry(false, *record));
}

TEST_F(HeaderWriters, AZip64BlockOfTheLocalHeaderFollowsTheRecord) {
  const auto record = recordWith("");
  record->fUncompressedSize = 0xFFFFFFFF;
  Local local(*record, zipPackage(fPackage));
  EXPECT_FALSE(local.updateFromCDEntry(false, *record));
  record->fCompressedSize = 0x200000000;
  EXPECT_TRUE(local.updateFromCDEntry(false, *record));
  EXPECT_EQ(localHeader(local).substr(35), zipbytes::zip64Block({0xFFFFFFFF, 0x200000000}));
}

// The block in memory has a fixed place for each number; on disk they stand next to each other.
TEST_F(HeaderWriters, TheDirectorysZip64BlockIsPackedWhenItIsWritten) {
  struct Case {
    std::uint64_t size, compressed, offset;
    std::vector<std::uint64_t> packed;
  };
  const std::uint64_t big = 0x123456789;
  const std::uint64_t ones = 0xFFFFFFFF;
  for (const Case& c :
       {Case{big, 5, 7, {big}}, Case{5, big, 7, {big}}, Case{5, 6, big, {big}},
        Case{big, ones, 7, {big, ones}}, Case{ones, 6, big, {ones, big}},
        Case{5, big, ones, {big, ones}}, Case{big, big + 1, big + 2, {big, big + 1, big + 2}}}) {
    const auto record = recordWith("");
    record->fLocalOffset = c.offset;
    record->setFinalNumbers(c.size, c.compressed);
    Entry entry = storedEntry("a.txt", "alpha");
    const auto field = [](std::uint64_t number) {
      return static_cast<std::uint32_t>(number > 0xFFFFFFFE ? 0xFFFFFFFF : number);
    };
    entry.versionMadeBy = entry.versionNeeded = 45;
    entry.size = field(c.size);
    entry.compressedSize = field(c.compressed);
    entry.offset = field(c.offset);
    entry.centralExtra = zipbytes::zip64Block(c.packed);
    EXPECT_TRUE(sameBytes(zipbytes::centralHeader(entry), centralHeader(*record)));
  }
}

TEST_F(HeaderWriters, TheLargestSmallNumbersNeedNoZip64) {
  const auto record = recordWith("");
  record->fLocalOffset = 0xFFFFFFFE;
  record->setFinalNumbers(0xFFFFFFFE, 0xFFFFFFFE);
  Entry entry = storedEntry("a.txt", "alpha");
  entry.size = entry.compressedSize = entry.offset = 0xFFFFFFFE;
  EXPECT_TRUE(sameBytes(zipbytes::centralHeader(entry), centralHeader(*record)));
}

// The new block takes the place of the whole extra field.
TEST_F(HeaderWriters, Zip64TakesThePlaceOfEveryOtherBlock) {
  const auto record = recordWith(zipbytes::extraBlock(0x1234, "unknown"));
  record->setFinalNumbers(0xFFFFFFFF, 5);
  EXPECT_EQ(centralHeader(*record).substr(51), zipbytes::zip64Block({0xFFFFFFFF}));
}

TEST_F(HeaderWriters, AFailedWriteComesAsTheFileRaisedIt) {
  const auto record = recordWith("");
  Local local(*record, zipPackage(fPackage));
  support::FailingFileSystem failing(fMemory, 1, {support::Failure::Write},
                                     support::FailingFileSystem::Span::FromThereOn);
  const auto file = failing.openFile(failing.getFSFileName("out"), kOut | kTrunc);
  EXPECT_RAISED("IO 50", record->writeCDH(file.get(), zipPackage(fPackage)));
  EXPECT_RAISED("IO 50", local.writeLFH(file.get(), zipPackage(fPackage)));
  EXPECT_RAISED("IO 50", Directory64().writeECD(file.get(), zipPackage(fPackage)));
}

}  // namespace
