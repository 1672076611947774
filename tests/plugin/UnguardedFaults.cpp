#include "UnguardedFaults.h"

#include <cstdint>
#include <exception>
#include <limits>
#include <stdexcept>

#include "package/QCFPackage.h"

namespace {

void require(bool holds) {
  if (!holds) throw std::runtime_error("refused");
}

// The importer's own transfers are made here once more: damaged data ends them at the same byte.
class Audio {
public:
  explicit Audio(std::istream& stream) : fStream(stream) {}

  std::string take(std::streamsize size) {
    std::string bytes(static_cast<std::size_t>(size), '\0');
    fStream.read(bytes.data(), size);
    require(fStream.gcount() == size);
    return bytes;
  }
  void skip(std::streamsize size) {
    fStream.ignore(size);
    require(fStream.gcount() == size);
  }

private:
  std::istream& fStream;
};

std::uint32_t numberAt(const std::string& bytes, std::size_t offset, std::size_t size) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < size; ++i)
    value |= std::uint32_t{static_cast<unsigned char>(bytes[offset + i])} << (8 * i);
  return value;
}

// Goes to the content of the next chunk with this tag, and returns its size.
std::uint32_t findChunk(Audio& audio, const char* tag) {
  for (;;) {
    const std::string header = audio.take(8);
    const std::uint32_t size = numberAt(header, 4, 4);
    if (header.compare(0, 4, tag) == 0) return size;
    audio.skip(static_cast<std::streamsize>(size));
  }
}

Import importOf(Audio audio) {
  constexpr std::uint32_t kFormat = 16;
  const std::string riff = audio.take(12);
  require(riff.compare(0, 4, "RIFF") == 0 && riff.compare(8, 4, "WAVE") == 0);
  const std::uint32_t size = findChunk(audio, "fmt ");
  require(size >= kFormat);
  const std::string format = audio.take(kFormat);
  // A size of 2 GiB and more counts as negative, and nothing is skipped.
  const std::uint32_t rest = size - kFormat;
  if (rest <= std::uint32_t{std::numeric_limits<std::int32_t>::max()})
    audio.skip(static_cast<std::streamsize>(rest));
  findChunk(audio, "data");
  if (numberAt(format, 12, 2) == 0) return Import::FaultsInOpen;
  const bool noFrames = numberAt(format, 2, 2) == 0 || numberAt(format, 14, 2) < 8;
  return noFrames ? Import::FaultsInLayout : Import::Opened;
}

}  // namespace

Import importOf(const std::string& path) {
  try {
    const auto package = pkg::zip::ZipPackageFactory<>::getInstance()->openPackage(
        path, std::ios::in, nullptr, nullptr, nullptr);
    const auto file = package->getFile("Mixdown.wav", true);
    return importOf(Audio(*file->open(std::ios::in, false)));
  } catch (const std::exception&) {
    return Import::Refused;
  }
}
