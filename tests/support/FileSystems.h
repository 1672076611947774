#pragma once

#include <cerrno>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "package/Package.h"

#include "support/FileSystemWrapper.h"
#include "support/MemoryFileSystem.h"

// File systems for tests: one in memory, and wrappers around any other. Wrappers stack. A file
// system outlives every file that came from it, and the one that it wraps outlives it.

namespace support {

// Files that cannot seek: as pipes, they know how far they are and go on from there. Temporary
// files can, unless `everyFile`.
class UnseekableFileSystem : public FileSystemWrapper {
public:
  explicit UnseekableFileSystem(pkg::IPkgFileSystem<>& inner, bool everyFile = false)
      : FileSystemWrapper(inner), fEveryFile(everyFile) {}

  File createTempFile() override {
    File file = FileSystemWrapper::createTempFile();
    fTemporary.insert(file->getName()->getName());
    return file;
  }

protected:
  void seek(InnerFile& file, long long offset, int whence) override {
    if (!canSeek(file)) pkg::throwSystemError(ESPIPE);
    file.seek(offset, whence);
  }
  void truncate(InnerFile& file, long long size) override {
    if (!canSeek(file)) pkg::throwSystemError(EINVAL);
    file.truncate(size);
  }
  std::uint32_t capabilities(InnerFile& file) override {
    const std::uint32_t all = file.getCapabilities();
    return canSeek(file) ? all : all & ~std::uint32_t{pkg::IPkgFSFileCommon::CapabilitySeek};
  }

private:
  bool canSeek(InnerFile& file) const {
    return !fEveryFile && fTemporary.count(file.getName()->getName()) != 0;
  }

  bool fEveryFile;
  std::set<std::string> fTemporary;
};

// How a call goes wrong. All raise code 50 without having done anything, except: a short read
// returns half of what was asked for, a short write writes half and raises code 29. A file whose
// close has failed is still open and closes when it is released. Of Read and ShortRead give one, as
// of Write and ShortWrite.
enum class Failure {
  Open,  // openFile and reopenTempFileByName
  CreateTemp,
  Read,
  ShortRead,
  Write,
  ShortWrite,
  Seek,
  Tell,
  Flush,
  Truncate,
  Close,
  DeleteTemp,
  FileName,     // getFSFileName
  Name,         // a file's getName
  Capabilities  // getCapabilities, and so isSeekable
};
using Failures = std::set<Failure>;

// Without those that no disk raises, and DeleteTemp, which leaves a file behind.
inline Failures everyError() {
  return {Failure::Open, Failure::CreateTemp, Failure::Read,     Failure::Write, Failure::Seek,
          Failure::Tell, Failure::Flush,      Failure::Truncate, Failure::Close};
}

// Counts the calls of the given kinds, from 1, and fails at the `n`-th: that one alone or, with
// Span::FromThereOn, every one from it on (a full disk).
class FailingFileSystem : public FileSystemWrapper {
public:
  enum class Span { Once, FromThereOn };
  using Throw = void (*)();

  // With a `thrower`, what that throws is raised instead.
  FailingFileSystem(pkg::IPkgFileSystem<>& inner, int n, Failures failures = everyError(),
                    Span span = Span::Once, Throw thrower = nullptr)
      : FileSystemWrapper(inner),
        fFailAt(n),
        fFailures(std::move(failures)),
        fSpan(span),
        fThrow(thrower) {}

  // Counted calls so far, and whether one of them failed. Where none did, a loop over n is done.
  int calls() const { return fCalls; }
  bool hasFailed() const { return fHasFailed; }

  File openFile(const FileName& name, openmode mode) override {
    mayRaise(Failure::Open, EACCES);
    return FileSystemWrapper::openFile(name, mode);
  }
  File createTempFile() override {
    mayRaise(Failure::CreateTemp, ENOSPC);
    return FileSystemWrapper::createTempFile();
  }
  File reopenTempFileByName(const FileName& name, openmode mode) override {
    mayRaise(Failure::Open, EACCES);
    return FileSystemWrapper::reopenTempFileByName(name, mode);
  }
  void deleteTempFileByName(const FileName& name) override {
    mayRaise(Failure::DeleteTemp, EACCES);
    FileSystemWrapper::deleteTempFileByName(name);
  }
  FileName getFSFileName(const std::string& name) override {
    mayRaise(Failure::FileName, EINVAL);
    return FileSystemWrapper::getFSFileName(name);
  }

protected:
  void close(InnerFile& file) override {
    mayRaise(Failure::Close, EIO);
    file.close();
  }
  int read(InnerFile& file, void* buffer, int size) override {
    mayRaise(Failure::Read, EIO);
    return file.read(buffer, fails(Failure::ShortRead) ? size / 2 : size);
  }
  void write(InnerFile& file, const void* buffer, int size) override {
    mayRaise(Failure::Write, ENOSPC);
    if (fails(Failure::ShortWrite)) {
      file.write(buffer, size / 2);
      if (fThrow != nullptr) fThrow();
      throw pkg::PackageIOException<>(pkg::PkgLib_Err_WritingFile);
    }
    file.write(buffer, size);
  }
  void seek(InnerFile& file, long long offset, int whence) override {
    mayRaise(Failure::Seek, EIO);
    file.seek(offset, whence);
  }
  long long tell(InnerFile& file) override {
    mayRaise(Failure::Tell, EIO);
    return file.tell();
  }
  void flush(InnerFile& file) override {
    mayRaise(Failure::Flush, ENOSPC);
    file.flush();
  }
  void truncate(InnerFile& file, long long size) override {
    mayRaise(Failure::Truncate, EIO);
    file.truncate(size);
  }
  std::uint32_t capabilities(InnerFile& file) override {
    mayRaise(Failure::Capabilities, EIO);
    return FileSystemWrapper::capabilities(file);
  }
  FileName nameOf(InnerFile& file) override {
    mayRaise(Failure::Name, ENOMEM);
    return FileSystemWrapper::nameOf(file);
  }

private:
  void mayRaise(Failure kind, int error) {
    if (!fails(kind)) return;
    if (fThrow != nullptr) fThrow();
    pkg::throwSystemError(error);
  }
  bool fails(Failure kind) {
    if (fFailures.count(kind) == 0) return false;
    ++fCalls;
    const bool failed = fSpan == Span::Once ? fCalls == fFailAt : fCalls >= fFailAt;
    fHasFailed = fHasFailed || failed;
    return failed;
  }

  int fFailAt;
  Failures fFailures;
  Span fSpan;
  Throw fThrow;
  int fCalls = 0;
  bool fHasFailed = false;
};

enum class FileCall {
  Open,
  CreateTemp,
  Reopen,
  DeleteTemp,
  Close,
  Read,
  Write,
  Seek,
  Tell,
  Flush,
  Truncate,
  // Questions, which reach no disk.
  FileName,
  Name,
  Capabilities
};

// Writes down every call, in order, before it is passed on; questions only where asked to.
class RecordingFileSystem : public FileSystemWrapper {
public:
  struct Call {
    FileCall kind;
    std::string name;      // of the file; empty for CreateTemp
    long long number = 0;  // the size or offset that was given
    int whence = 0;        // of a seek
  };

  explicit RecordingFileSystem(pkg::IPkgFileSystem<>& inner, bool questionsToo = false)
      : FileSystemWrapper(inner), fQuestionsToo(questionsToo) {}

  const std::vector<Call>& calls() const { return fCalls; }
  void forget() { fCalls.clear(); }
  int count(FileCall kind) const {
    int count = 0;
    for (const Call& call : fCalls)
      count += call.kind == kind ? 1 : 0;
    return count;
  }
  // Bytes asked for by all calls of a kind, Read or Write.
  long long total(FileCall kind) const {
    long long sum = 0;
    for (const Call& call : fCalls)
      sum += call.kind == kind ? call.number : 0;
    return sum;
  }
  // Files that somebody still holds.
  int filesAlive() const { return fFilesAlive; }

  File openFile(const FileName& name, openmode mode) override {
    note(FileCall::Open, name->getName(), static_cast<long long>(mode));
    return born(FileSystemWrapper::openFile(name, mode));
  }
  File createTempFile() override {
    note(FileCall::CreateTemp, {});
    return born(FileSystemWrapper::createTempFile());
  }
  File reopenTempFileByName(const FileName& name, openmode mode) override {
    note(FileCall::Reopen, name->getName(), static_cast<long long>(mode));
    return born(FileSystemWrapper::reopenTempFileByName(name, mode));
  }
  void deleteTempFileByName(const FileName& name) override {
    note(FileCall::DeleteTemp, name->getName());
    FileSystemWrapper::deleteTempFileByName(name);
  }
  FileName getFSFileName(const std::string& name) override {
    if (fQuestionsToo) note(FileCall::FileName, name);
    return FileSystemWrapper::getFSFileName(name);
  }

protected:
  void close(InnerFile& file) override {
    note(FileCall::Close, file);
    file.close();
  }
  int read(InnerFile& file, void* buffer, int size) override {
    note(FileCall::Read, file, size);
    return file.read(buffer, size);
  }
  void write(InnerFile& file, const void* buffer, int size) override {
    note(FileCall::Write, file, size);
    file.write(buffer, size);
  }
  void seek(InnerFile& file, long long offset, int whence) override {
    note(FileCall::Seek, file, offset, whence);
    file.seek(offset, whence);
  }
  long long tell(InnerFile& file) override {
    note(FileCall::Tell, file);
    return file.tell();
  }
  void flush(InnerFile& file) override {
    note(FileCall::Flush, file);
    file.flush();
  }
  void truncate(InnerFile& file, long long size) override {
    note(FileCall::Truncate, file, size);
    file.truncate(size);
  }
  std::uint32_t capabilities(InnerFile& file) override {
    if (fQuestionsToo) note(FileCall::Capabilities, file);
    return FileSystemWrapper::capabilities(file);
  }
  FileName nameOf(InnerFile& file) override {
    if (fQuestionsToo) note(FileCall::Name, file);
    return FileSystemWrapper::nameOf(file);
  }
  void released(InnerFile&) override { --fFilesAlive; }

private:
  void note(FileCall kind, const std::string& name, long long number = 0, int whence = 0) {
    fCalls.push_back({kind, name, number, whence});
  }
  void note(FileCall kind, InnerFile& file, long long number = 0, int whence = 0) {
    note(kind, file.getName()->getName(), number, whence);
  }
  File born(File file) {
    ++fFilesAlive;
    return file;
  }

  bool fQuestionsToo;
  std::vector<Call> fCalls;
  int fFilesAlive = 0;
};

}  // namespace support
