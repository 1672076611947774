#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>

#include "package/Package.h"
#include "package/detail/PkgMutex.h"

namespace pkg {

// A name in a file system, kept as it was given.
template <class Context = AppContext>
class QCF_API BasePkgFSFileName : public IPkgFSFileName<Context> {
public:
  using String = typename Context::String;

  BasePkgFSFileName(IPkgFileSystem<Context>* fileSystem, const String& name)
      : fFileSystem(fileSystem), fName(name) {}
  IPkgFileSystem<Context>* getFileSystem() const override { return fFileSystem; }
  String getName() const override { return fName; }

private:
  IPkgFileSystem<Context>* fFileSystem;
  String fName;
};

// A file of the C library's standard I/O, with its default buffer. A failure of the system raises
// PackageIOException 50 with the text of strerror.
template <class Context = AppContext>
class QCF_API BasePkgFSFile : public IPkgFSFile<Context> {
public:
  using FileName = boost::shared_ptr<IPkgFSFileName<Context>>;

  // A file without a stream: adopt() follows before anything else.
  BasePkgFSFile(IPkgFileSystem<Context>* fileSystem, const FileName& name,
                std::ios_base::openmode mode)
      : fFileSystem(fileSystem), fName(name), fMode(mode) {}
  // Closes what is open; a failure of that is lost.
  ~BasePkgFSFile() override;
  // Takes the stream over.
  void adopt(std::FILE* stream) { fStream = stream; }
  BasePkgFSFile(const BasePkgFSFile&) = delete;
  BasePkgFSFile& operator=(const BasePkgFSFile&) = delete;

  std::ios_base::openmode getMode() const override { return fMode; }
  // After a failure the destructor tries once more.
  void close() override;
  // Raises only when nothing at all could be read for an error.
  int read(void* buffer, int size) override;
  // Raises 29 for a short count without an error of the stream.
  void write(const void* buffer, int size) override;
  void seek(long long offset, int whence) override;
  long long tell() override;
  void flush() override;
  void truncate(long long size) override;
  // All five low bits, for every file: pipes and devices too, whose seek fails when it is tried.
  std::uint32_t getCapabilities() override { return 31; }
  IPkgFileSystem<Context>* getFileSystem() const override { return fFileSystem; }
  FileName getName() const override { return fName; }

private:
  enum class Transfer { None, Read, Write };

  // The stream; raises 50 once the file is closed.
  std::FILE* stream() const;
  bool mayHold(long long distance) const;
  void emptyBuffer();
  void turnTo(Transfer next);

  IPkgFileSystem<Context>* fFileSystem;  // not owned
  FileName fName;
  std::ios_base::openmode fMode;
  std::FILE* fStream = nullptr;
  bool fIsOpen = true;
  Transfer fLast = Transfer::None;  // since the stream was positioned
  bool fSeekSpared = false;         // the last seek was to where the stream stood
  bool fReadAhead = false;          // the C library may hold more than was asked for
};

// The system's own file system: standard I/O, and temporary files in one directory of the user,
// whose names no two processes share. The library's default.
template <class Context = AppContext>
class QCF_API BasePkgFileSystem : public IPkgFileSystem<Context> {
public:
  using String = typename Context::String;
  using File = boost::shared_ptr<IPkgFSFile<Context>>;
  using FileName = boost::shared_ptr<IPkgFSFileName<Context>>;

  // The shared instance. The temporary directory is looked up when it is built.
  static BasePkgFileSystem* getInstance();
  ~BasePkgFileSystem() override;

  File openFile(const FileName& name, std::ios_base::openmode mode) override;
  File createTempFile() override;
  File reopenTempFileByName(const FileName& name, std::ios_base::openmode mode) override;
  void deleteTempFileByName(const FileName& name) override;
  FileName getFSFileName(const String& name) override;

protected:
  BasePkgFileSystem();

private:
  String nextTempName();
  File openDescriptor(int descriptor, const String& path, const char* systemPath);

  std::int32_t fProcessId;
  std::atomic<std::uint16_t> fNameCounter;  // packages of several threads take names from it
  std::uint16_t fNameSeed;
  String fTempDirectory;  // empty, or ends in "/"

  static std::atomic<BasePkgFileSystem*> fInstance;
  static PkgMutualExclusion fMutex;
};

extern template class BasePkgFSFileName<AppContext>;
extern template class BasePkgFSFile<AppContext>;
extern template class BasePkgFileSystem<AppContext>;

}  // namespace pkg
