#include <cstdint>
#include <string>

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include "package/detail/ZpCentralDir.h"

#include "support/Raised.h"
#include "support/ZipBytes.h"
#include "unit/package/detail/TestPackage.h"

// How the end records are written, and how a directory keeps its books.

namespace {

using namespace pkg;
using support::ioError;
using support::raised;
using support::TestPackage;
using zipbytes::End;
using zipbytes::endRecord;
using zipbytes::u32;
using zipbytes::u64;

class EndWriter : public testing::Test {
protected:
  // What is written, at offset 10 of a file.
  std::string written() {
    const auto file = package.file(std::string(10, 'x'));
    file->seek(0, SEEK_END);
    directory.writeECD(file.get(), package.zip());
    return package.files().bytes("bytes").substr(10);
  }
  static std::string zip64Records(std::uint64_t entries, std::uint64_t size, std::uint64_t offset) {
    zipbytes::Zip64End end;
    end.entries = entries;
    end.directorySize = size;
    end.directoryOffset = offset;
    end.versionNeeded = 0;
    return zip64EndRecord(end) + zipbytes::zip64Locator(10);
  }
  void comment(const std::string& text) {
    package.properties().setZipProperty("/", QCFPropertyPackageComment, text, false);
  }

  TestPackage package;
  zip::ZpCentralDir<> directory;
};

TEST_F(EndWriter, AnEmptyDirectoryIsOneRecord) {
  EXPECT_EQ(written(), endRecord({}));
}

TEST_F(EndWriter, TheNumbersGoIntoTheRecord) {
  directory.fEntryCount = 3;
  directory.fDirectorySize = 0x01020304;
  directory.fDirectoryOffset = 0x05060708;
  EXPECT_EQ(written(), endRecord({3, 0x01020304, 0x05060708, {}}));
}

TEST_F(EndWriter, UpTo65534EntriesNeedNoZip64Records) {
  directory.fEntryCount = 65534;
  EXPECT_EQ(written(), endRecord({65534, 0, 0, {}}));
}

TEST_F(EndWriter, From65535EntriesOnTheCountGoesIntoTheZip64Records) {
  for (const std::uint64_t count : {65535u, 65536u, 70000u}) {
    directory.fEntryCount = count;
    EXPECT_EQ(written(), zip64Records(count, 0, 0) + endRecord({0xFFFF, 0, 0, {}})) << count;
  }
}

TEST_F(EndWriter, AnOffsetOf0xFFFFFFFENeedsNoZip64Records) {
  directory.fDirectoryOffset = 0xFFFFFFFE;
  EXPECT_EQ(written(), endRecord({0, 0, 0xFFFFFFFE, {}}));
}

TEST_F(EndWriter, From0xFFFFFFFFOnTheOffsetGoesIntoTheZip64Records) {
  for (const std::uint64_t offset :
       {std::uint64_t{0xFFFFFFFF}, std::uint64_t{0x100000000}, ~std::uint64_t{0}}) {
    directory.fDirectoryOffset = offset;
    EXPECT_EQ(written(), zip64Records(0, 0, offset) + endRecord({0, 0, 0xFFFFFFFF, {}}));
  }
}

TEST_F(EndWriter, ASizeOf0xFFFFFFFENeedsNoZip64RecordsAndOneMoreDoes) {
  directory.fDirectorySize = 0xFFFFFFFE;
  EXPECT_EQ(written(), endRecord({0, 0xFFFFFFFE, 0, {}}));
  directory.fDirectorySize = 0xFFFFFFFF;
  EXPECT_EQ(written(), zip64Records(0, 0xFFFFFFFF, 0) + endRecord({0, 0xFFFFFFFF, 0, {}}));
}

TEST_F(EndWriter, NumbersThatAreNotLargeStayInTheEndRecordBesideThoseThatAre) {
  directory.fEntryCount = 65535;
  directory.fDirectorySize = 46;
  directory.fDirectoryOffset = 47;
  EXPECT_EQ(written(), zip64Records(65535, 46, 47) + endRecord({0xFFFF, 46, 47, {}}));
}

TEST_F(EndWriter, TheZip64RecordHasSize44IsMadeBy45AndItsLocatorPointsAtIt) {
  directory.fEntryCount = 65535;
  const std::string bytes = written();
  EXPECT_EQ(bytes.substr(0, 16), u32(0x06064b50) + u64(44) + std::string("\x2D\0\0\0", 4));
  EXPECT_EQ(bytes.substr(16, 8), u32(0) + u32(0)) << "disks";
  EXPECT_EQ(bytes.substr(56, 20), u32(0x07064b50) + u32(0) + u64(10) + u32(1));
}

TEST_F(EndWriter, AByteOfTheZip64RecordThatWasReadIsKept) {
  directory.fEntryCount = 65535;
  directory.fZip64End.hostNeeded = 0x77;
  directory.fZip64End.versionNeeded = 45;
  directory.fZip64End.disk = 9;
  EXPECT_EQ(written().substr(12, 12), std::string("\x2D\0\0\x77", 4) + u32(0) + u32(0));
}

TEST_F(EndWriter, TheDiskFieldsOfAnEndRecordThatWasReadAreKept) {
  End old;
  old.disk = 3;
  old.directoryDisk = 4;
  old.entriesOnDisk = 5;
  old.entries = 6;
  const auto file = package.file(endRecord(old));
  directory.readECD(file.get(), package.zip());
  directory.fEntryCount = 2;
  old.entriesOnDisk = 2;
  old.entries = 2;
  EXPECT_EQ(written(), endRecord(old));
}

TEST_F(EndWriter, TheCommentComesFromTheProperty) {
  comment("a comment");
  EXPECT_EQ(written(), endRecord({0, 0, 0, "a comment"}));
  EXPECT_STREQ(directory.fComment.get(), "a comment");
}

TEST_F(EndWriter, AnEmptyCommentHasNoBytes) {
  const auto file = package.file("data" + endRecord({0, 0, 0, "old"}));
  directory.readECD(file.get(), package.zip());
  EXPECT_STREQ(directory.fComment.get(), "old");
  comment("");
  EXPECT_EQ(written(), endRecord({}));
  EXPECT_FALSE(directory.fComment);
}

TEST_F(EndWriter, ACommentEndsAtItsFirstNul) {
  comment(std::string("ab\0cd", 5));
  EXPECT_EQ(written(), endRecord({0, 0, 0, "ab"}));
  comment(std::string("\0cd", 3));
  EXPECT_EQ(written(), endRecord({}));
}

TEST_F(EndWriter, ACommentOf65535BytesIsWrittenWhole) {
  comment(std::string(65535, 'c'));
  EXPECT_EQ(written(), endRecord({0, 0, 0, std::string(65535, 'c')}));
}

TEST_F(EndWriter, ALongerCommentIsWrittenAsFarAsItsCutLengthSays) {
  comment(std::string(65536, 'c'));
  EXPECT_EQ(written(), endRecord({}));
  comment("abc" + std::string(65536, 'd'));
  EXPECT_EQ(written(), endRecord({0, 0, 0, "abc"}));
}

TEST_F(EndWriter, TheCommentOfAFastReadIsNotWrittenBack) {
  End last;
  last.commentLength = 100;
  const auto file = package.file("data" + endRecord(last));
  directory.readECD(file.get(), package.zip());
  EXPECT_EQ(written(), endRecord({}));
}

TEST_F(EndWriter, EveryFailedCallPasses) {
  directory.fEntryCount = 65535;
  comment("comment");
  for (const auto kind : {support::Failure::Write, support::Failure::Tell}) {
    for (int n = 1;; ++n) {
      support::FailingFileSystem failing(package.files(), n, {kind});
      const auto out = failing.openFile(failing.getFSFileName("out"), std::ios::out);
      const support::Raised result = raised([&] { directory.writeECD(out.get(), package.zip()); });
      if (!failing.hasFailed()) break;
      EXPECT_EQ(result, ioError(50)) << n;
    }
  }
}

// The books.

boost::shared_ptr<zip::ZpCentralDirEntry<>> record(const std::string& name) {
  const auto entry = boost::make_shared<zip::ZpCentralDirEntry<>>();
  entry->setName(name);
  return entry;
}

TEST(CentralDirectory, CountsARecordWithTheSizeItHasWhenItComes) {
  zip::ZpCentralDir<> directory;
  const auto first = record("abc");
  first->fHeader.extraLength = 10;
  first->fHeader.commentLength = 20;
  directory.append(first);
  EXPECT_EQ(directory.fEntryCount, 1u);
  EXPECT_EQ(directory.fDirectorySize, 46u + 3 + 10 + 20);
  first->fHeader.extraLength = 1000;
  directory.append(record(""));
  EXPECT_EQ(directory.fEntryCount, 2u);
  EXPECT_EQ(directory.fDirectorySize, 79u + 46);
}

TEST(CentralDirectory, TakingARecordOutCountsItOffAndKeepsItsSize) {
  zip::ZpCentralDir<> directory;
  for (const char* const name : {"a", "b", "a"})
    directory.append(record(name));
  const auto* const second = directory.fEntries[2].get();
  directory.erase("a");
  EXPECT_EQ(directory.fEntryCount, 2u);
  EXPECT_EQ(directory.fDirectorySize, 3u * 47);
  EXPECT_STREQ(directory.fEntries[0]->fName.get(), "b");
  EXPECT_EQ(directory.find("a").get(), second) << "only the first went";
  directory.erase("missing");
  EXPECT_EQ(directory.fEntryCount, 2u);
}

TEST(CentralDirectory, FindsTheFirstRecordOfAName) {
  zip::ZpCentralDir<> directory(5);
  EXPECT_GE(directory.fEntries.capacity(), 5u);
  EXPECT_FALSE(directory.find("a"));
  for (const char* const name : {"b", "a", "a", "ab"})
    directory.append(record(name));
  EXPECT_EQ(directory.find("a"), directory.fEntries[1]);
  EXPECT_FALSE(directory.find("A"));
  EXPECT_FALSE(directory.find(""));
}

}  // namespace
