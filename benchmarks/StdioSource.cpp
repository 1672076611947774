// What an import costs when nothing but the layout of the file and the size of the block is
// settled: the block through a std::istream on stdio, sought from the first frame, and the
// conversion of what was asked for, written plainly.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <istream>
#include <memory>
#include <stdexcept>
#include <streambuf>
#include <string>

#include "AudioSources.h"
#include "StdioBlocks.h"

namespace {

template <class Stored>
Stored load(const char* raw) {
  Stored value;
  std::memcpy(&value, raw, sizeof value);
  return value;
}

struct U8 {
  static constexpr std::size_t bytes = 1;
  static float decode(const char* raw) {
    return (static_cast<float>(load<std::uint8_t>(raw)) - 128.0f) * 0x1p-7f;
  }
};

struct S16 {
  static constexpr std::size_t bytes = 2;
  static float decode(const char* raw) {
    return static_cast<float>(load<std::int16_t>(raw)) * 0x1p-15f;
  }
};

struct S24 {
  static constexpr std::size_t bytes = 3;
  static float decode(const char* raw) {
    const std::uint32_t word = static_cast<std::uint32_t>(load<std::uint16_t>(raw)) << 8 |
                               static_cast<std::uint32_t>(load<std::uint8_t>(raw + 2)) << 24;
    return static_cast<float>(static_cast<std::int32_t>(word)) * 0x1p-31f;
  }
};

struct F32 {
  static constexpr std::size_t bytes = 4;
  static float decode(const char* raw) { return load<float>(raw); }
};

// The layout is known to the compiler, so that it can use wide instructions.
template <class Format, std::size_t Stored>
void convert(const char* raw, std::size_t frames, float* const* buffers, std::size_t offset) {
  constexpr std::size_t kDelivered = std::min<std::size_t>(Stored, 6);
  for (std::size_t channel = 0; channel < kDelivered; ++channel) {
    const char* const first = raw + channel * Format::bytes;
    float* const out = buffers[channel] + offset;
    for (std::size_t frame = 0; frame < frames; ++frame)
      out[frame] = Format::decode(first + frame * Stored * Format::bytes);
  }
}

using Convert = void (*)(const char* raw, std::size_t frames, float* const* buffers,
                         std::size_t offset);

Convert converterOf(int bits, std::size_t channels) {
  if (channels == 2 && bits == 8) return convert<U8, 2>;
  if (channels == 2 && bits == 16) return convert<S16, 2>;
  if (channels == 2 && bits == 24) return convert<S24, 2>;
  if (channels == 2 && bits == 32) return convert<F32, 2>;
  if (channels == 8 && bits == 24) return convert<S24, 8>;
  throw std::runtime_error("no such prototype");
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
  StdioSource(const std::string& path, int bits, std::size_t channels)
      : fBuffer(path),
        fStream(&fBuffer),
        fStart(audioStart(path)),
        fBlocks([this](std::int64_t offset, char* bytes,
                       std::size_t size) { return readAt(offset, bytes, size); },
                channels * static_cast<std::size_t>(bits / 8)),
        fConvert(converterOf(bits, channels)) {}

  void read(std::int64_t position, std::uint32_t frames, float* const* buffers) override {
    for (std::size_t done = 0; done < frames;) {
      const auto [raw, held] = fBlocks.from(position + static_cast<std::int64_t>(done));
      const std::size_t count = std::min(frames - done, held);
      if (count == 0) return;
      fConvert(raw, count, buffers, done);
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
  Convert fConvert;
};

}  // namespace

std::unique_ptr<AudioSource> openStdio(const std::string& path, int bits, std::size_t channels) {
  return std::make_unique<StdioSource>(path, bits, channels);
}
