#include "package/detail/ZipPkgStream.h"

#include "unit/writing/Writing.h"

// Streams that write: what they put where, and when.

namespace {

using namespace writing;

using WriteStream = Writing;

TEST_F(WriteStream, OpenedAndClosedWithoutAByteADirectEntryIsOneStoredHeaderWrittenAtClose) {
  for (const auto method : {CompressionStored, CompressionDeflated}) {
    const Package package = create();
    const Stream stream = openForWriting(package, "a.txt", method);
    EXPECT_EQ(bytes(), "");
    stream->close();
    EXPECT_EQ(bytes().size(), 35u);
    EXPECT_EQ(u16At(bytes(), 8), 0u);                    // the method
    EXPECT_EQ(bytes().substr(14, 12), Bytes(12, '\0'));  // CRC and sizes
    EXPECT_EQ(package->getFile("a.txt", true)->getCompressedSize64(), 0);
  }
}

TEST_F(WriteStream, TheFirstByteBringsTheLocalHeaderAlong) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt");
  stream->put('x');
  EXPECT_EQ(bytes().size(), 36u);
  EXPECT_EQ(bytes().back(), 'x');
}

// Makes a protected operation callable.
struct Overflow : std::streambuf {
  static constexpr int_type (std::streambuf::*kOf)(int_type) = &Overflow::overflow;
};

TEST_F(WriteStream, OverflowWithEndOfFileDoesNothingAndReturnsZero) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt");
  EXPECT_EQ((stream->rdbuf()->*Overflow::kOf)(std::char_traits<char>::eof()), 0);
  EXPECT_EQ(bytes(), "");
  EXPECT_EQ(stream->tellp(), std::streampos(0));
}

TEST_F(WriteStream, ASingleByteThroughOverflowIsDeflatedCountedAndReturned) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
  EXPECT_EQ((stream->rdbuf()->*Overflow::kOf)(0xFF), 0xFF);
  EXPECT_EQ(bytes().size(), 35u);  // the local header
  EXPECT_EQ(stream->tellp(), std::streampos(1));
  stream->close();
  package->endUpdate();
  zipbytes::File expected;
  expected.add(deflatedEntry("a.txt", "\xFF"), deflated("\xFF"));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

// Entries refuse such a mode before they make a stream; the stream does so itself.
TEST_F(WriteStream, AStreamMadeToReadAndWriteRaises19DirectAndSpooled) {
  using pkg::zip::ZipPkgStream;
  const Package package = create();
  write(package, "a.txt", "alpha");
  const Bytes written = bytes();
  const auto entry = [&](const char* name) {
    return dynamic_cast<pkg::zip::ZipPkgFile<>*>(package->getFile(name, false).get());
  };
  EXPECT_RAISED("19", ZipPkgStream<>(entry("a.txt"), kIn | kOut, false));
  EXPECT_EQ(bytes(), written);
  const Stream direct = openForWriting(package, "b.txt");
  write(package, "c.txt", "spooled");
  EXPECT_RAISED("19", ZipPkgStream<>(entry("c.txt"), kIn | kOut, false));
  EXPECT_EQ(contents(package, "c.txt"), "spooled");
}

TEST_F(WriteStream, DataThatDeflateKeepsReachesTheFileOnlyAtClose) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
  const Bytes zeros(4096, '\0');
  stream->write(zeros.data(), 4096);
  EXPECT_EQ(bytes().size(), 35u);  // the local header
  stream->close();
  EXPECT_EQ(bytes().size(), 35u + deflated(zeros).size());
}

TEST_F(WriteStream, FlushChangesNothing) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
  stream->flush();
  EXPECT_EQ(bytes(), "");
  *stream << "data";
  stream->flush();
  EXPECT_EQ(bytes().size(), 35u);
  EXPECT_TRUE(stream->good());
}

TEST_F(WriteStream, ClosingTwiceWritesNothingTheSecondTime) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
  *stream << "data";
  stream->close();
  const Bytes closed = bytes();
  stream->close();
  EXPECT_EQ(bytes(), closed);
}

TEST_F(WriteStream, AStreamThatIsLetGoOfClosesItself) {
  const Package package = create();
  openForWriting(package, "a.txt", CompressionDeflated)->write("data", 4);
  package->endUpdate();
  EXPECT_EQ(contents(open(bytes()), "a.txt"), "data");
}

TEST_F(WriteStream, TheMethodIsReadWhenTheStreamIsOpened) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt", CompressionStored);
  package->getFile("a.txt", true)->setCompressionMethod(CompressionDeflated);
  *stream << "data";
  stream->close();
  package->endUpdate();
  EXPECT_EQ(u16At(bytes(), 8), 0u);
  EXPECT_NE(bytes().find("data"), Bytes::npos);
}

TEST_F(WriteStream, ARawStreamOfADeflatedEntryTakesBytesAsTheyAreAndNumbersAsAnnounced) {
  const Package package = create();
  const File file = package->getFile("a.txt", false);
  file->setExpectedSize(1234);
  file->setExpectedCRC32(0xCAFEBABE);
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated, true);
  *stream << "not deflate at all";
  stream->close();
  EXPECT_EQ(file->getSize64(), 1234);
  EXPECT_EQ(file->getCompressedSize64(), 18);
  EXPECT_EQ(file->getCRC32(), 0xCAFEBABEu);
  EXPECT_NE(bytes().find("not deflate at all"), Bytes::npos);
}

TEST_F(WriteStream, ARawStreamOfAStoredEntryCountsItsBytesButTakesTheCRCAsAnnounced) {
  const Package package = create();
  const File file = package->getFile("a.txt", false);
  file->setExpectedSize(1234);
  file->setExpectedCRC32(0xCAFEBABE);
  const Stream stream = openForWriting(package, "a.txt", CompressionStored, true);
  *stream << "12345";
  stream->close();
  EXPECT_EQ(file->getSize64(), 5);
  EXPECT_EQ(u32At(bytes(), 14), 0xCAFEBABEu);
}

TEST_F(WriteStream, ASpoolIsNeverRaw) {
  const Package package = open([] {
    zipbytes::File old;
    old.add(storedEntry("x.txt", "x"), "x");
    return old.bytes();
  }());
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated, true);
  *stream << "plain";
  stream->close();
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(contents(package, "a.txt"), "plain");
  EXPECT_NE(bytes().find(deflated("plain")), Bytes::npos);
}

TEST_F(WriteStream, ASecondEntryDuringADirectStreamSpoolsAndComesBehind) {
  const Package package = create();
  const Stream first = openForWriting(package, "a.txt");
  const Stream second = openForWriting(package, "b.txt");
  *second << "beta";
  EXPECT_EQ(bytes(), "");
  *first << "alpha";
  second->close();
  first->close();
  EXPECT_EQ(bytes().find("beta"), Bytes::npos);
  package->endUpdate();
  EXPECT_LT(bytes().find("alpha"), bytes().find("beta"));
}

TEST_F(WriteStream, ASpooledStreamSeeksAndOverwrites) {
  const Package package = create();
  const Stream direct = openForWriting(package, "a.txt");
  const Stream spool = openForWriting(package, "b.txt", CompressionDeflated);
  *spool << "0123456789";
  spool->seekp(3);
  *spool << "abc";
  EXPECT_EQ(spool->tellp(), std::streampos(6));
  spool->seekp(0, std::ios_base::end);
  EXPECT_EQ(spool->tellp(), std::streampos(10));
  spool->close();
  direct->close();
  package->endUpdate();
  EXPECT_EQ(contents(open(bytes()), "b.txt"), "012abc6789");
}

TEST_F(WriteStream, ADirectStoredStreamSeeksAndOverwritesThoughItsCRCGoesOn) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt");
  *stream << "0123456789";
  stream->seekp(3);
  *stream << "abc";
  stream->close();
  const File file = package->getFile("a.txt", true);
  EXPECT_EQ(file->getSize64(), 10);
  EXPECT_EQ(file->getCRC32(), zipbytes::crc32("0123456789abc"));
  EXPECT_EQ(bytes().substr(35), "012abc6789");
}

TEST_F(WriteStream, ADirectStoredStreamThatStartsOverSendsItsHeaderASecondTime) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt");
  *stream << "0123456789";
  stream->seekp(0);
  *stream << "abc";
  // The header lands where the file stands, behind the data; the data where it belongs.
  EXPECT_EQ(bytes().substr(35, 10), "abc3456789");
  EXPECT_EQ(bytes().substr(45, 4), "PK\x03\x04");
}

TEST_F(WriteStream, ADirectDeflatedStreamCannotSeek) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
  *stream << "data";
  EXPECT_EQ(stream->tellp(), std::streampos(4));
  EXPECT_RAISED("23", stream->rdbuf()->pubseekpos(0));
  EXPECT_RAISED("23", stream->rdbuf()->pubseekoff(0, std::ios_base::end));
  *stream << "more";
  stream->close();
  package->endUpdate();
  EXPECT_EQ(contents(open(bytes()), "a.txt"), "datamore");
}

TEST_F(WriteStream, AFailedWriteRaisesFromTheStreamAndMovesNothing) {
  support::FailingFileSystem failing(fMemory, 2, {support::Failure::Write});
  fFiles = &failing;
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt");
  EXPECT_RAISED("IO 50", stream->write("data", 4));  // the first write is the header's
  stream->clear();
  EXPECT_EQ(stream->tellp(), std::streampos(0));
}

TEST_F(WriteStream, AShortWriteRaises29) {
  support::FailingFileSystem failing(fMemory, 2, {support::Failure::ShortWrite});
  fFiles = &failing;
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt");
  EXPECT_RAISED("IO 29", stream->write("data", 4));
}

TEST_F(WriteStream, WithoutExceptionsAFailedWriteSetsBadbit) {
  support::FailingFileSystem failing(fMemory, 1, {support::Failure::Write});
  fFiles = &failing;
  const Package package = create();
  const Stream stream = package->getFile("a.txt", false)->open(kOut, false);
  stream->write("data", 4);
  EXPECT_TRUE(stream->bad());
}

TEST_F(WriteStream, AFailureAtCloseComesOutOfCloseOnceAndOutOfTheDestructorNever) {
  for (int n = 1; n <= 3; ++n) {
    support::FailingFileSystem failing(fMemory, n, {support::Failure::Write});
    fFiles = &failing;
    const Package package = create();
    Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
    std::string seen = raised([&] { *stream << "data"; });
    seen += raised([&] { stream->close(); });
    EXPECT_EQ(seen, "IO 50") << n;
    EXPECT_EQ(raised([&] { stream->close(); }), "");
    EXPECT_NO_THROW(stream.reset());
  }
}

// Its local header was made for a size of 32 bits. A stream that stayed on the entry's list would
// be closed once more with the package, long after it is gone.
TEST_F(WriteStream, AStreamWhoseSizeGrewTooBigRaises7AndLeavesItsEntry) {
  const Package package = create();
  Stream stream = openForWriting(package, "a.txt", CompressionDeflated, true);
  *stream << "raw";
  package->getFile("a.txt", true)->setExpectedSize(0x100000000);
  EXPECT_RAISED("7", stream->close());
  EXPECT_NO_THROW(stream->close());
  EXPECT_EQ(stream->rdbuf(), nullptr);
  stream.reset();
  write(package, "b.txt", "beta", CompressionStored);
  EXPECT_NE(bytes().find("beta"), Bytes::npos);
  EXPECT_NO_THROW(package->close());
}

// Whatever went wrong, the next entry can go direct.
TEST_F(WriteStream, AFailedCloseFreesTheOutput) {
  support::FailingFileSystem failing(fMemory, 2, {support::Failure::Write});
  fFiles = &failing;
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt", CompressionDeflated);
  *stream << "data";
  EXPECT_RAISED("IO 50", stream->close());
  write(package, "b.txt", "beta", CompressionStored);
  EXPECT_NE(bytes().find("beta"), Bytes::npos);
}

TEST_F(WriteStream, WritingToAClosedStreamFailsCleanly) {
  const Package package = create();
  const Stream stream = openForWriting(package, "a.txt");
  stream->close();
  stream->write("data", 4);
  EXPECT_TRUE(stream->bad());
  EXPECT_EQ(bytes().size(), 35u);
}

// A stream of an entry that has gone out already takes the place of the one that is being written:
// its close sets the output free while the other still writes.
TEST_F(WriteStream, ASpoolOfAnEntryThatWentOutFreesTheOutputOfAnother) {
  const Package package = create();
  write(package, "a.txt", "first", CompressionStored);
  const Stream other = openForWriting(package, "b.txt");
  *other << "beta";
  const Stream spool = openForWriting(package, "a.txt");
  *spool << "second";
  spool->close();
  const Stream third = openForWriting(package, "c.txt");
  *third << "gamma";
  EXPECT_NE(bytes().find("gamma"), Bytes::npos);
}

TEST_F(WriteStream, ATemporaryFileThatCannotBeMadeRaises) {
  support::FailingFileSystem failing(fMemory, 1, {support::Failure::CreateTemp});
  fFiles = &failing;
  const Package package = fFactory.openPackage("new.pkg", kOut | kTrunc, fFiles, nullptr, nullptr);
  EXPECT_RAISED("IO 50", package->getFile("a.txt", false)->open(kOut, false));
  write(package, "a.txt", "second try");
  EXPECT_EQ(contents(package, "a.txt"), "second try");
}

TEST_F(WriteStream, AStreamThatWritesRaises23WhenItIsReadAndGoesOnWriting) {
  const Package package = create();
  const Stream stored = openForWriting(package, "stored.txt");
  const Stream spooled = openForWriting(package, "spooled.txt");
  for (const Stream& stream : {stored, spooled}) {
    *stream << "da";
    char byte = 0;
    EXPECT_RAISED("23", stream->get());
    stream->clear();
    EXPECT_RAISED("23", stream->read(&byte, 1));
    stream->clear();
    *stream << "ta";
    stream->close();
  }
  const Stream deflated = openForWriting(package, "deflated.txt", CompressionDeflated);
  *deflated << "da";
  EXPECT_RAISED("23", deflated->get());
  deflated->clear();
  *deflated << "ta";
  deflated->close();
  package->endUpdate();
  const Package again = open(bytes());
  for (const char* const name : {"stored.txt", "spooled.txt", "deflated.txt"})
    EXPECT_EQ(contents(again, name), "data") << name;
}

TEST_F(WriteStream, AStreamThatReadsRaises23WhenItIsWrittenToAndGoesOnReading) {
  zipbytes::File old;
  old.add(storedEntry("stored.txt", "data"), "data");
  old.add(deflatedEntry("deflated.txt", "data"), deflated("data"));
  const Package package = open(old.bytes());
  write(package, "spooled.txt", "data");
  for (const char* const name : {"stored.txt", "deflated.txt", "spooled.txt"}) {
    const Stream stream = package->getFile(name, true)->open(kIn, false);
    stream->exceptions(std::ios_base::badbit);
    EXPECT_RAISED("23", stream->put('x'));
    stream->clear();
    EXPECT_RAISED("23", *stream << "more");
    stream->clear();
    EXPECT_EQ(readAll(*stream), "data") << name;
  }
  EXPECT_EQ(bytes("old.pkg"), old.bytes());
}

}  // namespace
