#include "Rebuild.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>

#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

#include "Texts.h"
#include "UpdateRules.h"
#include "common/Failure.h"

using ziplayout::Entry;
using ziplayout::Header;
using ziplayout::Layout;

namespace {

std::string littleEndian(std::uint64_t value, std::size_t size) {
  std::string bytes;
  for (std::size_t i = 0; i < size; ++i)
    bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
  return bytes;
}

class Patch {
public:
  explicit Patch(const std::string& path)
      : fPath(path), fDescriptor(open(path.c_str(), O_WRONLY | O_CLOEXEC)) {
    if (fDescriptor < 0) fail();
  }
  ~Patch() { close(fDescriptor); }
  Patch(const Patch&) = delete;
  Patch& operator=(const Patch&) = delete;

  void put(std::uint64_t offset, std::uint64_t value, std::size_t size) {
    write(offset, littleEndian(value, size));
  }
  void write(std::uint64_t offset, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t count = pwrite(fDescriptor, bytes.data() + done, bytes.size() - done,
                                   static_cast<off_t>(offset + done));
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) fail();
      done += static_cast<std::size_t>(count);
    }
  }

private:
  [[noreturn]] void fail() const {
    throw tools::Failure(
        fmt::format("cannot write {}: {}", tools::shown(fPath), tools::systemReason()));
  }

  std::string fPath;
  int fDescriptor;
};

// All from the first entry to the end of the last one's data; returns that end in the new file.
std::uint64_t copyData(const Layout& old, Patch& file, const std::function<void(int size)>& wrote) {
  constexpr std::uint64_t kSlice = 1 << 20;
  const std::uint64_t begin = leadingBytes(old);
  std::uint64_t end = 0;
  for (const Entry& entry : old.entries())
    end = std::max(end, entry.end(old.file().size()));
  for (std::uint64_t at = begin; at < end; at += kSlice) {
    const auto size = static_cast<std::size_t>(std::min(kSlice, end - at));
    file.write(at - begin, old.file().read(at, size));
    wrote(static_cast<int>(size));
  }
  return end - begin;
}

// An empty entry that was compressed becomes one that is stored; the bytes behind its header belong
// to nothing then.
void emptyLocalHeader(const Entry& entry, std::uint64_t offset, Patch& file) {
  constexpr std::size_t kFlags = 6, kMethod = 8, kNumbers = 14;
  file.put(offset + kFlags, entry.local->flags & ~ziplayout::kFlagDescriptor, 2);
  file.put(offset + kMethod, ziplayout::kMethodStored, 2);
  file.write(offset + kNumbers, std::string(12, '\0'));  // CRC and both sizes
}

std::string withoutZip64Block(const Header& header) {
  std::string bytes;
  for (const ziplayout::ExtraBlock& block : ziplayout::parseExtra(header.extra).blocks) {
    if (block.id == ziplayout::kExtraZip64) continue;
    bytes += littleEndian(block.id, 2) + littleEndian(block.body.size(), 2) + block.body;
  }
  return bytes;
}

// The record of an entry that lies at `offset` now, as the library copies it whole: with Zip64 only
// where it is needed.
std::string plainRecord(const Layout& old, const Entry& entry, std::uint64_t offset) {
  constexpr std::size_t kFixed = 46, kFlags = 8, kMethod = 10, kCRC = 16, kSizes = 20,
                        kExtraLength = 30, kDisk = 34, kOffset = 42;
  const Header& header = entry.central;
  const bool large = isLarge(entry);
  const bool emptied = isEmptyButStoredOtherwise(entry);
  const std::string extra = large ? header.extra : withoutZip64Block(header);
  std::string record = old.file().read(entry.recordOffset, kFixed);
  const auto put = [&](std::size_t at, std::uint64_t value, std::size_t size) {
    record.replace(at, size, littleEndian(value, size));
  };
  put(kExtraLength, extra.size(), 2);
  if (!large) {
    put(kSizes, emptied ? 0 : header.compressedSize, 4);
    put(kSizes + 4, header.size, 4);
    put(kDisk, 0, 2);
    put(kOffset, offset, 4);
  }
  if (emptied) {
    put(kFlags, header.flags & ~ziplayout::kFlagDescriptor, 2);
    put(kMethod, ziplayout::kMethodStored, 2);
    put(kCRC, 0, 4);
  }
  return record + header.name + extra + entry.comment;
}

// The library takes the stored bytes of an encrypted entry for its content, and counts them.
void restoreSize(const Entry& was, const Entry& is, Patch& patch) {
  constexpr std::size_t kSize = 24, kLocalSize = 22, kDescriptorSize = 12;
  patch.put(is.recordOffset + kSize, was.central.size, 4);
  patch.put(is.offset + kLocalSize, was.central.size, 4);
  if ((is.local->flags & ziplayout::kFlagDescriptor) != 0) {
    patch.put(is.dataOffset + is.central.compressedSize + kDescriptorSize, was.central.size, 4);
  }
}

void restoreEntry(const Entry& was, const Entry& is, Patch& patch) {
  constexpr std::size_t kMadeBy = 4, kNeeded = 6, kFlags = 8, kExternal = 38;
  constexpr std::size_t kLocalFlags = 6;
  if (is.madeBy != was.madeBy) {
    // The upper byte is the system, the lower what the program knew.
    const int version = std::max(is.madeBy & 0xFF, was.madeBy & 0xFF);
    patch.put(is.recordOffset + kMadeBy,
              static_cast<std::uint64_t>((was.madeBy & 0xFF00) | version), 2);
  }
  if (is.central.needed < was.central.needed) {
    patch.put(is.recordOffset + kNeeded, was.central.needed, 2);
  }
  if (is.externalAttributes != was.externalAttributes) {
    patch.put(is.recordOffset + kExternal, was.externalAttributes, 4);
  }
  const bool plainName = (was.central.flags & ziplayout::kFlagUTF8) == 0;
  if (plainName && !isUTF8(was.central.name)) {
    constexpr int kOthers = 0xFFFF & ~ziplayout::kFlagUTF8;
    patch.put(is.recordOffset + kFlags, static_cast<std::uint64_t>(is.central.flags & kOthers), 2);
    patch.put(is.offset + kLocalFlags, static_cast<std::uint64_t>(is.local->flags & kOthers), 2);
  }
}

}  // namespace

std::uint64_t leadingBytes(const Layout& layout) {
  std::uint64_t begin = layout.file().size();
  for (const Entry& entry : layout.entries())
    begin = std::min(begin, entry.offset);
  return begin;
}

void writePlainly(const Layout& old, const std::string& path,
                  const std::function<void(int size)>& wrote) {
  Patch file(path);
  const std::uint64_t end = copyData(old, file, wrote);
  const std::uint64_t begin = leadingBytes(old);
  std::string directory;
  std::set<std::string> names;
  for (const Entry& entry : old.entries()) {
    if (!names.insert(entry.central.name).second) continue;
    const std::uint64_t offset = entry.offset - begin;
    if (isLarge(entry) && begin != 0) {  // its offset may be in a block with other numbers
      throw tools::Failure(
          fmt::format("cannot change {}: bytes stand in front of it, and {} needs Zip64",
                      tools::shown(old.file().path()), tools::shown(entry.central.name)));
    }
    if (isEmptyButStoredOtherwise(entry)) emptyLocalHeader(entry, offset, file);
    directory += plainRecord(old, entry, offset);
  }
  const std::uint64_t count = names.size();
  const std::string& comment = old.end().comment;
  file.write(end, directory + littleEndian(ziplayout::kEndSignature, 4) + littleEndian(0, 4) +
                      littleEndian(count, 2) + littleEndian(count, 2) +
                      littleEndian(directory.size(), 4) + littleEndian(end, 4) +
                      littleEndian(comment.size(), 2) + comment);
}

void restoreHeaders(const ziplayout::Layout& old, const std::string& path) {
  const ziplayout::Layout written(path);
  if (written.defect()) return;  // which the verification tells
  Patch patch(path);
  std::map<std::string, const Entry*> before;
  for (const Entry& entry : old.entries())
    before[entry.central.name] = &entry;
  for (const Entry& entry : written.entries()) {
    const auto found = before.find(entry.central.name);
    if (found == before.end() || !entry.local) continue;
    const Entry& was = *found->second;
    if (was.central.crc != entry.central.crc) continue;
    if (was.isEncrypted() && was.central.size != entry.central.size) {
      restoreSize(was, entry, patch);
    } else if (was.central.size != entry.central.size) {
      continue;
    }
    restoreEntry(was, entry, patch);
  }
}

void restoreDates(const Expectation& expected, const std::string& path) {
  constexpr std::size_t kTime = 12, kLocalTime = 10;
  const ziplayout::Layout written(path);
  if (written.defect()) return;
  Patch patch(path);
  for (const Entry& entry : written.entries()) {
    const auto found = expected.find(entry.central.name);
    if (found == expected.end() || !found->second.modified || !entry.local) continue;
    const DOSMoment& moment = *found->second.modified;
    const std::string bytes = littleEndian(moment.time, 2) + littleEndian(moment.date, 2);
    patch.write(entry.recordOffset + kTime, bytes);
    patch.write(entry.offset + kLocalTime, bytes);
  }
}

void restoreDirectorySize(const std::string& path) {
  constexpr std::size_t kSize = 12, kZip64Size = 40;
  constexpr std::uint64_t kOnes = 0xFFFFFFFF;
  const ziplayout::Layout written(path);
  const ziplayout::End& end = written.end();
  const std::uint64_t length = written.directoryLength();
  if (written.defect() || end.directorySize == length) return;
  Patch patch(path);
  if (end.hasZip64) patch.put(end.zip64Offset + kZip64Size, length, 8);
  patch.put(end.offset + kSize, end.hasZip64 ? std::min(length, kOnes) : length, 4);
}
