#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

#include <zlib.h>

#include "support/ZipBytes.h"

namespace failures {

// What a package file holds, read by its directory with nothing of the library.
struct ListedEntry {
  zipbytes::Bytes content;  // as far as it can be had
  bool sound = false;       // its size and CRC are those of the record

  friend bool operator==(const ListedEntry& a, const ListedEntry& b) {
    return a.content == b.content && a.sound == b.sound;
  }
};
using Listing = std::map<std::string, ListedEntry>;

class ListingReader {
public:
  explicit ListingReader(const zipbytes::Bytes& file) : fFile(file) {}

  // Raises std::runtime_error where the file is no package.
  Listing read() const {
    const std::size_t end = fFile.rfind(zipbytes::u32(0x06054b50));
    if (end == zipbytes::Bytes::npos) throw std::runtime_error("no end record");
    std::size_t at = u32(end + 16);
    Listing all;
    for (std::uint32_t i = u16(end + 10); i > 0; --i) {
      requireSignature(at, 0x02014b50);
      const std::uint32_t nameLength = u16(at + 28);
      all[fFile.substr(at + 46, nameLength)] = readEntry(at);
      at += 46 + nameLength + u16(at + 30) + u16(at + 32);
    }
    if (at != end) throw std::runtime_error("the directory does not end at its end record");
    return all;
  }

private:
  ListedEntry readEntry(std::size_t record) const {
    const std::size_t local = u32(record + 42);
    requireSignature(local, 0x04034b50);
    const std::size_t data = local + 30 + u16(local + 26) + u16(local + 28);
    const zipbytes::Bytes stored = fFile.substr(data, u32(record + 20));
    ListedEntry entry;
    entry.content = u16(record + 10) == 0 ? stored : inflated(stored);
    entry.sound = entry.content.size() == u32(record + 24) &&
                  crcOf(entry.content) == u32(record + 16) && u32(record + 16) == u32(local + 14) &&
                  u32(record + 20) == u32(local + 18) && u32(record + 24) == u32(local + 22);
    return entry;
  }

  static std::uint32_t crcOf(const zipbytes::Bytes& bytes) {
    return static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
  }

  // As much as comes out of raw deflate data, whole or not.
  static zipbytes::Bytes inflated(const zipbytes::Bytes& deflated) {
    z_stream z{};
    if (inflateInit2(&z, -15) != Z_OK) throw std::runtime_error("inflateInit2");
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(deflated.data()));
    z.avail_in = static_cast<uInt>(deflated.size());
    zipbytes::Bytes out;
    char block[4096];
    do {
      z.next_out = reinterpret_cast<Bytef*>(block);
      z.avail_out = sizeof block;
      if (inflate(&z, Z_NO_FLUSH) < 0) break;
      out.append(block, sizeof block - z.avail_out);
    } while (z.avail_out == 0);
    inflateEnd(&z);
    return out;
  }

  std::uint32_t u16(std::size_t at) const {
    return static_cast<std::uint8_t>(fFile.at(at)) |
           static_cast<std::uint32_t>(static_cast<std::uint8_t>(fFile.at(at + 1))) << 8;
  }
  std::uint32_t u32(std::size_t at) const { return u16(at) | u16(at + 2) << 16; }
  void requireSignature(std::size_t at, std::uint32_t signature) const {
    if (u32(at) != signature) throw std::runtime_error("no record at " + std::to_string(at));
  }

  const zipbytes::Bytes& fFile;
};

inline Listing listed(const zipbytes::Bytes& file) {
  return ListingReader(file).read();
}

}  // namespace failures
