#include "unit/writing/Writing.h"

// File entries: where a stream goes, what sizes and checksums they tell, what references mean.

namespace {

using namespace writing;

class FileEntries : public Writing {
protected:
  FileEntries() {
    fOld.add(storedEntry("a.txt", "alpha"), "alpha");
    fOld.add(deflatedEntry("b.txt", prose(1000)), deflated(prose(1000)));
  }
  zipbytes::File fOld;
};

TEST_F(FileEntries, AModeThatNeitherReadsNorWritesRaises22) {
  const Package package = open(fOld.bytes());
  EXPECT_RAISED("22", package->getFile("a.txt", true)->open(kTrunc, false));
}

TEST_F(FileEntries, AModeThatReadsAndWritesRaises19AndChangesNothing) {
  const Package package = open(fOld.bytes());
  const File file = package->getFile("a.txt", true);
  EXPECT_RAISED("19", file->open(kIn | kOut, false));
  EXPECT_FALSE(package->isModified());
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
  package->beginUpdate();
  EXPECT_RAISED("19", file->open(kIn | kOut, false));
}

TEST_F(FileEntries, AWriteOnlyPackageReadsNothingButWhatWasSpooled) {
  const Package package = fFactory.openPackage("new.pkg", kOut | kTrunc, fFiles, nullptr, nullptr);
  EXPECT_RAISED("26", package->getFile("a.txt", false)->open(kIn, false));
  write(package, "a.txt", "spooled");
  EXPECT_EQ(contents(package, "a.txt"), "spooled");
}

TEST_F(FileEntries, AnEntryWithoutDataRaises21WhenItIsRead) {
  const Package package = open(fOld.bytes());
  EXPECT_RAISED("21", package->getFile("new.txt", false)->open(kIn, false));
}

TEST_F(FileEntries, WhatWasSpooledIsReadBackAtOnce) {
  const Package package = open(fOld.bytes());
  write(package, "a.txt", "changed");
  EXPECT_EQ(contents(package, "a.txt"), "changed");
  EXPECT_EQ(bytes("old.pkg"), fOld.bytes());
}

TEST_F(FileEntries, ARawStreamStillReadsThePackageBehindASpool) {
  const Package package = open(fOld.bytes());
  write(package, "b.txt", "changed");
  EXPECT_EQ(readAll(*package->getFile("b.txt", true)->open(kIn, true)), deflated(prose(1000)));
}

TEST_F(FileEntries, OpeningAnewForWritingEmptiesTheSpool) {
  const Package package = open(fOld.bytes());
  write(package, "a.txt", "a long first content");
  const Stream stream = openForWriting(package, "a.txt");
  stream->close();
  EXPECT_EQ(contents(package, "a.txt"), "");
}

TEST_F(FileEntries, ADeletedEntryThatIsWrittenIsNoLongerDeleted) {
  const Package package = open(fOld.bytes());
  const File file = package->getFile("a.txt", true);
  file->remove();
  write(package, "a.txt", "again");
  EXPECT_FALSE(file->isDeleted());
  EXPECT_EQ(package->entryExists("a.txt"), pkg::PkgEntryFile);
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(contents(open(bytes()), "a.txt"), "again");
}

TEST_F(FileEntries, ASecondStreamDuringADirectOneSpoolsAndQueuesOnceHoweverOftenItIsOpened) {
  const Package package = create();
  const Stream direct = openForWriting(package, "first.txt");
  *direct << "first";
  for (const char* const text : {"one", "two", "three"})
    write(package, "second.txt", text);
  EXPECT_EQ(fMemory.temporaryFiles(), 1);
  direct->close();
  package->endUpdate();
  EXPECT_EQ(contents(open(bytes()), "second.txt"), "three");
  EXPECT_EQ(u16At(bytes(), bytes().size() - 12), 2u);
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

TEST_F(FileEntries, WhenTheDirectStreamClosesTheNextOneGoesDirect) {
  const Package package = create();
  write(package, "a.txt", "alpha", CompressionStored);
  EXPECT_NE(bytes().find("alpha"), Bytes::npos);
  write(package, "b.txt", "beta", CompressionStored);
  EXPECT_NE(bytes().find("beta"), Bytes::npos);
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

TEST_F(FileEntries, AQueuedEntryThatGoesDirectAfterAllLeavesTheQueue) {
  const Package package = create();
  const Stream direct = openForWriting(package, "first.txt");
  write(package, "second.txt", "queued");
  direct->close();
  write(package, "second.txt", "direct", CompressionStored);
  package->endUpdate();
  EXPECT_NE(bytes().find("direct"), Bytes::npos);
  EXPECT_EQ(bytes().find("queued"), Bytes::npos);
  EXPECT_EQ(u16At(bytes(), bytes().size() - 12), 2u);
}

TEST_F(FileEntries, TheSizeOfANewEntryIsWhatWasAnnouncedUntilItsRecordKnowsBetter) {
  const Package package = create();
  const File file = package->getFile("a.txt", false);
  EXPECT_EQ(file->getSize64(), 0);
  file->setExpectedSize(5000000000);
  EXPECT_EQ(file->getSize64(), 5000000000);
  EXPECT_EQ(file->getSize(), 705032704u);
  EXPECT_EQ(file->getCompressedSize64(), 0);
  write(package, "a.txt", "12345", CompressionStored);
  EXPECT_EQ(file->getSize64(), 5);
  EXPECT_EQ(file->getCompressedSize(), 5u);
  package->endUpdate();
  EXPECT_EQ(file->getSize64(), 5);
}

TEST_F(FileEntries, TheSizeOfASpooledEntryIsThatOfItsSpoolWhereNoRecordHasOne) {
  const Package package = open(fOld.bytes());
  write(package, "new.txt", "1234567");
  EXPECT_EQ(package->getFile("new.txt", true)->getSize64(), 7);
  write(package, "a.txt", "1234567");
  EXPECT_EQ(package->getFile("a.txt", true)->getSize64(), 5);  // the record's
}

TEST_F(FileEntries, TheCRCOfANewEntryIsWhatWasAnnouncedUntilItsRecordKnowsBetter) {
  const Package package = create();
  const File file = package->getFile("a.txt", false);
  file->setExpectedCRC32(0x12345678);
  EXPECT_EQ(file->getCRC32(), 0x12345678u);
  write(package, "a.txt", "12345");
  EXPECT_EQ(file->getCRC32(), zipbytes::crc32("12345"));
}

TEST_F(FileEntries, RemoveZeroesSizeAndCRCAtOnce) {
  const Package package = open(fOld.bytes(), kIn);
  const File file = package->getFile("a.txt", true);
  EXPECT_EQ(file->getSize64(), 5);
  file->remove();
  EXPECT_EQ(file->getSize64(), 0);
  EXPECT_EQ(file->getCRC32(), 0u);
  EXPECT_EQ(file->getCompressedSize64(), 5);  // nobody zeroes that
}

TEST_F(FileEntries, AZipPropertyIsSetBeforeDataAndRefusedWith23Afterwards) {
  const Package package = create();
  const File file = package->getFile("a.txt", false);
  file->setProperty(pkg::QCFPropertyZipTime, "0100");
  write(package, "a.txt", "x");
  EXPECT_RAISED("23", file->setProperty(pkg::QCFPropertyZipTime, "0200"));
  EXPECT_RAISED("23", file->setProperty(pkg::QCFPropertyZipTypeCreator, ""));
  EXPECT_EQ(file->getProperty(pkg::QCFPropertyZipTime), "0100");
}

TEST_F(FileEntries, ReferencesResolveAgainstTheEntry) {
  const Package package = open(fOld.bytes());
  const File file = package->getFile("a/b.xml", false);
  EXPECT_EQ(file->resolvePath("#frag"), "/a/b.xml#frag");
  EXPECT_EQ(file->resolvePath("c.xml"), "/a/c.xml");
  EXPECT_EQ(file->resolvePath("../c.xml"), "/c.xml");
  EXPECT_EQ(file->resolvePath("./d/./c.xml"), "/a/d/c.xml");
  EXPECT_EQ(file->resolvePath("/x/../c.xml"), "/c.xml");
  EXPECT_EQ(file->resolvePath("urn:x"), "urn:x");
  EXPECT_EQ(file->resolvePath("http://h/../x"), "http://h/../x");
  EXPECT_EQ(file->resolvePath("//host/../x"), "//host/../x");
  EXPECT_EQ(file->resolvePath("c/d:e"), "/a/c/d:e");
  EXPECT_EQ(package->getFile("top.xml", false)->resolvePath("c.xml"), "/c.xml");
}

TEST_F(FileEntries, ACopyThatFailsRaises29) {
  support::FailingFileSystem full(fMemory, 1, {support::Failure::Write},
                                  support::FailingFileSystem::Span::FromThereOn);
  fFiles = &full;
  const Package package = open(fOld.bytes());
  EXPECT_RAISED("IO 29", package->saveAs("new.pkg", kIn | kOut | kTrunc));
  EXPECT_EQ(bytes("old.pkg"), fOld.bytes());
}

// A read that fails looks to the copying loop like the end of the data.
TEST_F(FileEntries, ACopyWhoseSourceFailsEndsEarlyAndSaysNothing) {
  Bytes damaged = fOld.bytes();
  damaged[damaged.find("b.txt") + 5] = '\x07';  // a block type that deflate does not have
  const Package package = open(damaged);
  const File file = package->getFile("b.txt", true);
  char byte = 0;
  EXPECT_TRUE(file->open(kIn, false)->read(&byte, 1).bad());

  // Only a copy that is not raw inflates: that of a changed entry whose change is used up.
  write(package, "b.txt", "changed");
  EXPECT_NO_THROW(package->saveAs("new.pkg", kIn | kOut | kTrunc));
  EXPECT_EQ(package->getFile("b.txt", true)->getCompressedSize64(), 0);
}

TEST_F(FileEntries, AStreamKnowsItsFileWhenItIsClosedToo) {
  const Package package = create();
  const File file = package->getFile("a.txt", false);
  const Stream stream = file->open(kOut, false);
  EXPECT_EQ(stream->getFile(), file.get());
  stream->close();
  EXPECT_EQ(stream->getFile(), file.get());
}

}  // namespace
