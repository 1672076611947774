#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

namespace fuzz {

// What a file tells of itself, taken apart here once more: docs/package-format.md names packages of
// others that a save does not keep.
class Layout {
public:
  explicit Layout(const std::string& bytes) : fBytes(bytes) {
    // The last end record, of which one in the last 22 bytes is taken at once.
    constexpr std::size_t kEnd = 22;
    std::size_t end = bytes.size() - std::min(bytes.size(), kEnd);
    if (bytes.compare(end, 4, "PK\5\6") != 0) end = bytes.rfind("PK\5\6");
    if (end == std::string::npos) return;
    fOffset = number(end + 16, 4);
    std::uint64_t record = fOffset;
    for (std::uint64_t count = number(end + 10, 2); count > 0; --count) {
      look(record);
      record += 46 + number(record + 28, 2) + number(record + 30, 2) + number(record + 32, 2);
    }
  }

  std::uint64_t directoryOffset() const { return fOffset; }
  // That of all entries together.
  std::uint64_t compressedSize() const { return fCompressedSize; }
  // An update in place cuts the file off where the directory begins.
  bool isInFrontOfDirectory() const { return fIsInFront; }
  // A block of an extra field that is left out, or gets another size, goes on being counted.
  bool keepsExtraFields() const { return fKeepsExtraFields; }

private:
  // Zeros where the file has ended.
  std::uint64_t number(std::uint64_t at, std::size_t size) const {
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;)
      value = value << 8 | byte(at + i);
    return value;
  }
  unsigned byte(std::uint64_t at) const {
    if (at >= fBytes.size()) return 0;
    return static_cast<std::uint8_t>(fBytes[static_cast<std::size_t>(at)]);
  }

  void look(std::uint64_t record) {
    const std::uint64_t local = number(record + 42, 4);
    const std::uint64_t headers = 30 + number(local + 26, 2) + number(local + 28, 2);
    const std::uint64_t compressedSize = number(record + 20, 4);
    if (local + headers + compressedSize > fOffset) fIsInFront = false;
    fCompressedSize += compressedSize;
    std::uint64_t block = record + 46 + number(record + 28, 2);
    for (const std::uint64_t end = block + number(record + 30, 2); block + 4 <= end;) {
      const std::uint64_t id = number(block, 2);
      const std::uint64_t size = number(block + 2, 2);
      const bool isTyped = size == 12 && number(block + 4, 4) == 0x5449505A;  // "ZPIT"
      if (id == 1 || (id == 0x2705 && !isTyped)) fKeepsExtraFields = false;
      block += 4 + size;
    }
  }

  const std::string& fBytes;
  std::uint64_t fOffset = 0;
  std::uint64_t fCompressedSize = 0;
  bool fIsInFront = true;
  bool fKeepsExtraFields = true;
};

}  // namespace fuzz
