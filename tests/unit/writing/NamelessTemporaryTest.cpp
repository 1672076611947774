#include "unit/writing/Writing.h"

// Temporary files that are made but cannot tell their names.

namespace {

using namespace writing;

// Its first temporary file raises 31 when asked for its name and, where wanted, 32 when closed.
class NamelessFirst : public support::FileSystemWrapper {
public:
  using FileSystemWrapper::FileSystemWrapper;

  bool closeFails = false;
  int closed = 0;
  int alive = 0;

  File createTempFile() override {
    const File file = FileSystemWrapper::createTempFile();
    if (fMade++ != 0) return file;
    return boost::make_shared<Nameless>(*this, file);
  }

private:
  class Nameless : public pkg::IPkgFSFile<> {
  public:
    Nameless(NamelessFirst& system, File file) : fSystem(system), fFile(std::move(file)) {
      ++fSystem.alive;
    }
    ~Nameless() override { --fSystem.alive; }

    openmode getMode() const override { return fFile->getMode(); }
    void close() override {
      ++fSystem.closed;
      fFile->close();
      if (fSystem.closeFails) throw pkg::PackageException<>(pkg::PkgLib_Err_Compressing);
    }
    int read(void* buffer, int size) override { return fFile->read(buffer, size); }
    void write(const void* buffer, int size) override { fFile->write(buffer, size); }
    void seek(long long offset, int whence) override { fFile->seek(offset, whence); }
    long long tell() override { return fFile->tell(); }
    void flush() override { fFile->flush(); }
    void truncate(long long size) override { fFile->truncate(size); }
    std::uint32_t getCapabilities() override { return fFile->getCapabilities(); }
    pkg::IPkgFileSystem<>* getFileSystem() const override { return &fSystem; }
    FileName getName() const override {
      throw pkg::PackageException<>(pkg::PkgLib_Err_Decompressing);
    }

  private:
    NamelessFirst& fSystem;
    File fFile;
  };

  int fMade = 0;
};

class NamelessTemporary : public testing::WithParamInterface<bool>, public Writing {
protected:
  NamelessTemporary() {
    fOld.add(deflatedEntry("a.txt", prose(1000)), deflated(prose(1000)));
    fNameless.closeFails = GetParam();
    fFiles = &fNameless;
  }
  void expectDropped() const {
    EXPECT_EQ(fNameless.closed, 1);
    EXPECT_EQ(fNameless.alive, 0);
  }

  zipbytes::File fOld;
  NamelessFirst fNameless{fMemory};
};

TEST_P(NamelessTemporary, IsClosedAndDroppedWhenAnEntryIsWrittenAndItsExceptionComesOut) {
  const Package package = open(fOld.bytes());
  const File file = package->getFile("a.txt", true);
  EXPECT_RAISED("31", file->open(kOut, false));
  expectDropped();
  EXPECT_EQ(readAll(*file->open(kIn, false)), prose(1000));
  // The next one has a name.
  write(package, "a.txt", "second try");
  EXPECT_EQ(contents(package, "a.txt"), "second try");
  expectDropped();
}

TEST_P(NamelessTemporary, IsClosedAndDroppedWhenAStreamMovesAndItsExceptionComesOut) {
  const Package package = open(fOld.bytes());
  const Stream stream = package->getFile("a.txt", true)->open(kIn, false);
  stream->exceptions(std::ios_base::badbit);
  EXPECT_RAISED("31", stream->seekg(100));
  expectDropped();
  stream->clear();
  stream->seekg(100);
  EXPECT_EQ(readAll(*stream), prose(1000).substr(100));
  expectDropped();
}

INSTANTIATE_TEST_SUITE_P(Close, NamelessTemporary, testing::Bool(), [](const auto& suite) {
  return suite.param ? "ThatFails" : "ThatSucceeds";
});

}  // namespace
