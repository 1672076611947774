#include <algorithm>

#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;

namespace {

// Gives at most so many bytes with each read.
class ShortReads : public support::FileSystemWrapper {
public:
  using FileSystemWrapper::FileSystemWrapper;
  void limit(int most) { fMost = most; }

protected:
  int read(InnerFile& file, void* buffer, int size) override {
    return file.read(buffer, std::min(size, fMost));
  }

private:
  int fMost = 1 << 30;
};

}  // namespace

TEST(Putback, TheLastFourBytesOfATransferCanBePutBackOneByOne) {
  for (const std::string& bytes : {storedPackage("0123456789"), deflatedPackage("0123456789")}) {
    const MemoryPackage package(bytes);
    const Stream stream = package.stream("a");
    EXPECT_EQ("01234567", take(*stream, 8));
    for (int i = 0; i < 4; ++i)
      EXPECT_TRUE(stream->unget()) << i;
    EXPECT_EQ(4, stream->tellg());
    EXPECT_EQ("456789", readAll(*stream));
    stream->clear();
  }
}

TEST(Putback, AFifthByteCannotBePutBack) {
  const MemoryPackage package(storedPackage("0123456789"));
  const Stream stream = package.stream("a");
  take(*stream, 8);
  for (int i = 0; i < 4; ++i)
    stream->unget();
  EXPECT_FALSE(stream->unget());
  EXPECT_TRUE(stream->bad());
}

TEST(Putback, AnotherByteThanTheOneReadCannotBePutBack) {
  const MemoryPackage package(storedPackage("0123456789"));
  const Stream stream = package.stream("a");
  take(*stream, 3);
  EXPECT_FALSE(stream->putback('x'));
  stream->clear();
  EXPECT_TRUE(stream->putback('2'));
}

TEST(Putback, BytesCanBePutBackAfterARunOfShortReads) {
  const std::string data = "0123456789abcdefghij";
  for (int most = 1; most <= 5; ++most) {
    for (std::size_t count = 1; count <= 12; ++count) {
      support::MemoryFileSystem memory;
      ShortReads files(memory);
      memory.put("x", storedPackage(data));
      const Package package =
          pkg::QCFPackageFactory().openPackage("x", kIn, &files, nullptr, nullptr);
      const Stream stream = package->getFile("a", true)->open(kIn, false);
      files.limit(most);  // not before: headers need whole reads
      EXPECT_EQ(data.substr(0, count), take(*stream, count));
      const std::size_t kept = std::min<std::size_t>(4, count);
      for (std::size_t i = 0; i < kept; ++i)
        EXPECT_TRUE(stream->unget()) << most << ' ' << count << ' ' << i;
      EXPECT_EQ(data.substr(count - kept), readAll(*stream)) << most << ' ' << count;
    }
  }
}

TEST(Putback, SingleBytesKeepFourForPuttingBackAcrossARefill) {
  const MemoryPackage package(storedPackage("0123456789"));
  const Stream stream = package.stream("a");
  for (int i = 0; i < 7; ++i)
    stream->get();
  for (int i = 0; i < 5; ++i)  // the one that was read, and four before it
    EXPECT_TRUE(stream->unget()) << i;
  EXPECT_FALSE(stream->unget());
  stream->clear();
  EXPECT_EQ("23456789", readAll(*stream));
}
