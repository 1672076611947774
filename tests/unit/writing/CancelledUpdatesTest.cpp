#include "unit/writing/Writing.h"

// What an update that was given up, or whose end failed, leaves of the changes that it had begun to
// write. Who closes and opens the package instead, and makes them again, has none of this.

namespace {

using namespace writing;

class CancelledUpdates : public Writing {
protected:
  static Bytes oldEntry() {
    return zipbytes::File().add(storedEntry("a.txt", "alpha"), "alpha").bytes();
  }
  // Two new entries in a package whose saving failed at the data of the second, and was given up.
  // The first has been copied by then. The disk has room again.
  Package cancelledAtTheSecond() {
    fFiles = &fFull;
    const Package package = open(oldEntry());
    write(package, "b.txt", "beta", CompressionStored);   // write 1
    write(package, "c.txt", "gamma", CompressionStored);  // write 2
    // Writes 3 and 4 copy the old entry, 5 to 7 the first; 8 is the header of the second.
    EXPECT_RAISED("IO 29", package->saveAs("full.pkg", kIn | kOut | kTrunc));
    EXPECT_EQ(fMemory.temporaryFiles(), 1);
    package->cancelUpdate();
    return package;
  }
  // What a save writes of that package: its old entry, the first without data, and the second.
  static zipbytes::File savedAgain() {
    zipbytes::File file;
    file.add(storedEntry("a.txt", "alpha"), "alpha");
    file.add(storedEntry("b.txt", ""), "");
    file.add(storedEntry("c.txt", "gamma"), "gamma");
    return file;
  }

  support::FailingFileSystem fFull{fMemory, 9, {support::Failure::ShortWrite}};
};

TEST_F(CancelledUpdates, ANewEntryThatWasCopiedByThenIsListedEmptyByTheNextSave) {
  const Package package = cancelledAtTheSecond();
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_TRUE(sameBytes(savedAgain().bytes(), bytes()));
}

// Its path leads to another object by then, and the first still waits: whoever looks for the name
// finds that one's record.
TEST_F(CancelledUpdates, WrittenAgainByItsPathSuchAnEntryIsListedTwiceAndReadAsEmpty) {
  const Package package = cancelledAtTheSecond();
  write(package, "b.txt", "again", CompressionStored);
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  zipbytes::File expected = savedAgain();
  expected.add(storedEntry("b.txt", "again"), "again");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(contents(open(bytes(), kIn, "copy.pkg"), "b.txt"), "");
}

// The failed end is followed by a beginning, not by a cancelling: the change is used up as well.
TEST_F(CancelledUpdates, StartedOverBehindADirectoryThatFailedANewEntryIsListedEmpty) {
  support::FailingFileSystem failing(fMemory, 1, {support::Failure::Flush});
  fFiles = &failing;
  const Package package = open(oldEntry());
  write(package, "b.txt", "beta", CompressionStored);
  EXPECT_RAISED("IO 50", package->saveAs("new.pkg", kIn | kOut | kTrunc));
  package->beginUpdate();
  package->endUpdate();
  const Package again = open(bytes(), kIn, "copy.pkg");
  EXPECT_EQ(contents(again, "a.txt"), "alpha");
  EXPECT_EQ(contents(again, "b.txt"), "");
}

TEST_F(CancelledUpdates, ARemovalStaysAndItsRecordHasLostItsNumbers) {
  const Package package = open(savedAgain().bytes());
  package->beginUpdate("other.pkg", kIn | kOut | kTrunc);
  const File file = package->getFile("a.txt", true);
  file->remove();
  package->cancelUpdate();
  EXPECT_TRUE(file->isDeleted());
  EXPECT_EQ(file->getCRC32(), 0u);
  EXPECT_EQ(file->getSize64(), 0);
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(open(bytes(), kIn, "copy.pkg")->entryExists("a.txt"), pkg::PkgEntryNone);
}

// It counts as unchanged, and so is copied from the package, which does not have it.
TEST_F(CancelledUpdates, ANewEntryRemovedBeforeAndRevivedInOneFailsTheNextSaveWith21) {
  const Package package = open(oldEntry());
  write(package, "b.txt", "beta", CompressionStored);
  const File file = package->getFile("b.txt", true);
  file->remove();
  package->beginUpdate("other.pkg", kIn | kOut | kTrunc);
  write(package, "b.txt", "revived", CompressionStored);
  package->cancelUpdate();
  EXPECT_RAISED("21", package->saveAs("new.pkg", kIn | kOut | kTrunc));
}

}  // namespace
