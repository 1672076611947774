#include "golden/Golden.h"
#include "golden/Readers.h"

// Changing a package where it lies: kept entries stay where they are, changes are appended.

namespace {

using namespace golden;
using pkg::CompressionStored;

class InPlace : public Golden {
protected:
  InPlace() {
    fOld.add(fA, "alpha");
    fOld.add(fB, "beta");
    fOld.add(fC, "gamma");
  }
  // The bytes of the three entries, without a directory.
  zipbytes::File oldData() const {
    zipbytes::File data;
    return data.raw(fOld.bytes().substr(0, fOld.offset()));
  }
  // The three entries in an update of the file itself that gives each new one a descriptor.
  Package beginWithDescriptors() {
    fPolicies.descriptor = 2;
    const Package package = open(fOld.bytes());
    package->beginUpdate();
    return package;
  }
  static Stream openStored(pkg::IPackage<>& package, const std::string& name) {
    const auto file = package.getFile(name, false);
    file->setCompressionMethod(CompressionStored);
    return file->open(kOut, false);
  }
  Entry at(Entry entry, std::size_t offset) const {
    entry.offset = static_cast<std::uint32_t>(offset);
    return entry;
  }

  const Entry fA = storedEntry("a.txt", "alpha");
  const Entry fB = storedEntry("b.txt", "beta");
  const Entry fC = storedEntry("c.txt", "gamma");
  const std::size_t fAtB = 30 + 5 + 5;
  const std::size_t fAtC = fAtB + 30 + 5 + 4;
  zipbytes::File fOld;
};

TEST_F(InPlace, WithoutChangesTheDirectoryComesBackInItsPlace) {
  const Package package = open(fOld.bytes(fOld.end("kept")));
  package->doUNSAFEUpdateInPlace();
  EXPECT_TRUE(sameBytes(fOld.bytes(fOld.end("kept")), bytes("old.pkg")));
}

TEST_F(InPlace, ANewEntryTakesThePlaceOfTheDirectory) {
  const Package package = open(fOld.bytes());
  write(package, "d.txt", "delta", CompressionStored);
  package->doUNSAFEUpdateInPlace();

  zipbytes::File expected = fOld;
  expected.add(storedEntry("d.txt", "delta"), "delta");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes("old.pkg")));
  EXPECT_EQ(objections(bytes("old.pkg")), "");
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

// The change is kept, unlike with the other ways to save; the old data stays as a gap.
TEST_F(InPlace, AChangedEntryMovesToTheEndAndLeavesAGap) {
  const Package package = open(fOld.bytes());
  write(package, "b.txt", "changed", CompressionStored);
  package->doUNSAFEUpdateInPlace();

  zipbytes::File expected = oldData();
  expected.list(at(fA, 0)).list(at(fC, fAtC));
  expected.add(storedEntry("b.txt", "changed"), "changed");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes("old.pkg")));
  EXPECT_EQ(objections(bytes("old.pkg")), "");
}

TEST_F(InPlace, ARemovedEntryLeavesAGap) {
  const Package package = open(fOld.bytes());
  package->getFile("b.txt", true)->remove();
  package->doUNSAFEUpdateInPlace();

  zipbytes::File expected = oldData();
  expected.list(at(fA, 0)).list(at(fC, fAtC));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes("old.pkg")));
  EXPECT_EQ(objections(bytes("old.pkg")), "");
}

TEST_F(InPlace, HeadersOfKeptEntriesAreNotRewritten) {
  Entry foreign = storedEntry("a.txt", "alpha");
  foreign.flags = 0;
  foreign.localExtra = zipbytes::extraBlock(0x5455, "local");
  foreign.centralExtra = zipbytes::extraBlock(0x5455, "central");
  foreign.comment = "kept";
  zipbytes::File old;
  old.add(foreign, "alpha");
  const Package package = open(old.bytes());
  write(package, "new.txt", "x", CompressionStored);
  package->doUNSAFEUpdateInPlace();

  zipbytes::File expected = old;
  expected.add(storedEntry("new.txt", "x"), "x");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes("old.pkg")));
}

TEST_F(InPlace, HeadersOfKeptEntriesAreNotRead) {
  Bytes old = fOld.bytes();
  old[fAtB] = 'X';  // no local header any more
  const Package package = open(old);
  write(package, "d.txt", "delta", CompressionStored);
  package->doUNSAFEUpdateInPlace();

  zipbytes::File expected = fOld;
  expected.add(storedEntry("d.txt", "delta"), "delta");
  Bytes damaged = expected.bytes();
  damaged[fAtB] = 'X';
  EXPECT_TRUE(sameBytes(damaged, bytes("old.pkg")));
}

TEST_F(InPlace, ASecondUpdateStartsFromTheFirst) {
  const Package package = open(fOld.bytes());
  write(package, "d.txt", "delta", CompressionStored);
  package->doUNSAFEUpdateInPlace();
  write(package, "e.txt", "epsilon", CompressionStored);
  package->doUNSAFEUpdateInPlace();

  zipbytes::File expected = fOld;
  expected.add(storedEntry("d.txt", "delta"), "delta");
  expected.add(storedEntry("e.txt", "epsilon"), "epsilon");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes("old.pkg")));
}

// Nothing is cut off where nothing can be: the old directory stays, dead, before the new data.
TEST_F(InPlace, OnAFileThatCannotSeekTheNewDirectoryFollowsTheOldOne) {
  support::UnseekableFileSystem forward(fMemory);
  fFiles = &forward;
  const Package package = create();
  write(package, "a.txt", "alpha", CompressionStored);
  package->endUpdate();
  const Bytes first = bytes();
  write(package, "b.txt", "beta", CompressionStored);
  package->doUNSAFEUpdateInPlace();

  const Entry a = described(fA);
  zipbytes::File expected;
  expected.raw(first).list(at(a, 0));
  const Entry b = described(fB);
  expected.addAs(withoutNumbers(b), b, "beta", descriptorOf(b));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

// The other update of the file itself lists only what it writes.
TEST_F(InPlace, BeginUpdateDropsEveryOldEntryThatIsNotWritten) {
  const Package package = open(fOld.bytes());
  package->beginUpdate();
  write(package, "d.txt", "delta", CompressionStored);
  package->endUpdate();

  zipbytes::File expected;
  expected.raw(fOld.bytes());
  expected.add(storedEntry("d.txt", "delta"), "delta");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes("old.pkg")));
  EXPECT_EQ(objections(bytes("old.pkg")), "7z warns");  // of the dead directory in the middle

  // This package goes on knowing the objects of the entries, without data; the next knows nothing.
  EXPECT_EQ(package->entryExists("a.txt"), pkg::PkgEntryFile);
  EXPECT_THROW(package->getFile("a.txt", true)->open(kIn, false), pkg::PackageException<>);
  EXPECT_EQ(open(bytes("old.pkg"))->entryExists("a.txt"), pkg::PkgEntryNone);
}

// Reading moves the file that is also being written.
TEST_F(InPlace, ReadingAnotherEntryBeforeTheCloseLeavesTheDescriptorRightBehindTheData) {
  const Package package = beginWithDescriptors();
  const Stream out = openStored(*package, "d.txt");
  *out << "delta";
  Bytes text;
  *package->getFile("a.txt", true)->open(kIn, false) >> text;
  EXPECT_EQ(text, "alpha");
  out->close();

  const Entry d = described(storedEntry("d.txt", "delta"));
  zipbytes::File expected;
  expected.raw(fOld.bytes());
  expected.addAs(withoutNumbers(d), d, "delta", descriptorOf(d));
  EXPECT_TRUE(sameBytes(expected.bytes().substr(0, expected.offset()), bytes("old.pkg")));
  package->endUpdate();
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes("old.pkg")));
}

// The stream stands at its third byte when it closes, and its data ends at the tenth.
TEST_F(InPlace, ADescriptorFollowsTheDataOfAStreamThatWentBack) {
  const Package package = beginWithDescriptors();
  const Stream out = openStored(*package, "d.txt");
  *out << "0123456789";
  out->seekp(1);
  *out << "ab";
  out->close();
  package->endUpdate();

  Entry d = described(storedEntry("d.txt", "0ab3456789"));
  d.crc = zipbytes::crc32("0123456789ab");  // of everything that was written
  zipbytes::File expected;
  expected.raw(fOld.bytes());
  expected.addAs(withoutNumbers(d), d, "0ab3456789", descriptorOf(d));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes("old.pkg")));
}

TEST_F(InPlace, BeginAndEndWithNothingToWriteLeaveTheFileAlone) {
  const Package package = open(fOld.bytes());
  package->beginUpdate();
  package->endUpdate();
  EXPECT_TRUE(sameBytes(fOld.bytes(), bytes("old.pkg")));
  EXPECT_EQ(package->entryExists("a.txt"), pkg::PkgEntryFile);
}

}  // namespace
