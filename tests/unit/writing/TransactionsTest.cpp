#include <string>
#include <vector>

#include "unit/package/detail/FakeParser.h"
#include "unit/writing/Writing.h"

// What transactions do to entries, streams and files, beyond the bytes of the result.

namespace {

using namespace writing;

class Transactions : public Writing {
protected:
  static Bytes oneEntry() {
    zipbytes::File old;
    old.add(storedEntry("a.txt", "alpha"), "alpha");
    return old.bytes();
  }
  static Bytes noEntry() {
    zipbytes::File old;
    old.raw("PK\x03\x04");  // enough to be taken for a package
    return old.bytes();
  }
};

TEST_F(Transactions, AnUpdateWithNothingToWriteLeavesFileAndPackageAsTheyWere) {
  const Package package = open(oneEntry());
  package->beginUpdate();
  package->endUpdate();
  EXPECT_EQ(bytes("old.pkg"), oneEntry());
  EXPECT_EQ(contents(package, "a.txt"), "alpha");
  write(package, "b.txt", "beta");
  package->doUNSAFEUpdateInPlace();
  EXPECT_EQ(contents(package, "b.txt"), "beta");
}

TEST_F(Transactions, SaveAsOfAnEmptyPackageMakesAnEmptyFileAndStaysOnTheOldOne) {
  const Package package = open(noEntry());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(bytes(), "");
  EXPECT_EQ(package->getFSFile()->getName()->getName(), "old.pkg");
  EXPECT_EQ(package->getOpenMode(true), kIn | kOut);
  package->beginUpdate();
  package->cancelUpdate();
}

TEST_F(Transactions, SaveAsMovesThePackageIntoTheNewFile) {
  const Package package = open(oneEntry(), kIn);
  EXPECT_EQ(package->getOpenMode(true), kIn);
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(package->getOpenMode(true), kIn);
  EXPECT_EQ(package->getOpenMode(false), kIn | kOut | kTrunc);
  package->endUpdate();
  EXPECT_EQ(package->getOpenMode(true), kIn | kOut | kTrunc);
  EXPECT_EQ(package->getOpenMode(false), kIn | kOut | kTrunc);
  EXPECT_EQ(package->getFSFile()->getName()->getName(), "new.pkg");
  EXPECT_EQ(package->getName(), "old.pkg");  // the name that it was opened by
  fMemory.remove("old.pkg");
  EXPECT_EQ(contents(package, "a.txt"), "alpha");
}

TEST_F(Transactions, SaveAsWithAModeThatOnlyWritesLeavesAPackageThatCannotRead) {
  const Package package = open(oneEntry());
  package->saveAs("new.pkg", kOut);
  EXPECT_RAISED("26", package->getFile("a.txt", true)->open(kIn, false));
}

TEST_F(Transactions, SaveAsToThePackagesOwnNameDestroysItsSource) {
  const Package package = open(oneEntry());
  EXPECT_RAISED("IO 2", package->saveAs("old.pkg", kIn | kOut | kTrunc));  // of nothing left
  EXPECT_EQ(bytes("old.pkg"), "");
}

TEST_F(Transactions, ModifiedSaysWhetherAChangeWaits) {
  const Package package = open(oneEntry());
  EXPECT_FALSE(package->isModified());
  write(package, "b.txt", "beta");
  EXPECT_TRUE(package->isModified());
  EXPECT_TRUE(package->getFile("b.txt", true)->isModified());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  EXPECT_TRUE(package->isModified());
  package->endUpdate();
  EXPECT_FALSE(package->isModified());
  EXPECT_FALSE(package->getFile("b.txt", true)->isModified());
}

TEST_F(Transactions, CopyingUnchangedEntriesDoesNotMarkThePackage) {
  const Package package = open(oneEntry());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  EXPECT_FALSE(package->isModified());
}

TEST_F(Transactions, RemovingFromAPackageThatReadsAndWritesDoesNotMarkIt) {
  const Package package = open(oneEntry());
  package->getFile("a.txt", true)->remove();
  EXPECT_FALSE(package->isModified());
  EXPECT_EQ(package->entryExists("a.txt"), pkg::PkgEntryNone);
}

TEST_F(Transactions, RemovingFromAPackageThatOnlyReadsMarksIt) {
  const Package package = open(oneEntry(), kIn);
  package->getFile("a.txt", true)->remove();
  EXPECT_TRUE(package->isModified());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(bytes(), "");  // nothing is left to write
}

TEST_F(Transactions, ADeletedEntryWithADirectStreamIsClosedAndForgotten) {
  const Package package = open(oneEntry());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  const Stream stream = openForWriting(package, "b.txt");
  *stream << "beta";
  package->getFile("b.txt", true)->remove();
  package->endUpdate();
  EXPECT_EQ(package->entryExists("b.txt"), pkg::PkgEntryNone);
  EXPECT_EQ(bytes().find("PK\x01\x02") + 46, bytes().find("a.txt", bytes().find("PK\x01\x02")));
  stream->close();  // has nothing left to do
  EXPECT_EQ(contents(package, "a.txt"), "alpha");
}

TEST_F(Transactions, EndUpdateClosesTheDirectStreamForTheClient) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
  *stream << "alpha";
  package->endUpdate();
  const Bytes written = bytes();
  stream->close();
  EXPECT_EQ(bytes(), written);
  EXPECT_EQ(contents(open(written), "a.txt"), "alpha");
}

// The entry waits in the queue all the same, and is written once more: of nothing.
TEST_F(Transactions, EndUpdateDropsTheSpoolOfTheEntryThatWasBeingWrittenAndListsItEmpty) {
  const Package package = create();
  const Stream direct = openForWriting(package, "a.txt");
  *direct << "direct";
  const Stream spool = package->getFile("a.txt", true)->open(kOut, false);
  *spool << "spooled";
  EXPECT_EQ(fMemory.temporaryFiles(), 1);
  package->endUpdate();
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
  EXPECT_EQ(bytes().find("spooled"), Bytes::npos);
  EXPECT_NE(bytes().find("direct"), Bytes::npos);  // which no record tells of
  EXPECT_EQ(contents(open(bytes()), "a.txt"), "");
  EXPECT_EQ(u16At(bytes(), bytes().size() - 12), 1u);
}

TEST_F(Transactions, CancelForgetsWhatTheUpdateMade) {
  const Package package = open(oneEntry());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  write(package, "b.txt", "beta");
  const Stream first = openForWriting(package, "c.txt");
  write(package, "queued.txt", "gamma");
  EXPECT_EQ(package->entryExists("queued.txt"), pkg::PkgEntryFile);
  first->close();
  package->cancelUpdate();
  for (const char* const name : {"b.txt", "c.txt", "queued.txt"})
    EXPECT_EQ(package->entryExists(name), pkg::PkgEntryNone) << name;
  EXPECT_EQ(contents(package, "a.txt"), "alpha");
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

TEST_F(Transactions, CancelLeavesTheOutputAsFarAsItGotAndTheNextUpdateGoesToThePackageFile) {
  const Package package = open(oneEntry());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  write(package, "b.txt", "beta", CompressionStored);
  package->cancelUpdate();
  EXPECT_NE(bytes().find("beta"), Bytes::npos);
  EXPECT_EQ(bytes("old.pkg"), oneEntry());
  package->beginUpdate();
  EXPECT_EQ(package->getOpenMode(false), kIn | kOut);
  write(package, "c.txt", "gamma", CompressionStored);
  package->endUpdate();
  EXPECT_NE(bytes("old.pkg").find("gamma"), Bytes::npos);
}

TEST_F(Transactions, ADirectStreamThatOutlivesItsCancelledUpdateTouchesNothing) {
  const Package package = open(oneEntry());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  const File file = package->getFile("b.txt", false);
  const Stream stream = openForWriting(package, "b.txt", CompressionDeflated);
  *stream << "beta";
  package->cancelUpdate();
  const Bytes left = bytes();
  EXPECT_RAISED("24", *stream << "more");
  EXPECT_NO_THROW(stream->close());
  EXPECT_EQ(bytes(), left);
}

// The cancelled update has made the entry, and forgets it: nobody else holds it.
TEST_F(Transactions, ADirectStreamWhoseEntryGoesWithItsCancelledUpdateIsClosed) {
  const Package package = open(oneEntry());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  const Stream stream = openForWriting(package, "b.txt", CompressionDeflated);
  *stream << "beta";
  package->cancelUpdate();
  const Bytes left = bytes();
  *stream << "more";
  EXPECT_TRUE(stream->bad());
  EXPECT_EQ(stream->getFile(), nullptr);
  EXPECT_NO_THROW(stream->close());
  EXPECT_EQ(bytes(), left);
}

TEST_F(Transactions, AChangeMadeBeforeACancelledUpdateHasBeenUsedUpByIt) {
  const Package package = open(oneEntry());
  write(package, "b.txt", "beta");
  EXPECT_EQ(fMemory.temporaryFiles(), 1);
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
  package->cancelUpdate();
  EXPECT_TRUE(package->isModified());
}

TEST_F(Transactions, CloseDuringAnUpdateClosesStreamsAndDeletesTemporaryFiles) {
  const Package package = open(oneEntry());
  write(package, "changed.txt", "before");
  package->beginUpdate();
  const Stream direct = openForWriting(package, "b.txt");
  const Stream spool = openForWriting(package, "c.txt");
  *direct << "beta";
  *spool << "gamma";
  // Closing the direct stream puts its numbers into its header; else the output stays as it is.
  Bytes left = bytes("old.pkg");
  left.replace(left.rfind("PK\x03\x04") + 14, 12,
               zipbytes::u32(zipbytes::crc32("beta")) + zipbytes::u32(4) + zipbytes::u32(4));
  package->close();
  EXPECT_TRUE(sameBytes(left, bytes("old.pkg")));
  EXPECT_EQ(left.find("gamma"), Bytes::npos);
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
  EXPECT_TRUE(direct->rdbuf() == nullptr);
  EXPECT_TRUE(spool->rdbuf() == nullptr);
  EXPECT_RAISED("24", package->endUpdate());
}

TEST_F(Transactions, CloseDuringASaveLeavesTheOutputAsItWas) {
  const Package package = open(oneEntry());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  write(package, "b.txt", "beta");
  const Bytes left = bytes();
  package->close();
  EXPECT_TRUE(sameBytes(left, bytes()));
  EXPECT_EQ(left.find("PK\x01\x02"), Bytes::npos);
  EXPECT_EQ(bytes("old.pkg"), oneEntry());
}

TEST_F(Transactions, CloseDropsWhatIsNotSaved) {
  const Package package = open(oneEntry());
  write(package, "b.txt", "beta");
  package->close();
  EXPECT_EQ(bytes("old.pkg"), oneEntry());
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

TEST_F(Transactions, APackageThatIsDroppedNeitherSavesNorLeavesTemporaryFiles) {
  {
    const Package package = open(oneEntry());
    write(package, "b.txt", "beta");
    EXPECT_EQ(fMemory.temporaryFiles(), 1);
  }
  EXPECT_EQ(bytes("old.pkg"), oneEntry());
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

TEST_F(Transactions, AfterARepairedPackageWasUpdatedInItselfALaterSaveMissesTheMimetype) {
  fPolicies.conformance = 1;
  zipbytes::File old;
  old.add(deflatedEntry("mimetype", "text/plain"), deflated("text/plain"));
  const Package package = open(old.bytes());
  package->beginUpdate();
  package->endUpdate();
  EXPECT_RAISED("47", package->saveAs("new.pkg", kIn | kOut | kTrunc));
  // The transaction has begun, and its output is there and empty.
  EXPECT_EQ(bytes(), "");
  package->cancelUpdate();
}

TEST_F(Transactions, UnderTheConformancePolicyTheSecondWritingOfAChangedMimetypeRaises45) {
  fPolicies.conformance = 1;
  zipbytes::File old;
  old.add(storedEntry("mimetype", "text/plain"), "text/plain");
  const Package package = open(old.bytes());
  // A first update lets the next writing outside it through.
  package->beginUpdate();
  package->endUpdate();
  package->setMIMEType("text/html");
  EXPECT_RAISED("45", package->saveAs("new.pkg", kIn | kOut | kTrunc));
  package->cancelUpdate();
}

TEST_F(Transactions, AReaderThatIsOpenOverASaveGoesOnReadingTheOldFile) {
  using support::FileCall;
  const Bytes text = prose(1000);
  zipbytes::File old;
  old.add(storedEntry("a.txt", text), text);
  support::RecordingFileSystem recording(fMemory);
  fFiles = &recording;
  const Package package = open(old.bytes());
  const Stream reader = package->getFile("a.txt", true)->open(kIn, false);
  EXPECT_EQ(reader->get(), text[0]);
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  recording.forget();
  Bytes rest(2000, '\0');
  reader->read(rest.data(), 2000);
  EXPECT_EQ(rest.substr(0, static_cast<std::size_t>(reader->gcount())), text.substr(1));
  EXPECT_GT(recording.count(FileCall::Read), 0);
  for (const auto& call : recording.calls())
    EXPECT_EQ(call.name, "old.pkg");
  EXPECT_NO_THROW(reader->close());
  EXPECT_EQ(contents(package, "a.txt"), text);
}

TEST_F(Transactions, AnEntryWrittenTwiceInAnUpdateIsListedOnceWithTheLaterContent) {
  const Package package = create();
  write(package, "a.txt", "first");
  write(package, "a.txt", "second");
  package->endUpdate();
  EXPECT_EQ(contents(open(bytes()), "a.txt"), "second");
  EXPECT_EQ(u16At(bytes(), bytes().size() - 12), 1u);
}

TEST_F(Transactions, WriteTwiceInOneSpoolKeepsTheLaterContent) {
  const Package package = open(oneEntry());
  write(package, "b.txt", "a longer first content");
  write(package, "b.txt", "second");
  package->doUNSAFEUpdateInPlace();
  EXPECT_EQ(contents(package, "b.txt"), "second");
}

TEST_F(Transactions, TheOutputBeginsWithARepairedTypeAndEndsWithTheQueue) {
  fPolicies.conformance = 1;
  support::FakeParser parser;
  fParser = &parser;
  zipbytes::File old;
  old.add(storedEntry("old.txt", "alpha"), "alpha");
  old.add(deflatedEntry("mimetype", "text/plain"), deflated("text/plain"));
  const Package package = open(old.bytes());
  write(package, "changed.txt", "changed");
  package->getDirectory("d", false)->create();
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  const Stream first = openForWriting(package, "first.txt");
  write(package, "queued.txt", "queued");
  *first << "first";
  first->close();
  write(package, "second.txt", "second");
  package->getFile("old.txt", true)->setProperty(pkg::QCFPropertyMacType, "TEXT");
  package->endUpdate();

  std::vector<std::string> names;
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> at;
  for (package->initIterator(at, {}, ""); at->isValid(); at->increment())
    names.push_back(at->dereference()->getName());
  EXPECT_EQ(names,
            (std::vector<std::string>{"mimetype", "old.txt", "changed.txt", "d/", "first.txt",
                                      "second.txt", "META-INF/pkgproperties.xml", "queued.txt"}));
  std::size_t place = 0;
  for (const std::string& name : names) {
    const std::size_t header = bytes().find(name, place);
    ASSERT_NE(header, Bytes::npos) << name;
    EXPECT_EQ(bytes().substr(header - 30, 4), "PK\x03\x04") << name;
    place = header;
  }
}

TEST_F(Transactions, WhatWaitsAndIsRemovedIsNeitherWrittenNorListed) {
  const Package package = open(oneEntry());
  write(package, "changed.txt", "changed", CompressionStored);
  package->getFile("changed.txt", true)->remove();
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  const Stream direct = openForWriting(package, "b.txt");
  *direct << "beta";
  write(package, "queued.txt", "queued", CompressionStored);
  package->getFile("queued.txt", true)->remove();
  direct->close();
  package->endUpdate();

  zipbytes::File expected;
  expected.add(storedEntry("a.txt", "alpha"), "alpha");
  expected.add(storedEntry("b.txt", "beta"), "beta");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(package->entryExists("changed.txt"), pkg::PkgEntryNone);
  EXPECT_EQ(package->entryExists("queued.txt"), pkg::PkgEntryNone);
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

TEST_F(Transactions, ASaveLetsGoOfTheOldFileAndACancelledOneKeepsItsOutput) {
  support::RecordingFileSystem recording(fMemory);
  fFiles = &recording;
  const Package package = open(oneEntry());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(recording.filesAlive(), 1);
  package->beginUpdate("other.pkg", kIn | kOut | kTrunc);
  package->cancelUpdate();
  EXPECT_EQ(recording.filesAlive(), 2);
  package->close();
  EXPECT_EQ(recording.filesAlive(), 1);
}

}  // namespace
