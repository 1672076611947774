// memory: makes a package in memory, changes it there and reads it again. No file is touched.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <ios>
#include <map>
#include <memory>
#include <string>

#include <package/QCFPackage.h>

#include <boost/make_shared.hpp>

namespace {

using File = boost::shared_ptr<pkg::IPkgFSFile<>>;
using FileName = boost::shared_ptr<pkg::IPkgFSFileName<>>;
using Bytes = std::shared_ptr<std::string>;

// A file in memory, with a position of its own.
class MemoryFile : public pkg::IPkgFSFile<> {
public:
  MemoryFile(pkg::IPkgFileSystem<>* files, FileName name, std::ios_base::openmode mode, Bytes bytes)
      : fFiles(files), fName(std::move(name)), fMode(mode), fBytes(std::move(bytes)) {}

  std::ios_base::openmode getMode() const override { return fMode; }
  void close() override {}
  int read(void* buffer, int size) override {
    const long long left = std::max(0LL, end() - fPosition);
    const int count = static_cast<int>(std::min<long long>(size, left));
    if (count > 0) std::memcpy(buffer, fBytes->data() + fPosition, static_cast<std::size_t>(count));
    fPosition += count;
    return count;
  }
  void write(const void* buffer, int size) override {
    if (size == 0) return;
    if (fPosition + size > end()) fBytes->resize(static_cast<std::size_t>(fPosition + size));
    std::memcpy(fBytes->data() + fPosition, buffer, static_cast<std::size_t>(size));
    fPosition += size;
  }
  void seek(long long offset, int whence) override {
    const long long base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? fPosition : end();
    if (base + offset < 0) pkg::throwSystemError(EINVAL);
    fPosition = base + offset;
  }
  long long tell() override { return fPosition; }
  void flush() override {}
  void truncate(long long size) override { fBytes->resize(static_cast<std::size_t>(size)); }
  std::uint32_t getCapabilities() override { return CapabilitySeek; }
  pkg::IPkgFileSystem<>* getFileSystem() const override { return fFiles; }
  FileName getName() const override { return fName; }

private:
  long long end() const { return static_cast<long long>(fBytes->size()); }

  pkg::IPkgFileSystem<>* fFiles;
  FileName fName;
  std::ios_base::openmode fMode;
  Bytes fBytes;  // goes on while a file is open, even if its name is gone
  long long fPosition = 0;
};

// Files by name.
class MemoryFiles : public pkg::IPkgFileSystem<> {
public:
  File openFile(const FileName& name, std::ios_base::openmode mode) override {
    Bytes& bytes = fAll[name->getName()];
    const bool reads = (mode & std::ios::in) != 0;
    if (!bytes && reads && (mode & std::ios::trunc) == 0) {
      fAll.erase(name->getName());
      pkg::throwSystemError(ENOENT);
    }
    if (!bytes || !reads || (mode & std::ios::trunc) != 0) bytes = std::make_shared<std::string>();
    return boost::make_shared<MemoryFile>(this, name, mode, bytes);
  }
  File createTempFile() override {
    const FileName name = getFSFileName("temporary " + std::to_string(++fTemporary));
    return openFile(name, std::ios::in | std::ios::out | std::ios::trunc);
  }
  File reopenTempFileByName(const FileName& name, std::ios_base::openmode mode) override {
    return openFile(name, mode);
  }
  void deleteTempFileByName(const FileName& name) override { fAll.erase(name->getName()); }
  FileName getFSFileName(const std::string& name) override {
    return boost::make_shared<pkg::BasePkgFSFileName<>>(this, name);
  }

  std::size_t sizeOf(const std::string& name) const { return fAll.at(name)->size(); }
  std::size_t count() const { return fAll.size(); }

private:
  std::map<std::string, Bytes> fAll;
  int fTemporary = 0;
};

void write(pkg::IPackage<>& package, const std::string& entry, const std::string& text) {
  const auto stream = package.getFile(entry, false)->open(std::ios::out, false);
  stream->exceptions(std::ios::badbit);
  *stream << text;
  stream->close();
}

}  // namespace

int main() try {
  MemoryFiles files;  // outlives every package in it
  pkg::QCFPackageFactory factory;
  const auto first = factory.createConformingPackage("first.pkg", "application/x-memory", true,
                                                     &files, nullptr, nullptr);
  write(*first, "a.txt", "kept\n");
  first->endUpdate();
  first->close();

  const auto package =
      factory.openPackage("first.pkg", std::ios::in | std::ios::out, &files, nullptr, nullptr);
  write(*package, "b.txt", "added\n");
  package->saveAs("second.pkg", std::ios::in | std::ios::out | std::ios::trunc);

  for (const char* const entry : {"mimetype", "a.txt", "b.txt"}) {
    std::string word;
    *package->getFile(entry, true)->open(std::ios::in, false) >> word;
    std::printf("%s: %s\n", entry, word.c_str());
  }
  std::printf("%zu files, the second %s\n", files.count(),
              files.sizeOf("second.pkg") > files.sizeOf("first.pkg") ? "larger" : "not larger");
} catch (const std::exception& e) {
  std::fprintf(stderr, "memory: %s\n", e.what());
  return 3;
}
