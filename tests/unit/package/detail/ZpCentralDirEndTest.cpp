#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "package/detail/ZpCentralDir.h"

#include "support/Raised.h"
#include "support/ZipBytes.h"
#include "unit/package/detail/TestPackage.h"

// How the end records of a file are found and read.

namespace {

using namespace pkg;
using support::FailingFileSystem;
using support::Failure;
using support::FileCall;
using support::ioError;
using support::misuse;
using support::nothing;
using support::Raised;
using support::raised;
using support::TestPackage;
using zipbytes::endRecord;

constexpr std::uint64_t kMarker = ~std::uint64_t{0};

class EndRecord : public testing::Test {
protected:
  Raised readECD(const std::string& bytes) {
    file = package.file(bytes);
    return raised([&] { directory.readECD(file.get(), package.zip()); });
  }
  // The same under a file system that stands before the bytes.
  Raised readECD(const std::string& bytes, support::FileSystemWrapper& files) {
    package.files().put("bytes", bytes);
    const auto wrapped = files.openFile(files.getFSFileName("bytes"), std::ios::in);
    return raised([&] { directory.readECD(wrapped.get(), package.zip()); });
  }
  std::string comment() const { return package->getProperty(QCFPropertyPackageComment); }

  TestPackage package;
  zip::ZpCentralDir<> directory;
  boost::shared_ptr<IPkgFSFile<>> file;
};

// An end record with recognisable numbers.
std::string numberedEnd(const std::string& packageComment = {}) {
  zipbytes::End end;
  end.entries = 0xF00D;
  end.entriesOnDisk = 0x1111;
  end.directorySize = 0x89ABCDEF;
  end.directoryOffset = 0xFEDCBA98;
  end.disk = 3;
  end.directoryDisk = 4;
  end.comment = packageComment;
  return endRecord(end);
}

TEST_F(EndRecord, ANewDirectoryHasSignaturesAndNothingElse) {
  const auto& end64 = directory.fZip64End;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&directory.fEnd), 22), endRecord({}));
  EXPECT_EQ(+end64.signature, 0x06064b50u);
  EXPECT_EQ(+directory.fZip64Locator.signature, 0x07064b50u);
  EXPECT_FALSE(directory.fComment);
  EXPECT_EQ(directory.fEntryCount, 0u);
  EXPECT_EQ(directory.fDirectorySize, 0u);
  EXPECT_EQ(directory.fDirectoryOffset, 0u);
  EXPECT_TRUE(directory.fEntries.empty());
}

TEST_F(EndRecord, AtTheVeryEndIsTakenAtOnce) {
  EXPECT_EQ(readECD("PK\x03\x04 data" + numberedEnd()), nothing());
  EXPECT_EQ(directory.fEntryCount, 0xF00Du) << "widened without sign";
  EXPECT_EQ(directory.fDirectorySize, 0x89ABCDEFu);
  EXPECT_EQ(directory.fDirectoryOffset, 0xFEDCBA98u);
  EXPECT_EQ(+directory.fEnd.disk, 3);
  EXPECT_EQ(+directory.fEnd.directoryDisk, 4);
  EXPECT_EQ(+directory.fEnd.entriesOnDisk, 0x1111) << "stored, not compared";
}

TEST_F(EndRecord, AtTheVeryEndWithACommentLengthReadsNoComment) {
  zipbytes::End last;
  last.commentLength = 100;
  EXPECT_EQ(readECD("PK\x03\x04 data" + endRecord(last)), nothing());
  EXPECT_EQ(+directory.fEnd.commentLength, 100);
  EXPECT_FALSE(directory.fComment);
  EXPECT_EQ(comment(), "");
}

TEST_F(EndRecord, AloneInAFileOf22BytesIsRead) {
  EXPECT_EQ(readECD(endRecord({})), nothing());
  EXPECT_EQ(directory.fEntryCount, 0u);
}

TEST_F(EndRecord, AFileThatCannotSeekRaises10) {
  support::UnseekableFileSystem pipes(package.files());
  EXPECT_EQ(readECD(numberedEnd(), pipes), ioError(10));
}

TEST_F(EndRecord, AFileOfFewerThan22BytesRaisesWhatTheSeekRaises) {
  EXPECT_EQ(readECD(""), ioError(50));
  EXPECT_EQ(readECD(std::string(21, 'x')), ioError(50));
}

TEST_F(EndRecord, AShortReadOfTheLast22BytesRaises10) {
  FailingFileSystem failing(package.files(), 1, {Failure::ShortRead});
  EXPECT_EQ(readECD("data" + numberedEnd(), failing), ioError(10));
}

TEST_F(EndRecord, AShortReadOfASliceRaises10) {
  for (const int slice : {2, 3}) {
    FailingFileSystem failing(package.files(), slice, {Failure::ShortRead});
    EXPECT_EQ(readECD("data" + numberedEnd() + std::string(5000, 'x'), failing), ioError(10))
        << slice;
  }
}

TEST_F(EndRecord, AShortReadOfTheCommentRaises6) {
  zipbytes::End last;
  last.commentLength = 11;
  last.comment = "ten bytes.";
  EXPECT_EQ(readECD("data" + endRecord(last)), ioError(6));
}

TEST_F(EndRecord, AFileWithoutOneRaises11) {
  for (const std::size_t size : {22u, 23u, 25u, 26u, 4096u, 4117u, 4118u, 20000u}) {
    EXPECT_EQ(readECD(std::string(size, 'x')), misuse(11)) << size;
  }
}

TEST_F(EndRecord, AtOffsets0To2WithBytesBehindItIsNotSeen) {
  for (const std::size_t offset : {0u, 1u, 2u}) {
    EXPECT_EQ(readECD(std::string(offset, 'x') + endRecord({}) + "y"), misuse(11)) << offset;
    EXPECT_EQ(readECD(std::string(offset, 'x') + endRecord({}) + std::string(5000, 'y')),
              misuse(11))
        << offset;
  }
}

TEST_F(EndRecord, AtOffset3AndBeyondIsSeen) {
  for (const std::size_t offset : {3u, 4u, 5u}) {
    for (const std::size_t behind : {1u, 2u, 3u, 21u, 4000u, 4096u, 10000u}) {
      zip::ZpCentralDir<> fresh;
      const auto bytes = package.file(std::string(offset, 'x') + endRecord({0x0102, 0, 0, {}}) +
                                      std::string(behind, 'y'));
      EXPECT_EQ(raised([&] { fresh.readECD(bytes.get(), package.zip()); }), nothing())
          << offset << " " << behind;
      EXPECT_EQ(fresh.fEntryCount, 0x0102u);
    }
  }
}

TEST_F(EndRecord, AHundredBytesOfCommentAreReadAndBecomeAProperty) {
  const std::string text(100, 'c');
  EXPECT_EQ(readECD("PK\x03\x04 data" + numberedEnd(text)), nothing());
  EXPECT_EQ(comment(), text);
  EXPECT_STREQ(directory.fComment.get(), text.c_str());
  EXPECT_EQ(directory.fEntryCount, 0xF00Du);
  bool modified = true;
  package.properties().getZipProperty("/", QCFPropertyPackageComment, &modified);
  EXPECT_FALSE(modified) << "as the record says";
}

// Comments of these lengths put the signature on both sides of every seam between slices.
TEST_F(EndRecord, IsFoundBeforeACommentOfAnyLength) {
  std::vector<std::size_t> lengths;
  for (const std::size_t seam : {1u, 4093u, 2u * 4093u, 3u * 4093u}) {
    for (std::size_t d = 0; d < 60; ++d)
      lengths.push_back(seam > 30 ? seam + d - 30 : seam + d);
  }
  lengths.insert(lengths.end(), {65534, 65535});
  for (const std::size_t length : lengths) {
    std::string text(length, 'c');
    text.front() = '<';
    text.back() = '>';
    zip::ZpCentralDir<> fresh;
    const auto bytes = package.file(std::string(10, 'x') + numberedEnd(text));
    ASSERT_EQ(raised([&] { fresh.readECD(bytes.get(), package.zip()); }), nothing()) << length;
    ASSERT_EQ(comment(), text) << length;
    ASSERT_EQ(fresh.fDirectoryOffset, 0xFEDCBA98u);
  }
}

TEST_F(EndRecord, ACommentEndsAsAPropertyAtItsFirstNul) {
  EXPECT_EQ(readECD("data" + numberedEnd(std::string("ab\0cd", 5))), nothing());
  EXPECT_EQ(comment(), "ab");
  EXPECT_EQ(std::memcmp(directory.fComment.get(), "ab\0cd\0", 6), 0);
}

TEST_F(EndRecord, ASignatureInsideTheCommentWins) {
  zipbytes::End inner;
  inner.entries = 7;
  EXPECT_EQ(readECD("data" + numberedEnd("a comment with " + endRecord(inner) + " inside")),
            nothing());
  EXPECT_EQ(directory.fEntryCount, 7u);
  EXPECT_EQ(comment(), "") << "the inner record has none";
}

TEST_F(EndRecord, TheLastOfSeveralWins) {
  std::string bytes;
  for (const int entries : {1, 2, 3})
    bytes += "data" + endRecord({static_cast<std::uint16_t>(entries), 0, 0, {}});
  EXPECT_EQ(readECD(bytes + "x"), nothing());
  EXPECT_EQ(directory.fEntryCount, 3u);
}

TEST_F(EndRecord, IsSearchedToTheStartOfTheFileWithoutALimit) {
  EXPECT_EQ(readECD("data" + endRecord({5, 6, 7, {}}) + std::string(300000, 'x')), nothing());
  EXPECT_EQ(directory.fEntryCount, 5u);
  EXPECT_EQ(directory.fDirectoryOffset, 7u);
}

TEST_F(EndRecord, IsNotCheckedAgainstTheFile) {
  zipbytes::End liar;
  liar.commentLength = 2;  // of the many bytes behind
  EXPECT_EQ(readECD("data" + endRecord(liar) + "many bytes behind"), nothing());
  EXPECT_EQ(comment(), "ma");
}

TEST_F(EndRecord, TheScanReadsSlicesOf4096BytesThatOverlapByThree) {
  support::RecordingFileSystem recording(package.files());
  EXPECT_EQ(readECD(std::string(10000, 'x'), recording), misuse(11));
  std::vector<std::pair<long long, long long>> slices;  // position and size
  for (std::size_t i = 1; i < recording.calls().size(); ++i) {
    const auto& call = recording.calls()[i];
    if (call.kind != FileCall::Read) continue;
    slices.emplace_back(recording.calls()[i - 1].number, call.number);
  }
  slices.erase(slices.begin());  // the last 22 bytes
  const std::vector<std::pair<long long, long long>> expected = {
      {9978 - 4093, 4096}, {9978 - 2 * 4093, 4096}, {3, 9978 - 2 * 4093}};
  EXPECT_EQ(slices, expected);
}

TEST_F(EndRecord, AShortReadOfItsLastBytesIsNotLookedAt) {
  // The record stands one byte before the end: the slice holds its signature, a second read the
  // rest.
  const std::string bytes = "data" + endRecord({0x0203, 0, 0, {}}) + std::string(1, '\0');
  FailingFileSystem failing(package.files(), 3, {Failure::ShortRead});
  EXPECT_EQ(readECD(bytes, failing), nothing());
  EXPECT_TRUE(failing.hasFailed());
  EXPECT_EQ(directory.fEntryCount, 0x0203u) << "came before the break";
}

TEST_F(EndRecord, FailuresOfTheFileLayerPass) {
  for (const Failure kind : {Failure::Seek, Failure::Tell, Failure::Read}) {
    FailingFileSystem failing(package.files(), 1, {kind});
    EXPECT_EQ(readECD("data" + numberedEnd(), failing), ioError(50));
  }
}

// The records of Zip64 are reached only by numbers that no end record can hold.
class Zip64End : public EndRecord {
protected:
  // A file with these Zip64 records and a comment of five bytes; its end record has been read.
  Raised readZip64(const std::string& zip64End, const std::string& locator) {
    EXPECT_EQ(readECD("lead" + zip64End + locator + endRecord({0, 0, 0, "12345"})), nothing());
    directory.fEntryCount = kMarker;
    return raised([&] { directory.readZip64Data(file.get()); });
  }
  static std::string zip64End() {
    zipbytes::Zip64End end;
    end.entries = 0x0102030405060708;
    end.directorySize = 0x1112131415161718;
    end.directoryOffset = 0x2122232425262728;
    return zip64EndRecord(end);
  }
};

TEST_F(Zip64End, IsIgnoredForEveryNumberThatAnEndRecordCanHold) {
  zipbytes::End marked;
  marked.entries = 0xFFFF;
  marked.directorySize = 0xFFFFFFFF;
  marked.directoryOffset = 0xFFFFFFFF;
  EXPECT_EQ(readECD("lead" + zip64End() + zipbytes::zip64Locator(4) + endRecord(marked)),
            nothing());
  support::RecordingFileSystem recording(package.files());
  const auto watched = recording.openFile(recording.getFSFileName("bytes"), std::ios::in);
  recording.forget();
  EXPECT_EQ(raised([&] { directory.readZip64Data(watched.get()); }), nothing());
  EXPECT_TRUE(recording.calls().empty()) << "the file isn't touched";
  EXPECT_EQ(directory.fEntryCount, 0xFFFFu);
  EXPECT_EQ(directory.fDirectoryOffset, 0xFFFFFFFFu);
}

TEST_F(Zip64End, IsReadWhereAnyOfTheThreeNumbersIsAllOnesIn64Bits) {
  for (const auto number : {&zip::ZpCentralDir<>::fEntryCount, &zip::ZpCentralDir<>::fDirectorySize,
                            &zip::ZpCentralDir<>::fDirectoryOffset}) {
    EXPECT_EQ(readECD("lead" + zip64End() + zipbytes::zip64Locator(4) + endRecord({})), nothing());
    directory.*number = kMarker;
    EXPECT_EQ(raised([&] { directory.readZip64Data(file.get()); }), nothing());
    EXPECT_EQ(directory.fEntryCount, 0x0102030405060708u);
    EXPECT_EQ(directory.fDirectorySize, 0x1112131415161718u);
    EXPECT_EQ(directory.fDirectoryOffset, 0x2122232425262728u);
  }
}

TEST_F(Zip64End, ItsLocatorStandsBeforeTheEndRecordAndItsComment) {
  EXPECT_EQ(readZip64(zip64End(), zipbytes::zip64Locator(4)), nothing());
  EXPECT_EQ(+directory.fZip64Locator.recordOffset, 4u);
  EXPECT_EQ(+directory.fZip64End.recordSize, 44u);
  EXPECT_EQ(directory.fEntryCount, 0x0102030405060708u);
}

TEST_F(Zip64End, AFileThatCannotSeekRaises12) {
  directory.fDirectorySize = kMarker;
  support::UnseekableFileSystem pipes(package.files());
  package.files().put("bytes", numberedEnd());
  const auto pipe = pipes.openFile(pipes.getFSFileName("bytes"), std::ios::in);
  EXPECT_EQ(raised([&] { directory.readZip64Data(pipe.get()); }), ioError(12));
}

TEST_F(Zip64End, AShortReadOfTheLocatorRaises12) {
  directory.fDirectorySize = kMarker;
  package.files().put("bytes", std::string(42, 'x'));
  FailingFileSystem failing(package.files(), 1, {Failure::ShortRead});
  const auto broken = failing.openFile(failing.getFSFileName("bytes"), std::ios::in);
  EXPECT_EQ(raised([&] { directory.readZip64Data(broken.get()); }), ioError(12));
}

TEST_F(Zip64End, AFileTooSmallForALocatorRaisesWhatTheSeekRaises) {
  directory.fDirectorySize = kMarker;
  file = package.file(std::string(41, 'x'));
  EXPECT_EQ(raised([&] { directory.readZip64Data(file.get()); }), ioError(50));
}

TEST_F(Zip64End, AWrongSignatureOfTheLocatorRaises13) {
  EXPECT_EQ(readZip64(zip64End(), zipbytes::zip64Locator(4, 1, 0x07064b51)), ioError(13));
}

TEST_F(Zip64End, AShortReadOfTheRecordRaises14) {
  EXPECT_EQ(readZip64(zip64End(), zipbytes::zip64Locator(4 + 56 + 20 + 27 - 55)), ioError(14));
  EXPECT_EQ(readZip64(zip64End(), zipbytes::zip64Locator(1 << 20)), ioError(14));
}

TEST_F(Zip64End, AWrongSignatureOfTheRecordRaises15) {
  EXPECT_EQ(readZip64(zip64End(), zipbytes::zip64Locator(3)), ioError(15));
}

TEST_F(Zip64End, AnOffsetThatNoFileHasRaisesWhatTheSeekRaises) {
  EXPECT_EQ(readZip64(zip64End(), zipbytes::zip64Locator(kMarker)), ioError(50));
}

// What a package makes of it as a whole.
TEST_F(Zip64End, APackageIsReadThroughTheNarrowFieldsEvenWhereTheyAreAllOnes) {
  zipbytes::End marked;
  marked.entries = 0xFFFF;
  marked.directoryOffset = 0xFFFFFFFF;
  package.files().put(
      "big", "PK\x03\x04 lead" + zip64End() + zipbytes::zip64Locator(9) + endRecord(marked));
  EXPECT_EQ(raised([&] {
              QCFPackageFactory().openPackage(std::string("big"), std::ios::in, &package.files(),
                                              nullptr, nullptr);
            }),
            ioError(2))
      << "nothing stands at offset 0xFFFFFFFF";
}

}  // namespace
