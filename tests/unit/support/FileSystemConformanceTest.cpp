#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "package/detail/PkgFileSys.h"

#include "support/FileSystems.h"
#include "support/TempDir.h"

// What the library may rely on in any file system, tried on the built-in one and on those of the
// tests.

namespace {

using std::ios_base;
using support::TempDir;
using File = boost::shared_ptr<pkg::IPkgFSFile<>>;

constexpr ios_base::openmode kIn = ios_base::in;
constexpr ios_base::openmode kOut = ios_base::out;
constexpr ios_base::openmode kTrunc = ios_base::trunc;

// One file system, and where in it files may be made.
class Subject {
public:
  virtual ~Subject() = default;
  virtual pkg::IPkgFileSystem<>& fileSystem() = 0;
  virtual std::string path(const std::string& name) = 0;
  // The bytes that stand in a file, seen past the file system.
  virtual std::string bytes(const std::string& name) = 0;
  virtual bool exists(const std::string& name) = 0;
};

class BuiltInSubject : public Subject {
public:
  pkg::IPkgFileSystem<>& fileSystem() override { return fSystem; }
  std::string path(const std::string& name) override { return (fDirectory / name).string(); }
  std::string bytes(const std::string& name) override { return fDirectory.read(name); }
  bool exists(const std::string& name) override {
    return std::filesystem::exists(fDirectory / name);
  }

private:
  // An instance of its own, whose temporary files go to a folder of this test.
  class OwnFileSystem : public pkg::BasePkgFileSystem<> {};
  struct CacheFolder {
    explicit CacheFolder(const TempDir& directory) {
      ::setenv("XDG_CACHE_HOME", directory.path().c_str(), 1);
    }
    ~CacheFolder() { ::unsetenv("XDG_CACHE_HOME"); }
  };

  TempDir fDirectory;
  CacheFolder fCacheFolder{fDirectory};
  OwnFileSystem fSystem;
};

class MemorySubject : public Subject {
public:
  pkg::IPkgFileSystem<>& fileSystem() override { return fSystem; }
  std::string path(const std::string& name) override { return name; }
  std::string bytes(const std::string& name) override { return fSystem.bytes(name); }
  bool exists(const std::string& name) override { return fSystem.exists(name); }

private:
  support::MemoryFileSystem fSystem;
};

// A wrapper that does nothing of its own must not show.
template <class Wrapper>
class WrappedSubject : public MemorySubject {
public:
  pkg::IPkgFileSystem<>& fileSystem() override { return fWrapper; }

private:
  Wrapper fWrapper{MemorySubject::fileSystem()};
};

class NeverFailing : public support::FailingFileSystem {
public:
  explicit NeverFailing(pkg::IPkgFileSystem<>& inner) : FailingFileSystem(inner, 0) {}
};

struct SubjectKind {
  const char* name;
  std::function<std::unique_ptr<Subject>()> make;
};

template <class Kind>
SubjectKind subjectKind(const char* name) {
  return {name, [] { return std::make_unique<Kind>(); }};
}

class FileSystem : public testing::TestWithParam<SubjectKind> {
protected:
  pkg::IPkgFileSystem<>& fileSystem() { return fSubject->fileSystem(); }
  File open(const std::string& name, ios_base::openmode mode) {
    return fileSystem().openFile(fileSystem().getFSFileName(fSubject->path(name)), mode);
  }
  void put(const std::string& name, const std::string& bytes) {
    const File file = open(name, kOut);
    file->write(bytes.data(), static_cast<int>(bytes.size()));
    file->close();
  }
  static std::string readUpTo(const File& file, int size) {
    std::string bytes(static_cast<std::size_t>(size), '?');
    bytes.resize(static_cast<std::size_t>(file->read(bytes.data(), size)));
    return bytes;
  }
  // The code that an operation raises as PackageIOException; -1 where it raises none.
  static int codeOf(const std::function<void()>& operation, std::string* text = nullptr) {
    try {
      operation();
    } catch (pkg::PackageIOException<>& e) {
      if (text != nullptr) *text = e.what();
      return e.getErrorCode();
    }
    return -1;
  }

  std::unique_ptr<Subject> fSubject = GetParam().make();
};

TEST_P(FileSystem, AMissingFileOpensForNeitherReadingNorChanging) {
  for (const auto mode : {kIn, kIn | kOut}) {
    std::string text;
    EXPECT_EQ(codeOf([&] { open("missing", mode); }, &text), 50);
    EXPECT_EQ(text, std::strerror(ENOENT));
  }
  EXPECT_FALSE(fSubject->exists("missing"));
}

TEST_P(FileSystem, ModesThatEmptyAFileAlsoCreateIt) {
  for (const auto mode : {kOut, kOut | kTrunc, kIn | kOut | kTrunc}) {
    open("created", mode)->close();
    EXPECT_EQ(fSubject->bytes("created"), "");
    put("old", "old bytes");
    open("old", mode)->close();
    EXPECT_EQ(fSubject->bytes("old"), "");
  }
}

TEST_P(FileSystem, ReadingAndChangingKeepWhatIsThere) {
  put("kept", "0123456789");
  EXPECT_EQ(readUpTo(open("kept", kIn), 10), "0123456789");
  const File file = open("kept", kIn | kOut);
  file->write("AB", 2);
  file->close();
  EXPECT_EQ(fSubject->bytes("kept"), "AB23456789");
}

TEST_P(FileSystem, AnIllegalModeRaises23AndCreatesNoFile) {
  const ios_base::openmode illegal[] = {ios_base::openmode(),
                                        kTrunc,
                                        kIn | kTrunc,
                                        ios_base::app,
                                        kIn | ios_base::app,
                                        kOut | ios_base::app,
                                        kIn | kOut | kTrunc | ios_base::app};
  for (const auto mode : illegal) {
    std::string text;
    EXPECT_EQ(codeOf([&] { open("illegal", mode); }, &text), 23);
    EXPECT_EQ(text, "PKGLIB SAMPLE ERROR MESSAGE: Client Error Unsupported Operation");
  }
  EXPECT_FALSE(fSubject->exists("illegal"));
}

TEST_P(FileSystem, AnIllegalModeLeavesAnExistingFileAlone) {
  put("precious", "precious");
  EXPECT_EQ(codeOf([&] { open("precious", kOut | ios_base::app); }), 23);
  EXPECT_EQ(fSubject->bytes("precious"), "precious");
}

TEST_P(FileSystem, AteAndBinaryShowInTheModeAndChangeNothingElse) {
  put("file", "0123456789");
  const auto mode = kIn | ios_base::binary | ios_base::ate;
  const File file = open("file", mode);
  EXPECT_EQ(file->getMode(), mode);
  EXPECT_EQ(file->tell(), 0);
  EXPECT_EQ(readUpTo(file, 4), "0123");
  const File changed = open("file", kIn | kOut | ios_base::ate);
  EXPECT_EQ(changed->tell(), 0);
}

TEST_P(FileSystem, BytesGoThroughUnconverted) {
  const std::string every("\r\n\x1A\0\n\r\xFF\x80", 8);
  put("binary", every);
  EXPECT_EQ(fSubject->bytes("binary"), every);
  EXPECT_EQ(readUpTo(open("binary", kIn), 100), every);
}

TEST_P(FileSystem, AReadAcrossTheEndIsShortAndAReadAtTheEndIsZero) {
  put("file", "0123456789");
  const File file = open("file", kIn);
  file->seek(7, SEEK_SET);
  EXPECT_EQ(readUpTo(file, 10), "789");
  EXPECT_EQ(readUpTo(file, 10), "");
  EXPECT_EQ(readUpTo(file, 10), "");
}

TEST_P(FileSystem, AnEmptyFileReadsAsNothing) {
  put("empty", "");
  const File file = open("empty", kIn);
  EXPECT_EQ(readUpTo(file, 1), "");
  file->seek(0, SEEK_END);
  EXPECT_EQ(file->tell(), 0);
}

TEST_P(FileSystem, ATransferOfNothingMovesNothing) {
  put("file", "0123");
  const File file = open("file", kIn | kOut);
  file->seek(2, SEEK_SET);
  EXPECT_EQ(file->read(nullptr, 0), 0);
  file->seek(2, SEEK_SET);
  file->write("", 0);
  EXPECT_EQ(file->tell(), 2);
  file->close();
  EXPECT_EQ(fSubject->bytes("file"), "0123");
}

TEST_P(FileSystem, SeekCountsFromTheStartFromThePositionAndFromTheEnd) {
  put("file", "0123456789");
  const File file = open("file", kIn);
  file->seek(4, SEEK_SET);
  EXPECT_EQ(file->tell(), 4);
  file->seek(-2, SEEK_CUR);
  EXPECT_EQ(readUpTo(file, 1), "2");
  file->seek(-3, SEEK_END);
  EXPECT_EQ(readUpTo(file, 3), "789");
}

TEST_P(FileSystem, ASeekBeforeTheStartRaises50AndMovesNothing) {
  put("file", "0123456789");
  const File file = open("file", kIn);
  file->seek(4, SEEK_SET);
  EXPECT_EQ(codeOf([&] { file->seek(-1, SEEK_SET); }), 50);
  EXPECT_EQ(codeOf([&] { file->seek(-5, SEEK_CUR); }), 50);
  EXPECT_EQ(codeOf([&] { file->seek(-11, SEEK_END); }), 50);
  EXPECT_EQ(file->tell(), 4);
}

TEST_P(FileSystem, PositionsBeyondTheEndAreLegalEvenAboveFourGiB) {
  put("file", "0123456789");
  const File file = open("file", kIn);
  const long long far = 5LL << 30;
  file->seek(far, SEEK_SET);
  EXPECT_EQ(file->tell(), far);
  EXPECT_EQ(readUpTo(file, 4), "");
}

TEST_P(FileSystem, WritingBeyondTheEndFillsTheGapWithZeros) {
  put("file", "01");
  const File file = open("file", kIn | kOut);
  file->seek(4, SEEK_SET);
  file->write("45", 2);
  file->close();
  EXPECT_EQ(fSubject->bytes("file"), std::string("01\0\0"
                                                 "45",
                                                 6));
}

TEST_P(FileSystem, OverwritingInTheMiddleKeepsTheRest) {
  put("file", "0123456789");
  const File file = open("file", kIn | kOut);
  EXPECT_EQ(readUpTo(file, 2), "01");
  file->seek(4, SEEK_SET);
  file->write("xyz", 3);
  EXPECT_EQ(file->tell(), 7);
  file->seek(0, SEEK_SET);
  EXPECT_EQ(readUpTo(file, 20), "0123xyz789");
}

TEST_P(FileSystem, TruncateCutsAndExtendsAndMovesNothing) {
  put("file", "0123456789");
  const File file = open("file", kIn | kOut);
  file->seek(8, SEEK_SET);
  file->truncate(4);
  EXPECT_EQ(file->tell(), 8);
  file->close();
  EXPECT_EQ(fSubject->bytes("file"), "0123");
  const File again = open("file", kIn | kOut);
  again->truncate(6);
  again->close();
  EXPECT_EQ(fSubject->bytes("file"), std::string("0123\0\0", 6));
}

TEST_P(FileSystem, TruncateOfWhatCannotBeCutRaises50) {
  put("file", "0123456789");
  const File reader = open("file", kIn);
  EXPECT_EQ(codeOf([&] { reader->truncate(0); }), 50);
  const File writer = open("file", kIn | kOut);
  EXPECT_EQ(codeOf([&] { writer->truncate(-1); }), 50);
  EXPECT_EQ(fSubject->bytes("file"), "0123456789");
}

TEST_P(FileSystem, WritingToAFileOpenForReadingRaises50Not29) {
  put("file", "0123456789");
  const File file = open("file", kIn);
  std::string text;
  EXPECT_EQ(codeOf([&] { file->write("x", 1); }, &text), 50);
  EXPECT_EQ(text, std::strerror(EBADF));
  EXPECT_EQ(fSubject->bytes("file"), "0123456789");
}

TEST_P(FileSystem, ReadingFromAFileOpenForWritingRaises50) {
  const File file = open("file", kOut);
  char byte = 0;
  std::string text;
  EXPECT_EQ(codeOf([&] { file->read(&byte, 1); }, &text), 50);
  EXPECT_EQ(text, std::strerror(EBADF));
}

TEST_P(FileSystem, WhatIsFlushedAnotherHandleSees) {
  const File writer = open("file", kOut);
  writer->write("flushed", 7);
  writer->flush();
  EXPECT_EQ(readUpTo(open("file", kIn), 10), "flushed");
}

TEST_P(FileSystem, AHandleThatGoesWithoutCloseKeepsWhatWasWritten) {
  open("file", kOut)->write("kept", 4);
  EXPECT_EQ(fSubject->bytes("file"), "kept");
}

TEST_P(FileSystem, AFileKnowsItsNameItsFileSystemAndThatItSeeks) {
  const auto name = fileSystem().getFSFileName(fSubject->path("named"));
  const File file = fileSystem().openFile(name, kOut);
  EXPECT_EQ(file->getName()->getName(), fSubject->path("named"));
  EXPECT_EQ(file->getFileSystem(), &fileSystem());
  EXPECT_EQ(file->getName()->getFileSystem(), &fileSystem());
  EXPECT_EQ(file->getCapabilities(), 31u);
  EXPECT_TRUE(file->isSeekable());
}

TEST_P(FileSystem, AFileKeepsItsNameAlive) {
  auto name = fileSystem().getFSFileName(fSubject->path("named"));
  const File file = fileSystem().openFile(name, kOut);
  name.reset();
  EXPECT_EQ(file->getName()->getName(), fSubject->path("named"));
}

TEST_P(FileSystem, ANameIsKeptAsItIsAndTouchesNothing) {
  for (const std::string text : {"", "a//b/../c", "no such folder/x", " ", "na\xC3\xAFve\n"}) {
    const auto name = fileSystem().getFSFileName(text);
    EXPECT_EQ(name->getName(), text);
    EXPECT_EQ(name->getFileSystem(), &fileSystem());
  }
  EXPECT_FALSE(fSubject->exists(" "));
}

TEST_P(FileSystem, ATemporaryFileIsEmptyAndOpenForReadingAndWriting) {
  const File file = fileSystem().createTempFile();
  EXPECT_EQ(file->getMode(), kIn | kOut | kTrunc);
  EXPECT_EQ(file->getFileSystem(), &fileSystem());
  EXPECT_EQ(readUpTo(file, 1), "");
  file->seek(0, SEEK_SET);
  file->write("spooled", 7);
  file->seek(0, SEEK_SET);
  EXPECT_EQ(readUpTo(file, 10), "spooled");
}

TEST_P(FileSystem, TemporaryFilesHaveDifferentNames) {
  std::set<std::string> names;
  for (int i = 0; i < 20; ++i)
    names.insert(fileSystem().createTempFile()->getName()->getName());
  EXPECT_EQ(names.size(), 20u);
}

TEST_P(FileSystem, ATemporaryFileLivesUntilItIsDeletedByName) {
  const File file = fileSystem().createTempFile();
  const auto name = file->getName();
  file->write("spooled", 7);
  file->close();
  EXPECT_EQ(readUpTo(fileSystem().reopenTempFileByName(name, kIn), 10), "spooled");
  fileSystem().deleteTempFileByName(name);
  EXPECT_EQ(codeOf([&] { fileSystem().reopenTempFileByName(name, kIn); }), 50);
}

TEST_P(FileSystem, DeletingAMissingTemporaryFileReturnsNormally) {
  const auto name = fileSystem().createTempFile()->getName();
  fileSystem().deleteTempFileByName(name);
  EXPECT_NO_THROW(fileSystem().deleteTempFileByName(name));
  EXPECT_NO_THROW(
      fileSystem().deleteTempFileByName(fileSystem().getFSFileName("no such folder/x")));
}

TEST_P(FileSystem, ADeletedFileStaysReadableThroughAnOpenHandle) {
  const File file = fileSystem().createTempFile();
  file->write("spooled", 7);
  file->flush();
  fileSystem().deleteTempFileByName(file->getName());
  file->seek(0, SEEK_SET);
  EXPECT_EQ(readUpTo(file, 10), "spooled");
}

TEST_P(FileSystem, ReopeningIsOpeningWithItsModes) {
  const auto name = fileSystem().createTempFile()->getName();
  EXPECT_EQ(codeOf([&] { fileSystem().reopenTempFileByName(name, ios_base::app); }), 23);
  fileSystem().reopenTempFileByName(name, kIn | kOut)->write("x", 1);
  EXPECT_EQ(readUpTo(fileSystem().reopenTempFileByName(name, kIn), 10), "x");
  fileSystem().reopenTempFileByName(name, kOut | kTrunc)->close();
  EXPECT_EQ(readUpTo(fileSystem().reopenTempFileByName(name, kIn), 10), "");
  fileSystem().deleteTempFileByName(name);
}

INSTANTIATE_TEST_SUITE_P(
    Every, FileSystem,
    testing::Values(subjectKind<BuiltInSubject>("BuiltIn"), subjectKind<MemorySubject>("Memory"),
                    subjectKind<WrappedSubject<support::RecordingFileSystem>>("Recording"),
                    subjectKind<WrappedSubject<NeverFailing>>("NeverFailing")),
    [](const testing::TestParamInfo<SubjectKind>& parameter) {
      return std::string(parameter.param.name);
    });

}  // namespace
