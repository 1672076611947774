#pragma once

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

#include <boost/make_shared.hpp>

#include "package/detail/PkgFileSys.h"
#include "package/source/getTemporaryItemsDir.h"

namespace pkg {

template <class Context>
std::atomic<BasePkgFileSystem<Context>*> BasePkgFileSystem<Context>::fInstance{nullptr};

template <class Context>
BasePkgFileSystem<Context>* BasePkgFileSystem<Context>::getInstance() {
  BasePkgFileSystem* instance = fInstance.load(std::memory_order_acquire);
  if (instance != nullptr) return instance;
  std::lock_guard<PkgMutualExclusion> guard(fMutex);
  if (fInstance.load(std::memory_order_relaxed) == nullptr) {
    static BasePkgFileSystem _instance;
    fInstance.store(&_instance, std::memory_order_release);
  }
  return fInstance.load(std::memory_order_relaxed);
}

template <class Context>
BasePkgFileSystem<Context>::BasePkgFileSystem()
    : fProcessId(static_cast<std::int32_t>(getpid())),
      fNameCounter(static_cast<std::uint16_t>(0u - static_cast<std::uint32_t>(fProcessId))),
      fNameSeed(0) {
  std::string directory;
  getTemporaryItemsDir(directory);
  if (!directory.empty() && directory.back() != '/') directory += '/';
  fTempDirectory = Context::fromUTF8(directory.c_str());

  const auto ticks = static_cast<std::uint16_t>(std::clock());
  fNameSeed = static_cast<std::uint16_t>((ticks >> 8 | ticks << 8) ^ fNameCounter);
  if (fNameSeed == 0) fNameSeed = 0xFFFF;
}

template <class Context>
BasePkgFileSystem<Context>::~BasePkgFileSystem() {
  fInstance = nullptr;
}

// The fopen mode of an open mode without its `ate` and `binary` bits; null for an illegal one.
inline const char* standardOpenMode(std::ios_base::openmode mode) {
  using std::ios_base;
  if (mode == ios_base::in) return "rb";
  if (mode == ios_base::out) return "wb";
  if (mode == (ios_base::out | ios_base::trunc)) return "wb";
  if (mode == (ios_base::in | ios_base::out)) return "r+b";
  if (mode == (ios_base::in | ios_base::out | ios_base::trunc)) return "w+b";
  return nullptr;
}

template <class Context>
typename BasePkgFileSystem<Context>::File BasePkgFileSystem<Context>::openFile(
    const FileName& name, std::ios_base::openmode mode) {
  auto file = std::make_unique<BasePkgFSFile<Context>>(this, name, mode);
  const String path = name->getName();
  const std::ios_base::openmode effective = mode & ~(std::ios_base::ate | std::ios_base::binary);
  const char* const standardMode = standardOpenMode(effective);
  if (standardMode == nullptr) {
    std::ostringstream detail;  // for a debugger: the exception carries the code alone
    detail << "Illegal open mode: " << static_cast<int>(effective);
    throw PackageIOException<>(PkgLib_Err_UnsupportedOperation);
  }
  const boost::shared_array<char> systemPath = Context::toUTF8(path);  // freed after errno is read
  std::FILE* const stream = std::fopen(systemPath.get(), standardMode);
  if (stream == nullptr) throwSystemError(errno);
  file->adopt(stream);
  return File(file.release());
}

template <class Context>
typename BasePkgFileSystem<Context>::File BasePkgFileSystem<Context>::createTempFile() {
  if (fTempDirectory.empty()) throw PackageIOException<>(PkgLib_Err_CreatingTempFile);
  for (int attempt = 0; attempt < 65536; ++attempt) {
    const String path = nextTempName();
    const boost::shared_array<char> systemPath = Context::toUTF8(path);
    const int descriptor = ::open(systemPath.get(), O_RDWR | O_CREAT | O_EXCL, 0600);
    if (descriptor >= 0) return openDescriptor(descriptor, path, systemPath.get());
    if (errno != EEXIST) throwSystemError(errno);
  }
  throw PackageIOException<>(PkgLib_Err_CreatingTempFile);
}

template <class Context>
typename Context::String BasePkgFileSystem<Context>::nextTempName() {
  const std::uint16_t count = fNameCounter++;
  const auto rotated = static_cast<std::uint16_t>(count >> 4 | count << 12);
  char name[32];
  std::snprintf(name, sizeof name, "qcf%05X%04X", static_cast<unsigned int>(fProcessId),
                static_cast<unsigned int>(rotated ^ fNameSeed));
  return fTempDirectory + Context::fromUTF8(name);
}

// Takes a new file's descriptor and, unless it is kept, the file itself away.
class NewTempFile {
public:
  NewTempFile(int descriptor, const char* path) : fDescriptor(descriptor), fPath(path) {}
  ~NewTempFile() { discard(); }
  NewTempFile(const NewTempFile&) = delete;
  NewTempFile& operator=(const NewTempFile&) = delete;

  // The stream that owns the descriptor from now on; null when it could not be made.
  std::FILE* openStream() {
    std::FILE* const stream = fdopen(fDescriptor, "r+");
    if (stream != nullptr) fDescriptor = -1;
    return stream;
  }
  void keep() { fPath = nullptr; }
  void discard() {
    if (fDescriptor >= 0) ::close(fDescriptor);
    fDescriptor = -1;
    if (fPath != nullptr) std::remove(fPath);
    fPath = nullptr;
  }

private:
  int fDescriptor;
  const char* fPath;
};

template <class Context>
typename BasePkgFileSystem<Context>::File BasePkgFileSystem<Context>::openDescriptor(
    int descriptor, const String& path, const char* systemPath) {
  NewTempFile created(descriptor, systemPath);
  const FileName name = boost::make_shared<BasePkgFSFileName<Context>>(this, path);
  auto file = std::make_unique<BasePkgFSFile<Context>>(
      this, name, std::ios_base::in | std::ios_base::out | std::ios_base::trunc);
  std::FILE* const stream = created.openStream();
  if (stream == nullptr) {
    created.discard();
    throwSystemError(errno);
  }
  file->adopt(stream);
  File result(file.release());
  created.keep();
  return result;
}

template <class Context>
typename BasePkgFileSystem<Context>::File BasePkgFileSystem<Context>::reopenTempFileByName(
    const FileName& name, std::ios_base::openmode mode) {
  return this->openFile(name, mode);
}

template <class Context>
void BasePkgFileSystem<Context>::deleteTempFileByName(const FileName& name) {
  const String path = name->getName();
  // A file that stays behind is no reason to fail what the caller is doing.
  static_cast<void>(std::remove(Context::toUTF8(path).get()));
}

template <class Context>
typename BasePkgFileSystem<Context>::FileName BasePkgFileSystem<Context>::getFSFileName(
    const String& name) {
  return boost::make_shared<BasePkgFSFileName<Context>>(this, name);
}

}  // namespace pkg
