#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "package/detail/ZpCentralDir.h"

#include "support/Raised.h"
#include "support/ZipBytes.h"
#include "unit/package/detail/TestPackage.h"

// How one record of a directory is read.

namespace {

using namespace pkg;
using support::ioError;
using support::nothing;
using support::Raised;
using support::raised;
using support::TestPackage;
using zipbytes::centralHeader;
using zipbytes::Entry;
using zipbytes::extraBlock;
using zipbytes::u16;
using zipbytes::u32;
using zipbytes::u64;

constexpr std::uint32_t kAllOnes = 0xFFFFFFFF;

Entry named(const std::string& name) {
  Entry entry;
  entry.name = name;
  return entry;
}

class CentralRecord : public testing::Test {
protected:
  Raised read(const std::string& bytes) {
    file = package.file(bytes);
    return raised([&] { record.readCDH(file.get(), package.zip()); });
  }
  Raised read(const Entry& entry) { return read(centralHeader(entry)); }
  // An entry with this extra field and sizes and offset all ones where told.
  void readExtra(const std::string& extra, bool uncompressed = true, bool compressed = true,
                 bool offset = true) {
    Entry entry = named("name");
    entry.size = uncompressed ? kAllOnes : 11;
    entry.compressedSize = compressed ? kAllOnes : 12;
    entry.offset = offset ? kAllOnes : 13;
    entry.centralExtra = extra;
    EXPECT_EQ(read(entry), nothing());
  }
  std::vector<std::uint64_t> numbers() const {
    return {record.fUncompressedSize, record.fCompressedSize, record.fLocalOffset};
  }
  std::string typeAndCreator() const {
    return package.properties().getZipProperty("name", QCFPropertyZipTypeCreator, nullptr);
  }

  TestPackage package;
  zip::ZpCentralDirEntry<> record;
  boost::shared_ptr<IPkgFSFile<>> file;
};

TEST_F(CentralRecord, IsReadAsTheFileSaysIt) {
  Entry entry = named("folder/name");
  entry.flags = 0x0809;
  entry.method = 99;
  entry.time = 0x1122;
  entry.date = 0x3344;
  entry.crc = 0xDEADBEEF;
  entry.compressedSize = 0x80000001;
  entry.size = 0xFFFFFFFE;
  entry.centralExtra = extraBlock(0x5455, "opaque");
  entry.comment = "a comment";
  entry.disk = 7;
  entry.internalAttributes = 8;
  entry.externalAttributes = 0x81A40010;
  entry.offset = 0xFFFF1234;
  const std::string bytes = centralHeader(entry);
  EXPECT_EQ(read(bytes + "behind"), nothing());
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&record.fHeader), 46), bytes.substr(0, 46));
  EXPECT_STREQ(record.fName.get(), "folder/name");
  EXPECT_EQ(std::string(record.fExtra.get(), entry.centralExtra.size()), entry.centralExtra);
  EXPECT_STREQ(record.fComment.get(), "a comment");
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{0xFFFFFFFE, 0x80000001, 0xFFFF1234}));
  EXPECT_EQ(file->tell(), static_cast<long long>(bytes.size())) << "just behind the comment";
}

TEST_F(CentralRecord, WhatHasNoLengthIsNull) {
  EXPECT_EQ(read(named("")), nothing());
  EXPECT_FALSE(record.fName);
  EXPECT_FALSE(record.fExtra);
  EXPECT_FALSE(record.fComment);
}

TEST_F(CentralRecord, TheLongestNameExtraFieldAndCommentAreRead) {
  Entry entry = named(std::string(65535, 'n'));
  entry.centralExtra = extraBlock(7, std::string(65531, 'e'));
  entry.comment = std::string(65535, 'c');
  EXPECT_EQ(read(entry), nothing());
  EXPECT_EQ(record.fName.get(), entry.name);
  EXPECT_EQ(std::string(record.fExtra.get(), 65535), entry.centralExtra);
  EXPECT_EQ(record.fComment.get(), entry.comment);
}

TEST_F(CentralRecord, AShortReadOfTheHeaderRaises2) {
  EXPECT_EQ(read(""), ioError(2));
  EXPECT_EQ(read(centralHeader(named("")).substr(0, 45)), ioError(2));
}

TEST_F(CentralRecord, AWrongSignatureRaises3) {
  Entry entry = named("name");
  entry.centralSignature = 0x04034b50;
  EXPECT_EQ(read(entry), ioError(3));
  EXPECT_EQ(read(std::string(46, '\0')), ioError(3));
}

TEST_F(CentralRecord, AShortReadOfTheNameRaises4) {
  const std::string bytes = centralHeader(named("name"));
  for (const std::size_t cut : {1u, 4u}) {
    EXPECT_EQ(read(bytes.substr(0, bytes.size() - cut)), ioError(4));
  }
}

TEST_F(CentralRecord, AShortReadOfTheExtraFieldRaises5) {
  Entry entry = named("name");
  entry.centralExtra = extraBlock(7, "body");
  const std::string bytes = centralHeader(entry);
  for (const std::size_t cut : {1u, 8u}) {
    EXPECT_EQ(read(bytes.substr(0, bytes.size() - cut)), ioError(5));
  }
}

TEST_F(CentralRecord, AShortReadOfTheCommentRaises6) {
  Entry entry = named("name");
  entry.comment = "comment";
  const std::string bytes = centralHeader(entry);
  for (const std::size_t cut : {1u, 7u}) {
    EXPECT_EQ(read(bytes.substr(0, bytes.size() - cut)), ioError(6));
  }
}

// The Zip64 block.

TEST_F(CentralRecord, AZip64BlockSuppliesEveryNumberThatIsMarked) {
  readExtra(zipbytes::zip64Block({0x100000001, 0x200000002, 0x300000003}));
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{0x100000001, 0x200000002, 0x300000003}));
}

TEST_F(CentralRecord, NumbersThatAreNotMarkedHaveNoPlaceInTheZip64Block) {
  for (int marked = 0; marked < 8; ++marked) {
    const bool u = (marked & 1) != 0;
    const bool c = (marked & 2) != 0;
    const bool o = (marked & 4) != 0;
    std::vector<std::uint64_t> held;
    if (u) held.push_back(0x1111111111);
    if (c) held.push_back(0x2222222222);
    if (o) held.push_back(0x3333333333);
    readExtra(zipbytes::zip64Block(held), u, c, o);
    const std::vector<std::uint64_t> expected = {u ? 0x1111111111u : 11u, c ? 0x2222222222u : 12u,
                                                 o ? 0x3333333333u : 13u};
    EXPECT_EQ(numbers(), expected) << marked;
  }
}

TEST_F(CentralRecord, AZip64BlockOfEightBytesSuppliesTheUncompressedSizeOnly) {
  readExtra(zipbytes::zip64Block({0x100000001}), true, true, false);
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{0x100000001, kAllOnes, 13}));
}

TEST_F(CentralRecord, AZip64BlockSmallerThanANumberSuppliesNothing) {
  readExtra(extraBlock(1, "1234567"));
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{kAllOnes, kAllOnes, kAllOnes}));
  readExtra(extraBlock(1, ""));
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{kAllOnes, kAllOnes, kAllOnes}));
}

TEST_F(CentralRecord, TheDiskNumberOfAZip64BlockIsNotRead) {
  readExtra(extraBlock(1, u64(1) + u64(2) + u64(3) + u32(4)));
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2, 3}));
}

TEST_F(CentralRecord, ANumberThatIsCutOffByTheExtraFieldsEndStaysAsItWas) {
  readExtra(u16(1) + u16(24) + u64(0x100000001) + "1234567");
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{0x100000001, kAllOnes, kAllOnes}));
}

TEST_F(CentralRecord, BehindANumberThatIsCutOffTheNextIsLookedForEightBytesOn) {
  readExtra(u16(1) + u16(24) + "1234567");
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{kAllOnes, kAllOnes, kAllOnes}))
      << "not in the same bytes again";
}

TEST_F(CentralRecord, AZip64BlockThatClaimsMoreThanTheFieldHoldsSuppliesWhatIsThere) {
  readExtra(u16(1) + u16(0xFFFF) + u64(1) + u64(2) + u64(3));
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2, 3}));
}

TEST_F(CentralRecord, AZip64BlockIsFoundBehindOthers) {
  readExtra(extraBlock(0x5455, "time") + extraBlock(0xCAFE, "") + zipbytes::zip64Block({1, 2, 3}));
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2, 3}));
}

TEST_F(CentralRecord, OfTwoZip64BlocksTheLastCounts) {
  readExtra(zipbytes::zip64Block({1, 2, 3}) + zipbytes::zip64Block({4}));
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{4, 2, 3}));
}

TEST_F(CentralRecord, AnOffsetWithOneHalfOfAllOnesIsNotMarked) {
  for (const std::uint32_t offset : {0xFFFF1234u, 0x1234FFFFu, 0xFFFFFFFEu}) {
    Entry entry = named("name");
    entry.offset = offset;
    entry.centralExtra = zipbytes::zip64Block({9});
    EXPECT_EQ(read(entry), nothing());
    EXPECT_EQ(record.fLocalOffset, offset);
  }
}

TEST_F(CentralRecord, TheFieldsOfTheHeaderKeepTheirMarks) {
  readExtra(zipbytes::zip64Block({1, 2, 3}));
  EXPECT_EQ(+record.fHeader.uncompressedSize, kAllOnes);
  EXPECT_EQ(+record.fHeader.compressedSize, kAllOnes);
  EXPECT_EQ(+record.fHeader.localOffsetLow, 0xFFFF);
}

// The block of type and creator.

TEST_F(CentralRecord, ABlockOfTypeAndCreatorBecomesAProperty) {
  readExtra(zipbytes::typeCreatorBlock("TEXTttxt"));
  EXPECT_EQ(typeAndCreator(), "5445585474747874");
  bool modified = true;
  package.properties().getZipProperty("name", QCFPropertyZipTypeCreator, &modified);
  EXPECT_FALSE(modified);
}

TEST_F(CentralRecord, ALongerBlockOfTypeAndCreatorCounts) {
  readExtra(extraBlock(0x2705, "ZPITTEXTttxt and more"));
  EXPECT_EQ(typeAndCreator(), "5445585474747874");
}

TEST_F(CentralRecord, AShortBlockOfTypeAndCreatorSetsNothing) {
  readExtra(extraBlock(0x2705, "ZPITTEXTttx"));
  EXPECT_EQ(typeAndCreator(), "") << "eleven bytes";
  readExtra(extraBlock(0x2705, ""));
  EXPECT_EQ(typeAndCreator(), "");
}

TEST_F(CentralRecord, ABlockOfTypeAndCreatorWithAnotherMarkSetsNothing) {
  readExtra(extraBlock(0x2705, "zpitTEXTttxt"));
  EXPECT_EQ(typeAndCreator(), "");
  readExtra(extraBlock(0x2705, std::string(12, '\0')));
  EXPECT_EQ(typeAndCreator(), "");
}

TEST_F(CentralRecord, ABlockOfTypeAndCreatorThatIsCutOffSetsNothing) {
  readExtra(u16(0x2705) + u16(12) + "ZPITTEXTttx");
  EXPECT_EQ(typeAndCreator(), "");
}

TEST_F(CentralRecord, BlocksAfterOneThatIsPassedOverAreRead) {
  readExtra(extraBlock(0x2705, "zpitTEXTttxt") + extraBlock(0x2705, "ZPITPICTttxt") +
            zipbytes::zip64Block({1, 2, 3}));
  EXPECT_EQ(typeAndCreator(), "5049435474747874");
  EXPECT_EQ(numbers(), (std::vector<std::uint64_t>{1, 2, 3}));
}

TEST_F(CentralRecord, ALastBlockThatRunsPastTheEndEndsTheWalkWithoutAnError) {
  readExtra(zipbytes::typeCreatorBlock("TEXTttxt") + u16(0x5455) + u16(1000) + "x");
  EXPECT_EQ(typeAndCreator(), "5445585474747874");
  readExtra("\x01\x02\x03");
}

}  // namespace
