#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;
using std::ios_base;
using support::FileCall;

namespace {

constexpr int kEof = std::char_traits<char>::eof();
const std::string kData = pattern(20000);

// How many calls of a kind went to the package's own file.
int onPackage(const support::RecordingFileSystem& files, FileCall kind) {
  int count = 0;
  for (const auto& call : files.calls())
    count += call.kind == kind && call.name == "a.pkg" ? 1 : 0;
  return count;
}

}  // namespace

TEST(Seek, InAStoredEntryIsFreeAndInPlace) {
  const MemoryPackage package(storedPackage(kData));
  const Stream stream = package.stream("a");
  package.files.forget();
  stream->seekg(15000);
  stream->seekg(-1000, ios_base::cur);
  stream->seekg(-10, ios_base::end);
  EXPECT_TRUE(package.files.calls().empty());
  EXPECT_EQ(kData.substr(kData.size() - 10), readAll(*stream));
  EXPECT_EQ(0, package.files.count(FileCall::CreateTemp));
}

TEST(Seek, InADeflatedEntryMakesExactlyOneTemporaryCopy) {
  const MemoryPackage package(deflatedPackage(kData));
  const Stream stream = package.stream("a");
  EXPECT_EQ(kData.substr(0, 100), take(*stream, 100));
  EXPECT_EQ(0, package.files.count(FileCall::CreateTemp));
  stream->seekg(12345);
  EXPECT_EQ(1, package.files.count(FileCall::CreateTemp));
  EXPECT_EQ(20000, package.files.total(FileCall::Write));
  EXPECT_EQ(kData.substr(12345, 50), take(*stream, 50));
  package.files.forget();
  for (const long long position : {0, 19999, 1, 10000, 12345}) {
    stream->seekg(position);
    EXPECT_EQ(kData.substr(static_cast<std::size_t>(position), 20), take(*stream, 20));
    stream->clear();
  }
  EXPECT_EQ(0, package.files.count(FileCall::CreateTemp));
  EXPECT_EQ(0, package.files.count(FileCall::Write));
  EXPECT_EQ(0, onPackage(package.files, FileCall::Read));
}

TEST(Seek, FrontToBackReadingOfADeflatedEntryMakesNoCopy) {
  const MemoryPackage package(deflatedPackage(kData));
  EXPECT_EQ(kData, contents(package, "a"));
  EXPECT_EQ(0, package.files.count(FileCall::CreateTemp));
}

TEST(Seek, AskingForThePositionCostsNothing) {
  const MemoryPackage package(deflatedPackage(kData));
  const Stream stream = package.stream("a");
  package.files.forget();
  EXPECT_EQ(0, stream->tellg());
  EXPECT_TRUE(package.files.calls().empty());
  stream->get();
  EXPECT_EQ(1, stream->tellg());
  EXPECT_EQ(0, package.files.count(FileCall::CreateTemp));
}

TEST(Seek, ToTheEndOfADeflatedEntryMakesTheCopyEvenWhereItStandsThere) {
  const MemoryPackage package(deflatedPackage(kData));
  const Stream stream = package.stream("a");
  EXPECT_EQ(kData, take(*stream, kData.size()));
  EXPECT_EQ(20000, stream->tellg());
  EXPECT_EQ(0, package.files.count(FileCall::CreateTemp));
  stream->seekg(0, ios_base::end);
  EXPECT_EQ(1, package.files.count(FileCall::CreateTemp));
  EXPECT_EQ(20000, stream->tellg());
}

TEST(Seek, ToTheCurrentPositionMakesNoCopyAndKeepsTheGetArea) {
  const MemoryPackage package(deflatedPackage(kData));
  const Stream stream = package.stream("a");
  take(*stream, 100);
  stream->get();
  package.files.forget();
  stream->seekg(101);                 // by position
  stream->seekg(101, ios_base::beg);  // by offset
  stream->seekg(0, ios_base::cur);
  EXPECT_TRUE(package.files.calls().empty());
  EXPECT_TRUE(stream->unget());  // what was kept is still there
  EXPECT_EQ(kData[100], static_cast<char>(stream->get()));
  EXPECT_EQ(kData[101], static_cast<char>(stream->get()));
}

TEST(Seek, AMoveThatComesBackToWhereItStandsKeepsTheGetArea) {
  const MemoryPackage package(deflatedPackage(kData));
  const Stream stream = package.stream("a");
  take(*stream, 100);
  stream->get();
  stream->seekg(-static_cast<long long>(kData.size()) + 101, ios_base::end);
  EXPECT_EQ(1, package.files.count(FileCall::CreateTemp));
  EXPECT_TRUE(stream->unget());
  EXPECT_EQ(kData.substr(100), readAll(*stream));
}

TEST(Seek, NothingCanBePutBackAfterIt) {
  const MemoryPackage package(storedPackage(kData));
  const Stream stream = package.stream("a");
  take(*stream, 100);
  stream->seekg(50);
  EXPECT_FALSE(stream->unget());
  stream->clear();
  EXPECT_EQ(kData[50], static_cast<char>(stream->get()));
  EXPECT_TRUE(stream->unget());
}

TEST(Seek, BeyondTheEndIsAcceptedAndBackAgainFindsTheData) {
  for (const std::string& bytes : {storedPackage(kData), deflatedPackage(kData)}) {
    const MemoryPackage package(bytes);
    const Stream stream = package.stream("a");
    stream->seekg(1000000);
    EXPECT_TRUE(stream->good());
    EXPECT_EQ(1000000, stream->tellg());
    EXPECT_EQ(kEof, stream->get());
    stream->clear();
    stream->seekg(5, ios_base::end);
    EXPECT_EQ("", take(*stream, 10));
    stream->clear();
    stream->seekg(19990);
    EXPECT_EQ(kData.substr(19990), readAll(*stream));
  }
}

TEST(Seek, BeforeTheStartIsAcceptedToo) {
  const MemoryPackage package(storedPackage(kData));
  const Stream stream = package.stream("a");
  EXPECT_EQ(std::streampos(-5), stream->rdbuf()->pubseekoff(-5, ios_base::beg, kIn));
  EXPECT_EQ(-5, static_cast<long long>(stream->rdbuf()->pubseekoff(0, ios_base::cur, kIn)));
  EXPECT_EQ(10, static_cast<long long>(stream->rdbuf()->pubseekoff(15, ios_base::cur, kIn)));
  EXPECT_EQ(kData.substr(10, 5), take(*stream, 5));
}

TEST(Seek, BeforeTheStartAReadGivesTheBytesInFrontOfTheStoredData) {
  const MemoryPackage package(storedPackage(kData));
  const Stream stream = package.stream("a");
  stream->rdbuf()->pubseekoff(-5, ios_base::beg, kIn);
  // The lengths of name and extra field, the name, then the data.
  EXPECT_EQ(std::string("\1\0\0\0a", 5) + kData.substr(0, 3), take(*stream, 8));
  stream->rdbuf()->pubseekoff(-40, ios_base::beg, kIn);  // and of the file
  EXPECT_EQ("", take(*stream, 5));
  EXPECT_TRUE(stream->bad());
}

TEST(Seek, BeforeTheStartOfADeflatedEntryThereIsNothing) {
  const MemoryPackage package(deflatedPackage(kData));
  const Stream stream = package.stream("a");
  stream->rdbuf()->pubseekoff(-5, ios_base::beg, kIn);
  EXPECT_EQ("", take(*stream, 5));
  EXPECT_TRUE(stream->bad());
}

TEST(Seek, ByEnormousOffsetsStaysDefined) {
  constexpr long long kMost = std::numeric_limits<long long>::max();
  const MemoryPackage package(storedPackage(kData));
  const Stream stream = package.stream("a");
  for (const long long offset : {kMost, -kMost, kMost - 1, -kMost + 1}) {
    stream->rdbuf()->pubseekoff(offset, ios_base::beg, kIn);
    stream->rdbuf()->pubseekoff(offset, ios_base::cur, kIn);
    stream->rdbuf()->pubseekoff(offset, ios_base::end, kIn);
    stream->get();
    stream->clear();
  }
  stream->seekg(100);
  EXPECT_EQ(kData.substr(100, 5), take(*stream, 5));
}

TEST(Seek, AnUnknownOriginRaises22AndChangesNothing) {
  const MemoryPackage package(deflatedPackage(kData));
  const Stream stream = package.stream("a");
  take(*stream, 10);
  const auto origin = static_cast<ios_base::seekdir>(7);
  const Raised raised = raisedBy([&] { stream->rdbuf()->pubseekoff(1, origin, kIn); });
  EXPECT_EQ(22, raised.code);
  EXPECT_FALSE(raised.isIO);
  EXPECT_EQ(0, package.files.count(FileCall::CreateTemp));
  EXPECT_EQ(kData.substr(10), readAll(*stream));
}

TEST(Seek, WhichAreaIsMeantMakesNoDifference) {
  const MemoryPackage package(storedPackage(kData));
  const Stream stream = package.stream("a");
  EXPECT_EQ(7, static_cast<long long>(stream->rdbuf()->pubseekoff(7, ios_base::beg, kOut)));
  EXPECT_EQ(9, static_cast<long long>(stream->rdbuf()->pubseekpos(9, kOut)));
  EXPECT_EQ(kData.substr(9, 5), take(*stream, 5));
}

TEST(Seek, AnywhereGivesTheBytesThatStandThere) {
  std::mt19937 random(1);
  for (const std::string& bytes : {storedPackage(kData), deflatedPackage(kData)}) {
    const MemoryPackage package(bytes);
    const Stream stream = package.stream("a");
    for (int i = 0; i < 2000; ++i) {
      const auto at = static_cast<long long>(random() % (kData.size() + 100));
      const long long here = stream->tellg();
      switch (random() % 4) {
        case 0:
          stream->seekg(at);
          break;
        case 1:
          stream->seekg(at, ios_base::beg);
          break;
        case 2:
          stream->seekg(at - here, ios_base::cur);
          break;
        default:
          stream->seekg(at - static_cast<long long>(kData.size()), ios_base::end);
      }
      ASSERT_EQ(at, stream->tellg());
      const std::size_t from = std::min(static_cast<std::size_t>(at), kData.size());
      const std::size_t count = random() % 30;
      ASSERT_EQ(kData.substr(from, count), take(*stream, count));
      stream->clear();
      if (random() % 2 != 0 && from + count < kData.size()) {
        ASSERT_EQ(kData[from + count], static_cast<char>(stream->get()));
      }
    }
    EXPECT_LE(package.files.count(FileCall::CreateTemp), 1);
  }
}

TEST(Seek, ARawStreamNeverBeginsInTheCopy) {
  const MemoryPackage package(deflatedPackage(kData));
  package.stream("a")->seekg(100);
  EXPECT_EQ(deflated(kData), readAll(*package.stream("a", true)));
}

TEST(Seek, ARawStreamOfADeflatedEntryThatMovesGivesInflatedBytes) {
  const MemoryPackage package(deflatedPackage(kData));
  const Stream stream = package.stream("a", true);
  take(*stream, 10);
  stream->seekg(500);
  EXPECT_EQ(1, package.files.count(FileCall::CreateTemp));
  EXPECT_EQ(kData.substr(500), readAll(*stream));
}

TEST(Seek, ARawStreamOfAStoredEntryMovesInPlace) {
  const MemoryPackage package(storedPackage(kData));
  const Stream stream = package.stream("a", true);
  stream->seekg(-20, ios_base::end);
  EXPECT_EQ(kData.substr(kData.size() - 20), readAll(*stream));
  EXPECT_EQ(0, package.files.count(FileCall::CreateTemp));
}

TEST(Seek, ARealOneOnADeflatedStreamThatWritesTheOutputRaises23) {
  const MemoryPackage package("", nullptr, kIn | kOut | kTrunc);
  package->beginUpdate();
  const File file = package->getFile("a", false);
  const Stream stream = file->open(kOut, false);
  stream->exceptions(ios_base::badbit);
  *stream << kData;
  EXPECT_EQ(20000, stream->tellp());
  EXPECT_NO_THROW(stream->seekp(20000));
  const Raised raised = raisedBy([&] { stream->seekp(5); });
  EXPECT_EQ(23, raised.code);
  EXPECT_FALSE(raised.isIO);
  stream->clear();
  *stream << "more";
  stream->close();
  package->endUpdate();
  EXPECT_EQ(kData + "more", contents(package, "a"));
}
