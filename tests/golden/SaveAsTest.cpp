#include "golden/Golden.h"
#include "golden/Readers.h"

// Saving under a new name: unchanged entries are copied as they are, in the directory's order.

namespace {

using namespace golden;
using pkg::CompressionStored;

// An old package as other programs write it: no UTF-8 flag, a comment and extra blocks in the
// directory, a made-by host, attributes.
Entry foreign(Entry entry) {
  entry.versionMadeBy = 0x031E;
  entry.versionNeeded = 20;
  entry.flags = 0;
  entry.time = 0x1234;
  entry.date = 0x2345;
  entry.externalAttributes = 0x81A40000;
  entry.comment = "made elsewhere";
  entry.localExtra = zipbytes::extraBlock(0x5455, "local");
  entry.centralExtra = zipbytes::extraBlock(0x5455, "central");
  return entry;
}

// The same as a raw copy: the versions are this library's, and the local header has no extra blocks
// but its own.
Entry copied(Entry entry) {
  entry.versionMadeBy = 0x0314;
  entry.flags |= kUTF8;
  entry.localExtra.clear();
  return entry;
}

class SaveAs : public Golden {
protected:
  SaveAs() {
    fOld.add(foreign(zipbytes::storedEntry("a.txt", "alpha")), "alpha");
    fOld.add(
        foreign(zipbytes::deflatedEntry("b.txt", prose(500), zipbytes::storedDeflate(prose(500)))),
        zipbytes::storedDeflate(prose(500)));
    fOld.add(foreign(zipbytes::storedEntry("d/", "")), "");
  }

  Entry copyOfA() const { return copied(foreign(zipbytes::storedEntry("a.txt", "alpha"))); }
  Entry copyOfB() const {
    return copied(
        foreign(zipbytes::deflatedEntry("b.txt", prose(500), zipbytes::storedDeflate(prose(500)))));
  }
  Entry copyOfD() const {
    Entry entry = copied(foreign(zipbytes::storedEntry("d/", "")));
    entry.externalAttributes |= 0x10;
    return entry;
  }

  zipbytes::File fOld;
};

TEST_F(SaveAs, AnUnchangedPackageKeepsItsDataBitForBit) {
  const Package package = open(fOld.bytes(fOld.end("a comment")), kIn);
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  zipbytes::File expected;
  expected.add(copyOfA(), "alpha");
  expected.add(copyOfB(), zipbytes::storedDeflate(prose(500)));
  expected.add(copyOfD(), "");
  EXPECT_TRUE(sameBytes(expected.bytes(expected.end("a comment")), bytes()));
  EXPECT_EQ(bytes("old.pkg"), fOld.bytes(fOld.end("a comment")));
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(SaveAs, ASecondSaveGivesTheSameBytes) {
  const Package package = open(fOld.bytes());
  package->saveAs("second.pkg", kIn | kOut | kTrunc);
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_TRUE(sameBytes(bytes("second.pkg"), bytes()));
}

TEST_F(SaveAs, ANewEntryComesBehindTheOldOnes) {
  const Package package = open(fOld.bytes());
  write(package, "c.txt", "new");
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  zipbytes::File expected;
  expected.add(copyOfA(), "alpha");
  expected.add(copyOfB(), zipbytes::storedDeflate(prose(500)));
  expected.add(copyOfD(), "");
  expected.add(deflatedEntry("c.txt", "new"), deflated("new"));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

TEST_F(SaveAs, ARemovedEntryLeavesNoGap) {
  const Package package = open(fOld.bytes());
  package->getFile("a.txt", true)->remove();
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  zipbytes::File expected;
  expected.add(copyOfB(), zipbytes::storedDeflate(prose(500)));
  expected.add(copyOfD(), "");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

// Removed before the update and written directly inside it: the change is kept, and nothing is
// written twice.
TEST_F(SaveAs, AnEntryRemovedBeforeAndWrittenInsideTheUpdateIsReplaced) {
  const Package package = open(fOld.bytes());
  package->getFile("a.txt", true)->remove();
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  write(package, "a.txt", "replaced", CompressionStored);
  package->endUpdate();

  zipbytes::File expected;
  expected.add(copyOfB(), zipbytes::storedDeflate(prose(500)));
  expected.add(copyOfD(), "");
  Entry replaced = storedEntry("a.txt", "replaced");
  replaced.time = 0x1234;  // the properties of the old record outrank the clock
  replaced.date = 0x2345;
  expected.add(replaced, "replaced");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(SaveAs, ATypeFromTheDirectoryComesIntoTheLocalHeaderToo) {
  zipbytes::File old;
  Entry entry = storedEntry("a.txt", "alpha");
  entry.centralExtra = zipbytes::extraBlock(0x5455, "unknown") +
                       zipbytes::typeCreatorBlock("TEXTttxt") +
                       zipbytes::extraBlock(0x7875, "last");
  old.add(entry, "alpha");
  const Package package = open(old.bytes());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  entry.localExtra = zipbytes::typeCreatorBlock("TEXTttxt");
  zipbytes::File expected;
  expected.add(entry, "alpha");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

// A block of 20 bytes is written back as one of 16; what the record counted is 4 too much.
TEST_F(SaveAs, ATypeBlockOfAnotherSizeComesBackInItsProperSize) {
  zipbytes::File old;
  Entry entry = storedEntry("a.txt", "alpha");
  entry.centralExtra = zipbytes::extraBlock(0x2705, "ZPITTEXTttxtmore");
  old.add(entry, "alpha");
  const Package package = open(old.bytes());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  entry.localExtra = entry.centralExtra = zipbytes::typeCreatorBlock("TEXTttxt");
  zipbytes::File expected;
  expected.add(entry, "alpha");
  zipbytes::End end = expected.end();
  end.directorySize += 4;
  EXPECT_TRUE(sameBytes(expected.bytes(end), bytes()));
}

TEST_F(SaveAs, AnEntryWithADescriptorKeepsOne) {
  zipbytes::File old;
  const Entry central = described(storedEntry("a.txt", "alpha"));
  old.addAs(withoutNumbers(central), central, "alpha", descriptorOf(central));
  const Package package = open(old.bytes());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  zipbytes::File expected;
  expected.add(central, "alpha", descriptorOf(central));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(SaveAs, TwoEntriesOfOneNameAreBothCountedButTheLaterOneStays) {
  zipbytes::File old;
  old.add(storedEntry("a.txt", "first"), "first");
  old.add(storedEntry("b.txt", "other"), "other");
  old.add(storedEntry("a.txt", "second"), "second");
  const Package package = open(old.bytes());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  // One object stands for both records, bound to the first: it is written twice, from that.
  zipbytes::File expected;
  expected.raw(zipbytes::localHeader(storedEntry("a.txt", "first"))).raw("first");
  expected.add(storedEntry("b.txt", "other"), "other");
  expected.add(storedEntry("a.txt", "first"), "first");
  zipbytes::End end = expected.end();
  end.directorySize += 46 + 5;
  EXPECT_TRUE(sameBytes(expected.bytes(end), bytes()));
}

}  // namespace
