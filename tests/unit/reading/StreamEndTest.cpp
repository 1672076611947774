#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;

namespace {

constexpr int kEof = std::char_traits<char>::eof();

}  // namespace

TEST(StreamEnd, AReadAfterCloseFailsAndTouchesNoFile) {
  for (const std::string& bytes : {storedPackage("0123456789"), deflatedPackage("0123456789")}) {
    const MemoryPackage package(bytes);
    const Stream stream = package.stream("a");
    take(*stream, 3);
    stream->close();
    package.files.forget();
    EXPECT_FALSE(stream->good());
    EXPECT_EQ(kEof, stream->get());
    stream->clear();
    EXPECT_EQ("", take(*stream, 10));
    stream->seekg(0);
    EXPECT_EQ(std::streampos(-1), stream->tellg());
    EXPECT_TRUE(package.files.calls().empty());
  }
}

TEST(StreamEnd, ClosingTwiceDoesNothingTheSecondTime) {
  const MemoryPackage package(deflatedPackage("0123456789"));
  const Stream stream = package.stream("a");
  stream->get();
  stream->close();
  package.files.forget();
  EXPECT_NO_THROW(stream->close());
  EXPECT_TRUE(package.files.calls().empty());
}

TEST(StreamEnd, AStreamAbandonedInTheMiddleClosesWithoutAnError) {
  const MemoryPackage package(deflatedPackage(pattern(10000)));
  const Stream stream = package.stream("a");
  take(*stream, 100);
  EXPECT_NO_THROW(stream->close());
}

TEST(StreamEnd, AStreamThatFailedClosesWithoutAnError) {
  const MemoryPackage package(packageOfDeflated("\xFF\xFF\xFF\xFF", 10));
  const Stream stream = package.stream("a");
  stream->get();
  EXPECT_NO_THROW(stream->close());
}

TEST(StreamEnd, AStreamHeldPastTheClosingOfThePackageIsClosed) {
  Stream stored;
  Stream inflating;
  Stream inTemp;
  {
    zipbytes::File file;
    addStored(file, "a", "0123456789");
    addDeflated(file, "b", "0123456789");
    addDeflated(file, "c", "0123456789");
    const MemoryPackage package(file.bytes());
    stored = package.stream("a");
    inflating = package.stream("b");
    inTemp = package.stream("c");
    inflating->get();
    inTemp->seekg(5);
    package->closeWithoutSave();
    EXPECT_EQ(0, package.memory.temporaryFiles());
    for (const Stream& stream : {stored, inflating, inTemp}) {
      EXPECT_FALSE(stream->good());
      EXPECT_EQ(kEof, stream->get());
      EXPECT_NO_THROW(stream->close());
    }
  }
}

TEST(StreamEnd, AStreamHeldPastThePackageItselfIsCutOff) {
  Stream stream;
  {
    const MemoryPackage package(deflatedPackage("0123456789"));
    stream = package.stream("a");
    stream->get();
  }
  EXPECT_EQ(kEof, stream->get());
  EXPECT_EQ(nullptr, stream->getFile());
  EXPECT_NO_THROW(stream->close());
}
