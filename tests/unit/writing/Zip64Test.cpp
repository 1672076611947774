#include "unit/writing/Writing.h"

// Large numbers in whole packages. Nothing here is large on disk: sizes are announced with raw
// streams, and offsets pretended by a file that says that it begins late.

namespace {

using namespace writing;

// A file system whose output files cannot seek and count from a first position.
class LateFileSystem : public support::UnseekableFileSystem {
public:
  LateFileSystem(pkg::IPkgFileSystem<>& inner, long long first)
      : UnseekableFileSystem(inner), fFirst(first) {}

protected:
  long long tell(InnerFile& file) override { return fFirst + file.tell(); }

private:
  long long fFirst;
};

class Zip64 : public Writing {
protected:
  // An entry whose two bytes stand for `size`.
  Bytes packageWithSize(std::int64_t size) {
    const Package package = create();
    const File file = package->getFile("a.txt", false);
    file->setExpectedSize(size);
    const Stream stream = openForWriting(package, "a.txt", CompressionDeflated, true);
    *stream << "xx";
    stream->close();
    package->endUpdate();
    return bytes();
  }
  // An entry whose local header has the offset.
  Bytes packageAt(long long offset) {
    LateFileSystem late(fMemory, offset);
    fFiles = &late;
    fPolicies.descriptor = 3;
    const Package package = create();
    const File file = package->getFile("a.txt", false);
    file->setExpectedSize(2);
    file->setExpectedCRC32(zipbytes::crc32("xx"));
    write(package, "a.txt", "xx", CompressionStored);
    package->endUpdate();
    return bytes();
  }
  static Entry sized(std::uint32_t size) {
    Entry entry = storedEntry("a.txt", "xx");
    entry.method = 8;
    entry.flags |= kMaximum;
    entry.crc = 0;
    entry.size = size;
    return entry;
  }
};

TEST_F(Zip64, ASizeOf0xFFFFFFFENeedsNone) {
  zipbytes::File expected;
  expected.add(sized(0xFFFFFFFE), "xx");
  EXPECT_TRUE(sameBytes(expected.bytes(), packageWithSize(0xFFFFFFFE)));
}

class Zip64Sizes : public Zip64, public testing::WithParamInterface<std::uint64_t> {};

// The local header is written and patched with both sizes in its block; the directory lists the one
// that is large. The size of the directory was counted before that.
TEST_P(Zip64Sizes, ALargeSizeStandsInTheBlocksOfBothHeaders) {
  Entry local = sized(0xFFFFFFFF);
  local.localExtra = zipbytes::zip64Block({GetParam(), 2});
  Entry central = local;
  central.versionMadeBy = central.versionNeeded = 45;
  central.centralExtra = zipbytes::zip64Block({GetParam()});
  zipbytes::File expected;
  expected.addAs(local, central, "xx");
  zipbytes::End end = expected.end();
  end.directorySize -= 12;
  EXPECT_TRUE(
      sameBytes(expected.bytes(end), packageWithSize(static_cast<std::int64_t>(GetParam()))));
}

TEST_P(Zip64Sizes, TheReaderFindsTheSizeAgain) {
  const Package package = open(packageWithSize(static_cast<std::int64_t>(GetParam())));
  EXPECT_EQ(package->getFile("a.txt", true)->getSize64(), static_cast<std::int64_t>(GetParam()));
  EXPECT_EQ(package->getFile("a.txt", true)->getCompressedSize64(), 2);
}

TEST_P(Zip64Sizes, ACopyIsZip64Again) {
  const Bytes first = packageWithSize(static_cast<std::int64_t>(GetParam()));
  const Package package = open(first);
  package->saveAs("copy.pkg", kIn | kOut | kTrunc);
  const Package copy = open(bytes("copy.pkg"));
  EXPECT_EQ(copy->getFile("a.txt", true)->getSize64(), static_cast<std::int64_t>(GetParam()));
  EXPECT_EQ(copy->getFile("a.txt", true)->getCompressedSize64(), 2);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Zip64Sizes,
                         testing::Values(0xFFFFFFFFull, 0x100000000ull, 5000000000ull, 1ull << 50));

// The header has Zip64 room by the size that is announced, not by the one that comes.
TEST_F(Zip64, AnAnnouncedLargeSizeMakesRoomThatASmallEntryKeeps) {
  const Package package = create();
  package->getFile("a.txt", false)->setExpectedSize(5000000000);
  write(package, "a.txt", "small", CompressionStored);
  package->endUpdate();

  Entry local = storedEntry("a.txt", "small");
  local.localExtra = zipbytes::zip64Block({5, 5});
  Entry central = local;
  zipbytes::File expected;
  expected.addAs(local, central, "small");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

TEST_F(Zip64, WithADescriptorSuchAnEntryHasA64BitOne) {
  fPolicies.descriptor = 2;
  const Package package = create();
  package->getFile("a.txt", false)->setExpectedSize(5000000000);
  write(package, "a.txt", "small", CompressionStored);
  package->endUpdate();
  EXPECT_NE(bytes().find(zipbytes::dataDescriptor64(zipbytes::crc32("small"), 5, 5)), Bytes::npos);
}

// Nobody announced it: the header has no room, and what was written stays as it is.
TEST_F(Zip64, ASizeAbove32BitsThatWasNotAnnouncedRaises7AtClose) {
  const Package package = create();
  const File file = package->getFile("a.txt", false);
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated, true);
  *stream << "xx";
  file->setExpectedSize(0x100000000);
  EXPECT_RAISED("7", stream->close());
  EXPECT_NO_THROW(stream->close());
}

TEST_F(Zip64, AnOffsetOf0xFFFFFFFENeedsNone) {
  Entry entry = storedEntry("a.txt", "xx");
  Bytes expected = zipbytes::localHeader(entry) + "xx";
  entry.offset = 0xFFFFFFFE;
  expected += zipbytes::centralHeader(entry);
  const Bytes written = packageAt(0xFFFFFFFE);
  EXPECT_TRUE(sameBytes(expected, written.substr(0, expected.size())));
}

// Counted before its block came, the record makes the directory's size 12 bytes short.
TEST_F(Zip64, ALargeOffsetAloneBringsABlockOfOneNumberAndZip64EndRecords) {
  const std::uint64_t first = 0xFFFFFFFF;
  Entry entry = storedEntry("a.txt", "xx");
  Bytes expected = zipbytes::localHeader(entry) + "xx";
  const std::uint64_t directoryAt = first + expected.size();
  entry.offset = 0xFFFFFFFF;
  entry.versionMadeBy = entry.versionNeeded = 45;
  entry.centralExtra = zipbytes::zip64Block({first});
  expected += zipbytes::centralHeader(entry);
  zipbytes::Zip64End zip64;
  zip64.entries = 1;
  zip64.directorySize = 46 + 5;
  zip64.directoryOffset = directoryAt;
  zip64.versionNeeded = 0;
  const std::uint64_t zip64At = first + expected.size();
  expected += zipbytes::zip64EndRecord(zip64) + zipbytes::zip64Locator(zip64At);
  zipbytes::End end;
  end.entries = 1;
  end.directorySize = 46 + 5;
  end.directoryOffset = 0xFFFFFFFF;
  expected += zipbytes::endRecord(end);
  EXPECT_TRUE(sameBytes(expected, packageAt(static_cast<long long>(first))));
}

TEST_F(Zip64, ADirectoryBeyondTheLimitHasItsOffsetInABlockToo) {
  LateFileSystem late(fMemory, 0x200000000);
  fFiles = &late;
  fPolicies.descriptor = 3;
  const Package package = create();
  package->getDirectory("d", false)->create();
  package->endUpdate();

  Entry entry = directoryEntry("d/");
  EXPECT_EQ(bytes().substr(0, 32), zipbytes::localHeader(entry));
  entry.offset = 0xFFFFFFFF;
  entry.versionMadeBy = entry.versionNeeded = 45;
  entry.centralExtra = zipbytes::zip64Block({0x200000000});
  const Bytes central = zipbytes::centralHeader(entry);
  EXPECT_TRUE(sameBytes(central, bytes().substr(32, central.size())));
}

// As many entries as a record of 16 bits cannot count.
TEST_F(Zip64, EntryCountsOf65534And65535StandOnEitherSideOfTheLimit) {
  for (const std::uint32_t count : {65534u, 65535u}) {
    zipbytes::File old;
    Entry entry = storedEntry("", "");
    for (std::uint32_t i = 0; i + 1 < count; ++i) {
      entry.name = std::to_string(i) + "/";
      old.add(entry, "");
    }
    const Package package = open(old.bytes());
    write(package, "last", "x", CompressionStored);
    package->doUNSAFEUpdateInPlace();
    const Bytes& written = bytes("old.pkg");
    const bool zip64 = count > 65534;
    EXPECT_EQ(u16At(written, written.size() - 12), zip64 ? 0xFFFFu : count);
    EXPECT_EQ(written.substr(written.size() - 42, 4) == zipbytes::u32(0x07064b50), zip64);
    if (zip64) {
      EXPECT_EQ(written.substr(written.size() - 98 + 32, 8), zipbytes::u64(count));
    }
  }
}

// The descriptor takes the numbers that came; the header is never brought up to them.
TEST_F(Zip64, WithADescriptorTheLocalHeaderKeepsTheSizesThatWereAnnounced) {
  fPolicies.descriptor = 2;
  const Package package = create();
  package->getFile("a.txt", false)->setExpectedSize(5000000000);
  write(package, "a.txt", "small", CompressionStored);
  package->endUpdate();

  const Entry central = described(storedEntry("a.txt", "small"));
  Entry local = withoutNumbers(central);
  local.localExtra = zipbytes::zip64Block({5000000000, 5000000000});
  zipbytes::File expected;
  expected.addAs(local, central, "small", zipbytes::dataDescriptor64(central.crc, 5, 5));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

}  // namespace
