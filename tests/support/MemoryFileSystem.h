#pragma once

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "package/Package.h"
#include "package/detail/PkgFileSys.h"

namespace support {

// Files in memory, with the behaviour of the built-in file system: modes, errors, positions beyond
// the end, and files that live on under an open handle when their name is gone. Temporary files
// are ordinary files whose names begin with "temporary/".
class MemoryFileSystem : public pkg::IPkgFileSystem<> {
public:
  using File = boost::shared_ptr<pkg::IPkgFSFile<>>;
  using FileName = boost::shared_ptr<pkg::IPkgFSFileName<>>;
  using openmode = std::ios_base::openmode;

  // The bytes of a file, where there is one.
  bool exists(const std::string& name) const { return fFiles.count(name) != 0; }
  const std::string& bytes(const std::string& name) const { return *fFiles.at(name); }
  // Makes or replaces a file. Open handles keep the old one.
  void put(const std::string& name, std::string bytes) {
    fFiles[name] = std::make_shared<std::string>(std::move(bytes));
  }
  void remove(const std::string& name) { fFiles.erase(name); }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& [name, bytes] : fFiles)
      names.push_back(name);
    return names;
  }
  // How many temporary files there are now.
  int temporaryFiles() const {
    int count = 0;
    for (const auto& [name, bytes] : fFiles)
      count += name.rfind(kTemporary, 0) == 0 ? 1 : 0;
    return count;
  }
  // Every file with its bytes, to compare before and after.
  std::map<std::string, std::string> snapshot() const {
    std::map<std::string, std::string> all;
    for (const auto& [name, bytes] : fFiles)
      all[name] = *bytes;
    return all;
  }

  File openFile(const FileName& name, openmode mode) override {
    const std::string path = name->getName();
    const openmode effective = mode & ~(std::ios_base::ate | std::ios_base::binary);
    const openmode in = std::ios_base::in;
    const openmode out = std::ios_base::out;
    const openmode trunc = std::ios_base::trunc;
    const bool empties =
        effective == out || effective == (out | trunc) || effective == (in | out | trunc);
    if (!empties && effective != in && effective != (in | out)) {
      throw pkg::PackageIOException<>(pkg::PkgLib_Err_UnsupportedOperation);
    }
    if (!exists(path)) {
      if (!empties) pkg::throwSystemError(ENOENT);
      put(path, "");
    }
    const Bytes& bytes = fFiles[path];
    if (empties) bytes->clear();
    return boost::make_shared<MemoryFile>(this, name, mode, bytes, (effective & in) != 0,
                                          (effective & out) != 0);
  }
  File createTempFile() override {
    const std::string path = kTemporary + std::to_string(++fTemporaryCount);
    return openFile(getFSFileName(path),
                    std::ios_base::in | std::ios_base::out | std::ios_base::trunc);
  }
  File reopenTempFileByName(const FileName& name, openmode mode) override {
    return openFile(name, mode);
  }
  void deleteTempFileByName(const FileName& name) override { remove(name->getName()); }
  FileName getFSFileName(const std::string& name) override {
    return boost::make_shared<pkg::BasePkgFSFileName<>>(this, name);
  }

private:
  using Bytes = std::shared_ptr<std::string>;

  class MemoryFile : public pkg::IPkgFSFile<> {
  public:
    MemoryFile(MemoryFileSystem* system, const FileName& name, openmode mode, const Bytes& bytes,
               bool canRead, bool canWrite)
        : fSystem(system),
          fName(name),
          fMode(mode),
          fBytes(bytes),
          fCanRead(canRead),
          fCanWrite(canWrite) {}

    openmode getMode() const override { return fMode; }
    void close() override {
      requireOpen();
      fBytes.reset();
    }
    int read(void* buffer, int size) override {
      requireOpen();
      if (!fCanRead) pkg::throwSystemError(EBADF);
      const long long rest = length() - fPosition;
      const long long count = rest < 0 ? 0 : (rest < size ? rest : size);
      if (count == 0) return 0;
      std::memcpy(buffer, fBytes->data() + fPosition, static_cast<std::size_t>(count));
      fPosition += count;
      return static_cast<int>(count);
    }
    void write(const void* buffer, int size) override {
      requireOpen();
      if (!fCanWrite) pkg::throwSystemError(EBADF);
      if (size == 0) return;
      const long long end = fPosition + size;
      if (end > length()) fBytes->resize(static_cast<std::size_t>(end), '\0');
      std::memcpy(&(*fBytes)[static_cast<std::size_t>(fPosition)], buffer,
                  static_cast<std::size_t>(size));
      fPosition = end;
    }
    void seek(long long offset, int whence) override {
      requireOpen();
      const long long from = whence == SEEK_SET ? 0 : (whence == SEEK_CUR ? fPosition : length());
      if (from + offset < 0) pkg::throwSystemError(EINVAL);
      fPosition = from + offset;
    }
    long long tell() override {
      requireOpen();
      return fPosition;
    }
    void flush() override { requireOpen(); }
    void truncate(long long size) override {
      requireOpen();
      if (!fCanWrite || size < 0) pkg::throwSystemError(EINVAL);
      fBytes->resize(static_cast<std::size_t>(size), '\0');
    }
    std::uint32_t getCapabilities() override { return 31; }
    pkg::IPkgFileSystem<>* getFileSystem() const override { return fSystem; }
    FileName getName() const override { return fName; }

  private:
    void requireOpen() const {
      if (!fBytes) pkg::throwSystemError(EBADF);
    }
    long long length() const { return static_cast<long long>(fBytes->size()); }

    MemoryFileSystem* fSystem;
    FileName fName;
    openmode fMode;
    Bytes fBytes;  // null once closed
    bool fCanRead;
    bool fCanWrite;
    long long fPosition = 0;
  };

  static constexpr const char* kTemporary = "temporary/";

  std::map<std::string, Bytes> fFiles;
  int fTemporaryCount = 0;
};

}  // namespace support
