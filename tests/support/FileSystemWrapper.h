#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "package/Package.h"
#include "package/detail/PkgFileSys.h"

namespace support {

// Passes every call on to another file system. The names and files that it gives are its own, so
// that the library stays within it; a subclass changes what a file's operations do by overriding
// the operations of the same names here, which get the wrapped file.
class FileSystemWrapper : public pkg::IPkgFileSystem<> {
public:
  using File = boost::shared_ptr<pkg::IPkgFSFile<>>;
  using FileName = boost::shared_ptr<pkg::IPkgFSFileName<>>;
  using openmode = std::ios_base::openmode;
  using InnerFile = pkg::IPkgFSFile<>;

  explicit FileSystemWrapper(pkg::IPkgFileSystem<>& inner) : fInner(inner) {}

  File openFile(const FileName& name, openmode mode) override {
    return wrap(fInner.openFile(innerName(name), mode));
  }
  File createTempFile() override { return wrap(fInner.createTempFile()); }
  File reopenTempFileByName(const FileName& name, openmode mode) override {
    return wrap(fInner.reopenTempFileByName(innerName(name), mode));
  }
  void deleteTempFileByName(const FileName& name) override {
    fInner.deleteTempFileByName(innerName(name));
  }
  FileName getFSFileName(const std::string& name) override {
    return wrap(fInner.getFSFileName(name));
  }

protected:
  virtual void close(InnerFile& file) { file.close(); }
  virtual int read(InnerFile& file, void* buffer, int size) { return file.read(buffer, size); }
  virtual void write(InnerFile& file, const void* buffer, int size) { file.write(buffer, size); }
  virtual void seek(InnerFile& file, long long offset, int whence) { file.seek(offset, whence); }
  virtual long long tell(InnerFile& file) { return file.tell(); }
  virtual void flush(InnerFile& file) { file.flush(); }
  virtual void truncate(InnerFile& file, long long size) { file.truncate(size); }
  virtual std::uint32_t capabilities(InnerFile& file) { return file.getCapabilities(); }
  virtual FileName nameOf(InnerFile& file) { return wrap(file.getName()); }
  virtual void released(InnerFile&) {}  // the last handle of a file goes

private:
  class WrappedName : public pkg::BasePkgFSFileName<> {
  public:
    WrappedName(FileSystemWrapper* system, FileName inner)
        : BasePkgFSFileName(system, inner->getName()), fInner(std::move(inner)) {}
    const FileName& inner() const { return fInner; }

  private:
    FileName fInner;
  };

  class WrappedFile : public pkg::IPkgFSFile<> {
  public:
    WrappedFile(FileSystemWrapper& system, File inner)
        : fSystem(system), fInner(std::move(inner)) {}
    ~WrappedFile() override { fSystem.released(*fInner); }

    openmode getMode() const override { return fInner->getMode(); }
    void close() override { fSystem.close(*fInner); }
    int read(void* buffer, int size) override { return fSystem.read(*fInner, buffer, size); }
    void write(const void* buffer, int size) override { fSystem.write(*fInner, buffer, size); }
    void seek(long long offset, int whence) override { fSystem.seek(*fInner, offset, whence); }
    long long tell() override { return fSystem.tell(*fInner); }
    void flush() override { fSystem.flush(*fInner); }
    void truncate(long long size) override { fSystem.truncate(*fInner, size); }
    std::uint32_t getCapabilities() override { return fSystem.capabilities(*fInner); }
    pkg::IPkgFileSystem<>* getFileSystem() const override { return &fSystem; }
    FileName getName() const override { return fSystem.nameOf(*fInner); }

  private:
    FileSystemWrapper& fSystem;
    File fInner;
  };

  // A test may bring a name of another file system.
  FileName innerName(const FileName& name) {
    const auto own = boost::dynamic_pointer_cast<WrappedName>(name);
    const bool isOwn = own && own->getFileSystem() == this;
    return isOwn ? own->inner() : fInner.getFSFileName(name->getName());
  }
  FileName wrap(FileName inner) { return boost::make_shared<WrappedName>(this, std::move(inner)); }
  File wrap(File inner) { return boost::make_shared<WrappedFile>(*this, std::move(inner)); }

  pkg::IPkgFileSystem<>& fInner;
};

}  // namespace support
