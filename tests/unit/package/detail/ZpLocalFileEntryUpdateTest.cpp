#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "package/detail/ZpLocalFileEntry.h"

#include "unit/package/detail/LocalHeader.h"

namespace {

using namespace pkg;
using support::LocalHeader;
using support::misuse;
using support::raised;
using zipbytes::Entry;
using zipbytes::localHeader;
using zipbytes::typeCreatorBlock;
using zipbytes::zip64Block;

constexpr std::uint32_t kAllOnes = 0xFFFFFFFF;
const char* const kTypeProperty = "5445585474747874";  // TEXTttxt

// Bringing a local header up to date.

class LocalHeaderUpdate : public LocalHeader {
protected:
  // Final numbers, in the record as its header has them.
  void finish(std::uint64_t uncompressed, std::uint64_t compressed, std::uint32_t crc) {
    record.setFinalNumbers(uncompressed, compressed);
    record.fHeader.crc32 = crc;
  }
};

TEST_F(LocalHeaderUpdate, WhatEqualsTheRecordNeedsNoRewriting) {
  finish(10, 20, 30);
  zip::ZpLocalFileEntry<> local(record, package.zip());
  EXPECT_FALSE(local.updateFromCDEntry(false, record));
  EXPECT_FALSE(local.updateFromCDEntry(true, record));
}

TEST_F(LocalHeaderUpdate, AnyDifferenceIsTakenOver) {
  for (const int which : {0, 1, 2}) {
    finish(10, 20, 30);
    zip::ZpLocalFileEntry<> local(record, package.zip());
    // Different in one half of one number.
    finish(which == 0 ? 0x0001000A : 10, which == 1 ? 21 : 20, which == 2 ? 0x0001001E : 30);
    EXPECT_TRUE(local.updateFromCDEntry(false, record)) << which;
    EXPECT_EQ(local.fHeader.uncompressedSize(), +record.fHeader.uncompressedSize);
    EXPECT_EQ(local.fHeader.compressedSize(), +record.fHeader.compressedSize);
    EXPECT_EQ(local.fHeader.crc32(), +record.fHeader.crc32);
    EXPECT_FALSE(local.updateFromCDEntry(false, record)) << "up to date now";
  }
}

TEST_F(LocalHeaderUpdate, FinalSizesThatDifferRaise17) {
  for (const bool uncompressed : {true, false}) {
    finish(10, 20, 30);
    zip::ZpLocalFileEntry<> local(record, package.zip());
    finish(uncompressed ? 11 : 10, uncompressed ? 20 : 21, 30);
    EXPECT_EQ(raised([&] { local.updateFromCDEntry(true, record); }), misuse(17));
  }
}

TEST_F(LocalHeaderUpdate, AFinalCRCThatDiffersIsTakenOver) {
  finish(10, 20, 30);
  zip::ZpLocalFileEntry<> local(record, package.zip());
  finish(10, 20, 31);
  EXPECT_TRUE(local.updateFromCDEntry(true, record));
  EXPECT_EQ(local.fHeader.crc32(), 31u);
}

TEST_F(LocalHeaderUpdate, ASizeAbove32BitsWithoutZip64RoomRaises7) {
  for (const bool uncompressed : {true, false}) {
    expect(10, 20);
    zip::ZpLocalFileEntry<> local(record, package.zip());
    expect(uncompressed ? 0x100000000 : 10, uncompressed ? 20 : 0x100000000);
    EXPECT_EQ(raised([&] { local.updateFromCDEntry(false, record); }), misuse(7));
  }
}

TEST_F(LocalHeaderUpdate, ASizeOf0xFFFFFFFFWithoutZip64RoomIsNotRefused) {
  expect(10, 20);
  zip::ZpLocalFileEntry<> local(record, package.zip());
  finish(0xFFFFFFFF, 0xFFFFFFFF, 0);
  EXPECT_TRUE(local.updateFromCDEntry(false, record));
  EXPECT_EQ(local.fHeader.uncompressedSize(), kAllOnes);
  EXPECT_EQ(+local.fHeader.extraLength, 0);
}

TEST_F(LocalHeaderUpdate, ASizeAbove32BitsIsRefusedBeforeTheDescriptorIsLookedAt) {
  record.fHeader.flags = 8;
  expect(10, 20);
  zip::ZpLocalFileEntry<> local(record, package.zip());
  finish(0x100000000, 20, 0);
  EXPECT_EQ(raised([&] { local.updateFromCDEntry(false, record); }), misuse(7));
}

TEST_F(LocalHeaderUpdate, WithADescriptorItAlwaysAnswersYesAndStaysAsItIs) {
  record.fHeader.flags = 8;
  zip::ZpLocalFileEntry<> local(record, package.zip());
  EXPECT_TRUE(local.updateFromCDEntry(false, record)) << "nothing has changed";
  finish(10, 20, 0xDEADBEEF);
  EXPECT_TRUE(local.updateFromCDEntry(true, record)) << "sizes need not agree";
  EXPECT_EQ(local.fHeader.uncompressedSize(), 0u);
  EXPECT_EQ(local.fHeader.compressedSize(), 0u);
  EXPECT_EQ(local.fHeader.crc32(), 0u);
  EXPECT_EQ(descriptorOf(local), zipbytes::dataDescriptor(0xDEADBEEF, 20, 10));
}

TEST_F(LocalHeaderUpdate, ADescriptorIsBroughtUpToDateEachTime) {
  record.fHeader.flags = 8;
  zip::ZpLocalFileEntry<> local(record, package.zip());
  finish(1, 2, 3);
  local.updateFromCDEntry(false, record);
  finish(4, 5, 6);
  local.updateFromCDEntry(false, record);
  EXPECT_EQ(descriptorOf(local), zipbytes::dataDescriptor(6, 5, 4));
}

TEST_F(LocalHeaderUpdate, ADescriptorOfAZip64HeaderHas64BitSizes) {
  record.fHeader.flags = 8;
  expect(0x100000000, 0x100000000);
  zip::ZpLocalFileEntry<> local(record, package.zip());
  finish(0x123456789A, 7, 0xDEADBEEF);
  EXPECT_TRUE(local.updateFromCDEntry(false, record));
  EXPECT_EQ(descriptorOf(local), zipbytes::dataDescriptor64(0xDEADBEEF, 7, 0x123456789A));
  finish(3, 4, 5);
  EXPECT_TRUE(local.updateFromCDEntry(false, record));
  EXPECT_EQ(descriptorOf(local), zipbytes::dataDescriptor64(5, 4, 3)) << "small ones as well";
}

TEST_F(LocalHeaderUpdate, TheSizesInTheZip64BlockAreBroughtUpToDate) {
  expect(0x100000000, 0x100000000);
  zip::ZpLocalFileEntry<> local(record, package.zip());
  finish(0x123456789A, 0x200000000, 9);
  EXPECT_TRUE(local.updateFromCDEntry(false, record));
  EXPECT_FALSE(local.updateFromCDEntry(false, record));
  record.fCompressedSize = 0x300000000;  // the 32-bit fields are the same
  EXPECT_TRUE(local.updateFromCDEntry(true, record));
  Entry entry = plain();
  entry.crc = 9;
  entry.size = entry.compressedSize = kAllOnes;
  entry.localExtra = zip64Block({0x123456789A, 0x300000000});
  EXPECT_EQ(written(local), localHeader(entry));
}

TEST_F(LocalHeaderUpdate, AZip64BlockOfSmallSizesIsKeptForThem) {
  expect(0x100000000, 0x100000000);
  zip::ZpLocalFileEntry<> local(record, package.zip());
  finish(3, 4, 9);
  EXPECT_TRUE(local.updateFromCDEntry(false, record));
  Entry entry = plain();
  entry.crc = 9;
  entry.size = 3;
  entry.compressedSize = 4;
  entry.localExtra = zip64Block({3, 4});
  EXPECT_EQ(written(local), localHeader(entry));
}

// The same numbers go into a header that stands in the file already.

TEST_F(LocalHeaderUpdate, PatchingChangesCRCAndSizesAndNothingElse) {
  setProperty(QCFPropertyZipTypeCreator, kTypeProperty);
  zip::ZpLocalFileEntry<> local(record, package.zip());
  const auto out = package.file("lead");
  out->seek(0, SEEK_END);
  local.writeLFH(out.get(), package.zip());
  out->write("data", 4);
  finish(10, 20, 0xDEADBEEF);
  ASSERT_TRUE(local.updateFromCDEntry(false, record));
  local.patch(out.get(), 4);
  Entry entry = plain();
  entry.crc = 0xDEADBEEF;
  entry.compressedSize = 20;
  entry.size = 10;
  entry.localExtra = typeCreatorBlock("TEXTttxt");
  EXPECT_EQ(package.files().bytes("bytes"), "lead" + localHeader(entry) + "data");
}

TEST_F(LocalHeaderUpdate, PatchingReachesTheZip64Block) {
  setProperty(QCFPropertyZipTypeCreator, kTypeProperty);
  expect(0x100000000, 0x100000000);
  zip::ZpLocalFileEntry<> local(record, package.zip());
  const auto out = package.file("lead");
  out->seek(0, SEEK_END);
  local.writeLFH(out.get(), package.zip());
  out->write("data", 4);
  finish(0x123456789A, 20, 0xDEADBEEF);
  ASSERT_TRUE(local.updateFromCDEntry(false, record));
  local.patch(out.get(), 4);
  Entry entry = plain();
  entry.crc = 0xDEADBEEF;
  entry.compressedSize = 20;
  entry.size = kAllOnes;
  entry.localExtra = zip64Block({0x123456789A, 20}) + typeCreatorBlock("TEXTttxt");
  EXPECT_EQ(package.files().bytes("bytes"), "lead" + localHeader(entry) + "data");
}

}  // namespace
