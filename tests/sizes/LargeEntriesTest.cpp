#include "golden/Golden.h"
#include "golden/Readers.h"
#include "sizes/Big.h"
#include "sizes/Judge.h"

namespace sizes {

namespace {

using testing::ElementsAre;

// Where things lie: a local header has 30 bytes, the name, and 20 of a Zip64 block where the size
// was announced to be large.
constexpr std::uint64_t kHeader = 30;
constexpr std::uint64_t kRoom = 20;

std::string crcText(std::uint32_t crc) {
  char digits[9];
  std::snprintf(digits, sizeof digits, "%08x", crc);
  return digits;
}

class LargeEntries : public Big {
protected:
  // "five.bin" stored, "after.txt" deflated, "dir/" and "empty" behind it.
  Package createLarge() {
    const Package package = create();
    writeStored(package, "five.bin", kFiveGB, true);
    write(package, "after.txt", kText, CompressionDeflated);
    package->getDirectory("dir", false)->create();
    write(package, "empty", "", CompressionDeflated);
    package->endUpdate();
    return package;
  }
  static constexpr std::uint64_t kAfter = kHeader + 8 + kRoom + kFiveGB;
  const std::string kText = "behind five gigabytes";
  // Zeros as the line of a judge ends that tells of a large stored entry.
  const std::string kCRC = crcText(crcOfZeros(kFiveGB));

  std::string verdict(const std::string& program, const std::vector<std::string>& command,
                      const std::string& file = "big.pkg") {
    return golden::verdict({program, command}, path(file));
  }
};

std::string lineOf(const std::string& name, int method, int version, std::uint32_t crc,
                   std::uint64_t compressed, std::uint64_t size, std::uint64_t offset,
                   const std::string& extra) {
  std::ostringstream line;
  line << name << " " << method << " " << version << " " << crcText(crc) << " " << compressed << " "
       << size << " " << offset << " " << extra;
  return line.str();
}

// Its local header cannot hold the sizes, nor can its record; behind it no offset fits.
TEST_F(LargeEntries, FiveGigabytesStoredAndWhatLiesBehindThemHaveZip64Fields) {
  createLarge();
  const std::string lfhOfFive = " | " + kCRC + " ffffffff ffffffff " + block({kFiveGB, kFiveGB});
  const std::uint32_t crc = crcOf(kText);
  const std::uint64_t deflated = golden::deflated(kText).size();
  const std::uint64_t dir = kAfter + kHeader + 9 + deflated;
  const std::uint64_t empty = dir + kHeader + 4;
  const std::uint64_t directory = empty + kHeader + 5;
  EXPECT_THAT(
      judged(path(), {"after.txt", "empty"}),
      ElementsAre("end 4 s ffffffff zip64 4 " + hex(directory), "short 56",
                  lineOf("five.bin", 0, 45, crcOfZeros(kFiveGB), kFiveGB, kFiveGB, 0,
                         block({kFiveGB, kFiveGB})) +
                      lfhOfFive,
                  lineOf("after.txt", 8, 45, crc, deflated, kText.size(), kAfter, block({kAfter})) +
                      " | " + crcText(crc) + " " + hex(deflated) + " " + hex(kText.size()) + " -",
                  lineOf("dir/", 0, 45, 0, 0, 0, dir, block({dir})) + " | 00000000 0 0 -",
                  lineOf("empty", 0, 45, 0, 0, 0, empty, block({empty})) + " | 00000000 0 0 -",
                  kText, ""));
}

// The size of the directory is counted when an entry begins, its Zip64 block made when it ends.
TEST_F(LargeEntries, ADirectoryWhoseSizeDoesNotCountItsZip64BlocksIsReadBySomeProgramsOnly) {
  createLarge();
  EXPECT_EQ(verdict("bsdtar", {"bsdtar", "-tvf"}), "accepts");
  EXPECT_EQ(verdict("zipinfo", {"zipinfo"}), "refuses");  // lists all, and tells of the 56 bytes
  EXPECT_EQ(verdict("zipfile", {"python3", "-m", "zipfile", "-l"}), "refuses");
  EXPECT_EQ(verdict("ziptool", {"ziptool", "-c"}), "refuses");
}

TEST_F(LargeEntries, ThePackageReadsThemItself) {
  const Package package = createLarge();
  const Stream five = package->getFile("five.bin", true)->open(kIn, false);
  five->seekg(-5, std::ios_base::end);
  EXPECT_EQ(five->tellg(), std::streampos(kFiveGB - 5));
  std::string tail(10, 'x');
  five->read(tail.data(), 10);
  EXPECT_EQ(five->gcount(), 5);
  EXPECT_EQ(tail, std::string(5, '\0') + "xxxxx");
  std::string text;
  std::getline(*package->getFile("after.txt", true)->open(kIn, false), text);
  EXPECT_EQ(text, kText);
  EXPECT_EQ(package->getFile("five.bin", true)->getSize64(), kFiveGB);
  EXPECT_EQ(package->getFile("five.bin", true)->getSize(), kFiveGB & 0xFFFFFFFF);
}

// Its reader takes the numbers of the end record as they stand.
TEST_F(LargeEntries, ADirectoryBeyondFourGigabytesIsNotFoundAgain) {
  createLarge()->close();
  try {
    fFactory.openPackage(path(), kIn, &fFiles, nullptr, nullptr);
    FAIL() << "it opened";
  } catch (pkg::PackageIOException<>& e) {
    EXPECT_EQ(e.getErrorCode(), pkg::PkgLib_Err_BadCDHSignature);
  }
}

// The kept records count in full. The new one goes beyond the limit like the others.
TEST_F(LargeEntries, AnUpdateInPlaceKeepsThemWhereTheyAre) {
  const Package package = createLarge();
  write(package, "more.txt", "more", CompressionStored);
  package->doUNSAFEUpdateInPlace();
  const std::vector<std::string> lines = judged(path(), {"after.txt", "more.txt"});
  ASSERT_EQ(lines.size(), 9u);
  EXPECT_EQ(lines[1], "short 12");
  EXPECT_EQ(lines[2].substr(0, lines[2].find(" |")),
            lineOf("five.bin", 0, 45, crcOfZeros(kFiveGB), kFiveGB, kFiveGB, 0,
                   block({kFiveGB, kFiveGB})));
  EXPECT_EQ(lines[7], kText);
  EXPECT_EQ(lines[8], "more");
}

// Compressed small, inflated large.
TEST_F(LargeEntries, FiveGigabytesDeflatedHaveZip64FieldsForTheirSizeAlone) {
  const std::string deflated = deflatedZeros(kFiveGB);
  const std::uint32_t crc = crcOfZeros(kFiveGB);
  const Package package = create();
  const Stream stream = open(package, "five.txt", CompressionDeflated, true, {kFiveGB, crc});
  *stream << deflated;
  stream->close();
  package->endUpdate();
  EXPECT_THAT(
      judged(path()),
      ElementsAre("end 1 s " + hex(kHeader + 8 + kRoom + deflated.size()), "short 12",
                  lineOf("five.txt", 8, 45, crc, deflated.size(), kFiveGB, 0, block({kFiveGB})) +
                      " | " + crcText(crc) + " " + hex(deflated.size()) + " ffffffff " +
                      block({kFiveGB, deflated.size()})));
  package->close();

  const Package again = fFactory.openPackage(path(), kIn, &fFiles, nullptr, nullptr);
  EXPECT_EQ(again->getFile("five.txt", true)->getSize64(), kFiveGB);
  char block[4096];
  const Stream in = again->getFile("five.txt", true)->open(kIn, false);
  EXPECT_TRUE(in->read(block, sizeof block));
}

// Not announced: the local header has no room, and what was written stays as it is.
TEST_F(LargeEntries, OneThatNobodyAnnouncedRaises7WhenItCloses) {
  const Package package = create();
  try {
    writeStored(package, "large.bin", 0x100000000, true, false);
    FAIL() << "it closed";
  } catch (pkg::PackageIOException<>&) {
    FAIL() << "another type";
  } catch (pkg::PackageException<>& e) {
    EXPECT_EQ(e.getErrorCode(), pkg::PkgLib_Err_FileSizeTooBig);
  }
  EXPECT_NO_THROW(package->cancelUpdate());
}

TEST_F(LargeEntries, OneThatWasAnnouncedMayBecomeAsLargeAsItLikes) {
  const Package package = create();
  const Stream stream =
      open(package, "large.bin", CompressionStored, true, {0xFFFFFFFF, crcOfZeros(kFiveGB)});
  writeZeros(*stream, kFiveGB);
  EXPECT_NO_THROW(stream->close());
  package->endUpdate();
  EXPECT_EQ(package->getFile("large.bin", true)->getSize64(), kFiveGB);
  EXPECT_THAT(judged(path())[2], testing::HasSubstr(block({kFiveGB, kFiveGB}) + " |"));
}

// Whatever goes through a stream, nothing of it stays in memory.
TEST_F(LargeEntries, TakeNoMoreMemoryThanSmallOnes) {
  const Package package = create();
  writeStored(package, "small.bin", 16 << 20, true);
  const long before = peakMemory();
  writeStored(package, "five.bin", kFiveGB, true);
  package->endUpdate();
  const Stream in = package->getFile("five.bin", true)->open(kIn, false);
  in->seekg(kFiveGB - 100);
  char block[200];
  in->read(block, sizeof block);
  EXPECT_EQ(in->gcount(), 100);
  EXPECT_LT(peakMemory() - before, 8 << 20);
}

class LongTests : public LargeEntries {
protected:
  void SetUp() override { QCF_LONG_TEST(); }

  // Reads the whole of an entry, in pieces.
  static std::int64_t sizeByReading(const Package& package, const std::string& name) {
    const Stream in = package->getFile(name, true)->open(kIn, false);
    std::vector<char> piece(1 << 20);
    std::int64_t size = 0;
    while (in->read(piece.data(), 1 << 20), in->gcount() > 0) {
      EXPECT_TRUE(areZeros(piece.data(), static_cast<std::size_t>(in->gcount())));
      size += in->gcount();
    }
    return size;
  }
  // The names of the entries whose bytes python3 has read and found wrong; "None" if none.
  std::string tested(const std::string& file) {
    std::string said = support::python(
        "import sys, zipfile; print(zipfile.ZipFile(sys.argv[1]).testzip())", {path(file)});
    return said.substr(0, said.find('\n'));
  }
};

// Everything that a client would do with such entries, and other programs reading every byte.
TEST_F(LongTests, FiveGigabytesStoredAndDeflatedByTheLibraryAreReadByOthersAsAWhole) {
  const Package package = create();
  writeStored(package, "small.bin", 1 << 20, false);
  const long before = peakMemory();
  writeStored(package, "five.bin", kFiveGB, false);
  {
    const Stream stream = open(package, "five.txt", CompressionDeflated, false, {kFiveGB, 0});
    writeZeros(*stream, kFiveGB);
    stream->close();
  }
  write(package, "after.txt", kText, CompressionDeflated);
  package->endUpdate();
  EXPECT_EQ(package->getFile("five.bin", true)->getCRC32(), crcOfZeros(kFiveGB));
  EXPECT_EQ(package->getFile("five.txt", true)->getCRC32(), crcOfZeros(kFiveGB));
  EXPECT_EQ(sizeByReading(package, "five.txt"), kFiveGB);

  package->saveAs(path("copy.pkg"), kIn | kOut | kTrunc);
  EXPECT_LT(peakMemory() - before, 8 << 20);
  EXPECT_EQ(tested("copy.pkg"), "None");
  EXPECT_EQ(verdict("unzip", {"unzip", "-tq"}, "copy.pkg"), "accepts");
  // The local header of "five.txt" has its compressed size twice, in its field and in its block.
  EXPECT_EQ(verdict("ziptool", {"ziptool"}, "copy.pkg"), "accepts");
  EXPECT_EQ(verdict("ziptool", {"ziptool", "-c"}, "copy.pkg"), "refuses");
}

// The first move makes a plain copy of it, which is no burden on memory either.
TEST_F(LongTests, SeekingInFiveGigabytesOfDeflatedDataTakesNoMemory) {
  const Package package = create();
  {
    const Announced announced{kFiveGB, crcOfZeros(kFiveGB)};
    const Stream stream = open(package, "five.txt", CompressionDeflated, true, announced);
    *stream << deflatedZeros(kFiveGB);
    stream->close();
  }
  package->endUpdate();
  const long before = peakMemory();
  const Stream in = package->getFile("five.txt", true)->open(kIn, false);
  in->seekg(-3, std::ios_base::end);
  EXPECT_EQ(in->tellg(), std::streampos(kFiveGB - 3));
  char rest[10];
  in->read(rest, sizeof rest);
  EXPECT_EQ(in->gcount(), 3);
  EXPECT_LT(peakMemory() - before, 8 << 20);
}

TEST_F(LongTests, OneThatIsCompressedOnTheWayAndWasNotAnnouncedRaises7Too) {
  for (const auto method : {CompressionStored, CompressionDeflated}) {
    const Package package = create();
    const Stream stream = open(package, "large.bin", method, false);
    writeZeros(*stream, 0x100000000);
    try {
      stream->close();
      FAIL() << "it closed";
    } catch (pkg::PackageException<>& e) {
      EXPECT_EQ(e.getErrorCode(), pkg::PkgLib_Err_FileSizeTooBig);
    }
  }
}

}  // namespace

}  // namespace sizes
