#include "ZipLayout.h"

#include <algorithm>

#include <fmt/format.h>

#include "EntryData.h"
#include "common/Failure.h"

namespace ziplayout {
namespace {

constexpr std::uint32_t kZip64EndSignature = 0x06064b50;
constexpr std::uint32_t kZip64LocatorSignature = 0x07064b50;
constexpr std::uint32_t kDescriptorSignature = 0x08074b50;
constexpr std::uint32_t kOnes32 = 0xFFFFFFFF;
constexpr std::size_t kLocalSize = 30;
constexpr std::size_t kCentralSize = 46;
constexpr std::size_t kEndSize = 22;
constexpr std::size_t kZip64EndSize = 56;
constexpr std::size_t kLocatorSize = 20;

std::uint64_t number(std::string_view bytes, std::size_t at, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = size; i-- > 0;)
    value = value << 8 | static_cast<unsigned char>(bytes.at(at + i));
  return value;
}

bool hasSignature(const std::string& bytes, std::uint32_t signature) {
  return bytes.size() >= 4 && number32(bytes, 0) == signature;
}

// Gives the blocks of an extra field in their order; returns whether they end where it ends.
template <class Take>
bool eachBlock(std::string_view bytes, const Take& take) {
  std::size_t at = 0;
  while (bytes.size() - at >= 4) {
    const std::size_t size = number16(bytes, at + 2);
    if (bytes.size() - at - 4 < size) break;
    take(number16(bytes, at), bytes.substr(at + 4, size));
    at += 4 + size;
  }
  return at == bytes.size();
}

// Takes the numbers that the 32-bit fields send to the Zip64 block of the extra field, in their
// order. Returns whether the field is whole.
bool takeZip64(std::string_view extra, Numbers& header, std::uint64_t* offset) {
  std::optional<std::string_view> block;
  const bool whole = eachBlock(extra, [&](std::uint16_t id, std::string_view body) {
    if (id == kExtraZip64 && !block) block = body;
  });
  std::size_t at = 0;
  const auto take = [&](std::uint64_t& value) {
    if (value != kOnes32) return;
    if (!block || block->size() < at + 8) {
      header.zip64Missing = true;
      return;
    }
    value = number64(*block, at);
    at += 8;
  };
  take(header.size);
  take(header.compressedSize);
  if (offset != nullptr) take(*offset);
  return whole;
}

// The ten fields from the version needed to the sizes stand alike in both headers.
void takeShared(const std::string& bytes, std::size_t at, Numbers& header) {
  header.needed = number16(bytes, at);
  header.flags = number16(bytes, at + 2);
  header.method = number16(bytes, at + 4);
  header.time = number16(bytes, at + 6);
  header.date = number16(bytes, at + 8);
  header.crc = number32(bytes, at + 10);
  header.compressedSize = number32(bytes, at + 14);
  header.size = number32(bytes, at + 18);
}

}  // namespace

std::uint16_t number16(std::string_view bytes, std::size_t at) {
  return static_cast<std::uint16_t>(number(bytes, at, 2));
}
std::uint32_t number32(std::string_view bytes, std::size_t at) {
  return static_cast<std::uint32_t>(number(bytes, at, 4));
}
std::uint64_t number64(std::string_view bytes, std::size_t at) {
  return number(bytes, at, 8);
}

const ExtraBlock* ExtraField::find(std::uint16_t id) const {
  const auto found = std::find_if(blocks.begin(), blocks.end(),
                                  [&](const ExtraBlock& block) { return block.id == id; });
  return found == blocks.end() ? nullptr : &*found;
}

ExtraField parseExtra(const std::string& bytes) {
  ExtraField field;
  field.whole = eachBlock(bytes, [&](std::uint16_t id, std::string_view body) {
    field.blocks.push_back({id, std::string(body)});
  });
  return field;
}

bool Entry::isSymbolicLink() const {
  constexpr int kUnix = 3;
  return madeBy >> 8 == kUnix && (externalAttributes >> 16 & 0170000) == 0120000;
}

bool Entry::lacksDescriptor() const {
  return local && (local->flags & kFlagDescriptor) != 0 && descriptor.length == 0;
}

std::uint64_t Entry::end(std::uint64_t fileSize) const {
  if (!local) return offset;
  const std::uint64_t room = fileSize - std::min(fileSize, dataOffset);
  const std::uint64_t data = std::min(room, central.compressedSize);
  return std::min(fileSize, dataOffset + data + descriptor.length);
}

Layout::Layout(const std::string& path) : fFile(std::make_shared<InputFile>(path)) {
  if (findEnd() && placeDirectory()) readDirectory();
}

void Layout::fail(const std::string& id, std::uint64_t offset, const std::string& text) {
  if (!fDefect) fDefect = Defect{id, offset, text};
}

// The last end record whose comment ends with the file; without one, the last that there is.
bool Layout::findEnd() {
  constexpr std::uint64_t kSlice = 1 << 16;
  std::optional<std::uint64_t> last;
  std::uint64_t limit = fFile->size();
  while (limit >= kEndSize) {
    const std::uint64_t begin = limit > kSlice ? limit - kSlice : 0;
    const std::string slice = fFile->read(begin, static_cast<std::size_t>(limit - begin) + 3);
    for (auto at = slice.rfind("PK\5\6"); at != std::string::npos;
         at = at == 0 ? std::string::npos : slice.rfind("PK\5\6", at - 1)) {
      const std::uint64_t offset = begin + at;
      const std::string record = fFile->read(offset, kEndSize);
      if (record.size() < kEndSize) continue;
      const bool exact = offset + kEndSize + number16(record, 20) == fFile->size();
      if (exact || !last) last = offset;
      if (!exact) continue;
      readEnd(offset);
      return true;
    }
    // A comment has less than a slice; behind that, any signature will do.
    if (last && fFile->size() - begin > kSlice) break;
    if (begin == 0) break;
    limit = begin;
  }
  if (!last) {
    fail("end-missing", fFile->size(), "there is no end record: the file is no ZIP file, or cut");
    return false;
  }
  readEnd(*last);
  return true;
}

void Layout::readEnd(std::uint64_t offset) {
  const std::string record = fFile->read(offset, kEndSize);
  fEnd.offset = offset;
  fEnd.isSplit = number16(record, 4) != number16(record, 6) ||
                 number16(record, 8) != number16(record, 10) || number16(record, 4) != 0;
  fEnd.entries = number16(record, 10);
  fEnd.directorySize = number32(record, 12);
  fEnd.directoryOffset = number32(record, 16);
  fEnd.commentLength = number16(record, 20);
  fEnd.comment = fFile->read(offset + kEndSize, static_cast<std::size_t>(fEnd.commentLength));
  fEnd.trailing = fFile->size() - offset - kEndSize - fEnd.comment.size();
  fEnd.hasLateSignature = fEnd.comment.find("PK\5\6") != std::string::npos;
  readZip64End(record);
}

void Layout::readZip64End(const std::string& record) {
  const bool wanted =
      fEnd.entries == 0xFFFF || fEnd.directorySize == kOnes32 || fEnd.directoryOffset == kOnes32;
  const std::uint64_t at = fEnd.offset;
  const std::string locator = at < kLocatorSize ? "" : fFile->read(at - kLocatorSize, kLocatorSize);
  std::string zip64;
  if (hasSignature(locator, kZip64LocatorSignature)) {
    fEnd.zip64Offset = number64(locator, 8);
    zip64 = fFile->read(fEnd.zip64Offset, kZip64EndSize);
    if (!hasSignature(zip64, kZip64EndSignature) && at >= kLocatorSize + kZip64EndSize) {
      // Bytes in front of the package move it, though not its distance from the end.
      fEnd.zip64Offset = at - kLocatorSize - kZip64EndSize;
      zip64 = fFile->read(fEnd.zip64Offset, kZip64EndSize);
    }
  }
  fEnd.hasZip64 = zip64.size() == kZip64EndSize && hasSignature(zip64, kZip64EndSignature);
  fEnd.zip64Wanted = wanted && !fEnd.hasZip64;
  if (!fEnd.hasZip64) return;
  const auto take = [&](std::uint64_t& field, std::uint64_t ones, std::uint64_t value) {
    if (field != ones && field != value) fEnd.zip64Differs = true;
    if (field == ones) field = value;
  };
  take(fEnd.entries, 0xFFFF, number64(zip64, 32));
  take(fEnd.directorySize, kOnes32, number64(zip64, 40));
  take(fEnd.directoryOffset, kOnes32, number64(zip64, 48));
  fEnd.isSplit = fEnd.isSplit && number16(record, 4) != 0xFFFF;
}

// Where the directory starts: at its recorded offset or, with bytes in front of the package, at its
// recorded distance from the end.
bool Layout::placeDirectory() {
  const std::uint64_t limit = fEnd.hasZip64 ? fEnd.zip64Offset : fEnd.offset;
  const auto startsAt = [&](std::uint64_t offset) {
    if (fEnd.entries == 0) return offset == limit;
    return offset < limit && hasSignature(fFile->read(offset, 4), kCentralSignature);
  };
  if (startsAt(fEnd.directoryOffset)) return true;
  if (fEnd.directorySize <= limit && fEnd.directoryOffset <= limit - fEnd.directorySize) {
    fShift = limit - fEnd.directorySize - fEnd.directoryOffset;
    if (startsAt(directoryOffset())) return true;
    fShift = 0;
  }
  if (fEnd.isSplit) {
    fail("split", fEnd.offset, "it is one part of a split archive");
  } else if (fEnd.zip64Wanted) {
    fail("zip64-end-missing", fEnd.offset, "the Zip64 end record is missing or damaged");
  } else {
    fail("directory-missing", fEnd.offset, "there is no directory where the end record says");
  }
  return false;
}

void Layout::readDirectory() {
  const std::uint64_t limit = fEnd.hasZip64 ? fEnd.zip64Offset : fEnd.offset;
  std::uint64_t at = directoryOffset();
  // More records than are counted are read, too: some programs count in 16 bits and start over.
  while (fEntries.size() < fEnd.entries || hasSignature(fFile->read(at, 4), kCentralSignature)) {
    Entry entry;
    if (!readRecord(at, limit, entry)) {
      fail(fEnd.zip64Wanted ? "zip64-end-missing" : "directory-damaged", at,
           fmt::format("record {} of {} of the directory is damaged or missing",
                       fEntries.size() + 1, fEnd.entries));
      break;
    }
    readLocal(entry);
    at += entry.recordLength;
    fEntries.push_back(std::move(entry));
  }
  fDirectoryLength = at - directoryOffset();
}

bool Layout::readRecord(std::uint64_t offset, std::uint64_t limit, Entry& entry) {
  const std::string record = fFile->read(offset, kCentralSize);
  if (record.size() < kCentralSize || !hasSignature(record, kCentralSignature)) return false;
  const std::size_t nameLength = number16(record, 28);
  const std::size_t extraLength = number16(record, 30);
  const std::size_t commentLength = number16(record, 32);
  const std::size_t length = nameLength + extraLength + commentLength;
  if (offset + kCentralSize + length > limit) return false;
  const std::string texts = fFile->read(offset + kCentralSize, length);
  entry.recordOffset = offset;
  entry.recordLength = kCentralSize + length;
  entry.madeBy = number16(record, 4);
  takeShared(record, 6, entry.central);
  entry.disk = number16(record, 34);
  entry.externalAttributes = number32(record, 38);
  entry.offset = number32(record, 42);
  entry.central.name = texts.substr(0, nameLength);
  entry.central.extra = texts.substr(nameLength, extraLength);
  entry.comment = texts.substr(nameLength + extraLength);
  takeZip64(entry.central.extra, entry.central, &entry.offset);
  entry.offset += fShift;
  return true;
}

void Layout::readLocal(Entry& entry) const {
  const std::string record = fFile->read(entry.offset, kLocalSize);
  if (record.size() < kLocalSize || !hasSignature(record, kLocalSignature)) return;
  const std::size_t nameLength = number16(record, 26);
  const std::size_t extraLength = number16(record, 28);
  const std::uint64_t extraOffset = entry.offset + kLocalSize + nameLength;
  if (extraOffset + extraLength > fFile->size()) return;
  LocalHeader local;
  takeShared(record, 4, local);
  // Only a name of the same length has to be read: many records cannot make that long.
  local.hasCentralName = nameLength == entry.central.name.size() &&
                         fFile->read(entry.offset + kLocalSize, nameLength) == entry.central.name;
  local.hasExtra = extraLength != 0;
  local.extraIsWhole = takeZip64(fFile->read(extraOffset, extraLength), local, nullptr);
  entry.local = local;
  entry.dataOffset = extraOffset + extraLength;
  if ((local.flags & kFlagDescriptor) != 0) readDescriptor(entry);
}

std::string Layout::localName(const Entry& entry) const {
  const std::string record = fFile->read(entry.offset, kLocalSize);
  return fFile->read(entry.offset + kLocalSize, number16(record, 26));
}

// A descriptor has four forms, with and without signature, of 32 and 64 bits. The one that says
// what the central header says is it.
void Layout::readDescriptor(Entry& entry) const {
  const Header& central = entry.central;
  const std::string bytes = fFile->read(entry.dataOffset + central.compressedSize, 24);
  for (const bool isSigned : {true, false}) {
    for (const std::size_t width : {std::size_t{4}, std::size_t{8}}) {
      const std::size_t at = isSigned ? 4 : 0;
      if (bytes.size() < at + 4 + 2 * width) continue;
      if (isSigned && !hasSignature(bytes, kDescriptorSignature)) continue;
      const bool matches = number32(bytes, at) == central.crc &&
                           number(bytes, at + 4, width) == central.compressedSize &&
                           number(bytes, at + 4 + width, width) == central.size;
      if (!matches) continue;
      entry.descriptor = {at + 4 + 2 * width, isSigned};
      return;
    }
  }
}

const Entry* Layout::find(const std::string& name) const {
  const auto found = std::find_if(fEntries.begin(), fEntries.end(),
                                  [&](const Entry& entry) { return entry.central.name == name; });
  return found == fEntries.end() ? nullptr : &*found;
}

std::string Layout::mimeType() const {
  constexpr std::uint64_t kLongest = 1024;
  const Entry* const entry = find("mimetype");
  if (entry == nullptr || entry->central.size > kLongest) return {};
  try {
    const std::string text = readEntry(*this, *entry, kLongest);
    return text.substr(0, text.find_first_of(" \t\r\n"));
  } catch (const DataError&) {  // a type that cannot be read is none
    return {};
  }
}

std::vector<Extent> Layout::extents() const {
  std::vector<Extent> extents;
  for (const Entry& entry : fEntries) {
    if (entry.local) {
      extents.push_back({entry.offset, entry.end(fFile->size()), entry.central.name});
    }
  }
  if (!fDefect || fDirectoryLength != 0) {
    extents.push_back({directoryOffset(), directoryOffset() + fDirectoryLength, ""});
  }
  if (fEnd.hasZip64) {
    extents.push_back({fEnd.zip64Offset, fEnd.zip64Offset + kZip64EndSize, ""});
    extents.push_back({fEnd.offset - kLocatorSize, fEnd.offset, ""});
  }
  extents.push_back({fEnd.offset, fEnd.offset + kEndSize + fEnd.comment.size(), ""});
  std::stable_sort(extents.begin(), extents.end(),
                   [](const Extent& a, const Extent& b) { return a.begin < b.begin; });
  return extents;
}

std::vector<Extent> Layout::gaps() const {
  std::vector<Extent> gaps;
  std::uint64_t at = 0;
  for (const Extent& extent : extents()) {
    if (extent.begin > at) gaps.push_back({at, extent.begin, ""});
    at = std::max(at, extent.end);
  }
  if (at < fFile->size()) gaps.push_back({at, fFile->size(), ""});
  return gaps;
}

void Layout::requireWhole() const {
  if (!fDefect) return;
  throw tools::Failure(
      fmt::format("cannot read {}: {}", tools::shown(fFile->path()), fDefect->text));
}

}  // namespace ziplayout
