#include "unit/writing/Writing.h"

// What updates do with entries on roads that few clients take. None of it is what one would hope
// for; all of it is what clients of these packages meet.

namespace {

using namespace writing;

class UpdateOddities : public Writing {
protected:
  static Bytes twoEntries() {
    zipbytes::File old;
    old.add(storedEntry("a.txt", "alpha"), "alpha");
    old.add(storedEntry("b.txt", "beta"), "beta");
    return old.bytes();
  }
  // A saved package with one entry, that can be written and not be read.
  Package createdWriteOnly() {
    const Package package = create();
    write(package, "a.txt", "alpha", CompressionStored);
    package->endUpdate();
    return package;
  }
  // Writes c.txt three times: behind an open stream, which makes it wait; directly; and again
  // behind one.
  static void writeWaitingDirectWaiting(const Package& package) {
    Stream blocker = openForWriting(package, "blocker.txt");
    write(package, "c.txt", "waits", CompressionStored);
    blocker->close();
    write(package, "c.txt", "direct", CompressionStored);
    blocker = openForWriting(package, "blocker.txt");
    write(package, "c.txt", "last", CompressionStored);
    blocker->close();
  }
  // A package whose type is compressed.
  static Bytes deflatedType() {
    zipbytes::File old;
    old.add(deflatedEntry("mimetype", "text/plain"), deflated("text/plain"));
    return old.bytes();
  }
};

// Removing has marked it as changed without listing it, so writing lists it no more.
TEST_F(UpdateOddities, RemovedAndRewrittenInAPackageThatCannotBeReadAnEntryIsGoneInPlace) {
  const Package package = createdWriteOnly();
  const File file = package->getFile("a.txt", true);
  file->remove();
  write(package, "a.txt", "again", CompressionStored);
  EXPECT_FALSE(file->isDeleted());
  EXPECT_EQ(contents(package, "a.txt"), "again");
  package->doUNSAFEUpdateInPlace();
  EXPECT_EQ(bytes(), zipbytes::File().raw(bytes().substr(0, 40)).bytes());
  EXPECT_EQ(bytes().find("again"), Bytes::npos);
  EXPECT_EQ(package->entryExists("a.txt"), pkg::PkgEntryFile);  // this package's object lives on
}

TEST_F(UpdateOddities, RemovedAndRewrittenInAPackageThatReadsAndWritesAnEntryIsKeptInPlace) {
  const Package package = open(twoEntries());
  package->getFile("a.txt", true)->remove();
  write(package, "a.txt", "again", CompressionStored);
  package->doUNSAFEUpdateInPlace();
  EXPECT_EQ(contents(open(bytes("old.pkg")), "a.txt"), "again");
}

// Going direct takes it out of the queue but leaves the mark of one that waits there.
TEST_F(UpdateOddities, AChangedEntryThatWaitedThenWentDirectDoesNotWaitAgain) {
  const Package package = open(twoEntries());
  write(package, "c.txt", "changed before");
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  writeWaitingDirectWaiting(package);
  package->endUpdate();
  EXPECT_EQ(contents(open(bytes(), kIn, "copy.pkg"), "c.txt"), "direct");
  EXPECT_EQ(bytes().find("last"), Bytes::npos);
}

TEST_F(UpdateOddities, AnEntryThatWasNotChangedBeforeWaitsAgain) {
  const Package package = open(twoEntries());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  writeWaitingDirectWaiting(package);
  package->endUpdate();
  EXPECT_EQ(contents(open(bytes(), kIn, "copy.pkg"), "c.txt"), "last");
}

// Its data has been copied by then, and its local header stays right.
TEST_F(UpdateOddities, RemovedInsideAnUpdateOfAPackageThatOnlyReadsAnEntryIsListedAsEmpty) {
  const Package package = open(twoEntries(), kIn);
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  package->getFile("a.txt", true)->remove();
  package->endUpdate();

  const Entry whole = storedEntry("a.txt", "alpha");
  Entry listed = whole;
  listed.crc = listed.size = 0;
  zipbytes::File expected;
  expected.addAs(whole, listed, "alpha");
  expected.add(storedEntry("b.txt", "beta"), "beta");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(package->entryExists("a.txt"), pkg::PkgEntryFile);  // by its record
}

// The records of the running update go, and with the old directory is cut off what it had written.
TEST_F(UpdateOddities, InPlaceOverARunningUpdateOnlyTheOldEntriesAndTheQueueStay) {
  const Package package = open(twoEntries());
  package->beginUpdate();
  write(package, "written.txt", "written");
  const Stream direct = openForWriting(package, "direct.txt");
  *direct << "direct";
  write(package, "queued.txt", "queued");
  package->doUNSAFEUpdateInPlace();

  const File written = package->getFile("written.txt", true);
  EXPECT_EQ(package->entryExists("direct.txt"), pkg::PkgEntryFile);
  EXPECT_RAISED("21", written->open(kIn, false));
  EXPECT_RAISED("24", *direct << "more");
  EXPECT_NO_THROW(direct->close());

  zipbytes::File expected;
  expected.add(storedEntry("a.txt", "alpha"), "alpha");
  expected.add(storedEntry("b.txt", "beta"), "beta");
  expected.add(deflatedEntry("queued.txt", "queued"), deflated("queued"));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes("old.pkg")));
  EXPECT_RAISED("37", package->endUpdate());
}

TEST_F(UpdateOddities, InPlaceOverASaveIntoAnotherFileLeavesThatWithoutADirectory) {
  const Package package = open(twoEntries());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  write(package, "written.txt", "written");
  const Bytes left = bytes();
  package->doUNSAFEUpdateInPlace();
  EXPECT_EQ(bytes(), left);
  EXPECT_EQ(left.find("PK\x01\x02"), Bytes::npos);
  EXPECT_EQ(bytes("old.pkg"), twoEntries());
  EXPECT_EQ(package->getFSFile()->getName()->getName(), "old.pkg");
  EXPECT_EQ(contents(package, "a.txt"), "alpha");
}

// The type has to lead the changes, and a directory is never told so.
TEST_F(UpdateOddities, ADirectoryCreatedBeforeTheMissingTypeMakesEverySaveRaise47) {
  fPolicies.conformance = 1;
  const Package package = open(twoEntries());
  EXPECT_EQ(package->checkConformance(), 47);
  package->getDirectory("d", false)->create();
  package->setMIMEType("text/plain");
  for (int time = 0; time < 2; ++time) {
    EXPECT_RAISED("47", package->saveAs("new.pkg", kIn | kOut | kTrunc));
    EXPECT_EQ(bytes(), "");
    package->cancelUpdate();
  }
}

TEST_F(UpdateOddities, ADirectoryCreatedInAPackageWhoseTypeWasRepairedComesBehindIt) {
  fPolicies.conformance = 1;
  const Package package = open(deflatedType());
  package->getDirectory("d", false)->create();
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(bytes().substr(30, 18), "mimetypetext/plain");
}

TEST_F(UpdateOddities, TheTypeThatARepairHasWrittenCannotBeChanged) {
  fPolicies.conformance = 1;
  const Package package = open(deflatedType());
  EXPECT_EQ(package->checkConformance(), 46);
  EXPECT_RAISED("45", package->setMIMEType("text/html"));
  EXPECT_EQ(package->getMIMEType(), "text/plain");
}

TEST_F(UpdateOddities, WhereEveryEntryIsDeletedTheTypeMustComeFirstAgain) {
  for (const auto mode : {kIn, kIn | kOut}) {
    fPolicies.conformance = 1;
    const Package package = open(twoEntries(), mode);
    package->getFile("mimetype", false);  // asked for first, as it must be
    for (const char* const name : {"a.txt", "b.txt"})
      package->getFile(name, true)->remove();
    EXPECT_RAISED("45", package->getFile("c.txt", false));
    EXPECT_RAISED("45", package->getFile("a.txt", true));
    EXPECT_RAISED("", package->getFile("mimetype", false));
  }
}

// It is recorded as stored, which its object does not look up.
TEST_F(UpdateOddities, AnEmptyEntryWrittenAsDeflatedCannotBeReadBeforeThePackageIsOpenedAnew) {
  const Package package = open(twoEntries());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  write(package, "c.txt", "", pkg::CompressionDeflated);
  package->endUpdate();
  const File file = package->getFile("c.txt", true);
  EXPECT_EQ(file->getCompressionMethod(), pkg::CompressionDeflated);
  const Stream in = file->open(kIn, false);
  in->exceptions(std::ios_base::badbit);
  EXPECT_RAISED("31", in->get());
  EXPECT_EQ(contents(open(bytes()), "c.txt"), "");
}

// Its temporary file goes with the copy that is made of it.
TEST_F(UpdateOddities, AWaitingStreamThatIsOpenAtTheEndIsCopiedAsFarAsItGotAndTakesNoMore) {
  const Package package = open(twoEntries());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  const Stream direct = openForWriting(package, "direct.txt");
  const Stream waiting = openForWriting(package, "c.txt");
  *waiting << "so far";
  direct->close();
  package->endUpdate();
  EXPECT_EQ(contents(package, "c.txt"), "so far");
  EXPECT_RAISED("IO 50", *waiting << "more");
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

// The properties are saved where a beginning has come to its end: what failed before has nothing to
// bring back. Headers keep their dates; comment, types and creators are gone with the next save.
TEST_F(UpdateOddities, CancelBehindABeginningThatFailedForgetsEveryProperty) {
  Entry typed = storedEntry("b.txt", "beta");
  typed.centralExtra = zipbytes::typeCreatorBlock("TEXTttxt");
  Entry lost = storedEntry("a.txt", "alpha");
  lost.offset = 3;  // no header stands there
  zipbytes::File old;
  old.add(typed, "beta");
  old.list(lost);
  const Package package = open(old.bytes(old.end("a comment")));
  const File file = package->getFile("b.txt", true);
  EXPECT_EQ(package->getProperty(pkg::QCFPropertyPackageComment), "a comment");
  EXPECT_NE(file->getProperty(pkg::QCFPropertyZipDate), "");
  EXPECT_EQ(file->getProperty(pkg::QCFPropertyZipTypeCreator), "5445585474747874");

  EXPECT_RAISED("IO 8", package->saveAs("new.pkg", kIn | kOut | kTrunc));
  EXPECT_EQ(package->getProperty(pkg::QCFPropertyPackageComment), "a comment");
  package->cancelUpdate();
  EXPECT_EQ(package->getProperty(pkg::QCFPropertyPackageComment), "");
  for (const auto name :
       {pkg::QCFPropertyZipDate, pkg::QCFPropertyZipTime, pkg::QCFPropertyZipTypeCreator})
    EXPECT_EQ(file->getProperty(name), "") << name;
}

TEST_F(UpdateOddities, CancelBehindAQueueThatFailedForgetsEveryProperty) {
  support::FailingFileSystem failing(fMemory, 6, {support::Failure::Write});
  fFiles = &failing;
  const Package package = open(twoEntries());
  package->setProperty(pkg::QCFPropertyPackageComment, "a comment");
  package->beginUpdate();
  const Stream direct = openForWriting(package, "direct.txt");
  *direct << "direct";                                        // writes 1 and 2
  write(package, "queued.txt", "queued", CompressionStored);  // write 3
  direct->close();                                            // write 4
  EXPECT_RAISED("IO 29", package->endUpdate());
  package->cancelUpdate();
  EXPECT_EQ(package->getProperty(pkg::QCFPropertyPackageComment), "");
  EXPECT_EQ(package->getFile("a.txt", true)->getProperty(pkg::QCFPropertyZipDate), "");

  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_TRUE(sameBytes(twoEntries(), bytes()));  // with the dates of the records
}

// Encrypted data is longer than what was encrypted, and a stored entry's length counts as its size.
TEST_F(UpdateOddities, TheCopyOfAnEncryptedStoredEntryHasTheLengthOfItsDataAsSize) {
  const Bytes data(17, 'x');
  Entry entry = storedEntry("a.txt", "alpha");
  entry.flags |= 1;
  entry.compressedSize = 17;
  const Package package = open(zipbytes::File().add(entry, data).bytes());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  entry.size = 17;
  EXPECT_TRUE(sameBytes(zipbytes::File().add(entry, data).bytes(), bytes()));
}

TEST_F(UpdateOddities, TheLocalHeaderOfACopyKeepsTheVersionThatItsRecordNoLongerNeeds) {
  Entry old = storedEntry("a.txt", "alpha");
  old.versionNeeded = 45;
  const Package package = open(zipbytes::File().add(old, "alpha").bytes());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  zipbytes::File expected;
  expected.addAs(old, storedEntry("a.txt", "alpha"), "alpha");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

TEST_F(UpdateOddities, InPlaceOfTwoRecordsOfOneNameTheFirstStays) {
  zipbytes::File old;
  old.add(storedEntry("a.txt", "first"), "first");
  old.add(storedEntry("b.txt", "beta"), "beta");
  zipbytes::File expected = old;
  old.add(storedEntry("a.txt", "second"), "second");
  const Package package = open(old.bytes());
  package->doUNSAFEUpdateInPlace();
  expected.raw(zipbytes::localHeader(storedEntry("a.txt", "second"))).raw("second");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes("old.pkg")));
  EXPECT_EQ(contents(package, "a.txt"), "first");
}

// Nobody had asked for the entry when its record was kept.
TEST_F(UpdateOddities, AKeptEntryWrittenInAnUpdateInPlaceThatStoppedIsListedOnce) {
  support::FailingFileSystem failing(fMemory, 1, {support::Failure::Truncate});
  fFiles = &failing;
  const Package package = open(twoEntries());
  EXPECT_RAISED("IO 50", package->doUNSAFEUpdateInPlace());
  write(package, "a.txt", "changed", CompressionStored);
  package->endUpdate();
  EXPECT_EQ(zipPackage(package)->entryExists("b.txt"), pkg::PkgEntryFile);
  const Package again = open(bytes("old.pkg"), kIn, "copy.pkg");
  EXPECT_EQ(contents(again, "a.txt"), "changed");
  EXPECT_EQ(contents(again, "b.txt"), "beta");
  EXPECT_EQ(u16At(bytes("old.pkg"), bytes("old.pkg").size() - 12), 2u);
}

// By a walk as well, which asks by the record and not by the name.
TEST_F(UpdateOddities, AKeptEntryFoundByAWalkInAnUpdateInPlaceThatStoppedIsListedOnce) {
  support::FailingFileSystem failing(fMemory, 1, {support::Failure::Truncate});
  fFiles = &failing;
  const Package package = open(twoEntries());
  EXPECT_RAISED("IO 50", package->doUNSAFEUpdateInPlace());
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> walk;
  package->initIterator(walk, {}, "");
  const File first = walk->dereference()->toFile();
  first->setCompressionMethod(CompressionStored);
  const Stream stream = first->open(kOut, false);
  *stream << "changed";
  stream->close();
  package->endUpdate();
  EXPECT_EQ(contents(open(bytes("old.pkg"), kIn, "copy.pkg"), "a.txt"), "changed");
  EXPECT_EQ(u16At(bytes("old.pkg"), bytes("old.pkg").size() - 12), 2u);
}

// The end of an update clears the mark of a change from files, not from directories; and in place,
// what is marked and does not wait is left out.
TEST_F(UpdateOddities, ADirectoryCreatedBeforeAnUpdateIsGoneWithALaterOneInPlace) {
  for (const bool inPlace : {false, true}) {
    const Package package = open(twoEntries());
    const Directory directory = package->getDirectory("d", false);
    directory->create();
    if (inPlace) {
      package->doUNSAFEUpdateInPlace();
    } else {
      package->saveAs("new.pkg", kIn | kOut | kTrunc);
    }
    const char* const file = inPlace ? "old.pkg" : "new.pkg";
    EXPECT_EQ(open(bytes(file), kIn, "copy.pkg")->entryExists("d/"), pkg::PkgEntryDirectory);
    EXPECT_TRUE(directory->isModified());
    EXPECT_FALSE(package->isModified());
    package->doUNSAFEUpdateInPlace();
    EXPECT_EQ(open(bytes(file), kIn, "copy.pkg")->entryExists("d/"), pkg::PkgEntryNone);
    EXPECT_EQ(package->entryExists("d/"), pkg::PkgEntryDirectory);  // by its object
  }
}

TEST_F(UpdateOddities, ADirectoryCreatedBeforeAnUpdateStaysWithEverySave) {
  const Package package = open(twoEntries());
  package->getDirectory("d", false)->create();
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  const Bytes first = bytes();
  package->saveAs("newer.pkg", kIn | kOut | kTrunc);
  EXPECT_TRUE(sameBytes(first, bytes("newer.pkg")));
}

// A copy goes through a stream that writes, as a change does. In place, what is kept is not
// touched.
TEST_F(UpdateOddities, AnEntryThatASaveHasCopiedTakesNoZipPropertiesAnyMore) {
  const Package package = open(twoEntries());
  const File file = package->getFile("a.txt", true);
  package->doUNSAFEUpdateInPlace();
  EXPECT_NO_THROW(file->setProperty(pkg::QCFPropertyZipTypeCreator, "5445585474747874"));
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_RAISED("23", file->setProperty(pkg::QCFPropertyZipTypeCreator, ""));
  EXPECT_RAISED("23",
                package->getFile("b.txt", true)->setProperty(pkg::QCFPropertyZipDate, "2100"));
  EXPECT_EQ(file->getProperty(pkg::QCFPropertyZipTypeCreator), "5445585474747874");
  EXPECT_NO_THROW(
      open(bytes())->getFile("a.txt", true)->setProperty(pkg::QCFPropertyZipTypeCreator, ""));
}

}  // namespace
