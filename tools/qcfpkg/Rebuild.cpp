#include "Rebuild.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

#include "package/QCFPackage.h"

#include "EntryData.h"
#include "Texts.h"
#include "common/Failure.h"

using ziplayout::Entry;
using ziplayout::Header;

namespace {

constexpr auto kNew = std::ios::in | std::ios::out | std::ios::trunc;

std::string typeAndCreator(const Header& header) {
  const auto extra = ziplayout::parseExtra(header.extra);
  const ziplayout::ExtraBlock* const block = extra.find(ziplayout::kExtraTypeCreator);
  std::string text;
  if (block == nullptr || block->body.size() != 12) return text;
  for (const char character : block->body.substr(4)) {
    text += fmt::format("{:02X}", static_cast<unsigned char>(character));
  }
  return text;
}

void copyEntry(const ziplayout::Layout& old, const Entry& entry, pkg::IPackage<>& package) {
  const Header& header = entry.central;
  const bool empty = header.size == 0;
  const auto file = package.getFile(header.name, false);
  if (file->getName() != header.name) {
    throw tools::Failure(fmt::format("cannot change {}: the name {} cannot be written anew",
                                     tools::shown(old.file().path()), tools::shown(header.name)));
  }
  file->setCompressionMethod(empty ? pkg::CompressionStored
                                   : static_cast<pkg::CompressionMethod>(header.method));
  file->setProperty(pkg::QCFPropertyZipDate, hexWord(header.date));
  file->setProperty(pkg::QCFPropertyZipTime, hexWord(header.time));
  const std::string type = typeAndCreator(header);
  if (!type.empty()) file->setProperty(pkg::QCFPropertyZipTypeCreator, type);
  file->setExpectedSize(static_cast<long long>(header.size));
  file->setExpectedCRC32(header.crc);
  const auto stream = file->open(std::ios::out, !empty);
  stream->exceptions(std::ios::badbit);
  if (!empty) {
    ziplayout::readStored(old, entry, [&](const char* data, std::size_t size) {
      stream->write(data, static_cast<std::streamsize>(size));
    });
  }
  stream->close();
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
    std::string bytes;
    for (std::size_t i = 0; i < size; ++i)
      bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
    const ssize_t count =
        pwrite(fDescriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count != static_cast<ssize_t>(bytes.size())) fail();
  }

private:
  [[noreturn]] void fail() const {
    throw tools::Failure(
        fmt::format("cannot write {}: {}", tools::shown(fPath), tools::systemReason()));
  }

  std::string fPath;
  int fDescriptor;
};

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

void rebuildPackage(const ziplayout::Layout& old, const std::string& path, SpoolFileSystem& files) {
  pkg::QCFPackageFactory factory;
  const auto package = factory.openPackage(path, kNew, &files, nullptr, nullptr);
  package->beginUpdate();
  for (const Entry& entry : old.entries()) {
    if (entry.isFolder()) {
      package->getDirectory(entry.central.name, false)->create();
      continue;
    }
    try {
      copyEntry(old, entry, *package);
    } catch (const ziplayout::DataError& error) {
      throw tools::Failure(fmt::format("cannot change {}: {} of {}",
                                       tools::shown(old.file().path()), error.what(),
                                       tools::shown(entry.central.name)));
    }
  }
  if (!old.end().comment.empty()) {
    package->setProperty(pkg::QCFPropertyPackageComment, old.end().comment);
  }
  package->endUpdate();
  package->close();
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
