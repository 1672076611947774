#include "SourceWave.h"

#include <algorithm>
#include <filesystem>

#include <fmt/format.h>

#include "common/Failure.h"

namespace {

constexpr std::uint32_t kRIFF = 0x46464952, kWAVE = 0x45564157;
constexpr std::uint32_t kFormat = 0x20746D66, kData = 0x61746164;
constexpr std::uint32_t kRF64 = 0x34364652, kBW64 = 0x34365742;
constexpr std::uint64_t kHeader = 8, kFirstChunk = 12;

constexpr unsigned kInteger = 1, kFloat = 3, kExtensible = 0xFFFE;

std::uint32_t littleAt(const std::string& bytes, std::size_t offset, std::size_t size) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < size; ++i) {
    value |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[offset + i])) << (8 * i);
  }
  return value;
}

std::string little(std::uint64_t value) {
  std::string bytes;
  for (int i = 0; i < 4; ++i)
    bytes.push_back(static_cast<char>(value >> (8 * i)));
  return bytes;
}

std::uint64_t padded(std::uint64_t size) {
  return size + size % 2;
}

// Why the importer would take samples of this kind for others; empty where it takes them right.
std::string sampleFault(unsigned kind, unsigned bits) {
  if (kind == kInteger && bits == 32) {
    return "32-bit integers would be taken for floats; convert them to 24 bits or to floats";
  }
  if (kind == kInteger && (bits == 8 || bits == 16 || bits == 24)) return {};
  if (kind == kFloat && bits == 32) return {};
  if (kind == kInteger) return fmt::format("integers of {} bits cannot be imported", bits);
  if (kind == kFloat) return fmt::format("floats of {} bits cannot be imported", bits);
  return fmt::format("samples of kind {} cannot be imported, only integers and floats", kind);
}

}  // namespace

SourceWave::SourceWave(const std::string& path) : fPath(path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::none) refuse(error.message());
  if (!std::filesystem::exists(status)) refuse("no such file");
  if (std::filesystem::is_directory(status)) refuse("it is a folder");
  if (!std::filesystem::is_regular_file(status)) refuse("it is not a regular file");
  fFile.open(path, std::ios::binary);
  if (!fFile) refuse(tools::systemReason());
  fSize = std::filesystem::file_size(path, error);
  if (error) refuse(error.message());
  readChunks();
  const Chunk& format = chunk(kFormat, "it does not tell the format of its samples");
  const Chunk& data = chunk(kData, "there is no audio in it");
  readFormat(format);
  checkData(data);
  fFrames = static_cast<std::int64_t>(data.size / fFrameBytes);
  arrange(format, data);
}

void SourceWave::refuse(const std::string& reason) const {
  throw tools::Failure(
      fmt::format("cannot make a document of {}: {}", tools::shown(fPath), reason));
}

std::string SourceWave::bytesAt(std::uint64_t offset, std::size_t size) {
  std::string bytes(size, '\0');
  fFile.seekg(static_cast<std::streamoff>(offset));
  if (!fFile.read(bytes.data(), static_cast<std::streamsize>(size))) refuse("it cannot be read");
  return bytes;
}

void SourceWave::readChunks() {
  const std::string riff = fSize < kFirstChunk ? std::string(12, '\0') : bytesAt(0, 12);
  const std::uint32_t tag = littleAt(riff, 0, 4);
  if (tag == kRF64 || tag == kBW64)
    refuse("only WAV files of up to 2 GB can be imported, not RF64");
  if (tag != kRIFF || littleAt(riff, 8, 4) != kWAVE) refuse("it is not a WAV file");
  for (std::uint64_t at = kFirstChunk; at + kHeader <= fSize;) {
    const std::string header = bytesAt(at, kHeader);
    fChunks.push_back({littleAt(header, 0, 4), at, littleAt(header, 4, 4)});
    at += kHeader + padded(fChunks.back().size);
  }
}

const SourceWave::Chunk& SourceWave::chunk(std::uint32_t tag, const char* reason) const {
  const auto found = std::find_if(fChunks.begin(), fChunks.end(),
                                  [&](const Chunk& candidate) { return candidate.tag == tag; });
  if (found == fChunks.end()) refuse(reason);
  return *found;
}

void SourceWave::readFormat(const Chunk& format) {
  if (format.size < 16 || format.header + kHeader + format.size > fSize) {
    refuse("its format chunk is damaged");
  }
  const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(format.size, 40));
  const std::string bytes = bytesAt(format.header + kHeader, size);
  unsigned kind = littleAt(bytes, 0, 2);
  if (kind == kExtensible && size >= 26) kind = littleAt(bytes, 24, 2);
  const unsigned bits = littleAt(bytes, 14, 2);
  const std::string fault = sampleFault(kind, bits);
  if (!fault.empty()) refuse(fault);
  fChannels = littleAt(bytes, 2, 2);
  fRate = littleAt(bytes, 4, 4);
  fFrameBytes = fChannels * bits / 8;
  if (fChannels == 0) refuse("it has no channels");
  if (fRate == 0) refuse("it has no sample rate");
  // The importer tells the rate as a float, and what writes WAV files takes 31 bits.
  if (static_cast<float>(fRate) >= 2147483648.0f) {
    refuse(fmt::format("a rate of {} Hz is too high to be exported again", fRate));
  }
  if (littleAt(bytes, 12, 2) != fFrameBytes)
    refuse("its frames have another size than its samples");
  // The importer reads in blocks of 32 KiB, which must hold a frame.
  if (fFrameBytes > 32768)
    refuse(fmt::format("{} channels are too many to be imported", fChannels));
  if (format.size % 2 != 0) refuse("its format chunk has an odd size, which importers trip over");
}

void SourceWave::checkData(const Chunk& data) const {
  if (data.header + kHeader + data.size > fSize) refuse("its audio ends too early");
  if (data.size > 0x7FFFFFFF) refuse("only audio of up to 2 GB can be imported");
}

// Whether the importer's walk arrives at the format and then at the data.
bool SourceWave::isStraight(const Chunk& format, const Chunk& data) {
  bool hasFormat = false;
  for (std::uint64_t at = kFirstChunk; at + kHeader <= fSize;) {
    const std::string header = bytesAt(at, kHeader);
    const std::uint32_t tag = littleAt(header, 0, 4);
    if (hasFormat && tag == kData) return at == data.header;
    if (!hasFormat && tag == kFormat) {
      if (at != format.header) return false;
      hasFormat = true;
    }
    at += kHeader + littleAt(header, 4, 4);
  }
  return false;
}

void SourceWave::arrange(const Chunk& format, const Chunk& data) {
  if (isStraight(format, data)) {
    fPieces.push_back({{}, 0, fSize});
    return;
  }
  std::vector<Chunk> chunks{format, data};
  for (const Chunk& other : fChunks) {
    if (other.header != format.header && other.header != data.header) chunks.push_back(other);
  }
  std::uint64_t total = 4;
  for (const Chunk& item : chunks) {
    if (item.header + kHeader + item.size > fSize) refuse("one of its chunks ends behind the file");
    total += kHeader + padded(item.size);
  }
  if (total > 0xFFFFFFFF) refuse("it is too long for a WAV file");
  std::string before = "RIFF" + little(total) + "WAVE";
  for (const Chunk& item : chunks) {
    fPieces.push_back({before, item.header, kHeader + item.size});
    before = std::string(item.size % 2, '\0');
  }
  fPieces.push_back({before, 0, 0});
}

std::uint64_t SourceWave::size() const noexcept {
  std::uint64_t size = 0;
  for (const Piece& piece : fPieces)
    size += piece.before.size() + piece.size;
  return size;
}

void SourceWave::copyTo(const std::function<void(const char*, std::size_t)>& take) {
  constexpr std::uint64_t kBlock = 1 << 16;
  for (const Piece& piece : fPieces) {
    if (!piece.before.empty()) take(piece.before.data(), piece.before.size());
    for (std::uint64_t done = 0; done < piece.size;) {
      const auto count = static_cast<std::size_t>(std::min(kBlock, piece.size - done));
      take(bytesAt(piece.offset + done, count).data(), count);
      done += count;
    }
  }
}
