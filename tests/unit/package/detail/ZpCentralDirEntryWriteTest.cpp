#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "package/detail/ZpCentralDir.h"

#include "support/Raised.h"
#include "support/ZipBytes.h"
#include "unit/package/detail/TestPackage.h"

// How the records of a directory are written.

namespace {

using namespace pkg;
using support::ioError;
using support::nothing;
using support::raised;
using support::TestPackage;
using zipbytes::centralHeader;
using zipbytes::Entry;
using zipbytes::extraBlock;
using zipbytes::typeCreatorBlock;
using zipbytes::u16;
using zipbytes::u64;
using zipbytes::zip64Block;

constexpr std::uint32_t kAllOnes = 0xFFFFFFFF;

std::string hexOf(const std::string& bytes) {
  return BasePkgHexStrings<>::getInstance()->encodeHexString(
      bytes.data(), static_cast<unsigned long>(bytes.size()));
}

Entry named(const std::string& name) {
  Entry entry;
  entry.name = name;
  return entry;
}

class CentralRecordWriter : public testing::Test {
protected:
  void read(const Entry& entry) {
    const auto file = package.file(centralHeader(entry));
    ASSERT_EQ(raised([&] { record.readCDH(file.get(), package.zip()); }), nothing());
  }
  void setProperty(QCFPropertyName name, const std::string& value) {
    package.properties().setZipProperty("name", name, value, false);
  }
  std::string written() {
    const auto file = package.file("");
    record.writeCDH(file.get(), package.zip());
    return package.files().bytes("bytes");
  }
  // What is written of a record with this extra field, behind its name.
  std::string writtenExtra(const std::string& extra) {
    Entry entry = named("name");
    entry.centralExtra = extra;
    read(entry);
    return written().substr(46 + 4);
  }
  static unsigned int extraLengthIn(const std::string& bytes) {
    const auto byte = [&](std::size_t at) -> unsigned int {
      return static_cast<unsigned char>(bytes.at(at));
    };
    return byte(30) | byte(31) << 8;
  }
  // A record of these numbers, made as an update makes it.
  void settle(std::uint64_t uncompressed, std::uint64_t compressed, std::uint64_t offset) {
    record.setName("name");
    record.fLocalOffset = offset;
    record.setFinalNumbers(uncompressed, compressed);
  }

  TestPackage package;
  zip::ZpCentralDirEntry<> record;
};

TEST_F(CentralRecordWriter, WritesWhatWasRead) {
  Entry entry = named("folder/name");
  entry.flags = 0x0809;
  entry.method = 8;
  entry.time = 0x1122;
  entry.date = 0x3344;
  entry.crc = 0xDEADBEEF;
  entry.compressedSize = 0x80000001;
  entry.size = 0xFFFFFFFE;
  entry.centralExtra = extraBlock(0x5455, "opaque") + extraBlock(0xCAFE, "");
  entry.comment = std::string("a comment\0with a NUL", 20);
  entry.versionMadeBy = 0x0314;
  entry.disk = 7;
  entry.internalAttributes = 8;
  entry.externalAttributes = 0x81A40010;
  entry.offset = 0xFFFF1234;
  read(entry);
  EXPECT_EQ(written(), centralHeader(entry));
}

TEST_F(CentralRecordWriter, WritesARecordWithoutAName) {
  EXPECT_EQ(written(), centralHeader([] {
              Entry entry = named("");
              entry.versionMadeBy = 0;
              entry.versionNeeded = 0;
              entry.date = 0;
              return entry;
            }()));
}

TEST_F(CentralRecordWriter, BlocksOfOtherIdsKeepPlaceAndBytes) {
  setProperty(QCFPropertyZipTypeCreator, hexOf("TEXTttxt"));
  EXPECT_EQ(writtenExtra(extraBlock(7, "before") + extraBlock(0x2705, std::string(12, '?')) +
                         extraBlock(8, "behind")),
            extraBlock(7, "before") + typeCreatorBlock("TEXTttxt") + extraBlock(8, "behind"));
}

// Date and time come from the properties.

TEST_F(CentralRecordWriter, DateAndTimeOfThePropertiesGoFirst) {
  Entry entry = named("name");
  read(entry);
  setProperty(QCFPropertyZipDate, "3412");
  setProperty(QCFPropertyZipTime, "CDAB");
  entry.date = 0x1234;
  entry.time = 0xABCD;
  EXPECT_EQ(written(), centralHeader(entry));
}

TEST_F(CentralRecordWriter, ATimeWithoutADateLeavesBothAsTheyWere) {
  Entry entry = named("name");
  entry.date = 0x1111;
  entry.time = 0x2222;
  read(entry);
  setProperty(QCFPropertyZipTime, "CDAB");
  EXPECT_EQ(written(), centralHeader(entry));
}

TEST_F(CentralRecordWriter, ADateWithoutATimeMakesTheTimeZero) {
  Entry entry = named("name");
  entry.time = 0x2222;
  read(entry);
  setProperty(QCFPropertyZipDate, "3412");
  entry.date = 0x1234;
  entry.time = 0;
  EXPECT_EQ(written(), centralHeader(entry));
}

TEST_F(CentralRecordWriter, PropertiesOfAnotherEntryChangeNothing) {
  Entry entry = named("name");
  read(entry);
  package.properties().setZipProperty("Name", QCFPropertyZipDate, "3412", false);
  package.properties().setZipProperty("name/", QCFPropertyZipTypeCreator, hexOf("TEXTttxt"), false);
  EXPECT_EQ(written(), centralHeader(entry));
}

// Type and creator.

TEST_F(CentralRecordWriter, ATypeWithoutAnExtraFieldBecomesItsOnlyBlock) {
  setProperty(QCFPropertyZipTypeCreator, hexOf("TEXTttxt"));
  Entry entry = named("name");
  read(entry);
  entry.centralExtra = typeCreatorBlock("TEXTttxt");
  EXPECT_EQ(written(), centralHeader(entry));
  EXPECT_EQ(+record.fHeader.extraLength, 16) << "in memory too";
}

TEST_F(CentralRecordWriter, ATypeIsAppendedBehindTheOtherBlocks) {
  setProperty(QCFPropertyZipTypeCreator, hexOf("TEXTttxt"));
  Entry entry = named("name");
  entry.centralExtra = extraBlock(7, "other");
  entry.comment = "comment";
  read(entry);
  entry.centralExtra += typeCreatorBlock("TEXTttxt");
  EXPECT_EQ(written(), centralHeader(entry));
}

TEST_F(CentralRecordWriter, ABlockOfTypeIsReplacedByTheProperty) {
  Entry entry = named("name");
  entry.centralExtra = typeCreatorBlock("PICTttxt");
  read(entry);
  setProperty(QCFPropertyZipTypeCreator, hexOf("TEXTttxt"));
  entry.centralExtra = typeCreatorBlock("TEXTttxt");
  EXPECT_EQ(written(), centralHeader(entry));
}

TEST_F(CentralRecordWriter, WithoutATypeTheBlockIsLostAndNoLongerCounted) {
  for (const std::string& old :
       {typeCreatorBlock("PICTttxt"), extraBlock(0x2705, ""), extraBlock(0x2705, "no mark at all"),
        extraBlock(0x2705, std::string(100, 'x'))}) {
    zip::ZpCentralDirEntry<> fresh;
    Entry entry = named("name");
    entry.centralExtra = extraBlock(7, "before") + old;
    entry.comment = "comment";
    const auto in = package.file(centralHeader(entry));
    fresh.readCDH(in.get(), package.zip());
    setProperty(QCFPropertyZipTypeCreator, "");
    const auto out = package.file("");
    fresh.writeCDH(out.get(), package.zip());
    entry.centralExtra = extraBlock(7, "before");
    EXPECT_EQ(package.files().bytes("bytes"), centralHeader(entry));
  }
}

// The walk is as long as the shorter field.
TEST_F(CentralRecordWriter, BlocksBehindALostBlockOfTypeAreCutWithIt) {
  Entry entry = named("name");
  entry.centralExtra = extraBlock(0x2705, std::string(12, '?')) + extraBlock(8, "behind");
  read(entry);
  const std::string bytes = written();
  EXPECT_EQ(extraLengthIn(bytes), 10u);
  EXPECT_EQ(bytes.size(), 50u);
}

TEST_F(CentralRecordWriter, ABlockOfTypeIsFoundByItsIdAloneAndComesBackAs16Bytes) {
  setProperty(QCFPropertyZipTypeCreator, hexOf("TEXTttxt"));
  Entry entry = named("name");
  entry.centralExtra = extraBlock(0x2705, std::string(16, '?'));  // 20 bytes in all
  read(entry);
  const std::string bytes = written();
  EXPECT_EQ(extraLengthIn(bytes), 16u) << "four fewer";
  EXPECT_EQ(bytes.substr(50), typeCreatorBlock("TEXTttxt"));
}

TEST_F(CentralRecordWriter, AShortBlockOfTypeGrowsTo16Bytes) {
  setProperty(QCFPropertyZipTypeCreator, hexOf("TEXTttxt"));
  Entry entry = named("name");
  entry.centralExtra = extraBlock(0x2705, "") + extraBlock(7, "behind");
  read(entry);
  const std::string bytes = written();
  EXPECT_EQ(extraLengthIn(bytes), 26u);
  EXPECT_EQ(bytes.substr(50), typeCreatorBlock("TEXTttxt") + extraBlock(7, "behind"));
}

TEST_F(CentralRecordWriter, ATypeOfFewerThanEightBytesIsFilledWithZeros) {
  setProperty(QCFPropertyZipTypeCreator, hexOf("TEXT"));
  EXPECT_EQ(writtenExtra(""), typeCreatorBlock(std::string("TEXT\0\0\0\0", 8)));
}

TEST_F(CentralRecordWriter, ATypeOfMoreThanEightBytesIsCut) {
  setProperty(QCFPropertyZipTypeCreator, hexOf("TEXTttxt and more"));
  EXPECT_EQ(writtenExtra(""), typeCreatorBlock("TEXTttxt"));
}

// Its claimed size shortens the field so far that the walk does not come to it again.
TEST_F(CentralRecordWriter, ABlockOfTypeThatRunsPastTheEndMayVanish) {
  setProperty(QCFPropertyZipTypeCreator, hexOf("TEXTttxt"));
  const std::string other = extraBlock(7, std::string(80, 'x'));
  EXPECT_EQ(writtenExtra(other + u16(0x2705) + u16(40) + "cut"), other);
  EXPECT_EQ(+record.fHeader.extraLength, 84 + 7 + 16 - 44);
}

// Writing once more starts from what was written.
TEST_F(CentralRecordWriter, WritingTwiceWritesTheSameTwice) {
  for (const std::string& extra : {std::string(), extraBlock(7, "other"),
                                   typeCreatorBlock("PICTttxt"), extraBlock(0x2705, "odd")}) {
    zip::ZpCentralDirEntry<> fresh;
    Entry entry = named("name");
    entry.centralExtra = extra;
    const auto in = package.file(centralHeader(entry));
    fresh.readCDH(in.get(), package.zip());
    setProperty(QCFPropertyZipTypeCreator, hexOf("TEXTttxt"));
    const auto write = [&] {
      const auto out = package.file("");
      fresh.writeCDH(out.get(), package.zip());
      return package.files().bytes("bytes");
    };
    const std::string first = write();
    EXPECT_EQ(write(), first);
    EXPECT_EQ(extraLengthIn(first) + 50, first.size());
  }
}

// Zip64.

TEST_F(CentralRecordWriter, NumbersUpTo0xFFFFFFFENeedNoZip64Block) {
  settle(0xFFFFFFFE, 0xFFFFFFFE, 0xFFFFFFFE);
  Entry entry = named("name");
  entry.size = entry.compressedSize = entry.offset = 0xFFFFFFFE;
  entry.date = 0;
  EXPECT_EQ(written(), centralHeader(entry));
}

TEST_F(CentralRecordWriter, ANumberOf0xFFFFFFFFGoesIntoTheZip64Block) {
  settle(0xFFFFFFFF, 5, 6);
  Entry entry = named("name");
  entry.versionMadeBy = entry.versionNeeded = 45;
  entry.size = kAllOnes;
  entry.compressedSize = 5;
  entry.offset = 6;
  entry.date = 0;
  entry.centralExtra = zip64Block({0xFFFFFFFF});
  EXPECT_EQ(written(), centralHeader(entry));
}

TEST_F(CentralRecordWriter, TheZip64BlockHoldsTheLargeNumbersNextToEachOther) {
  constexpr std::uint64_t large[] = {0x123456789A, 0x00FFFFFFFF, 0x8000000000000000};
  for (int which = 1; which < 8; ++which) {
    std::uint64_t numbers[3];
    std::vector<std::uint64_t> held;
    for (int i = 0; i < 3; ++i) {
      const bool isLarge = (which >> i & 1) != 0;
      numbers[i] = isLarge ? large[i] : static_cast<std::uint64_t>(i);
      if (isLarge) held.push_back(numbers[i]);
    }
    zip::ZpCentralDirEntry<> fresh;
    fresh.setName("name");
    fresh.fLocalOffset = numbers[2];
    fresh.setFinalNumbers(numbers[0], numbers[1]);
    const auto out = package.file("");
    fresh.writeCDH(out.get(), package.zip());

    Entry entry = named("name");
    entry.versionMadeBy = entry.versionNeeded = 45;
    entry.date = 0;
    const auto narrow = [&](int i) {
      return (which >> i & 1) != 0 ? kAllOnes : static_cast<std::uint32_t>(i);
    };
    entry.size = narrow(0);
    entry.compressedSize = narrow(1);
    entry.offset = narrow(2);
    entry.centralExtra = zip64Block(held);
    EXPECT_EQ(package.files().bytes("bytes"), centralHeader(entry)) << which;

    zip::ZpCentralDirEntry<> back;
    const auto in = package.file(centralHeader(entry));
    back.readCDH(in.get(), package.zip());
    EXPECT_EQ(back.fUncompressedSize, numbers[0]);
    EXPECT_EQ(back.fCompressedSize, numbers[1]);
    EXPECT_EQ(back.fLocalOffset, numbers[2]);
  }
}

TEST_F(CentralRecordWriter, AZip64BlockAndATypeStandSideBySide) {
  settle(0x100000000, 0x200000000, 7);
  setProperty(QCFPropertyZipTypeCreator, hexOf("TEXTttxt"));
  const std::string bytes = written();
  EXPECT_EQ(extraLengthIn(bytes), 36u);
  EXPECT_EQ(bytes.substr(50),
            zip64Block({0x100000000, 0x200000000}) + typeCreatorBlock("TEXTttxt"));
}

TEST_F(CentralRecordWriter, AZip64BlockIsRebuiltFromTheTrueNumbers) {
  Entry entry = named("name");
  entry.size = entry.compressedSize = kAllOnes;
  entry.centralExtra = extraBlock(7, "x") + zip64Block({0x100000000, 0x200000000});
  read(entry);
  record.fUncompressedSize = 0x300000000;
  EXPECT_EQ(written().substr(50), extraBlock(7, "x") + zip64Block({0x300000000, 0x200000000}));
}

TEST_F(CentralRecordWriter, AZip64BlockOfSmallNumbersIsLeftOutAndStaysCounted) {
  Entry entry = named("name");
  entry.size = kAllOnes;
  entry.centralExtra = extraBlock(7, "x") + zip64Block({42});
  entry.comment = "comment";
  read(entry);
  const std::string bytes = written();
  EXPECT_EQ(extraLengthIn(bytes), 17u);
  EXPECT_EQ(bytes.substr(50), extraBlock(7, "x") + "comment");
}

TEST_F(CentralRecordWriter, AZip64BlockKeepsItsSizeWhateverItHolds) {
  Entry entry = named("name");
  entry.size = kAllOnes;
  entry.centralExtra = extraBlock(1, u64(0x100000000) + "tail");
  read(entry);
  const std::string bytes = written();
  EXPECT_EQ(extraLengthIn(bytes), 16u);
  EXPECT_EQ(bytes.substr(50, 12), u16(1) + u16(12) + u64(0x100000000));
  EXPECT_EQ(bytes.size(), 50u + 16u);
}

TEST_F(CentralRecordWriter, AZip64BlockHoldsNoMoreNumbersThanItsSize) {
  Entry entry = named("name");
  entry.size = entry.compressedSize = kAllOnes;
  entry.offset = kAllOnes;
  entry.centralExtra = zip64Block({0x100000000});
  read(entry);
  EXPECT_EQ(written(), centralHeader(entry)) << "the uncompressed size and nothing behind it";
}

TEST_F(CentralRecordWriter, AZip64BlockLargerThanAnyIsBounded) {
  Entry entry = named("name");
  entry.size = kAllOnes;
  entry.centralExtra = extraBlock(1, u64(0x100000000) + std::string(1000, 'x'));
  read(entry);
  const std::string bytes = written();
  EXPECT_EQ(extraLengthIn(bytes), 1012u);
  EXPECT_EQ(bytes.size(), 50u + 1012u);
  EXPECT_EQ(bytes.substr(54, 8), u64(0x100000000));
}

// A sanitizer sees a step beyond the buffer.
TEST_F(CentralRecordWriter, ALengthThatHasGrownDoesNotLeadTheWalkBeyondTheBuffer) {
  setProperty(QCFPropertyZipTypeCreator, hexOf("TEXTttxt"));
  const std::string extra = writtenExtra(extraBlock(7, "other") + "xyz");
  EXPECT_EQ(extra, extraBlock(7, "other") + typeCreatorBlock("TEXTttxt") + "xyz");
}

TEST_F(CentralRecordWriter, ABlockThatRunsPastTheEndIsWrittenAsFarAsItGoes) {
  EXPECT_EQ(writtenExtra(u16(7) + u16(100) + "cut"), u16(7) + u16(100) + "cut");
}

TEST_F(CentralRecordWriter, ACopyIsWrittenAsItsOriginal) {
  Entry entry = named("name");
  entry.size = kAllOnes;
  entry.centralExtra = zip64Block({0x100000000}) + extraBlock(7, "other");
  entry.comment = "comment";
  read(entry);
  const zip::ZpCentralDirEntry<> copy(record);
  EXPECT_EQ(copy.sizeOnDisk(), centralHeader(entry).size());
  zip::ZpCentralDirEntry<> again(copy);
  const auto out = package.file("");
  again.writeCDH(out.get(), package.zip());
  EXPECT_EQ(package.files().bytes("bytes"), centralHeader(entry));
}

TEST_F(CentralRecordWriter, WhatHappensToACopyDoesNotHappenToItsOriginal) {
  Entry entry = named("name");
  entry.centralExtra = extraBlock(7, "other");
  read(entry);
  zip::ZpCentralDirEntry<> copy(record);
  setProperty(QCFPropertyZipTypeCreator, hexOf("TEXTttxt"));
  copy.writeCDH(package.file("").get(), package.zip());
  copy.setName("another");
  EXPECT_STREQ(record.fName.get(), "name");
  EXPECT_EQ(record.sizeOnDisk(), centralHeader(entry).size());
  EXPECT_EQ(std::string(record.fExtra.get(), entry.centralExtra.size()), entry.centralExtra);
}

TEST_F(CentralRecordWriter, AFailedWritePasses) {
  read(named("name"));
  support::FailingFileSystem failing(package.files(), 1, {support::Failure::Write});
  const auto out = failing.openFile(failing.getFSFileName("out"), std::ios::out);
  EXPECT_EQ(raised([&] { record.writeCDH(out.get(), package.zip()); }), ioError(50));
}

TEST_F(CentralRecordWriter, ANameOf65535BytesIsTakenAndOneMoreRaises22) {
  record.setName(std::string(65535, 'n'));
  EXPECT_EQ(+record.fHeader.nameLength, 65535);
  EXPECT_EQ(raised([&] { record.setName(std::string(65536, 'n')); }), support::misuse(22));
}

}  // namespace
