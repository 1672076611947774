#include <algorithm>

#include "golden/Golden.h"
#include "golden/Readers.h"

// New packages, entry by entry.

namespace {

using namespace golden;
using pkg::CompressionDeflated;
using pkg::CompressionStored;

class Entries : public Golden {};

TEST_F(Entries, AConformingPackageBeginsWithItsStoredType) {
  const Package package = fFactory.createConformingPackage("new.pkg", "application/x-test", true,
                                                           fFiles, nullptr, nullptr);
  write(package, "content.txt", "hello");
  package->endUpdate();

  zipbytes::File expected;
  expected.add(storedEntry("mimetype", "application/x-test"), "application/x-test");
  expected.add(deflatedEntry("content.txt", "hello"), deflated("hello"));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(bytes().substr(30, 26), "mimetypeapplication/x-test");
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(Entries, OutsideAnUpdateAConformingPackageIsWrittenByItsFirstSave) {
  const Package package = fFactory.createConformingPackage("new.pkg", "application/x-test", false,
                                                           fFiles, nullptr, nullptr);
  EXPECT_EQ(bytes(), "");
  write(package, "content.txt", "hello");
  package->beginUpdate();
  package->endUpdate();

  zipbytes::File expected;
  expected.add(storedEntry("mimetype", "application/x-test"), "application/x-test");
  expected.add(deflatedEntry("content.txt", "hello"), deflated("hello"));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

TEST_F(Entries, StoredAndDeflatedDataLieBehindHeadersThatTellTheirSizes) {
  const Bytes text = prose(100000);
  const Package package = create();
  write(package, "stored.txt", text, CompressionStored);
  write(package, "deflated.txt", text, CompressionDeflated);
  package->endUpdate();

  zipbytes::File expected;
  expected.add(storedEntry("stored.txt", text), text);
  expected.add(deflatedEntry("deflated.txt", text), deflated(text));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(Entries, DataThatComesInPiecesGivesTheSameBytes) {
  const Bytes text = prose(50000);
  const Package package = create();
  const Stream stream = package->getFile("a.txt", false)->open(kOut, false);
  std::size_t at = 0;
  for (std::size_t piece = 1; at < text.size(); piece = piece * 3 % 1009) {
    const std::size_t count = std::min(piece, text.size() - at);
    if (count == 1) {
      stream->put(text[at]);
    } else {
      stream->write(&text[at], static_cast<std::streamsize>(count));
    }
    stream->flush();
    at += count;
  }
  stream->close();
  package->endUpdate();

  zipbytes::File expected;
  expected.add(deflatedEntry("a.txt", text), deflated(text));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

TEST_F(Entries, AnEntryWithoutDataIsStoredAndSaysSoInBothHeaders) {
  const Package package = create();
  write(package, "deflated.txt", "", CompressionDeflated);
  write(package, "stored.txt", "", CompressionStored);
  package->endUpdate();

  zipbytes::File expected;
  expected.add(emptyEntry("deflated.txt"), "");
  expected.add(storedEntry("stored.txt", ""), "");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(Entries, DirectoriesAreStoredWithTheirAttribute) {
  const Package package = create();
  package->getDirectory("a", false)->create();
  package->getDirectory("a/b/", false)->create();
  write(package, "a/b/c.txt", "deep", CompressionStored);
  package->endUpdate();

  zipbytes::File expected;
  expected.add(directoryEntry("a/"), "");
  expected.add(directoryEntry("a/b/"), "");
  expected.add(storedEntry("a/b/c.txt", "deep"), "deep");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(Entries, ADirectoryThatIsOnlyAskedForIsNotWritten) {
  const Package package = create();
  package->getDirectory("a", false);
  write(package, "a/b.txt", "x", CompressionStored);
  package->endUpdate();

  zipbytes::File expected;
  expected.add(storedEntry("a/b.txt", "x"), "x");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

TEST_F(Entries, NamesOutsideAsciiAreUTF8AndMarkedSo) {
  const Package package = create();
  write(package,
        "Stra\xC3\x9F"
        "e/\xE2\x99\xAA.txt",
        "x", CompressionStored);
  package->endUpdate();

  zipbytes::File expected;
  expected.add(storedEntry("Stra\xC3\x9F"
                           "e/\xE2\x99\xAA.txt",
                           "x"),
               "x");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(Entries, ThePackagesCommentEndsTheFile) {
  const Package package = create();
  package->setProperty(pkg::QCFPropertyPackageComment, "a comment");
  write(package, "a.txt", "x", CompressionStored);
  package->endUpdate();

  zipbytes::File expected;
  expected.add(storedEntry("a.txt", "x"), "x");
  EXPECT_TRUE(sameBytes(expected.bytes(expected.end("a comment")), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(Entries, TheLongestCommentIs65534BytesLong) {
  const Package package = create();
  package->setProperty(pkg::QCFPropertyPackageComment, Bytes(65534, 'c'));
  write(package, "a.txt", "x", CompressionStored);
  package->endUpdate();

  zipbytes::File expected;
  expected.add(storedEntry("a.txt", "x"), "x");
  EXPECT_TRUE(sameBytes(expected.bytes(expected.end(Bytes(65534, 'c'))), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(Entries, ADateAndATimeThatAClientSetGoIntoBothHeaders) {
  const Package package = create();
  const auto file = package->getFile("a.txt", false);
  file->setProperty(pkg::QCFPropertyZipDate, "432A");  // 0x2A43, low byte first
  file->setProperty(pkg::QCFPropertyZipTime, "0100");
  write(package, "a.txt", "x", CompressionStored);
  package->endUpdate();

  Entry entry = storedEntry("a.txt", "x");
  entry.date = 0x2A43;
  entry.time = 0x0001;
  zipbytes::File expected;
  expected.add(entry, "x");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

// Where a date alone was set, the time is the clock's.
TEST_F(Entries, WhatAClientDidNotSetIsTheClocks) {
  const Package package = create();
  package->getFile("a.txt", false)->setProperty(pkg::QCFPropertyZipDate, "2100");
  write(package, "a.txt", "x", CompressionStored);
  package->endUpdate();

  Entry entry = storedEntry("a.txt", "x");
  entry.date = 0x0021;
  zipbytes::File expected;
  expected.add(entry, "x");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

TEST_F(Entries, EntriesLieInTheOrderInWhichTheyWereOpened) {
  const Package package = create();
  const Stream first = package->getFile("first.txt", false)->open(kOut, false);
  const Stream second = package->getFile("second.txt", false)->open(kOut, false);
  const Stream third = package->getFile("third.txt", false)->open(kOut, false);
  *third << "3";
  *second << "2";
  *first << "1";
  third->close();
  second->close();
  first->close();
  write(package, "fourth.txt", "4");
  package->endUpdate();

  // The first went straight out, and so did the fourth; the others waited for the end.
  zipbytes::File expected;
  expected.add(deflatedEntry("first.txt", "1"), deflated("1"));
  expected.add(deflatedEntry("fourth.txt", "4"), deflated("4"));
  expected.add(deflatedEntry("second.txt", "2"), deflated("2"));
  expected.add(deflatedEntry("third.txt", "3"), deflated("3"));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

TEST_F(Entries, ARawStreamTakesDataThatIsDeflatedAlready) {
  const Bytes text = prose(5000);
  const Bytes data = zipbytes::storedDeflate(text);
  const Package package = create();
  const auto file = package->getFile("a.txt", false);
  file->setExpectedSize(static_cast<long long>(text.size()));
  file->setExpectedCRC32(zipbytes::crc32(text));
  const Stream stream = file->open(kOut, true);
  stream->write(data.data(), static_cast<std::streamsize>(data.size()));
  stream->close();
  package->endUpdate();

  zipbytes::File expected;
  expected.add(written(zipbytes::deflatedEntry("a.txt", text, data)), data);
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

}  // namespace
