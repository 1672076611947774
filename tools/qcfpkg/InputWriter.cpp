#include "InputWriter.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <fmt/format.h>

#include "Texts.h"
#include "common/Failure.h"

namespace {

// An input that is open for reading.
class Source {
public:
  explicit Source(const Input& input) : fInput(input) {
    fDescriptor =
        input.source == "-" ? dup(STDIN_FILENO) : open(input.source.c_str(), O_RDONLY | O_CLOEXEC);
    if (fDescriptor < 0) fail();
  }
  ~Source() { close(fDescriptor); }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  // 0 at the end.
  std::size_t read(char* buffer, std::size_t size) {
    for (;;) {
      const ssize_t count = ::read(fDescriptor, buffer, size);
      if (count >= 0) return static_cast<std::size_t>(count);
      if (errno != EINTR) fail();
    }
  }

private:
  [[noreturn]] void fail() const {
    throw tools::Failure(
        fmt::format("cannot read {}: {}", tools::shown(fInput.source), tools::systemReason()));
  }

  const Input& fInput;
  int fDescriptor;
};

Expected writeData(Source& source, pkg::IPkgStream<>& stream, WriteProgress& progress) {
  std::vector<char> block(1 << 16);
  uLong crc = 0;
  Expected written;
  while (const std::size_t size = source.read(block.data(), block.size())) {
    stream.write(block.data(), static_cast<std::streamsize>(size));
    crc = crc32_z(crc, reinterpret_cast<const Bytef*>(block.data()), size);
    written.size += size;
    progress.read(size);
  }
  written.crc = static_cast<std::uint32_t>(crc);
  return written;
}

// Room in the local header is settled when an entry begins: what may pass 4 GiB is announced as
// doing so.
void announceSize(const Input& input, pkg::IPkgFile<>& file) {
  constexpr std::uint64_t kMayGrowLarge = 0xFFF00000;  // what cannot be compressed grows a little
  constexpr std::uint64_t kLarge = std::uint64_t{1} << 32;
  const std::uint64_t size = input.size.value_or(kLarge);
  if (size < kMayGrowLarge) return;
  file.setExpectedSize(static_cast<long long>(std::max(size, kLarge)));
}

}  // namespace

void writeInput(pkg::IPackage<>& package, const Input& input, bool stored, Expectation& expected,
                WriteProgress& progress) {
  const DOSMoment moment = dosMoment(input.modified);
  if (input.isFolder()) {
    if (package.entryExists(input.name) != pkg::PkgEntryNone) return;
    package.getDirectory(input.name, false)->create();
    expected[input.name].modified = moment;
    return;
  }
  const WriteProgress::InInput inInput(progress);
  Source source(input);
  const auto file = package.getFile(input.name, false);
  file->setCompressionMethod(stored ? pkg::CompressionStored : pkg::CompressionDeflated);
  file->setProperty(pkg::QCFPropertyZipDate, hexWord(moment.date));
  file->setProperty(pkg::QCFPropertyZipTime, hexWord(moment.time));
  announceSize(input, *file);
  const auto stream = file->open(std::ios::out, false);
  stream->exceptions(std::ios::badbit);
  expected[input.name] = writeData(source, *stream, progress);
  expected[input.name].modified = moment;
  stream->close();
}
