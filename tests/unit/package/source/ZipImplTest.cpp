#include <cstring>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "package/source/ZipImpl.h"

#include "support/ZipBytes.h"
#include "unit/package/source/RecordOffsets.h"

// A "+" takes the value of a field: packed ones have no reference.

namespace {

using namespace pkg::zip;
using zipbytes::u16;
using zipbytes::u32;
using zipbytes::u64;

// A record as a file holds it.
template <class Record>
Record fromBytes(const std::string& bytes) {
  EXPECT_EQ(bytes.size(), sizeof(Record));
  alignas(16) char memory[sizeof(Record)];
  std::memcpy(memory, bytes.data(), sizeof memory);
  Record record = *reinterpret_cast<Record*>(memory);
  return record;
}

template <class Record>
std::string toBytes(const Record& record) {
  return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

// What a constructor leaves in memory that was not clean.
template <class Record, class... Arguments>
std::string constructedOnDirt(const Arguments&... arguments) {
  alignas(16) char memory[sizeof(Record)];
  std::memset(memory, 0xEE, sizeof memory);
  const Record* const record = new (memory) Record(arguments...);
  return toBytes(*record);
}

const std::string kLocal = u32(0x04034b50) + "\x2D\x03" + u16(0x0808) + u16(8) + u16(0x1122) +
                           u16(0x3344) + u32(0x8899AABB) + u32(0x01020304) + u32(0x05060708) +
                           u16(0x0A0B) + u16(0x0C0D);
const std::string kCentral =
    u32(0x02014b50) + "\x2D\x03\x14\x05" + u16(0x0808) + u16(8) + u16(0x1122) + u16(0x3344) +
    u32(0x8899AABB) + u32(0x01020304) + u32(0x05060708) + u16(0x0A0B) + u16(0x0C0D) + u16(0x0E0F) +
    u16(0x1011) + u16(0x1213) + u32(0x14151617) + u16(0x1819) + u16(0x1A1B);
const std::string kEnd = u32(0x06054b50) + u16(1) + u16(2) + u16(3) + u16(4) + u32(0x50515253) +
                         u32(0x60616263) + u16(7);
const std::string kZip64End = u32(0x06064b50) + u64(44) + "\x2D\x03\x2E\x05" + u32(1) + u32(2) +
                              u64(0x0303030303030303) + u64(0x0404040404040404) +
                              u64(0x0505050505050505) + u64(0x0606060606060606);
const std::string kLocator = u32(0x07064b50) + u32(9) + u64(0x1122334455667788) + u32(10);

TEST(ZipRecords, HaveTheirSizesOnDisk) {
  EXPECT_EQ(LocalFileHeader().calcStructSize(), 30);
  EXPECT_EQ(CentralDirHeader(0).calcStructSize(), 46);
  EXPECT_EQ(EndCentralDirectory(0).calcStructSize(), 22);
  EXPECT_EQ(Zip64EndCentralDirectory().calcStructSize(), 56);
  EXPECT_EQ(Zip64EndCentralDirectoryLocator().calcStructSize(), 20);
  EXPECT_EQ(ExtraDataHeader().calcStructSize(), 4);
  EXPECT_EQ(Zip64LocalExtendedInfo().calcStructSize(), 20);
  EXPECT_EQ(Zip64ExtendedInfo().calcStructSize(), 32);
  EXPECT_EQ(ExtraData_2705().calcStructSize(), 16);
  EXPECT_EQ(FileTypeAndCreator_2705().calcStructSize(), 8);
}

TEST(ZipRecords, ConstantsHaveTheirValues) {
  EXPECT_EQ(FLATE_VERSION, 20);
  EXPECT_EQ(ZIP64_VERSION, 45);
  EXPECT_EQ(_dosTimeMin, 0x00150000u);
  static_assert(sizeof FLATE_VERSION == 1 && sizeof ZIP64_VERSION == 1 && sizeof(DOSTime) == 4);
}

TEST(LocalFileHeader, FieldsStandAtTheirOffsets) {
  const auto header = fromBytes<LocalFileHeader>(kLocal).byteswap();
  EXPECT_EQ(+header.signature, 0x04034b50u);
  EXPECT_EQ(+header.versionNeeded, 0x2D);
  EXPECT_EQ(+header.hostNeeded, 3);
  EXPECT_EQ(+header.flags, 0x0808);
  EXPECT_EQ(+header.method, 8);
  EXPECT_EQ(+header.time, 0x1122);
  EXPECT_EQ(+header.date, 0x3344);
  EXPECT_EQ(+header.crc32Low, 0xAABB);
  EXPECT_EQ(+header.crc32High, 0x8899);
  EXPECT_EQ(header.crc32(), 0x8899AABBu);
  EXPECT_EQ(+header.compressedSizeLow, 0x0304);
  EXPECT_EQ(+header.compressedSizeHigh, 0x0102);
  EXPECT_EQ(header.compressedSize(), 0x01020304u);
  EXPECT_EQ(+header.uncompressedSizeLow, 0x0708);
  EXPECT_EQ(+header.uncompressedSizeHigh, 0x0506);
  EXPECT_EQ(header.uncompressedSize(), 0x05060708u);
  EXPECT_EQ(+header.nameLength, 0x0A0B);
  EXPECT_EQ(+header.extraLength, 0x0C0D);
  EXPECT_EQ(toBytes(header.byteswap()), kLocal);
}

TEST(CentralDirHeader, FieldsStandAtTheirOffsets) {
  const auto header = fromBytes<CentralDirHeader>(kCentral).byteswap();
  EXPECT_EQ(+header.signature, 0x02014b50u);
  EXPECT_EQ(+header.versionMadeBy, 0x2D);
  EXPECT_EQ(+header.hostMadeBy, 3);
  EXPECT_EQ(+header.versionNeeded, 0x14);
  EXPECT_EQ(+header.hostNeeded, 5);
  EXPECT_EQ(+header.flags, 0x0808);
  EXPECT_EQ(+header.method, 8);
  EXPECT_EQ(+header.time, 0x1122);
  EXPECT_EQ(+header.date, 0x3344);
  EXPECT_EQ(+header.crc32, 0x8899AABBu);
  EXPECT_EQ(+header.compressedSize, 0x01020304u);
  EXPECT_EQ(+header.uncompressedSize, 0x05060708u);
  EXPECT_EQ(+header.nameLength, 0x0A0B);
  EXPECT_EQ(+header.extraLength, 0x0C0D);
  EXPECT_EQ(+header.commentLength, 0x0E0F);
  EXPECT_EQ(+header.diskStart, 0x1011);
  EXPECT_EQ(+header.internalAttributes, 0x1213);
  EXPECT_EQ(+header.externalAttributes, 0x14151617u);
  EXPECT_EQ(+header.localOffsetLow, 0x1819);
  EXPECT_EQ(+header.localOffsetHigh, 0x1A1B);
  EXPECT_EQ(toBytes(header.byteswap()), kCentral);
}

TEST(EndCentralDirectory, FieldsStandAtTheirOffsets) {
  const auto end = fromBytes<EndCentralDirectory>(kEnd).byteswap();
  EXPECT_EQ(+end.signature, 0x06054b50u);
  EXPECT_EQ(+end.disk, 1);
  EXPECT_EQ(+end.directoryDisk, 2);
  EXPECT_EQ(+end.entriesOnDisk, 3);
  EXPECT_EQ(+end.totalEntries, 4);
  EXPECT_EQ(+end.directorySize, 0x50515253u);
  EXPECT_EQ(+end.directoryOffset, 0x60616263u);
  EXPECT_EQ(+end.commentLength, 7);
  EXPECT_EQ(toBytes(end.byteswap()), kEnd);
}

TEST(Zip64EndCentralDirectory, FieldsStandAtTheirOffsets) {
  const auto end = fromBytes<Zip64EndCentralDirectory>(kZip64End).byteswap();
  EXPECT_EQ(+end.signature, 0x06064b50u);
  EXPECT_EQ(+end.recordSize, 44u);
  EXPECT_EQ(+end.versionMadeBy, 45);
  EXPECT_EQ(+end.hostMadeBy, 3);
  EXPECT_EQ(+end.versionNeeded, 46);
  EXPECT_EQ(+end.hostNeeded, 5);
  EXPECT_EQ(+end.disk, 1u);
  EXPECT_EQ(+end.directoryDisk, 2u);
  EXPECT_EQ(+end.entriesOnDisk, 0x0303030303030303u);
  EXPECT_EQ(+end.totalEntries, 0x0404040404040404u);
  EXPECT_EQ(+end.directorySize, 0x0505050505050505u);
  EXPECT_EQ(+end.directoryOffset, 0x0606060606060606u);
  EXPECT_EQ(toBytes(end.byteswap()), kZip64End);
}

TEST(Zip64EndCentralDirectoryLocator, FieldsStandAtTheirOffsets) {
  const auto locator = fromBytes<Zip64EndCentralDirectoryLocator>(kLocator).byteswap();
  EXPECT_EQ(+locator.signature, 0x07064b50u);
  EXPECT_EQ(+locator.disk, 9u);
  EXPECT_EQ(+locator.recordOffset, 0x1122334455667788u);
  EXPECT_EQ(+locator.totalDisks, 10u);
  EXPECT_EQ(toBytes(locator.byteswap()), kLocator);
}

TEST(ExtraRecords, FieldsStandAtTheirOffsets) {
  const std::string local = u16(1) + u16(16) + u64(0x0102030405060708) + u64(0x1112131415161718);
  const auto info = fromBytes<Zip64LocalExtendedInfo>(local).byteswap();
  EXPECT_EQ(+info.id, 1);
  EXPECT_EQ(+info.size, 16);
  EXPECT_EQ(+info.uncompressedSize, 0x0102030405060708u);
  EXPECT_EQ(+info.compressedSize, 0x1112131415161718u);
  EXPECT_EQ(toBytes(info.byteswap()), local);

  const auto central =
      fromBytes<Zip64ExtendedInfo>(u16(1) + u16(24) + u64(2) + u64(3) + u64(4) + u32(5));
  EXPECT_EQ(+central.uncompressedSize, 2u);
  EXPECT_EQ(+central.compressedSize, 3u);
  EXPECT_EQ(+central.localOffset, 4u);
  EXPECT_EQ(+central.diskStart, 5u);

  const std::string typed = u16(0x2705) + u16(12) + "ZPITTEXTttxt";
  const auto block = fromBytes<ExtraData_2705>(typed).byteswap();
  EXPECT_EQ(+block.id, 0x2705);
  EXPECT_EQ(+block.size, 12);
  EXPECT_TRUE(block.hasMark());
  EXPECT_EQ(toBytes(block.typeAndCreator), "TEXTttxt");
  EXPECT_EQ(toBytes(block.byteswap()), typed);

  const auto header = fromBytes<ExtraDataHeader>(u16(0x1234) + u16(0x5678)).byteswap();
  EXPECT_EQ(+header.id, 0x1234);
  EXPECT_EQ(+header.size, 0x5678);
}

// Wrong identities pass through as well: they are for the readers to see.
TEST(ZipRecords, ByteswapKeepsASignatureThatIsWrong) {
  std::string wrong = kZip64End;
  wrong[0] = 'X';
  EXPECT_EQ(toBytes(fromBytes<Zip64EndCentralDirectory>(wrong).byteswap().byteswap()), wrong);
  wrong = kLocator;
  wrong[3] = 'X';
  EXPECT_EQ(toBytes(fromBytes<Zip64EndCentralDirectoryLocator>(wrong).byteswap().byteswap()),
            wrong);
  wrong = u16(2) + u16(7) + u64(1) + u64(2);
  EXPECT_EQ(toBytes(fromBytes<Zip64LocalExtendedInfo>(wrong).byteswap().byteswap()), wrong);
}

TEST(CentralDirHeader, ANewOneIsZeroButForItsSignature) {
  for (const int argument : {0, 1, -1}) {
    EXPECT_EQ(constructedOnDirt<CentralDirHeader>(argument),
              u32(0x02014b50) + std::string(42, '\0'));
  }
}

TEST(EndCentralDirectory, ANewOneIsZeroButForItsSignature) {
  for (const int argument : {0, 1, -1}) {
    EXPECT_EQ(constructedOnDirt<EndCentralDirectory>(argument),
              u32(0x06054b50) + std::string(18, '\0'));
  }
}

TEST(LocalFileHeader, TakesFromACentralHeaderWhatBothHave) {
  const auto central = fromBytes<CentralDirHeader>(kCentral);
  const std::string expected = u32(0x04034b50) + "\x14\x05" + u16(0x0808) + u16(8) + u16(0x1122) +
                               u16(0x3344) + u32(0x8899AABB) + u32(0x01020304) + u32(0x05060708) +
                               u16(0x0A0B) + u16(0);
  EXPECT_EQ(constructedOnDirt<LocalFileHeader>(central), expected);
}

TEST(LocalFileHeader, HasNoExtraFieldWhateverTheCentralHeaderHas) {
  CentralDirHeader central(0);
  for (const int length : {0, 1, 36, 65535}) {
    central.extraLength = static_cast<std::uint16_t>(length);
    EXPECT_EQ(+LocalFileHeader(central).extraLength, 0);
  }
}

TEST(LocalFileHeader, SizesOfAllOnesStayAllOnes) {
  CentralDirHeader central(0);
  central.compressedSize = 0xFFFFFFFF;
  central.uncompressedSize = 0xFFFFFFFF;
  const LocalFileHeader local(central);
  EXPECT_EQ(local.compressedSize(), 0xFFFFFFFFu);
  EXPECT_EQ(local.uncompressedSize(), 0xFFFFFFFFu);
}

TEST(LocalFileHeader, SettersFillBothHalves) {
  LocalFileHeader header = LocalFileHeader(CentralDirHeader(0));
  header.setCRC32(0xA1B2C3D4);
  header.setSizes(0x00010002, 0xFFFF0003);
  EXPECT_EQ(header.crc32(), 0xA1B2C3D4u);
  EXPECT_EQ(header.compressedSize(), 0x00010002u);
  EXPECT_EQ(header.uncompressedSize(), 0xFFFF0003u);
}

TEST(ExtraRecords, ANewHeaderIsZero) {
  EXPECT_EQ(constructedOnDirt<ExtraDataHeader>(), std::string(4, '\0'));
}

TEST(ExtraRecords, ACopiedHeaderIsTheSame) {
  ExtraDataHeader header;
  header.id = 0x2705;
  header.size = 12;
  EXPECT_EQ(constructedOnDirt<ExtraDataHeader>(header), u16(0x2705) + u16(12));
}

TEST(ExtraRecords, ANewLocalZip64BlockHasItsIdAndSize) {
  EXPECT_EQ(constructedOnDirt<Zip64LocalExtendedInfo>().substr(0, 4), u16(1) + u16(16));
}

TEST(ExtraRecords, ANewTypeAndCreatorIsZero) {
  EXPECT_EQ(constructedOnDirt<FileTypeAndCreator_2705>(), std::string(8, '\0'));
}

TEST(ExtraRecords, ADefaultMadeTypeBlockHasIdAndSizeButNoMark) {
  EXPECT_EQ(constructedOnDirt<ExtraData_2705>(), u16(0x2705) + u16(12) + std::string(12, '\0'));
  EXPECT_FALSE(ExtraData_2705().hasMark());
}

TEST(ExtraRecords, ATypeBlockOfAValueIsComplete) {
  const auto value = fromBytes<FileTypeAndCreator_2705>("TEXTttxt");
  const std::string expected = u16(0x2705) + u16(12) + "ZPITTEXTttxt";
  EXPECT_EQ(constructedOnDirt<ExtraData_2705>(value), expected);
  const ExtraData_2705 block(value);
  EXPECT_TRUE(block.hasMark());
  EXPECT_EQ(constructedOnDirt<ExtraData_2705>(block), expected);
}

TEST(ExtraRecords, ATypeBlockWithAnotherMarkOrIdIsCopiedAsItIs) {
  const std::string odd = u16(0x1111) + u16(99) + "zpitTEXTttxt";
  const auto block = fromBytes<ExtraData_2705>(odd);
  EXPECT_EQ(constructedOnDirt<ExtraData_2705>(block), odd);
  EXPECT_FALSE(block.hasMark());
}

TEST(LocalFileHeader, OnlyItsOwnSignatureBeginsAPackage) {
  const auto accepted = [](const std::string& bytes) {
    unsigned int first = 0;
    std::memcpy(&first, bytes.data(), 4);
    return LocalFileHeader::isSwappedSignature(first);
  };
  EXPECT_TRUE(accepted("PK\x03\x04"));
  EXPECT_FALSE(accepted("PK\x05\x06"));
  EXPECT_FALSE(accepted("PK\x07\x08"));
  EXPECT_FALSE(accepted("PK\x01\x02"));
  EXPECT_FALSE(accepted("\x04\x03KP"));
  EXPECT_FALSE(accepted(std::string("PK\0\0", 4)));
  EXPECT_FALSE(accepted(std::string(4, '\0')));
}

TEST(Zip64EndCentralDirectory, TakesTheNumbersOfAnEndRecordWidened) {
  auto zip64 = fromBytes<Zip64EndCentralDirectory>(std::string(56, '\x77'));
  auto end = fromBytes<EndCentralDirectory>(kEnd);
  end.entriesOnDisk = 0xFFFF;
  end.totalEntries = 0xFFFE;
  end.directorySize = 0xFFFFFFFF;
  end.directoryOffset = 0x80000000;
  zip64.updateFromECD(end);
  // Signature and the host byte of the version needed stay as they were.
  const std::string expected = std::string(4, '\x77') + u64(44) + std::string("\x2D\0\0\x77", 4) +
                               u32(0) + u32(0) + u64(0xFFFF) + u64(0xFFFE) + u64(0xFFFFFFFF) +
                               u64(0x80000000);
  EXPECT_EQ(toBytes(zip64), expected);
}

TEST(ZipRecords, ADateAndTimeGoesToItsTwoFields) {
  CentralDirHeader central(0);
  LocalFileHeader local(central);
  central.setDateTime(0xAAAABBBB);
  local.setDateTime(0xAAAABBBB);
  EXPECT_EQ(+central.date, 0xAAAA);
  EXPECT_EQ(+central.time, 0xBBBB);
  EXPECT_EQ(+local.date, 0xAAAA);
  EXPECT_EQ(+local.time, 0xBBBB);
  EXPECT_EQ(toBytes(local).substr(10, 4), u32(0xAAAABBBB)) << "as one little-endian number";
}

struct Moment {
  int year, month, day, hour, minute, second;
  DOSTime expected;
};

TEST(DosTime, PacksACalendarMoment) {
  const Moment moments[] = {
      {1980, 1, 1, 0, 0, 0, 0x00210000},
      {1980, 1, 1, 0, 0, 2, 0x00210001},
      {2000, 6, 15, 12, 30, 30, 0x28CF63CF},
      {2107, 12, 31, 23, 59, 58, 0xFF9FBF7D},
  };
  for (const Moment& m : moments) {
    EXPECT_EQ(dostime(m.year, m.month, m.day, m.hour, m.minute, m.second), m.expected) << m.year;
  }
}

TEST(DosTime, EveryMomentBefore1980IsTheSame) {
  EXPECT_EQ(dostime(1979, 12, 31, 23, 59, 59), 0x00150000u);
  EXPECT_EQ(dostime(0, 1, 1, 0, 0, 0), 0x00150000u);
  EXPECT_EQ(dostime(-1, 99, 99, 99, 99, 99), 0x00150000u);
}

TEST(DosTime, OddSecondsAreRoundedDown) {
  EXPECT_EQ(dostime(2000, 6, 15, 12, 30, 31) & 0x1F, 15u);
  EXPECT_EQ(dostime(2000, 6, 15, 12, 30, 31), dostime(2000, 6, 15, 12, 30, 30));
  EXPECT_EQ(dostime(1980, 1, 1, 0, 0, 1), 0x00210000u);
}

TEST(DosTime, NumbersOutOfRangeRunOverIntoTheirNeighbours) {
  EXPECT_EQ(dostime(1980, 16, 1, 0, 0, 0), 0x02010000u) << "month 16 is a year";
  EXPECT_EQ(dostime(1980, 1, 32, 0, 0, 0), 0x00200000u) << "day 32 joins the month's bit";
  EXPECT_EQ(dostime(1980, 1, 1, 32, 0, 0), 0x00210000u) << "hour 32 leaves the time";
  EXPECT_EQ(dostime(1980, 1, 1, 0, 64, 0), 0x00210800u) << "minute 64 is an hour";
  EXPECT_EQ(dostime(1980, 1, 1, 0, 0, 64), 0x00210020u) << "second 64 is a minute";
  EXPECT_EQ(dostime(1980, 1, 1, 0, 0, -1), 0x00217FFFu) << "a second has 16 bits";
  EXPECT_EQ(dostime(2108, 1, 1, 0, 0, 0), 0x00210000u) << "128 years run out of the date";
  EXPECT_EQ(dostime(65536 + 1980, 1, 1, 0, 0, 0), 0x00210000u) << "a year has 16 bits";
}

}  // namespace
