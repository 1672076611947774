#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Writes the records of a ZIP file byte by byte, by the published format and nothing else, so that
// expectations about packages do not lean on the code that they judge. Every number is a field that
// a test can set, legal or not; no length, offset or count is worked out unless a function says so.
namespace zipbytes {

using Bytes = std::string;

inline Bytes le(std::uint64_t value, int size) {
  Bytes out;
  for (int i = 0; i < size; ++i)
    out += static_cast<char>((value >> (8 * i)) & 0xFF);
  return out;
}
inline Bytes u16(std::uint64_t value) {
  return le(value, 2);
}
inline Bytes u32(std::uint64_t value) {
  return le(value, 4);
}
inline Bytes u64(std::uint64_t value) {
  return le(value, 8);
}

// CRC-32 of the ZIP format, bit by bit.
inline std::uint32_t crc32(std::string_view data) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char c : data) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit)
      crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
  }
  return ~crc;
}

// One block of an extra field.
inline Bytes extraBlock(std::uint16_t id, std::string_view body) {
  return u16(id) + u16(body.size()) + Bytes(body);
}
// The Zip64 block, of as many 64-bit numbers as are given.
inline Bytes zip64Block(const std::vector<std::uint64_t>& numbers) {
  Bytes body;
  for (const std::uint64_t number : numbers)
    body += u64(number);
  return extraBlock(0x0001, body);
}
// The block of file type and creator, eight bytes together.
inline Bytes typeCreatorBlock(std::string_view typeAndCreator) {
  return extraBlock(0x2705, "ZPIT" + Bytes(typeAndCreator));
}

// Raw deflate data that only stores: one final block of at most 65535 bytes.
inline Bytes storedDeflate(std::string_view data) {
  return Bytes(1, '\x01') + u16(data.size()) + u16(~data.size()) + Bytes(data);
}

// What local and central header of an entry say, and where the entry lies.
struct Entry {
  Bytes name;
  std::uint16_t flags = 0;
  std::uint16_t method = 0;
  std::uint16_t time = 0;
  std::uint16_t date = 0x0021;  // 1 January 1980
  std::uint32_t crc = 0;
  std::uint32_t compressedSize = 0;
  std::uint32_t size = 0;
  Bytes localExtra;
  Bytes centralExtra;
  Bytes comment;
  std::uint16_t versionMadeBy = 20;
  std::uint16_t versionNeeded = 20;
  std::uint16_t disk = 0;
  std::uint16_t internalAttributes = 0;
  std::uint32_t externalAttributes = 0;
  std::uint32_t offset = 0;  // of the local header
  // Lengths that lie, where they are not negative.
  int localExtraLength = -1;
  int centralExtraLength = -1;
  std::uint32_t localSignature = 0x04034b50;
  std::uint32_t centralSignature = 0x02014b50;
};

// An entry that holds `data` as it stands.
inline Entry storedEntry(Bytes name, std::string_view data) {
  Entry entry;
  entry.name = std::move(name);
  entry.crc = crc32(data);
  entry.compressedSize = static_cast<std::uint32_t>(data.size());
  entry.size = static_cast<std::uint32_t>(data.size());
  return entry;
}

// An entry whose `data` is stored as `deflated`.
inline Entry deflatedEntry(Bytes name, std::string_view data, std::string_view deflated) {
  Entry entry = storedEntry(std::move(name), data);
  entry.method = 8;
  entry.compressedSize = static_cast<std::uint32_t>(deflated.size());
  return entry;
}

inline Bytes localHeader(const Entry& e) {
  const auto extraLength =
      e.localExtraLength < 0 ? e.localExtra.size() : static_cast<std::size_t>(e.localExtraLength);
  return u32(e.localSignature) + u16(e.versionNeeded) + u16(e.flags) + u16(e.method) + u16(e.time) +
         u16(e.date) + u32(e.crc) + u32(e.compressedSize) + u32(e.size) + u16(e.name.size()) +
         u16(extraLength) + e.name + e.localExtra;
}

inline Bytes centralHeader(const Entry& e) {
  const auto extraLength = e.centralExtraLength < 0
                               ? e.centralExtra.size()
                               : static_cast<std::size_t>(e.centralExtraLength);
  return u32(e.centralSignature) + u16(e.versionMadeBy) + u16(e.versionNeeded) + u16(e.flags) +
         u16(e.method) + u16(e.time) + u16(e.date) + u32(e.crc) + u32(e.compressedSize) +
         u32(e.size) + u16(e.name.size()) + u16(extraLength) + u16(e.comment.size()) + u16(e.disk) +
         u16(e.internalAttributes) + u32(e.externalAttributes) + u32(e.offset) + e.name +
         e.centralExtra + e.comment;
}

inline Bytes dataDescriptor(std::uint32_t crc, std::uint32_t compressed, std::uint32_t size) {
  return u32(0x08074b50) + u32(crc) + u32(compressed) + u32(size);
}
inline Bytes dataDescriptor64(std::uint32_t crc, std::uint64_t compressed, std::uint64_t size) {
  return u32(0x08074b50) + u32(crc) + u64(compressed) + u64(size);
}

struct End {
  std::uint16_t entries = 0;
  std::uint32_t directorySize = 0;
  std::uint32_t directoryOffset = 0;
  Bytes comment;
  std::uint16_t disk = 0;
  std::uint16_t directoryDisk = 0;
  int entriesOnDisk = -1;  // as `entries` where negative
  int commentLength = -1;  // that of `comment` where negative
  std::uint32_t signature = 0x06054b50;
};

inline Bytes endRecord(const End& e) {
  return u32(e.signature) + u16(e.disk) + u16(e.directoryDisk) +
         u16(e.entriesOnDisk < 0 ? e.entries : static_cast<unsigned>(e.entriesOnDisk)) +
         u16(e.entries) + u32(e.directorySize) + u32(e.directoryOffset) +
         u16(e.commentLength < 0 ? e.comment.size() : static_cast<unsigned>(e.commentLength)) +
         e.comment;
}

struct Zip64End {
  std::uint64_t entries = 0;
  std::uint64_t directorySize = 0;
  std::uint64_t directoryOffset = 0;
  std::uint64_t recordSize = 44;
  std::uint16_t versionMadeBy = 45;
  std::uint16_t versionNeeded = 45;
  std::uint32_t signature = 0x06064b50;
};

inline Bytes zip64EndRecord(const Zip64End& e) {
  return u32(e.signature) + u64(e.recordSize) + u16(e.versionMadeBy) + u16(e.versionNeeded) +
         u32(0) + u32(0) + u64(e.entries) + u64(e.entries) + u64(e.directorySize) +
         u64(e.directoryOffset);
}

inline Bytes zip64Locator(std::uint64_t zip64EndOffset, std::uint32_t disks = 1,
                          std::uint32_t signature = 0x07064b50) {
  return u32(signature) + u32(0) + u64(zip64EndOffset) + u32(disks);
}

// A file put together from front to back. It knows offsets, the directory and the end record, and
// nothing else.
class File {
public:
  // Appends bytes that belong to no record.
  File& raw(std::string_view bytes) {
    fBytes += bytes;
    return *this;
  }
  // Appends local header, data and what may follow the data, and lists the entry in the directory.
  File& add(Entry entry, std::string_view data, std::string_view behind = {}) {
    return addAs(entry, entry, data, behind);
  }
  // The same where the two headers differ. The offset of `central` is set.
  File& addAs(const Entry& local, Entry central, std::string_view data,
              std::string_view behind = {}) {
    central.offset = static_cast<std::uint32_t>(fBytes.size());
    fBytes += localHeader(local);
    fBytes += data;
    fBytes += behind;
    return list(central);
  }
  // Lists an entry that lies where its offset says.
  File& list(const Entry& central) {
    fDirectory += centralHeader(central);
    ++fCount;
    return *this;
  }
  std::uint32_t offset() const { return static_cast<std::uint32_t>(fBytes.size()); }
  // An end record that says what is true.
  End end(Bytes comment = {}) const {
    End end;
    end.entries = fCount;
    end.directorySize = static_cast<std::uint32_t>(fDirectory.size());
    end.directoryOffset = offset();
    end.comment = std::move(comment);
    return end;
  }
  const Bytes& directory() const { return fDirectory; }
  // The whole file.
  Bytes bytes() const { return bytes(end()); }
  Bytes bytes(const End& end) const { return fBytes + fDirectory + endRecord(end); }

private:
  Bytes fBytes;
  Bytes fDirectory;
  std::uint16_t fCount = 0;
};

}  // namespace zipbytes
