#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "package/detail/ZpLocalFileEntry.h"

#include "unit/package/detail/LocalHeader.h"

namespace {

using namespace pkg;
using support::Failure;
using support::ioError;
using support::LocalHeader;
using support::nothing;
using support::raised;
using zipbytes::Entry;
using zipbytes::localHeader;
using zipbytes::typeCreatorBlock;
using zipbytes::zip64Block;

constexpr std::uint32_t kAllOnes = 0xFFFFFFFF;
const char* const kTypeProperty = "5445585474747874";  // TEXTttxt

// Reading.

TEST_F(LocalHeader, IsReadUpToTheEndOfItsName) {
  Entry entry;
  entry.name = "folder/name";
  entry.flags = 0x0808;
  entry.method = 8;
  entry.time = 0x1122;
  entry.date = 0x3344;
  entry.crc = 0xDEADBEEF;
  entry.compressedSize = 0x01020304;
  entry.size = 0x05060708;
  entry.localExtra = zip64Block({1, 2});
  const std::string bytes = localHeader(entry);
  zip::ZpLocalFileEntry<> local;
  EXPECT_EQ(read(local, bytes + "data"), nothing());
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&local.fHeader), 30), bytes.substr(0, 30));
  EXPECT_EQ(file->tell(), 30 + 11) << "behind the name, not behind the extra field";
  EXPECT_EQ(local.dataOffset(), bytes.size());
  EXPECT_TRUE(local.hasDescriptor());
}

TEST_F(LocalHeader, TheBytesOfItsExtraFieldNeedNotBeThere) {
  Entry entry;
  entry.name = "name";
  entry.localExtraLength = 65535;
  zip::ZpLocalFileEntry<> local;
  EXPECT_EQ(read(local, localHeader(entry)), nothing());
  EXPECT_EQ(local.dataOffset(), 34u + 65535);
}

TEST_F(LocalHeader, ItsZip64BlockChangesNothing) {
  Entry entry;
  entry.name = "name";
  entry.size = entry.compressedSize = kAllOnes;
  entry.localExtra = zip64Block({1, 2});
  zip::ZpLocalFileEntry<> local;
  EXPECT_EQ(read(local, localHeader(entry)), nothing());
  EXPECT_EQ(local.fHeader.uncompressedSize(), kAllOnes);
  EXPECT_EQ(local.fHeader.compressedSize(), kAllOnes);
}

TEST_F(LocalHeader, WithoutANameIsReadAsItIs) {
  Entry entry;
  zip::ZpLocalFileEntry<> local;
  EXPECT_EQ(read(local, localHeader(entry)), nothing());
  EXPECT_EQ(local.dataOffset(), 30u);
}

TEST_F(LocalHeader, AShortReadOfTheHeaderRaises2) {
  zip::ZpLocalFileEntry<> local;
  EXPECT_EQ(read(local, ""), ioError(2));
  EXPECT_EQ(read(local, localHeader(Entry()).substr(0, 29)), ioError(2));
}

TEST_F(LocalHeader, AWrongSignatureRaises8) {
  Entry entry;
  entry.localSignature = 0x02014b50;
  zip::ZpLocalFileEntry<> local;
  EXPECT_EQ(read(local, localHeader(entry)), ioError(8));
  EXPECT_EQ(read(local, std::string(30, '\0')), ioError(8));
}

TEST_F(LocalHeader, AShortReadOfTheNameRaises4) {
  Entry entry;
  entry.name = "name";
  const std::string bytes = localHeader(entry);
  zip::ZpLocalFileEntry<> local;
  EXPECT_EQ(read(local, bytes.substr(0, 33)), ioError(4));
  EXPECT_EQ(read(local, bytes.substr(0, 30)), ioError(4));
}

TEST_F(LocalHeader, AFailureOfTheFileLayerPasses) {
  package.files().put("bytes", localHeader(plain()));
  for (const int n : {1, 2}) {
    support::FailingFileSystem failing(package.files(), n, {Failure::Read});
    const auto broken = failing.openFile(failing.getFSFileName("bytes"), std::ios::in);
    zip::ZpLocalFileEntry<> local;
    EXPECT_EQ(raised([&] { local.readLFH(broken.get()); }), ioError(50));
  }
}

// Building and writing.

TEST_F(LocalHeader, IsBuiltFromTheCentralRecord) {
  record.fHeader.versionMadeBy = 45;
  record.fHeader.versionNeeded = 20;
  record.fHeader.hostNeeded = 3;
  record.fHeader.flags = 0x0802;
  record.fHeader.method = 8;
  record.fHeader.time = 0x1122;
  record.fHeader.date = 0x3344;
  record.fHeader.crc32 = 0xDEADBEEF;
  record.fHeader.compressedSize = 5;
  record.fHeader.uncompressedSize = 6;
  Entry entry;
  entry.name = "name";
  entry.versionNeeded = 0x0314;
  entry.flags = 0x0802;
  entry.method = 8;
  entry.time = 0x1122;
  entry.date = 0x3344;
  entry.crc = 0xDEADBEEF;
  entry.compressedSize = 5;
  entry.size = 6;
  EXPECT_EQ(built(), localHeader(entry));
}

TEST_F(LocalHeader, BlocksOfTheCentralRecordDoNotReachIt) {
  Entry central;
  central.name = "name";
  central.centralExtra = zipbytes::extraBlock(7, "other") + typeCreatorBlock("PICTttxt");
  const auto in = package.file(zipbytes::centralHeader(central));
  zip::ZpCentralDirEntry<> other;
  other.readCDH(in.get(), package.zip());
  setProperty(QCFPropertyZipTypeCreator, "");
  zip::ZpLocalFileEntry<> local(other, package.zip());
  EXPECT_EQ(+local.fHeader.extraLength, 0);
  EXPECT_EQ(written(local).size(), 34u);
}

TEST_F(LocalHeader, ATypeGivesItAnExtraFieldOf16Bytes) {
  setProperty(QCFPropertyZipTypeCreator, kTypeProperty);
  Entry entry = plain();
  entry.localExtra = typeCreatorBlock("TEXTttxt");
  EXPECT_EQ(built(), localHeader(entry));
}

TEST_F(LocalHeader, SizesUpTo0xFFFFFFFENeedNoZip64Block) {
  expect(0xFFFFFFFE, 0xFFFFFFFE);
  EXPECT_EQ(built(), localHeader(plain()));
}

TEST_F(LocalHeader, EitherSizeFrom0xFFFFFFFFOnGivesItAZip64BlockOfBoth) {
  for (const bool uncompressed : {true, false}) {
    expect(uncompressed ? 0xFFFFFFFF : 7, uncompressed ? 7 : 0x123456789A);
    Entry entry = plain();
    entry.localExtra = zip64Block({record.fUncompressedSize, record.fCompressedSize});
    EXPECT_EQ(built(), localHeader(entry));
  }
}

TEST_F(LocalHeader, ALargeOffsetNeedsNoZip64Block) {
  record.fLocalOffset = 0x123456789A;
  EXPECT_EQ(built(), localHeader(plain()));
}

TEST_F(LocalHeader, ATypeAndAZip64BlockMake36BytesTheZip64BlockFirst) {
  setProperty(QCFPropertyZipTypeCreator, kTypeProperty);
  expect(0x100000000, 0x200000000);
  Entry entry = plain();
  entry.localExtra = zip64Block({0x100000000, 0x200000000}) + typeCreatorBlock("TEXTttxt");
  EXPECT_EQ(entry.localExtra.size(), 36u);
  EXPECT_EQ(built(), localHeader(entry));
}

TEST_F(LocalHeader, DateAndTimeOfThePropertiesGoFirst) {
  record.fHeader.date = 0x1111;
  record.fHeader.time = 0x2222;
  setProperty(QCFPropertyZipDate, "3412");
  setProperty(QCFPropertyZipTime, "CDAB");
  Entry entry = plain();
  entry.date = 0x1234;
  entry.time = 0xABCD;
  EXPECT_EQ(built(), localHeader(entry));
}

TEST_F(LocalHeader, ATimeWithoutADateLeavesBothAsTheyWere) {
  record.fHeader.date = 0x1111;
  record.fHeader.time = 0x2222;
  setProperty(QCFPropertyZipTime, "CDAB");
  Entry entry = plain();
  entry.date = 0x1111;
  entry.time = 0x2222;
  EXPECT_EQ(built(), localHeader(entry));
}

TEST_F(LocalHeader, ATypeThatChangesLaterIsTheOneThatIsWritten) {
  setProperty(QCFPropertyZipTypeCreator, "5049435474747874");
  zip::ZpLocalFileEntry<> local(record, package.zip());
  setProperty(QCFPropertyZipTypeCreator, kTypeProperty);
  Entry entry = plain();
  entry.localExtra = typeCreatorBlock("TEXTttxt");
  EXPECT_EQ(written(local), localHeader(entry));
}

TEST_F(LocalHeader, ATypeThatIsGoneLaterIsLeftOutAndStaysCounted) {
  setProperty(QCFPropertyZipTypeCreator, kTypeProperty);
  zip::ZpLocalFileEntry<> local(record, package.zip());
  setProperty(QCFPropertyZipTypeCreator, "");
  Entry entry = plain();
  entry.localExtraLength = 16;
  EXPECT_EQ(written(local), localHeader(entry));
  EXPECT_EQ(local.dataOffset(), 34u + 16);
}

TEST_F(LocalHeader, ATypeThatComesLaterIsNotAdded) {
  zip::ZpLocalFileEntry<> local(record, package.zip());
  setProperty(QCFPropertyZipTypeCreator, kTypeProperty);
  EXPECT_EQ(written(local), localHeader(plain()));
}

TEST_F(LocalHeader, WrittenTwiceIsTheSameTwice) {
  setProperty(QCFPropertyZipTypeCreator, kTypeProperty);
  expect(0x100000000, 0x200000000);
  zip::ZpLocalFileEntry<> local(record, package.zip());
  const std::string first = written(local);
  EXPECT_EQ(written(local), first);
}

TEST_F(LocalHeader, AFailedWritePasses) {
  zip::ZpLocalFileEntry<> local(record, package.zip());
  support::FailingFileSystem failing(package.files(), 1, {Failure::Write});
  const auto out = failing.openFile(failing.getFSFileName("out"), std::ios::out);
  EXPECT_EQ(raised([&] { local.writeLFH(out.get(), package.zip()); }), ioError(50));
}

}  // namespace
