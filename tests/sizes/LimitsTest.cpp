#include <map>

#include "sizes/Big.h"
#include "sizes/Judge.h"

// Each limit of the format from both sides, with real files.

namespace sizes {

namespace {

using testing::HasSubstr;

constexpr std::int64_t kLast = 0xFFFFFFFE;    // the last number that a 32-bit field holds
constexpr std::int64_t kMarker = 0xFFFFFFFF;  // the first that it does not
constexpr std::int64_t kHeader = 30 + 1;      // of an entry with a name of one byte

class Limits : public Big {
protected:
  // The line of an entry, and its two halves.
  static std::string recordOf(const std::string& line) { return line.substr(0, line.find(" | ")); }
  static std::string localOf(const std::string& line) {
    return line.substr(line.find(" | ") + 12);  // the CRC left out
  }
};

TEST_F(Limits, ASizeOf0xFFFFFFFEFitsInto32Bits) {
  const Package package = create();
  writeStored(package, "a", kLast, true);
  package->endUpdate();
  const std::vector<std::string> lines = judged(path());
  EXPECT_THAT(recordOf(lines[2]), HasSubstr(" 4294967294 4294967294 0 -"));
  EXPECT_EQ(localOf(lines[2]), "fffffffe fffffffe -");
}

TEST_F(Limits, ASizeOf0xFFFFFFFFDoesNot) {
  const Package package = create();
  writeStored(package, "a", kMarker, true);
  package->endUpdate();
  const std::vector<std::string> lines = judged(path());
  EXPECT_THAT(recordOf(lines[2]),
              HasSubstr(" 4294967295 4294967295 0 " + block({kMarker, kMarker})));
  EXPECT_EQ(localOf(lines[2]), "ffffffff ffffffff " + block({kMarker, kMarker}));
}

// It is the marker itself, and passes for a size: the local header then points to a block that is
// not there. The record has it.
TEST_F(Limits, ASizeOf0xFFFFFFFFThatWasNotAnnouncedHasItsBlockInTheRecordOnly) {
  const Package package = create();
  writeStored(package, "a", kMarker, true, false);
  package->endUpdate();
  const std::vector<std::string> lines = judged(path());
  EXPECT_THAT(recordOf(lines[2]), HasSubstr(block({kMarker, kMarker})));
  EXPECT_EQ(localOf(lines[2]), "ffffffff ffffffff -");
}

TEST_F(Limits, DeflatedSizesStandOnEitherSideToo) {
  for (const std::int64_t size : {kLast, kMarker}) {
    const std::string deflated = deflatedZeros(size);
    const Package package = create();
    const Stream stream = open(package, "a", CompressionDeflated, true, {size, crcOfZeros(size)});
    *stream << deflated;
    stream->close();
    package->endUpdate();
    const std::vector<std::string> lines = judged(path());
    const auto bytes = static_cast<std::uint64_t>(deflated.size());
    const auto large = static_cast<std::uint64_t>(size);
    EXPECT_EQ(localOf(lines[2]),
              hex(bytes) + " " + hex(large) + " " + (size == kLast ? "-" : block({large, bytes})));
    EXPECT_THAT(recordOf(lines[2]), HasSubstr(size == kLast ? " 0 -" : " 0 " + block({large})));
  }
}

// A filler puts the next local header where the test wants it.
TEST_F(Limits, OffsetsOf0xFFFFFFFEAnd0xFFFFFFFFStandOnEitherSide) {
  for (const std::int64_t offset : {kLast, kMarker}) {
    const Package package = create();
    writeStored(package, "f", offset - kHeader, true);
    write(package, "b", "behind", CompressionStored);
    package->endUpdate();
    const std::vector<std::string> lines = judged(path(), {"b"});
    const std::string extra = offset == kLast ? "-" : block({static_cast<std::uint64_t>(offset)});
    EXPECT_THAT(recordOf(lines[3]), HasSubstr(" " + std::to_string(offset) + " " + extra));
    EXPECT_EQ(lines[4], "behind");
  }
}

TEST_F(Limits, DirectoriesAt0xFFFFFFFEAnd0xFFFFFFFFStandOnEitherSide) {
  const std::map<std::int64_t, std::string> expected = {
      {kLast, "end 1 s fffffffe"},
      {kMarker, "end 1 s ffffffff zip64 1 ffffffff"},
      {kMarker + 1, "end 1 s ffffffff zip64 1 100000000"},
  };
  for (const auto& [offset, end] : expected) {
    const Package package = create();
    writeStored(package, "f", offset - kHeader, true);
    package->endUpdate();
    EXPECT_EQ(judged(path())[0], end);
    EXPECT_EQ(judged(path())[1], "short 0");
    package->close();
    // The reader takes the marker for an offset, which once is true.
    if (offset > kMarker) {
      EXPECT_THROW(fFactory.openPackage(path(), kIn, &fFiles, nullptr, nullptr),
                   pkg::PackageIOException<>);
    } else {
      const Package again = fFactory.openPackage(path(), kIn, &fFiles, nullptr, nullptr);
      EXPECT_EQ(again->getFile("f", true)->getSize64(), offset - kHeader);
    }
  }
}

// Empty entries, named by their numbers.
class Counts : public Big {
protected:
  Package createMany(int count) {
    const Package package = create();
    for (int i = 0; i < count; ++i)
      write(package, "e/" + std::to_string(i), i % 1000 == 0 ? "some" : "", CompressionStored);
    package->endUpdate();
    return package;
  }
};

TEST_F(Counts, Of65534And65535StandOnEitherSide) {
  const Package package = createMany(65534);
  std::vector<std::string> lines = judged(path(), {"e/65000"});
  EXPECT_EQ(lines[0].substr(0, 12), "end 65534 s ");
  EXPECT_EQ(lines[0].find("zip64"), std::string::npos) << lines[0];
  EXPECT_EQ(lines[1], "short 0");
  EXPECT_EQ(lines.back(), "some");

  write(package, "e/65534", "one more", CompressionStored);
  package->doUNSAFEUpdateInPlace();
  lines = judged(path(), {"e/65000", "e/65534"});
  EXPECT_EQ(lines[0].substr(0, 12), "end 65535 s ");
  EXPECT_THAT(lines[0], HasSubstr(" zip64 65535 "));
  EXPECT_EQ(lines[1], "short 0");
  EXPECT_EQ(lines.back(), "one more");
}

TEST_F(Counts, Of70000AreReadByOthersAndTheFirst65535ByThisReader) {
  const Package package = createMany(70000);
  EXPECT_EQ(package->entryExists("e/69999"), pkg::PkgEntryFile);
  const std::vector<std::string> lines = judged(path(), {"e/69000"});
  EXPECT_EQ(lines[0].substr(0, 12), "end 65535 s ");
  EXPECT_THAT(lines[0], HasSubstr(" zip64 70000 "));
  EXPECT_EQ(lines[1], "short 0");
  EXPECT_EQ(lines.back(), "some");
  const std::string listing = support::mustRun({{"zipinfo", "-h", path()}});
  EXPECT_THAT(listing, HasSubstr("number of entries: 70000"));
  EXPECT_EQ(support::python("import sys, zipfile\n"
                            "names = zipfile.ZipFile(sys.argv[1]).namelist()\n"
                            "print(names == ['e/%d' % i for i in range(70000)])",
                            {path()}),
            "True\n");
  package->close();

  const Package again = fFactory.openPackage(path(), kIn, &fFiles, nullptr, nullptr);
  EXPECT_EQ(again->entryExists("e/65534"), pkg::PkgEntryFile);
  EXPECT_EQ(again->entryExists("e/65535"), pkg::PkgEntryNone);
}

}  // namespace

}  // namespace sizes
