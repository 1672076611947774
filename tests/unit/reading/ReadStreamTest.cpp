#include <algorithm>

#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;
using support::FileCall;
using zipbytes::storedEntry;

namespace {

constexpr int kEof = std::char_traits<char>::eof();

std::vector<long long> sizesRead(const support::RecordingFileSystem& files) {
  std::vector<long long> sizes;
  for (const auto& call : files.calls()) {
    if (call.kind == FileCall::Read) sizes.push_back(call.number);
  }
  return sizes;
}

}  // namespace

TEST(ReadStream, GivesAStoredEntryByteForByte) {
  const std::string data = pattern(10000);
  const MemoryPackage package(storedPackage(data));
  EXPECT_EQ(data, contents(package, "a"));
  EXPECT_EQ(data, take(*package.stream("a"), 20000));
}

TEST(ReadStream, GivesADeflatedEntryByteForByte) {
  const std::string data = pattern(5000) + std::string(100000, 'z') + pattern(5000);
  const MemoryPackage package(deflatedPackage(data));
  EXPECT_EQ(data, contents(package, "a"));
  EXPECT_EQ(data, take(*package.stream("a"), 200000));
}

TEST(ReadStream, OfAnEmptyStoredEntryIsAtItsEndAtOnce) {
  const MemoryPackage package(storedPackage(""));
  const Stream stream = package.stream("a");
  EXPECT_EQ(kEof, stream->get());
  stream->clear();
  EXPECT_EQ(0, stream->seekg(0, std::ios_base::end).tellg());
  EXPECT_EQ(kEof, stream->get());
}

TEST(ReadStream, StopsAtTheEndOfTheEntryHoweverMuchIsAskedFor) {
  const MemoryPackage package(storedPackage("12345"));
  EXPECT_EQ("12345", take(*package.stream("a"), 1000000));
  const Stream stream = package.stream("a");
  EXPECT_EQ("1234", take(*stream, 4));
  EXPECT_EQ("5", take(*stream, 4));
  stream->clear();
  EXPECT_EQ("", take(*stream, 4));
}

TEST(ReadStream, MixesSingleBytesAndTransfers) {
  const std::string data = pattern(300);
  for (const std::string& bytes : {storedPackage(data), deflatedPackage(data)}) {
    const MemoryPackage package(bytes);
    const Stream stream = package.stream("a");
    std::string got;
    for (std::size_t count = 1; got.size() < data.size(); ++count) {
      if (count % 2 != 0) {
        got += static_cast<char>(stream->get());
      } else {
        got += take(*stream, count);
      }
      EXPECT_EQ(static_cast<long long>(got.size()),
                stream->rdbuf()->pubseekoff(0, std::ios_base::cur, kIn));
    }
    EXPECT_EQ(data, got);
  }
}

TEST(ReadStream, StartsWhereTheLocalHeaderSaysNotTheCentralOne) {
  zipbytes::Entry local = storedEntry("a", "data");
  local.localExtra = zipbytes::extraBlock(0x5455, "123456789");
  zipbytes::Entry central = storedEntry("a", "data");
  central.centralExtra = zipbytes::extraBlock(0x5455, "1");
  zipbytes::File file;
  EXPECT_EQ("data", contents(MemoryPackage(file.addAs(local, central, "data").bytes()), "a"));
}

TEST(ReadStream, ChecksNeitherCRCNorLength) {
  zipbytes::Entry entry = storedEntry("a", "data");
  entry.crc ^= 1;
  zipbytes::File file;
  file.add(entry, "data");
  const std::string deflatedData = deflated("deflated");
  zipbytes::Entry longer = zipbytes::deflatedEntry("b", "deflated", deflatedData);
  longer.crc ^= 1;
  longer.size = 1;
  const MemoryPackage package(file.add(longer, deflatedData).bytes());
  EXPECT_EQ("data", contents(package, "a"));
  EXPECT_EQ("deflated", contents(package, "b"));
}

// What was inflated or read is all there is, whatever the record says.
TEST(ReadStream, OfAnEntryWhoseRecordLiesAboutItsSizeGivesAllThereIsWithoutAnError) {
  for (const std::uint32_t size : {0u, 3u, 100u}) {
    zipbytes::Entry stored = storedEntry("a", "data");
    stored.size = size;
    zipbytes::Entry inflated = zipbytes::deflatedEntry("b", "data", deflated("data"));
    inflated.size = size;
    zipbytes::File file;
    const MemoryPackage package(file.add(stored, "data").add(inflated, deflated("data")).bytes());
    for (const char* const name : {"a", "b"}) {
      EXPECT_EQ(size, package->getFile(name, true)->getSize64());
      const Stream stream = package.stream(name);
      stream->exceptions(std::ios_base::badbit);
      EXPECT_EQ("data", take(*stream, 200));
    }
  }
}

TEST(ReadStream, OfAnEntryThatClaimsMoreThanTheFileHoldsEndsWithTheFile) {
  zipbytes::Entry entry = storedEntry("a", "data");
  entry.size = entry.compressedSize = 0xFFFFFFF0;
  zipbytes::File file;
  const std::string bytes = file.add(entry, "data").bytes();
  const std::string got = contents(MemoryPackage(bytes), "a");
  EXPECT_EQ(bytes.substr(31), got);
}

TEST(ReadStream, RawGivesTheStoredBytes) {
  const std::string data(1000, 'z');
  const MemoryPackage package(deflatedPackage(data));
  EXPECT_EQ(deflated(data), readAll(*package.stream("a", true)));
  EXPECT_EQ(data, contents(package, "a"));
}

TEST(ReadStream, KnowsItsEntry) {
  const MemoryPackage package(storedPackage("x"));
  const File file = package->getFile("a", true);
  EXPECT_EQ(file.get(), file->open(kIn, false)->getFile());
}

TEST(ReadStream, TransfersGoStraightToTheCaller) {
  const std::string data = pattern(50000);
  const MemoryPackage package(storedPackage(data));
  const Stream stream = package.stream("a");
  package.files.forget();
  EXPECT_EQ(data.substr(0, 40000), take(*stream, 40000));
  EXPECT_EQ(std::vector<long long>{40000}, sizesRead(package.files));
}

TEST(ReadStream, SingleBytesComeSixAtATime) {
  const MemoryPackage package(storedPackage(pattern(20)));
  const Stream stream = package.stream("a");
  package.files.forget();
  for (int i = 0; i < 12; ++i)
    stream->get();
  EXPECT_EQ((std::vector<long long>{6, 6}), sizesRead(package.files));
}

TEST(ReadStream, CompressedInputComesInBlocksOf4096) {
  const std::string data = pattern(10000);  // hardly compressible
  const MemoryPackage package(deflatedPackage(data));
  const Stream stream = package.stream("a");
  const long long stored = package->getFile("a", true)->getCompressedSize64();
  package.files.forget();
  EXPECT_EQ(data, take(*stream, 20000));
  EXPECT_EQ((std::vector<long long>{4096, 4096, stored - 8192}), sizesRead(package.files));
}

TEST(ReadStream, EveryTransferSeeksFirstSoThatStreamsCanShareTheFile) {
  const std::string a = pattern(9000);
  std::string b = a;
  std::reverse(b.begin(), b.end());
  zipbytes::File file;
  addStored(file, "a", a);
  addDeflated(file, "b", b);
  const MemoryPackage package(file.bytes());
  const Stream first = package.stream("a");
  const Stream second = package.stream("b");
  const Stream third = package.stream("a");
  std::string gotFirst;
  std::string gotSecond;
  std::string gotThird;
  for (int i = 0; i < 90; ++i) {
    gotFirst += take(*first, 100);
    gotSecond += take(*second, 100);
    for (int k = 0; k < 100; ++k)
      gotThird += static_cast<char>(third->get());
  }
  EXPECT_EQ(a, gotFirst);
  EXPECT_EQ(b, gotSecond);
  EXPECT_EQ(a, gotThird);
}

TEST(ReadStream, AnEndThatWasReachedStays) {
  const MemoryPackage package(deflatedPackage("text"));
  const Stream stream = package.stream("a");
  EXPECT_EQ("text", take(*stream, 100));
  for (int i = 0; i < 3; ++i) {
    stream->clear();
    EXPECT_EQ("", take(*stream, 100));
    EXPECT_FALSE(stream->bad());
    stream->clear();
    EXPECT_EQ(kEof, stream->get());
  }
}

TEST(ReadStream, BytesBehindTheEndOfTheDeflatedDataAreNotRead) {
  const std::string data = deflated("text");
  EXPECT_EQ("text", contents(MemoryPackage(packageOfDeflated(data + "rubbish", 4)), "a"));
}

TEST(ReadStream, BrokenDeflatedDataRaises31AgainAndAgain) {
  const MemoryPackage package(packageOfDeflated("\xFF\xFF\xFF\xFF", 10));
  const Stream stream = package.stream("a");
  stream->exceptions(std::ios_base::badbit);
  char c;
  for (int i = 0; i < 3; ++i) {
    const Raised byTransfer = raisedBy([&] { stream->read(&c, 1); });
    EXPECT_EQ(31, byTransfer.code);
    EXPECT_FALSE(byTransfer.isIO);
    EXPECT_EQ("PKGLIB SAMPLE ERROR MESSAGE: Error Decompressing File", byTransfer.text);
    stream->clear();
    EXPECT_RAISES(31, stream->get());
    stream->clear();
  }
}

TEST(ReadStream, AFailureOfInflateSetsBadbitWhereNoExceptionIsWanted) {
  const MemoryPackage package(packageOfDeflated("\xFF\xFF\xFF\xFF", 10));
  const Stream stream = package.stream("a");
  EXPECT_EQ("", take(*stream, 10));
  EXPECT_TRUE(stream->bad());
}

TEST(ReadStream, AReadThatIsFilledSucceedsAndTheFailureWaitsForTheNext) {
  const std::string data = zipbytes::storedDeflate("good bytes");
  std::string broken = data + "\xFF\xFF";
  broken[0] = 0;  // not the last block: what follows is no block at all
  const MemoryPackage package(packageOfDeflated(broken, 100));
  const Stream stream = package.stream("a");
  stream->exceptions(std::ios_base::badbit);
  EXPECT_EQ("good bytes", take(*stream, 10));
  EXPECT_RAISES(31, stream->get());
}

TEST(ReadStream, TheBytesOfATransferThatFailsAreLost) {
  std::string broken = zipbytes::storedDeflate("good bytes") + "\xFF\xFF";
  broken[0] = 0;
  const MemoryPackage package(packageOfDeflated(broken, 100));
  const Stream stream = package.stream("a");
  EXPECT_EQ("", take(*stream, 11));
  EXPECT_TRUE(stream->bad());
}

TEST(ReadStream, DeflatedDataThatEndsTooEarlyRaises31) {
  const std::string whole = deflated(pattern(100));
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const MemoryPackage package(packageOfDeflated(whole.substr(0, length), 100));
    const Stream stream = package.stream("a");
    stream->exceptions(std::ios_base::badbit);
    EXPECT_RAISES(31, take(*stream, 100); take(*stream, 1)) << length;
  }
}

TEST(ReadStream, ADeflatedEntryOfNoCompressedBytesRaises31AtTheFirstRead) {
  const MemoryPackage package(packageOfDeflated("", 0));
  const Stream stream = package.stream("a");
  stream->exceptions(std::ios_base::badbit);
  EXPECT_RAISES(31, stream->get());
}

TEST(ReadStream, AnUnknownMethodCountsAsDeflate) {
  zipbytes::File file;
  zipbytes::Entry rubbish = storedEntry("a", "\xFF\xFF\xFF");
  rubbish.method = 12;
  file.add(rubbish, "\xFF\xFF\xFF");
  const std::string data = zipbytes::storedDeflate("text");
  zipbytes::Entry lucky = zipbytes::deflatedEntry("b", "text", data);
  lucky.method = 99;
  const MemoryPackage package(file.add(lucky, data).bytes());
  const Stream stream = package.stream("a");
  stream->exceptions(std::ios_base::badbit);
  EXPECT_RAISES(31, stream->get());
  EXPECT_EQ("text", contents(package, "b"));
}

TEST(ReadStream, AFailureOfTheFilePassesThrough) {
  for (const std::string& bytes : {storedPackage("0123456789"), deflatedPackage("0123456789")}) {
    for (const auto failure : {support::Failure::Read, support::Failure::Seek}) {
      // Counts the calls of opening, then fails at the first one of the stream.
      int calls = 0;
      for (const bool fails : {false, true}) {
        support::MemoryFileSystem memory;
        support::FailingFileSystem files(memory, fails ? calls + 1 : 0, {failure});
        memory.put("x", bytes);
        const Package package =
            pkg::QCFPackageFactory().openPackage("x", kIn, &files, nullptr, nullptr);
        const Stream stream = package->getFile("a", true)->open(kIn, false);
        calls = files.calls();
        if (!fails) continue;
        stream->exceptions(std::ios_base::badbit);
        const Raised raised = raisedBy([&] { stream->get(); });
        EXPECT_EQ(50, raised.code);
        EXPECT_TRUE(raised.isIO);
        stream->clear();
        EXPECT_EQ("0123456789", readAll(*stream));  // and the next try succeeds
      }
    }
  }
}

TEST(ReadStream, FlushingDoesNothing) {
  const MemoryPackage package(storedPackage("0123456789"));
  const Stream stream = package.stream("a");
  package.files.forget();
  stream->flush();
  EXPECT_TRUE(package.files.calls().empty());
  EXPECT_EQ("0123456789", readAll(*stream));
}

TEST(ReadStream, ReadsLinesAndWords) {
  const MemoryPackage package(deflatedPackage("one two\nthree\n"));
  const Stream stream = package.stream("a");
  std::string word;
  *stream >> word;
  EXPECT_EQ("one", word);
  std::getline(*stream, word);
  EXPECT_EQ(" two", word);
  std::getline(*stream, word);
  EXPECT_EQ("three", word);
  EXPECT_FALSE(std::getline(*stream, word));
}
