#include "EntryData.h"

#include <algorithm>
#include <array>
#include <new>

#include <zlib.h>

#include <fmt/format.h>

namespace ziplayout {
namespace {

constexpr std::size_t kBlock = 1 << 16;

// Counts and sums what goes through.
class Measured {
public:
  Measured(const Entry& entry, const Sink& sink) : fEntry(entry), fSink(sink) {}

  void take(const char* data, std::size_t size) {
    if (fEntry.central.size - fSize < size) {
      throw DataError("data-size", fmt::format("the data is longer than the {} bytes recorded",
                                               fEntry.central.size));
    }
    fSize += size;
    fCRC = crc32_z(fCRC, reinterpret_cast<const Bytef*>(data), size);
    fSink(data, size);
  }

  void finish() const {
    if (fSize != fEntry.central.size) {
      throw DataError("data-size", fmt::format("the data has {} bytes, and {} are recorded", fSize,
                                               fEntry.central.size));
    }
    if (fCRC != fEntry.central.crc) {
      throw DataError("data-crc", fmt::format("the data's CRC is {:08x}, and {:08x} is recorded",
                                              fCRC, fEntry.central.crc));
    }
  }

private:
  const Entry& fEntry;
  const Sink& fSink;
  std::uint64_t fSize = 0;
  uLong fCRC = 0;
};

class Inflater {
public:
  Inflater() {
    if (inflateInit2(&fStream, -15) != Z_OK) throw std::bad_alloc();
  }
  ~Inflater() { inflateEnd(&fStream); }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  void take(const char* data, std::size_t size, Measured& out) {
    fStream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
    fStream.avail_in = static_cast<uInt>(size);
    while (!fDone && fStream.avail_in != 0)
      step(out);
    fRest += fStream.avail_in;
  }

  void finish(Measured& out) {
    fStream.avail_in = 0;
    while (!fDone && step(out) != 0)
      continue;
    if (!fDone) throw DataError("data-damaged", "the deflated data is cut off");
    if (fRest != 0) {
      throw DataError("data-damaged",
                      fmt::format("{} bytes follow the end of the deflated data", fRest));
    }
  }

private:
  // Returns how many bytes came out.
  std::size_t step(Measured& out) {
    std::array<char, kBlock> block;  // left as it is: most entries need little of it
    fStream.next_out = reinterpret_cast<Bytef*>(block.data());
    fStream.avail_out = static_cast<uInt>(block.size());
    const int result = inflate(&fStream, Z_NO_FLUSH);
    const std::size_t size = block.size() - fStream.avail_out;
    if (size != 0) out.take(block.data(), size);
    if (result == Z_STREAM_END) fDone = true;
    if (result == Z_MEM_ERROR) throw std::bad_alloc();
    const bool going = result == Z_OK || result == Z_STREAM_END || result == Z_BUF_ERROR;
    if (!going) throw DataError("data-damaged", "the deflated data is damaged");
    return size;
  }

  z_stream fStream{};
  bool fDone = false;
  std::size_t fRest = 0;
};

void requireReadable(const Entry& entry) {
  if (!entry.local) throw DataError("local-missing", "there is no local header where it should be");
  if (entry.isEncrypted()) throw DataError("encrypted", "it is encrypted");
  const std::uint16_t method = entry.central.method;
  if (method != kMethodStored && method != kMethodDeflated) {
    throw DataError("method-unknown", fmt::format("it is stored by method {}", method));
  }
}

}  // namespace

void readStored(const Layout& layout, const Entry& entry, const Sink& sink) {
  if (!entry.local) throw DataError("local-missing", "there is no local header where it should be");
  std::uint64_t rest = entry.central.compressedSize;
  std::uint64_t at = entry.dataOffset;
  while (rest != 0) {
    const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(rest, kBlock));
    const std::string bytes = layout.file().read(at, part);
    if (bytes.size() != part) {
      throw DataError("data-cut", "the data reaches beyond the end of the file");
    }
    sink(bytes.data(), bytes.size());
    at += part;
    rest -= part;
  }
}

void readEntry(const Layout& layout, const Entry& entry, const Sink& sink) {
  requireReadable(entry);
  Measured measured(entry, sink);
  if (entry.central.method == kMethodStored) {
    readStored(layout, entry,
               [&](const char* data, std::size_t size) { measured.take(data, size); });
  } else if (entry.central.compressedSize != 0 || entry.central.size != 0) {
    Inflater inflater;
    readStored(layout, entry,
               [&](const char* data, std::size_t size) { inflater.take(data, size, measured); });
    inflater.finish(measured);
  }
  measured.finish();
}

std::string readEntry(const Layout& layout, const Entry& entry, std::uint64_t limit) {
  if (entry.central.size > limit) {
    throw DataError("data-size", fmt::format("it has {} bytes, and {} are the most that is read",
                                             entry.central.size, limit));
  }
  constexpr std::uint64_t kMostOfAByte = 1032;  // that deflate makes
  std::string text;
  const std::uint64_t held = std::min(entry.central.compressedSize, layout.file().size());
  text.reserve(static_cast<std::size_t>(std::min(entry.central.size, held * kMostOfAByte)));
  readEntry(layout, entry, [&](const char* data, std::size_t size) { text.append(data, size); });
  return text;
}

}  // namespace ziplayout
