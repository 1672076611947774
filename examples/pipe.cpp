// pipe [ENTRY...] < TEXT > PACKAGE: writes a package to standard output, which may be a pipe: every
// entry holds the line of the input that comes next.
//
// The library reaches files through an IPkgFileSystem alone. This one has a single file, which only
// goes forward: sizes and checksums then follow the data of each entry.

#include <cerrno>
#include <cstdio>
#include <exception>
#include <ios>
#include <iostream>
#include <string>

#include <package/QCFPackage.h>
#include <unistd.h>

#include <boost/make_shared.hpp>

namespace {

using File = boost::shared_ptr<pkg::IPkgFSFile<>>;
using FileName = boost::shared_ptr<pkg::IPkgFSFileName<>>;

// Standard output as a file of the library.
class StandardOutput : public pkg::IPkgFSFile<> {
public:
  StandardOutput(pkg::IPkgFileSystem<>* files, FileName name)
      : fFiles(files), fName(std::move(name)) {}

  std::ios_base::openmode getMode() const override { return std::ios::out; }
  void close() override {}
  int read(void*, int) override { pkg::throwSystemError(EBADF); }
  void write(const void* buffer, int size) override {
    const char* next = static_cast<const char*>(buffer);
    while (size > 0) {
      const ssize_t count = ::write(STDOUT_FILENO, next, static_cast<std::size_t>(size));
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) pkg::throwSystemError(errno);
      next += count;
      size -= static_cast<int>(count);
      fPosition += count;
    }
  }
  void seek(long long, int) override { pkg::throwSystemError(ESPIPE); }
  long long tell() override { return fPosition; }  // the library asks where each entry begins
  void flush() override {}
  void truncate(long long) override { pkg::throwSystemError(ESPIPE); }
  std::uint32_t getCapabilities() override { return 0; }
  pkg::IPkgFileSystem<>* getFileSystem() const override { return fFiles; }
  FileName getName() const override { return fName; }

private:
  pkg::IPkgFileSystem<>* fFiles;
  FileName fName;
  long long fPosition = 0;
};

// Standard output for the package; temporary files as usual.
class OutputFiles : public pkg::IPkgFileSystem<> {
public:
  File openFile(const FileName& name, std::ios_base::openmode) override {
    return boost::make_shared<StandardOutput>(this, name);
  }
  File createTempFile() override { return fUsual->createTempFile(); }
  File reopenTempFileByName(const FileName& name, std::ios_base::openmode mode) override {
    return fUsual->reopenTempFileByName(name, mode);
  }
  void deleteTempFileByName(const FileName& name) override { fUsual->deleteTempFileByName(name); }
  // A name knows its file system: it has to be this one, so that the package stays in it.
  FileName getFSFileName(const std::string& name) override {
    return boost::make_shared<pkg::BasePkgFSFileName<>>(this, name);
  }

private:
  pkg::IPkgFileSystem<>* fUsual = pkg::BasePkgFileSystem<>::getInstance();
};

}  // namespace

int main(int argc, char** argv) try {
  OutputFiles files;
  pkg::QCFPackageFactory factory;
  const auto package =
      factory.createConformingPackage("-", "application/x-lines", true, &files, nullptr, nullptr);
  for (int i = 1; i < argc; ++i) {
    std::string line;
    std::getline(std::cin, line);
    const auto stream = package->getFile(argv[i], false)->open(std::ios::out, false);
    stream->exceptions(std::ios::badbit);
    *stream << line << '\n';
    stream->close();
  }
  package->endUpdate();
} catch (const std::exception& e) {
  std::fprintf(stderr, "pipe: %s\n", e.what());
  return 3;
}
