#include "golden/Golden.h"
#include "golden/Readers.h"

// Packages that are not what a client might hope for. Each test says what happens, and what readers
// make of it.

namespace {

using namespace golden;
using pkg::CompressionStored;

class Oddities : public Golden {
protected:
  // Two stored entries of four bytes.
  static zipbytes::File fourAndFour() {
    zipbytes::File file;
    file.add(storedEntry("a.txt", "beta"), "beta");
    file.add(storedEntry("b.txt", "zeta"), "zeta");
    return file;
  }
  // What stays in the output of an entry that was written again.
  static Bytes deadCopy(const Entry& entry, const Bytes& data) {
    return zipbytes::localHeader(entry) + data;
  }
};

// It stands among the old entries and among the changed ones. The first writing uses the change up;
// the second reads the old data, as many bytes of it as the change had.
TEST_F(Oddities, AnOldEntryChangedOutsideAnUpdateIsWrittenTwiceAndSavedFromItsOldData) {
  const Package package = open(fourAndFour().bytes());
  write(package, "a.txt", "new!", CompressionStored);
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  zipbytes::File expected;
  expected.raw(deadCopy(storedEntry("a.txt", "new!"), "new!"));
  expected.add(storedEntry("b.txt", "zeta"), "zeta");
  expected.add(storedEntry("a.txt", "beta"), "beta");
  zipbytes::End end = expected.end();
  end.directorySize += 46 + 5;
  EXPECT_TRUE(sameBytes(expected.bytes(end), bytes()));
  EXPECT_EQ(fMemory.temporaryFiles(), 0);
}

TEST_F(Oddities, AShorterChangeCutsTheOldDataAndALongerOneReadsOnBehindIt) {
  const Package shorter = open(fourAndFour().bytes());
  write(shorter, "a.txt", "no", CompressionStored);
  shorter->saveAs("shorter.pkg", kIn | kOut | kTrunc);
  EXPECT_NE(bytes("shorter.pkg").find(deadCopy(storedEntry("a.txt", "be"), "be")), Bytes::npos);

  const Package longer = open(fourAndFour().bytes());
  write(longer, "a.txt", "longer", CompressionStored);
  longer->saveAs("longer.pkg", kIn | kOut | kTrunc);
  EXPECT_NE(bytes("longer.pkg").find(deadCopy(storedEntry("a.txt", "betaPK"), "betaPK")),
            Bytes::npos);
}

// In the file itself, reading the old data moves the position at which the local header of the
// second writing lands: it overwrites what follows the old data, and its own place stays empty but
// for the numbers that are patched in.
TEST_F(Oddities, InTheFileItselfTheSecondWritingPutsItsLocalHeaderBehindTheOldData) {
  const Bytes old = fourAndFour().bytes();
  const Package package = open(old);
  write(package, "a.txt", "new!", CompressionStored);
  package->beginUpdate();
  package->endUpdate();

  Entry misplaced = storedEntry("a.txt", "beta");
  misplaced.crc = misplaced.compressedSize = misplaced.size = 0;
  Bytes overwritten = old;
  const Bytes header = zipbytes::localHeader(misplaced);
  overwritten.replace(old.find("beta") + 4, header.size(), header);
  Bytes patched(header.size(), '\0');
  patched.replace(14, 12,
                  zipbytes::u32(zipbytes::crc32("beta")) + zipbytes::u32(4) + zipbytes::u32(4));

  zipbytes::File expected;
  expected.raw(overwritten).raw(deadCopy(storedEntry("a.txt", "new!"), "new!"));
  Entry central = storedEntry("a.txt", "beta");
  central.offset = expected.offset();
  expected.raw(patched).raw("beta").list(central);
  zipbytes::End end = expected.end();
  end.directorySize += 46 + 5;
  EXPECT_TRUE(sameBytes(expected.bytes(end), bytes("old.pkg")));
}

// The directory's size in the end record is what was counted, not what is there: programs that use
// it to find the directory take the file for damaged.
TEST_F(Oddities, ReadersRefuseADirectorySizeThatCountsAReplacedRecord) {
  const Package package = open(fourAndFour().bytes());
  write(package, "a.txt", "new!", CompressionStored);
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(objections(bytes()),
            "unzip refuses, zipinfo refuses, zipfile refuses, 7z refuses, ziptool refuses");
}

// Two bytes of deflate that give none: the copy is an empty stored entry, whose local header comes
// a second time behind the data, and whose first one still says deflate.
TEST_F(Oddities, ARawCopyOfAnEmptyDeflatedEntryHasTwoLocalHeaders) {
  const Bytes nothing = deflated("");
  ASSERT_EQ(nothing, Bytes("\x03\0", 2));
  zipbytes::File old;
  old.add(deflatedEntry("a.txt", ""), nothing);
  old.add(storedEntry("b.txt", "zeta"), "zeta");
  const Package package = open(old.bytes());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  Entry first = deflatedEntry("a.txt", "");
  first.compressedSize = 0;
  Entry second = deflatedEntry("a.txt", "");
  second.method = 0;
  Entry central = first;
  central.method = 0;
  zipbytes::File expected;
  expected.addAs(first, central, nothing, zipbytes::localHeader(second));
  expected.add(storedEntry("b.txt", "zeta"), "zeta");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "unzip refuses, 7z refuses, ziptool refuses");
}

// A Zip64 block that is not needed is left out, and the header goes on counting it: whoever walks
// the directory loses the way behind it.
TEST_F(Oddities, AZip64BlockWithSmallNumbersIsLeftOutButCounted) {
  Entry entry = storedEntry("a.txt", "beta");
  entry.centralExtra = zipbytes::zip64Block({4, 4}) + zipbytes::extraBlock(0x5455, "kept");
  zipbytes::File old;
  old.add(entry, "beta");
  const Package package = open(old.bytes());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  Entry central = storedEntry("a.txt", "beta");
  central.centralExtra = zipbytes::extraBlock(0x5455, "kept");
  central.centralExtraLength = static_cast<int>(entry.centralExtra.size());
  zipbytes::File expected;
  expected.addAs(storedEntry("a.txt", "beta"), central, "beta");
  zipbytes::End end = expected.end();
  end.directorySize += 20;
  EXPECT_TRUE(sameBytes(expected.bytes(end), bytes()));
  EXPECT_EQ(objections(bytes()),
            "unzip refuses, zipinfo refuses, zipfile refuses, 7z refuses, ziptool refuses");
}

// What the client asked for decides, though, whether a raw copy's size is taken for its own: after
// stored, the compressed size stands as the size.
TEST_F(Oddities, StoredSetOnADeflatedEntryGivesItsRawCopyTheCompressedSizeAsSize) {
  const Bytes text = prose(500);
  zipbytes::File old;
  old.add(deflatedEntry("a.txt", text), deflated(text));
  const Package package = open(old.bytes());
  package->getFile("a.txt", true)->setCompressionMethod(CompressionStored);
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  Entry entry = deflatedEntry("a.txt", text);
  entry.size = entry.compressedSize;
  zipbytes::File expected;
  expected.add(entry, deflated(text));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

// The spool of an earlier change outlives a direct writing, and is what the entry reads as
// afterwards.
TEST_F(Oddities, AnOlderSpoolOutlivesADirectWriting) {
  const Package package = open(fourAndFour().bytes());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  const Stream blocker = package->getFile("blocker.txt", false)->open(kOut, false);
  write(package, "c.txt", "spooled", CompressionStored);
  blocker->close();
  write(package, "c.txt", "direct", CompressionStored);
  package->endUpdate();
  EXPECT_NE(bytes().find("direct"), Bytes::npos);
  EXPECT_EQ(bytes().find("spooled"), Bytes::npos);

  Bytes text;
  *package->getFile("c.txt", true)->open(kIn, false) >> text;
  EXPECT_EQ(text, "spooled");
}

// A name alone makes a directory, and directories are written without data. The directory says so;
// the local header goes on telling the size of what is not there.
TEST_F(Oddities, ADirectoryThatHeldDataLosesItAndItsLocalHeaderDoesNotKnow) {
  zipbytes::File old;
  old.add(storedEntry("d/", "data"), "data");
  old.add(storedEntry("a.txt", "beta"), "beta");
  const Package package = open(old.bytes());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  Entry central = storedEntry("d/", "data");
  central.compressedSize = central.size = 0;
  central.externalAttributes = 0x10;
  zipbytes::File expected;
  expected.addAs(storedEntry("d/", "data"), central, "");
  expected.add(storedEntry("a.txt", "beta"), "beta");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()),
            "unzip refuses, zipfile warns, bsdtar refuses, 7z refuses, ziptool refuses");
}

// A raw copy keeps the record's method, whatever the client has asked for since.
TEST_F(Oddities, AMethodSetOnAnUnchangedEntryDoesNotReachItsCopy) {
  const Package package = open(fourAndFour().bytes());
  package->getFile("a.txt", true)->setCompressionMethod(pkg::CompressionDeflated);
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_TRUE(sameBytes(fourAndFour().bytes(), bytes()));
}

// On the file that is being updated, a read moves the position at which the header of an entry
// without a byte so far will land.
TEST_F(Oddities, ReadingWhileADirectStreamHasNoByteYetPutsItsHeaderIntoTheWrongPlace) {
  const Bytes old = fourAndFour().bytes();
  const Package package = open(old);
  package->beginUpdate();
  const auto file = package->getFile("c.txt", false);
  file->setCompressionMethod(CompressionStored);
  const Stream out = file->open(kOut, false);
  EXPECT_EQ(package->getFile("a.txt", true)->open(kIn, false)->get(), 'b');
  *out << "data";

  const Bytes header = zipbytes::localHeader(withoutNumbers(storedEntry("c.txt", "data")));
  Bytes expected = old;
  expected.replace(old.find("beta") + 4, header.size(), header);
  expected += Bytes(header.size(), '\0') + "data";
  EXPECT_TRUE(sameBytes(expected, bytes("old.pkg")));
}

}  // namespace
