#include <cerrno>
#include <cstring>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "support/FileSystems.h"

// The file systems of the tests are tools that other tests trust: each does what its name says.

namespace {

using namespace support;
using std::ios_base;
using File = boost::shared_ptr<pkg::IPkgFSFile<>>;

constexpr ios_base::openmode kIn = ios_base::in;
constexpr ios_base::openmode kOut = ios_base::out;

File open(pkg::IPkgFileSystem<>& system, const std::string& name, ios_base::openmode mode) {
  return system.openFile(system.getFSFileName(name), mode);
}

int codeOf(const std::function<void()>& operation) {
  try {
    operation();
  } catch (pkg::PackageIOException<>& e) {
    return e.getErrorCode();
  }
  return -1;
}

TEST(MemoryFileSystem, ShowsItsFilesFromOutside) {
  MemoryFileSystem memory;
  memory.put("b", "bytes");
  open(memory, "a", kOut)->write("written", 7);
  EXPECT_EQ(memory.names(), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(memory.bytes("a"), "written");
  EXPECT_EQ(memory.snapshot().at("b"), "bytes");
  memory.remove("b");
  EXPECT_FALSE(memory.exists("b"));
}

TEST(MemoryFileSystem, CountsItsTemporaryFiles) {
  MemoryFileSystem memory;
  memory.put("a", "");
  const File first = memory.createTempFile();
  const File second = memory.createTempFile();
  EXPECT_EQ(memory.temporaryFiles(), 2);
  memory.deleteTempFileByName(first->getName());
  EXPECT_EQ(memory.temporaryFiles(), 1);
}

TEST(MemoryFileSystem, AClosedFileRaises50ForEverything) {
  MemoryFileSystem memory;
  const File file = open(memory, "a", kOut);
  file->close();
  EXPECT_EQ(codeOf([&] { file->write("x", 1); }), 50);
  EXPECT_EQ(codeOf([&] { file->seek(0, SEEK_SET); }), 50);
  EXPECT_EQ(codeOf([&] { file->tell(); }), 50);
  EXPECT_EQ(codeOf([&] { file->close(); }), 50);
}

TEST(UnseekableFileSystem, ItsFilesKnowTheirPositionAndCannotChangeIt) {
  MemoryFileSystem memory;
  UnseekableFileSystem pipes(memory);
  const File file = open(pipes, "out", kOut);
  EXPECT_FALSE(file->isSeekable());
  EXPECT_EQ(file->getCapabilities(), 27u);
  file->write("0123", 4);
  EXPECT_EQ(file->tell(), 4);
  EXPECT_EQ(codeOf([&] { file->seek(0, SEEK_SET); }), 50);
  EXPECT_EQ(codeOf([&] { file->truncate(0); }), 50);
  file->write("45", 2);
  EXPECT_EQ(memory.bytes("out"), "012345");
}

TEST(UnseekableFileSystem, ItsTemporaryFilesSeekUnlessToldOtherwise) {
  MemoryFileSystem memory;
  UnseekableFileSystem pipes(memory);
  const File file = pipes.createTempFile();
  EXPECT_TRUE(file->isSeekable());
  EXPECT_TRUE(pipes.reopenTempFileByName(file->getName(), kIn)->isSeekable());
  UnseekableFileSystem strict(memory, true);
  EXPECT_FALSE(strict.createTempFile()->isSeekable());
}

// One call of each kind, each with the effect it has when nothing fails.
struct KindOfFailure {
  Failure failure;
  int code;  // -1: the call returns
  std::function<void(pkg::IPkgFileSystem<>&)> call;
};

const KindOfFailure kKinds[] = {
    {Failure::Open, 50, [](pkg::IPkgFileSystem<>& fs) { open(fs, "file", kIn); }},
    {Failure::CreateTemp, 50, [](pkg::IPkgFileSystem<>& fs) { fs.createTempFile(); }},
    {Failure::Read, 50,
     [](pkg::IPkgFileSystem<>& fs) {
       char byte;
       open(fs, "file", kIn)->read(&byte, 1);
     }},
    {Failure::ShortRead, -1,
     [](pkg::IPkgFileSystem<>& fs) {
       char bytes[8];
       open(fs, "file", kIn)->read(bytes, 8);
     }},
    {Failure::Write, 50,
     [](pkg::IPkgFileSystem<>& fs) { open(fs, "file", kIn | kOut)->write("x", 1); }},
    {Failure::ShortWrite, 29,
     [](pkg::IPkgFileSystem<>& fs) { open(fs, "file", kIn | kOut)->write("xy", 2); }},
    {Failure::Seek, 50,
     [](pkg::IPkgFileSystem<>& fs) { open(fs, "file", kIn)->seek(1, SEEK_SET); }},
    {Failure::Tell, 50, [](pkg::IPkgFileSystem<>& fs) { open(fs, "file", kIn)->tell(); }},
    {Failure::Flush, 50, [](pkg::IPkgFileSystem<>& fs) { open(fs, "file", kIn)->flush(); }},
    {Failure::Truncate, 50,
     [](pkg::IPkgFileSystem<>& fs) { open(fs, "file", kIn | kOut)->truncate(9); }},
    {Failure::Close, 50, [](pkg::IPkgFileSystem<>& fs) { open(fs, "file", kIn)->close(); }},
    {Failure::DeleteTemp, 50,
     [](pkg::IPkgFileSystem<>& fs) { fs.deleteTempFileByName(fs.createTempFile()->getName()); }},
    {Failure::FileName, 50, [](pkg::IPkgFileSystem<>& fs) { fs.getFSFileName("file"); }},
    {Failure::Name, 50, [](pkg::IPkgFileSystem<>& fs) { open(fs, "file", kIn)->getName(); }},
    {Failure::Capabilities, 50,
     [](pkg::IPkgFileSystem<>& fs) { open(fs, "file", kIn)->getCapabilities(); }},
};

TEST(FailingFileSystem, EachKindFailsAtItsCallAndAtNoOther) {
  for (const KindOfFailure& kind : kKinds) {
    for (const int n : {1, 2, 3}) {
      MemoryFileSystem memory;
      memory.put("file", "0123456789");
      FailingFileSystem failing(memory, n, {kind.failure});
      for (int call = 1; call <= 3; ++call) {
        EXPECT_EQ(codeOf([&] { kind.call(failing); }), call == n ? kind.code : -1)
            << "kind " << static_cast<int>(kind.failure) << " call " << call << " of " << n;
      }
      EXPECT_EQ(failing.calls(), 3);
      EXPECT_TRUE(failing.hasFailed());
    }
  }
}

TEST(FailingFileSystem, FailsForGoodWhereTold) {
  MemoryFileSystem memory;
  FailingFileSystem full(memory, 2, {Failure::Write}, FailingFileSystem::Span::FromThereOn);
  const File file = open(full, "file", kOut);
  file->write("x", 1);
  EXPECT_EQ(codeOf([&] { file->write("y", 1); }), 50);
  EXPECT_EQ(codeOf([&] { file->write("z", 1); }), 50);
  EXPECT_EQ(memory.bytes("file"), "x");
}

TEST(FailingFileSystem, AShortReadHalvesAndAShortWriteWritesHalf) {
  MemoryFileSystem memory;
  memory.put("file", "0123456789");
  FailingFileSystem reading(memory, 1, {Failure::ShortRead});
  char bytes[8];
  EXPECT_EQ(open(reading, "file", kIn)->read(bytes, 8), 4);
  FailingFileSystem writing(memory, 1, {Failure::ShortWrite});
  const File file = open(writing, "file", kIn | kOut);
  EXPECT_EQ(codeOf([&] { file->write("abcdef", 6); }), 29);
  EXPECT_EQ(memory.bytes("file"), "abc3456789");
}

TEST(FailingFileSystem, NothingFailsWhereTheCallIsNeverReached) {
  MemoryFileSystem memory;
  FailingFileSystem failing(memory, 100);
  open(failing, "file", kOut)->write("x", 1);
  EXPECT_FALSE(failing.hasFailed());
  EXPECT_EQ(failing.calls(), 2);
}

TEST(RecordingFileSystem, WritesEveryCallDownInOrder) {
  MemoryFileSystem memory;
  RecordingFileSystem recording(memory);
  const File file = open(recording, "file", kIn | kOut | ios_base::trunc);
  file->write("0123", 4);
  file->flush();
  file->seek(-2, SEEK_END);
  char bytes[8];
  file->read(bytes, 8);
  file->tell();
  file->truncate(3);
  file->close();
  const FileCall expected[] = {FileCall::Open,     FileCall::Write, FileCall::Flush,
                               FileCall::Seek,     FileCall::Read,  FileCall::Tell,
                               FileCall::Truncate, FileCall::Close};
  ASSERT_EQ(recording.calls().size(), std::size(expected));
  for (std::size_t i = 0; i < std::size(expected); ++i) {
    EXPECT_EQ(recording.calls()[i].kind, expected[i]);
    EXPECT_EQ(recording.calls()[i].name, "file");
  }
  EXPECT_EQ(recording.calls()[3].number, -2);
  EXPECT_EQ(recording.calls()[3].whence, SEEK_END);
  EXPECT_EQ(recording.total(FileCall::Read), 8);
  EXPECT_EQ(recording.count(FileCall::Write), 1);
  recording.forget();
  EXPECT_TRUE(recording.calls().empty());
}

TEST(RecordingFileSystem, KnowsHowManyFilesAreHeld) {
  MemoryFileSystem memory;
  RecordingFileSystem recording(memory);
  File first = open(recording, "file", kOut);
  const File second = first;
  const File other = recording.createTempFile();
  EXPECT_EQ(recording.filesAlive(), 2);
  first.reset();
  EXPECT_EQ(recording.filesAlive(), 2);
  recording.deleteTempFileByName(other->getName());
  EXPECT_EQ(recording.count(FileCall::DeleteTemp), 1);
}

TEST(FileSystemWrapper, WrappersStackAndTheOutermostIsTheOneThatFilesName) {
  MemoryFileSystem memory;
  RecordingFileSystem recording(memory);
  UnseekableFileSystem pipes(recording);
  const File file = open(pipes, "file", kOut);
  file->write("x", 1);
  EXPECT_EQ(file->getFileSystem(), &pipes);
  EXPECT_EQ(file->getName()->getFileSystem(), &pipes);
  EXPECT_EQ(recording.count(FileCall::Write), 1);
  EXPECT_EQ(memory.bytes("file"), "x");
}

}  // namespace
