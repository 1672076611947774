// What an import costs when nothing but the layout of the file and the size of the block is
// settled: the block through a std::istream on stdio, sought from the first frame, and the
// conversion of what was asked for, by the importer's own loops.

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <istream>
#include <memory>
#include <streambuf>
#include <string>

#include "AudioSources.h"
#include "SampleFormats.h"
#include "StdioBlocks.h"

namespace {

SampleFormatNumber formatOf(int bits) {
  switch (bits) {
    case 8:
      return SampleFormatUInt8;
    case 16:
      return SampleFormatInt16Little;
    case 24:
      return SampleFormatInt24Little;
    default:
      return SampleFormatFloat32Little;
  }
}

// Behind the head of the chunk of samples, which the file has near its start.
std::int64_t audioStart(const std::string& path) {
  std::string bytes(4096, '\0');
  std::ifstream(path, std::ios::binary)
      .read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  const std::size_t wave = bytes.find("WAVEfmt ");
  return static_cast<std::int64_t>(bytes.find("data", wave) + 8);
}

// Seeks when it reads.
class StdioBuffer : public std::streambuf {
public:
  explicit StdioBuffer(const std::string& path) : fFile(path) {}

protected:
  pos_type seekoff(off_type offset, std::ios::seekdir from, std::ios::openmode) override {
    return fPosition = from == std::ios::cur ? fPosition + offset : offset;
  }
  pos_type seekpos(pos_type position, std::ios::openmode) override { return fPosition = position; }
  std::streamsize xsgetn(char* bytes, std::streamsize size) override {
    const auto count =
        static_cast<off_type>(fFile.read(fPosition, bytes, static_cast<std::size_t>(size)));
    fPosition += count;
    return count;
  }

private:
  StdioFile fFile;
  off_type fPosition = 0;
};

class StdioSource : public AudioSource {
public:
  static constexpr std::size_t kDelivered = 6;  // channels, of however many

  StdioSource(const std::string& path, int bits, std::size_t channels)
      : fBuffer(path),
        fStream(&fBuffer),
        fStart(audioStart(path)),
        fBlocks([this](std::int64_t offset, char* bytes,
                       std::size_t size) { return readAt(offset, bytes, size); },
                channels * static_cast<std::size_t>(bits / 8)),
        fFormat(formatOf(bits)),
        fChannels(channels) {}

  void read(std::int64_t position, std::uint32_t frames, float* const* buffers) override {
    for (std::size_t done = 0; done < frames;) {
      const auto [raw, held] = fBlocks.from(position + static_cast<std::int64_t>(done));
      const std::size_t count = std::min(frames - done, held);
      if (count == 0) return;
      convertFrames(fFormat, raw, fChannels, std::min(fChannels, kDelivered), buffers, done, count);
      done += count;
    }
  }

private:
  std::size_t readAt(std::int64_t offset, char* bytes, std::size_t size) {
    if (fStream.eof()) fStream.clear();
    fStream.seekg(fStart);
    if (offset != 0) fStream.seekg(offset, std::ios::cur);
    fStream.read(bytes, static_cast<std::streamsize>(size));
    return static_cast<std::size_t>(fStream.gcount());
  }

  StdioBuffer fBuffer;
  std::istream fStream;
  std::int64_t fStart;
  Blocks fBlocks;
  SampleFormatNumber fFormat;
  std::size_t fChannels;
};

}  // namespace

std::unique_ptr<AudioSource> openStdio(const std::string& path, int bits, std::size_t channels) {
  return std::make_unique<StdioSource>(path, bits, channels);
}
