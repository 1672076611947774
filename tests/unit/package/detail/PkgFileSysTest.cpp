#include <cerrno>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "package/detail/PkgFileSys.h"

#include "support/Raised.h"
#include "support/TempDir.h"

// What is particular to files of the C library. Behaviour that every file system shares is in
// FileSystemConformanceTest.

namespace {

using std::ios_base;
using support::ioError;
using support::nothing;
using support::raised;
using support::TempDir;
using File = boost::shared_ptr<pkg::IPkgFSFile<>>;

constexpr ios_base::openmode kIn = ios_base::in;
constexpr ios_base::openmode kOut = ios_base::out;

pkg::IPkgFileSystem<>& system() {
  return *pkg::BasePkgFileSystem<>::getInstance();
}

File open(const std::string& path, ios_base::openmode mode) {
  return system().openFile(system().getFSFileName(path), mode);
}

template <class Operation>
std::string textOf(Operation operation) {
  try {
    operation();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "nothing";
}

TEST(BasePkgFSFile, AFullDeviceShowsAtTheFlushWithTheSystemsText) {
  const File file = open("/dev/full", kOut);
  file->write("x", 1);  // into the buffer
  EXPECT_EQ(raised([&] { file->flush(); }), ioError(50));
  const File other = open("/dev/full", kOut);
  other->write("x", 1);
  EXPECT_EQ(textOf([&] { other->flush(); }), std::strerror(ENOSPC));
}

TEST(BasePkgFSFile, AFullDeviceShowsAtTheSeekThatLeavesTheBuffer) {
  for (const long long position : {0, 1, 10, 100000}) {
    const File file = open("/dev/full", kOut);
    file->write("abc", 3);
    EXPECT_EQ(textOf([&] { file->seek(position, SEEK_SET); }), std::strerror(ENOSPC)) << position;
  }
}

TEST(BasePkgFSFile, AWriteLargerThanTheBufferFailsAtOnceWith50) {
  const File file = open("/dev/full", kOut);
  const std::string bytes(1 << 20, 'x');
  EXPECT_EQ(raised([&] { file->write(bytes.data(), static_cast<int>(bytes.size())); }),
            ioError(50));
}

TEST(BasePkgFSFile, AFailedCloseRaises50AndTheFileGoesQuietly) {
  EXPECT_EQ(raised([] {
              const File file = open("/dev/full", kOut);
              file->write("x", 1);
              EXPECT_EQ(raised([&] { file->close(); }), ioError(50));
            }),
            nothing());
}

TEST(BasePkgFSFile, AFileThatCannotBeClosedDisappearsSilently) {
  EXPECT_EQ(raised([] { open("/dev/full", kOut)->write("x", 1); }), nothing());
}

TEST(BasePkgFSFile, EveryFailureOfTheSystemHasCode50) {
  const TempDir folder;
  const std::string path = folder.write("file", "bytes");
  char byte;
  const File reader = open(path, kIn);
  EXPECT_EQ(raised([&] { open((folder / "missing").string(), kIn); }), ioError(50));
  EXPECT_EQ(raised([&] { open(folder.path().string(), kOut); }), ioError(50));
  EXPECT_EQ(raised([&] { open(folder.path().string(), kIn)->read(&byte, 1); }), ioError(50));
  EXPECT_EQ(raised([&] { reader->write("x", 1); }), ioError(50));
  EXPECT_EQ(raised([&] { reader->seek(-1, SEEK_SET); }), ioError(50));
  EXPECT_EQ(raised([&] { reader->seek(0, 99); }), ioError(50));
  EXPECT_EQ(raised([&] { reader->truncate(0); }), ioError(50));
}

TEST(BasePkgFSFile, AReadThatGetsSomethingReturnsItEvenWhereAnErrorIsNoted) {
  const TempDir folder;
  const File file = open(folder.write("file", "bytes"), kIn);
  EXPECT_EQ(raised([&] { file->write("x", 1); }), ioError(50));
  char bytes[10];
  EXPECT_EQ(file->read(bytes, 10), 5);
  EXPECT_EQ(raised([&] { file->read(bytes, 10); }), ioError(50)) << "nothing, for an error";
}

TEST(BasePkgFSFile, ReadingAFolderRaisesTheSystemsText) {
  const TempDir folder;
  char byte;
  EXPECT_EQ(textOf([&] { open(folder.path().string(), kIn)->read(&byte, 1); }),
            std::strerror(EISDIR));
}

TEST(BasePkgFSFile, APipeClaimsToSeekAndFailsWhenItIsTried) {
  const TempDir folder;
  const std::string path = (folder / "pipe").string();
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const File file = open(path, kIn | kOut);  // for both, so that opening does not wait
  EXPECT_EQ(file->getCapabilities(), 31u);
  EXPECT_TRUE(file->isSeekable());
  EXPECT_EQ(raised([&] { file->seek(0, SEEK_SET); }), ioError(50));
  EXPECT_EQ(raised([&] { file->tell(); }), ioError(50));
  EXPECT_EQ(textOf([&] { file->seek(0, SEEK_SET); }), std::strerror(ESPIPE));
}

TEST(BasePkgFSFile, TruncateDoesNotFlushFirst) {
  const TempDir folder;
  const std::string path = folder.write("file", "0123456789");
  const File file = open(path, kIn | kOut);
  file->write("AB", 2);
  file->truncate(0);  // before the buffered bytes arrive
  EXPECT_EQ(folder.read("file"), "");
  file->close();
  EXPECT_EQ(folder.read("file"), "AB");
}

TEST(BasePkgFSFile, ASeekToWhereTheFileStandsLetsReadingTurnToWritingAndBack) {
  const TempDir folder;
  const File file = open(folder.write("file", "0123456789"), kIn | kOut);
  char byte = 0;
  file->read(&byte, 1);
  file->seek(1, SEEK_SET);
  file->write("AB", 2);
  file->seek(3, SEEK_SET);
  EXPECT_EQ(file->read(&byte, 1), 1);
  EXPECT_EQ(byte, '3');
  file->close();
  EXPECT_EQ(folder.read("file"), "0AB3456789");
}

TEST(BasePkgFSFile, ASeekToTheEndThatWasMetSeesWhatOthersHaveAddedSince) {
  const TempDir folder;
  const File file = open(folder.write("file", "0123"), kIn);
  char bytes[10];
  EXPECT_EQ(file->read(bytes, 10), 4);
  folder.write("file", "0123456");
  file->seek(4, SEEK_SET);
  EXPECT_EQ(file->read(bytes, 10), 3);
}

TEST(BasePkgFSFile, AnyMixOfSeeksReadsAndWritesFindsAndLeavesTheRightBytes) {
  const TempDir folder;
  std::string model(100000, 'x');
  const File file = open(folder.write("file", model), kIn | kOut);
  std::mt19937 numbers(1);
  std::size_t at = 0;
  for (int i = 0; i < 20000; ++i) {
    const std::size_t count = numbers() % 8 == 0 ? numbers() % 40000 : numbers() % 40;
    const std::size_t far = numbers() % 3 == 0 ? 0 : numbers() % 40000;
    switch (at > 40000 ? 1 : numbers() % 4) {
      case 0:
        file->seek(static_cast<long long>(at), SEEK_SET);
        break;
      case 1:
        at = far;
        file->seek(static_cast<long long>(at), SEEK_SET);
        break;
      case 2:
        file->seek(static_cast<long long>(far) - static_cast<long long>(at), SEEK_CUR);
        at = far;
        break;
      default:
        file->seek(static_cast<long long>(far) - static_cast<long long>(model.size()), SEEK_END);
        at = far;
        break;
    }
    ASSERT_EQ(file->tell(), static_cast<long long>(at));
    std::string bytes(count, static_cast<char>('a' + i % 26));
    if (numbers() % 2 == 0) {
      ASSERT_EQ(file->read(bytes.data(), static_cast<int>(count)), static_cast<int>(count));
      ASSERT_EQ(bytes, model.substr(at, count)) << "step " << i;
    } else {
      file->write(bytes.data(), static_cast<int>(count));
      model.replace(at, count, bytes);
    }
    at += count;
  }
  file->close();
  EXPECT_EQ(folder.read("file"), model);
}

TEST(BasePkgFSFile, FilesBeyondFourGiBAreReadAndWritten) {
  const TempDir folder;
  const std::string path = (folder / "large").string();
  const long long far = (5LL << 30) + 7;
  {
    const File file = open(path, kIn | kOut | ios_base::trunc);
    file->seek(far, SEEK_SET);
    file->write("end", 3);
    EXPECT_EQ(file->tell(), far + 3);
    file->seek(-3, SEEK_END);
    EXPECT_EQ(file->tell(), far);
    char bytes[4] = {};
    EXPECT_EQ(file->read(bytes, 4), 3);
    EXPECT_STREQ(bytes, "end");
    file->truncate(far);
    file->seek(0, SEEK_END);
    EXPECT_EQ(file->tell(), far);
  }
  EXPECT_EQ(static_cast<long long>(std::filesystem::file_size(path)), far);
}

TEST(BasePkgFileSystem, ANameIsHandedToTheSystemAsItIs) {
  const TempDir folder;
  const std::string path = (folder / "na\xC3\xAFve \xFF name").string();
  open(path, kOut)->write("x", 1);
  EXPECT_EQ(std::filesystem::file_size(path), 1u);
  EXPECT_EQ(open(path, kIn)->getName()->getName(), path);
}

TEST(BasePkgFileSystem, AFailedOpenLetsGoOfTheName) {
  const auto name = system().getFSFileName("/no such folder/file");
  EXPECT_EQ(raised([&] { system().openFile(name, kIn); }), ioError(50));
  EXPECT_EQ(raised([&] { system().openFile(name, ios_base::app); }), ioError(23));
  EXPECT_EQ(name.use_count(), 1);
}

TEST(BasePkgFileSystem, AFailedOpenLeavesNoDescriptorOpen) {
  const int before = ::dup(0);
  ::close(before);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(raised([&] { open("/no such folder/file", kOut); }), ioError(50));
    EXPECT_EQ(raised([&] { open("/dev/null", kIn | ios_base::app); }), ioError(23));
  }
  const int after = ::dup(0);
  ::close(after);
  EXPECT_EQ(before, after);
}

TEST(BasePkgFileSystem, AFileThatCannotBeReachedRaisesTheSystemsText) {
  const TempDir folder;
  const std::string loop = (folder / "loop").string();
  ASSERT_EQ(::symlink("loop", loop.c_str()), 0);
  EXPECT_EQ(textOf([&] { open(loop, kIn); }), std::strerror(ELOOP));
  EXPECT_EQ(textOf([&] { open(folder.write("file", "") + "/file", kOut); }),
            std::strerror(ENOTDIR));
}

// Only bit 2 of the capabilities says whether a file seeks.
class Capable : public pkg::IPkgFSFileCommon {
public:
  explicit Capable(std::uint32_t capabilities) : fCapabilities(capabilities) {}
  ios_base::openmode getMode() const override { return {}; }
  void close() override {}
  int read(void*, int) override { return 0; }
  void write(const void*, int) override {}
  void seek(long long, int) override {}
  long long tell() override { return 0; }
  void flush() override {}
  void truncate(long long) override {}
  std::uint32_t getCapabilities() override { return fCapabilities; }

private:
  std::uint32_t fCapabilities;
};

TEST(IPkgFSFileCommon, BitTwoOfTheCapabilitiesSaysWhetherAFileSeeks) {
  EXPECT_TRUE(Capable(4).isSeekable());
  EXPECT_TRUE(Capable(0xFFFFFFFF).isSeekable());
  EXPECT_FALSE(Capable(0).isSeekable());
  EXPECT_FALSE(Capable(0xFFFFFFFB).isSeekable());
  EXPECT_FALSE(Capable(2).isSeekable());
}

}  // namespace
