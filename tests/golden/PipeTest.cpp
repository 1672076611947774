#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>

#include <unistd.h>

#include "golden/Golden.h"
#include "support/Raised.h"
#include "support/Run.h"
#include "support/TempDir.h"

// A package that is written straight into a real pipe, and read at its other end.

namespace {

using namespace golden;

// A shell command that reads what is written to it.
class Consumer {
public:
  explicit Consumer(const std::string& command) : fPipe(::popen(command.c_str(), "w")) {
    if (fPipe == nullptr) throw std::runtime_error("cannot run " + command);
  }
  ~Consumer() {
    if (fPipe != nullptr) ::pclose(fPipe);
  }
  Consumer(const Consumer&) = delete;
  Consumer& operator=(const Consumer&) = delete;

  int descriptor() const { return ::fileno(fPipe); }
  // Ends its input; whether it was content.
  bool finish() { return ::pclose(std::exchange(fPipe, nullptr)) == 0; }

private:
  FILE* fPipe;
};

// A file system of which one file is a pipe's end.
class PipeFileSystem : public support::FileSystemWrapper {
public:
  PipeFileSystem(pkg::IPkgFileSystem<>& inner, std::string name, int descriptor)
      : FileSystemWrapper(inner), fName(std::move(name)), fDescriptor(descriptor) {}

protected:
  void write(InnerFile& file, const void* buffer, int size) override {
    if (!isPipe(file)) return file.write(buffer, size);
    const char* next = static_cast<const char*>(buffer);
    for (int left = size; left > 0;) {
      const auto count = ::write(fDescriptor, next, static_cast<std::size_t>(left));
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) pkg::throwSystemError(errno);
      next += count;
      left -= static_cast<int>(count);
    }
    fWritten += size;
  }
  void seek(InnerFile& file, long long offset, int whence) override {
    if (isPipe(file)) pkg::throwSystemError(ESPIPE);
    file.seek(offset, whence);
  }
  long long tell(InnerFile& file) override { return isPipe(file) ? fWritten : file.tell(); }
  void truncate(InnerFile& file, long long size) override {
    if (isPipe(file)) pkg::throwSystemError(EINVAL);
    file.truncate(size);
  }
  std::uint32_t capabilities(InnerFile& file) override {
    const std::uint32_t all = file.getCapabilities();
    return isPipe(file) ? all & ~std::uint32_t{pkg::IPkgFSFileCommon::CapabilitySeek} : all;
  }

private:
  bool isPipe(InnerFile& file) const { return file.getName()->getName() == fName; }

  std::string fName;
  int fDescriptor;
  long long fWritten = 0;
};

struct Case {
  std::int32_t descriptor;
  std::int32_t crc;
  pkg::CompressionMethod method;
  std::string outcome;

  friend std::ostream& operator<<(std::ostream& out, const Case& c) {
    return out << "descriptor " << c.descriptor << ", CRC " << c.crc << ", method " << c.method;
  }
};

class Pipe : public Golden, public testing::WithParamInterface<Case> {
protected:
  Pipe() : fFormerHandler(std::signal(SIGPIPE, SIG_IGN)) {}
  ~Pipe() override { std::signal(SIGPIPE, fFormerHandler); }

  // Writes a package of two entries, whose numbers are announced, to a command.
  support::Raised writeTo(const Consumer& consumer) {
    PipeFileSystem files(fMemory, "new.pkg", consumer.descriptor());
    fFiles = &files;
    fPolicies.descriptor = GetParam().descriptor;
    fPolicies.crc = GetParam().crc;
    const Package package = create();
    return support::raised([&] {
      writeAnnounced(package, "a.txt");
      writeAnnounced(package, "d/b.txt");
      package->endUpdate();
    });
  }
  void writeAnnounced(const Package& package, const Bytes& name) {
    const auto file = package->getFile(name, false);
    file->setExpectedSize(static_cast<long long>(fText.size()));
    file->setExpectedCRC32(zipbytes::crc32(fText));
    write(package, name, fText, GetParam().method);
  }
  // What a reader made of it: its complaint, or nothing.
  std::string listed() {
    Consumer bsdtar("bsdtar -tf - >'" + (fFolder / "names").string() + "' 2>/dev/null");
    const support::Raised raised = writeTo(bsdtar);
    if (raised == support::misuse(17)) return "raises 17";
    EXPECT_EQ(support::nothing(), raised);
    const bool content = bsdtar.finish() && fFolder.read("names") == "a.txt\nd/b.txt\n";
    return content ? "" : "bsdtar -t, ";
  }
  std::string extracted() {
    std::filesystem::create_directory(fFolder / "out");
    Consumer bsdtar("tee '" + (fFolder / "a.zip").string() + "' | bsdtar -xf - -C '" +
                    (fFolder / "out").string() + "' 2>/dev/null");
    EXPECT_EQ(support::nothing(), writeTo(bsdtar));
    const bool content = bsdtar.finish() && isText("out/a.txt") && isText("out/d/b.txt");
    return content ? "" : "bsdtar -x, ";
  }
  // Of the bytes that came out of the pipe.
  std::string readByZipfile() {
    const support::Finished finished = support::run(
        {{"python3", "-m", "zipfile", "-e", "a.zip", "python"}, {}, fFolder.path(), {}});
    return finished.succeeded() && isText("python/a.txt") && isText("python/d/b.txt") ? ""
                                                                                      : "zipfile, ";
  }
  bool isText(const std::string& name) const {
    return std::filesystem::exists(fFolder / name) && fFolder.read(name) == fText;
  }

  void (*fFormerHandler)(int);
  support::TempDir fFolder;
  Bytes fText = prose(200000);  // more than a pipe holds
};

TEST_P(Pipe, IsReadAtItsOtherEnd) {
  std::string complaints = listed();
  if (complaints != "raises 17") {
    complaints += extracted();  // captures, too, what zipfile reads
    complaints += readByZipfile();
  }
  EXPECT_EQ(GetParam().outcome, complaints);
}

// Answer 5 records no CRC, whatever the data is; a header without descriptor keeps what it began
// with, be it no CRC or, of deflated data, the wrong size.
const std::string kNone;
const std::string kNoCRC = "bsdtar -x, zipfile, ";
const std::string kNoLocalCRC = "bsdtar -x, ";
const std::string kWrongSize = "raises 17";

constexpr auto kStored = pkg::CompressionStored;
constexpr auto kDeflated = pkg::CompressionDeflated;

INSTANTIATE_TEST_SUITE_P(
    Answers, Pipe,
    testing::Values(
        Case{0, 0, kStored, kNone}, Case{0, 4, kStored, kNone}, Case{0, 5, kStored, kNoCRC},
        Case{0, 1, kStored, kNone}, Case{2, 0, kStored, kNone}, Case{2, 4, kStored, kNone},
        Case{2, 5, kStored, kNoCRC}, Case{2, 1, kStored, kNone}, Case{3, 0, kStored, kNone},
        Case{3, 4, kStored, kNone}, Case{3, 5, kStored, kNoCRC}, Case{3, 1, kStored, kNoLocalCRC},
        Case{0, 0, kDeflated, kNone}, Case{0, 4, kDeflated, kNone}, Case{0, 5, kDeflated, kNoCRC},
        Case{0, 1, kDeflated, kNone}, Case{2, 0, kDeflated, kNone}, Case{2, 4, kDeflated, kNone},
        Case{2, 5, kDeflated, kNoCRC}, Case{2, 1, kDeflated, kNone},
        Case{3, 0, kDeflated, kWrongSize}, Case{3, 4, kDeflated, kWrongSize},
        Case{3, 5, kDeflated, kWrongSize}, Case{3, 1, kDeflated, kWrongSize}),
    [](const auto& suite) {
      return "Descriptor" + std::to_string(suite.param.descriptor) + "CRC" +
             std::to_string(suite.param.crc) +
             (suite.param.method == kStored ? "Stored" : "Deflated");
    });

}  // namespace
