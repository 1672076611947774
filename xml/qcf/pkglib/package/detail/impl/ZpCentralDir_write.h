#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

#include <boost/endian/conversion.hpp>
#include <boost/make_shared.hpp>

#include "package/detail/ZipPackage.h"
#include "package/detail/ZpCentralDir.h"
#include "package/detail/impl/ZpHeaderProperties.h"
#include "package/source/ExtraField.h"

namespace pkg::zip {

template <class Context>
typename ZpCentralDir<Context>::EntryPtr ZpCentralDir<Context>::find(const char* name) const {
  const std::size_t found = indexOf(name);
  return found == fEntries.size() ? EntryPtr() : fEntries[found];
}

// Where the first record of a name stands; the count where there is none.
template <class Context>
std::size_t ZpCentralDir<Context>::indexOf(const char* name) const {
  const CompareEntryName isNamed{name};
  const auto begin = fNameHashes.begin();
  const auto end = begin + static_cast<std::ptrdiff_t>(fEntries.size());
  const std::uint32_t hash = hashOfName(name);
  for (auto at = std::find(begin, end, hash); at != end; at = std::find(at + 1, end, hash)) {
    const auto index = static_cast<std::size_t>(at - begin);
    if (isNamed(fEntries[index])) return index;
  }
  return fEntries.size();
}

template <class Context>
std::vector<std::size_t> ZpCentralDir<Context>::firstOfEachName() const {
  std::vector<std::size_t> all;
  all.reserve(fEntries.size());
  NameTable table(fEntries.size());
  for (std::size_t at = 0; at < fEntries.size(); ++at) {
    const CompareEntryName isNamed{fEntries[at]->name().get()};
    NameTable::Index& first = table.place(fNameHashes[at], [&](NameTable::Index index) {
      return fNameHashes[index] == fNameHashes[at] && isNamed(fEntries[index]);
    });
    if (first != NameTable::kNone) continue;
    first = static_cast<NameTable::Index>(at);
    all.push_back(at);
  }
  return all;
}

template <class Context>
void ZpCentralDir<Context>::append(const EntryPtr& entry) {
  add(entry, nameHashOf(*entry));
  count(*entry);
}

template <class Context>
const typename ZpCentralDir<Context>::EntryPtr& ZpCentralDir<Context>::appendCopy(
    const ZpCentralDir& other, std::size_t at) {
  add(boost::make_shared<Entry>(*other.fEntries[at]), other.fNameHashes[at]);
  count(*fEntries.back());
  return fEntries.back();
}

template <class Context>
void ZpCentralDir<Context>::count(const Entry& entry) {
  ++fEntryCount;
  fDirectorySize += entry.sizeOnDisk();
}

template <class Context>
void ZpCentralDir<Context>::erase(const char* name) {
  const std::size_t found = indexOf(name);
  if (found == fEntries.size()) return;
  const auto offset = static_cast<std::ptrdiff_t>(found);
  fEntries.erase(fEntries.begin() + offset);
  fNameHashes.erase(fNameHashes.begin() + offset);
  --fEntryCount;
}

template <class Context>
void ZpCentralDirEntry<Context>::setName(const String& name) {
  const boost::shared_array<char> text = Context::toUTF8(name);
  const std::size_t length = std::strlen(text.get());
  if (length >= 65536) throw PackageException<>(PkgLib_Err_BadArgument);
  fName = copyBytes<Deleter>(text.get(), length, 1);
  fHeader.nameLength = static_cast<std::uint16_t>(length);
}

template <class Context>
std::uint64_t ZpCentralDirEntry<Context>::sizeOnDisk() const {
  return std::uint64_t{fHeader.calcStructSize()} + fHeader.nameLength + fHeader.extraLength +
         fHeader.commentLength;
}

template <class Context>
void ZpCentralDirEntry<Context>::replaceExtra(const char* bytes, std::size_t count) {
  fExtra.reset();
  if (count != 0) fExtra = copyBytes<Deleter>(bytes, count, 0);
  fExtraBytes = static_cast<std::uint32_t>(count);
}

// The Zip64 block in memory has a fixed place for each number, and its size counts only those that
// are there; writeCDH packs it.
class Zip64BlockBuilder {
public:
  Zip64BlockBuilder() { fBlock.id = kZip64ExtraId; }

  // The 32-bit field of `number`, which goes to the offset `place` of the block where it is large.
  std::uint32_t field(std::uint64_t number, std::size_t place) {
    if (!isLarge(number)) return static_cast<std::uint32_t>(number);
    fBlock.size = static_cast<std::uint16_t>(fBlock.size + sizeof number);
    // Byte by byte: no place is aligned for a 64-bit number.
    boost::endian::store_little_u64(reinterpret_cast<unsigned char*>(&fBlock) + place, number);
    return 0xFFFFFFFF;
  }

  bool isNeeded() const { return fBlock.size != 0; }
  std::uint16_t extraLength() const {
    return static_cast<std::uint16_t>(sizeof(ExtraDataHeader) + fBlock.size);
  }
  // The block in file order.
  Zip64ExtendedInfo block() const {
    Zip64ExtendedInfo onDisk = fBlock;
    onDisk.id = boost::endian::native_to_little(fBlock.id);
    onDisk.size = boost::endian::native_to_little(fBlock.size);
    return onDisk;
  }

private:
  Zip64ExtendedInfo fBlock{};
};

template <class Context>
void ZpCentralDirEntry<Context>::setFinalNumbers(std::uint64_t uncompressedSize,
                                                 std::uint64_t compressedSize) {
  fUncompressedSize = uncompressedSize;
  fCompressedSize = compressedSize;
  Zip64BlockBuilder zip64;
  fHeader.uncompressedSize =
      zip64.field(uncompressedSize, offsetof(Zip64ExtendedInfo, uncompressedSize));
  fHeader.compressedSize = zip64.field(compressedSize, offsetof(Zip64ExtendedInfo, compressedSize));
  const std::uint32_t offset = zip64.field(fLocalOffset, offsetof(Zip64ExtendedInfo, localOffset));
  fHeader.localOffsetLow = lowHalf(offset);
  fHeader.localOffsetHigh = highHalf(offset);
  fHeader.versionMadeBy = zip64.isNeeded() ? ZIP64_VERSION : FLATE_VERSION;
  fHeader.versionNeeded = fHeader.versionMadeBy;
  if (!zip64.isNeeded()) return;
  const Zip64ExtendedInfo block = zip64.block();
  fHeader.extraLength = zip64.extraLength();
  // No more than is counted: a walk would take the places behind it for blocks.
  replaceExtra(reinterpret_cast<const char*>(&block), fHeader.extraLength);
}

// The bytes behind the last block, which are too few to be one: the length counts them.
inline void appendRest(std::string& out, ExtraFieldWalk walk) {
  while (walk.next()) {
  }
  if (walk.rest() != 0) out.append(walk.block(), walk.rest());
}

template <class Context>
void ZpCentralDirEntry<Context>::writeCDH(IPkgFSFileCommon* file, ZipPackage<Context>* package) {
  String typeAndCreator;
  if (fHeader.nameLength != 0) {
    const ZpHeaderProperties<Context> properties(package->getPropertyMgr(), fName.get(), fHeader);
    typeAndCreator = properties.typeAndCreator();
  }
  const bool typed = !typeAndCreator.empty();
  const std::size_t oldBlock = typeCreatorBlockSize();
  const std::size_t newBlock = typed ? sizeof(ExtraData_2705) : 0;
  fHeader.extraLength = static_cast<std::uint16_t>(fHeader.extraLength + newBlock - oldBlock);

  std::string record;
  record.reserve(static_cast<std::size_t>(sizeOnDisk()));
  appendRecord(record, fHeader);
  if (fHeader.nameLength != 0) record.append(fName.get(), fHeader.nameLength);
  std::string extra = composeExtraField(typeAndCreator);
  if (typed && oldBlock == 0) appendTypeCreatorBlock<Context>(extra, typeAndCreator);
  appendRest(extra, ExtraFieldWalk(fExtra.get(), fExtraBytes));
  record += extra;
  if (fHeader.commentLength != 0) record.append(fComment.get(), fHeader.commentLength);
  writeAll<Context>(file, record);

  // What was written is what the next writing starts from.
  replaceExtra(extra.data(), extra.size());
}

// The first block of type and creator with its header; 0 where there is none.
template <class Context>
std::size_t ZpCentralDirEntry<Context>::typeCreatorBlockSize() const {
  ExtraFieldWalk walk(fExtra.get(), fHeader.extraLength, fExtraBytes);
  while (walk.next()) {
    if (walk.id() == kTypeCreatorExtraId) return walk.totalSize();
  }
  return 0;
}

// The extra field as it goes to the file. The walk is as long as the adjusted length says: what
// lies beyond it, behind a block that was dropped or cut, is not written.
template <class Context>
std::string ZpCentralDirEntry<Context>::composeExtraField(const String& typeAndCreator) const {
  std::string out;
  ExtraFieldWalk walk(fExtra.get(), fHeader.extraLength, fExtraBytes);
  while (walk.next()) {
    if (walk.id() == kZip64ExtraId) {
      appendZip64Block(out, walk.block());
    } else if (walk.id() == kTypeCreatorExtraId) {
      if (!typeAndCreator.empty()) appendTypeCreatorBlock<Context>(out, typeAndCreator);
    } else {
      out.append(walk.block(), sizeof(ExtraDataHeader) + walk.bodyAvailable());
    }
  }
  return out;
}

// Rebuilds the Zip64 block from the true numbers, packed from the start of a body of the old size.
// Where none is large it is left out, though the extra length counts it.
template <class Context>
void ZpCentralDirEntry<Context>::appendZip64Block(std::string& out, const char* block) const {
  if (!isLarge(fUncompressedSize) && !isLarge(fCompressedSize) && !isLarge(fLocalOffset)) return;
  ExtraDataHeader header;
  std::memcpy(static_cast<void*>(&header), block, sizeof header);
  const std::size_t bodySize = header.byteswap().size;
  std::string body(bodySize, '\0');
  std::size_t at = 0;
  const auto put = [&](bool marked, std::uint64_t number) {
    if (!marked || bodySize - at < sizeof number) return;
    boost::endian::store_little_u64(reinterpret_cast<unsigned char*>(&body[at]), number);
    at += sizeof number;
  };
  put(fHeader.uncompressedSize == 0xFFFFFFFF, fUncompressedSize);
  put(fHeader.compressedSize == 0xFFFFFFFF, fCompressedSize);
  put(fHeader.localOffsetLow == 0xFFFF && fHeader.localOffsetHigh == 0xFFFF, fLocalOffset);
  out.append(block, sizeof header);
  out += body;
}

template <class Context>
void ZpCentralDir<Context>::writeECD(IPkgFSFileCommon* file, ZipPackage<Context>* package) {
  const bool manyEntries = fEntryCount > kLargestEntryCount;
  if (manyEntries || isLarge(fDirectorySize) || isLarge(fDirectoryOffset)) writeZip64End(file);

  fEnd.totalEntries = manyEntries ? 0xFFFF : static_cast<std::uint16_t>(fEntryCount);
  fEnd.entriesOnDisk = fEnd.totalEntries;
  fEnd.directorySize =
      isLarge(fDirectorySize) ? 0xFFFFFFFF : static_cast<std::uint32_t>(fDirectorySize);
  fEnd.directoryOffset =
      isLarge(fDirectoryOffset) ? 0xFFFFFFFF : static_cast<std::uint32_t>(fDirectoryOffset);

  const typename Context::String comment = package->getPropertyMgr()->getZipProperty(
      PkgPropertyMgr<Context>::fPkgPath, QCFPropertyPackageComment, nullptr);
  const boost::shared_array<char> text = Context::toUTF8(comment);
  fEnd.commentLength = static_cast<std::uint16_t>(std::strlen(text.get()));
  fComment.reset();
  if (fEnd.commentLength != 0) {
    fComment = copyBytes<MyArrayDeleter<char>>(text.get(), fEnd.commentLength, 1);
  }

  std::string record;
  appendRecord(record, fEnd);
  if (fComment) record.append(fComment.get(), fEnd.commentLength);
  writeAll<Context>(file, record);
}

template <class Context>
void ZpCentralDir<Context>::writeZip64End(IPkgFSFileCommon* file) {
  fZip64End.updateFromECD(fEnd);
  fZip64End.entriesOnDisk = fEntryCount;
  fZip64End.totalEntries = fEntryCount;
  fZip64End.directorySize = fDirectorySize;
  fZip64End.directoryOffset = fDirectoryOffset;
  fZip64Locator.disk = 0;
  fZip64Locator.recordOffset = static_cast<std::uint64_t>(file->tell());
  fZip64Locator.totalDisks = 1;

  std::string records;
  appendRecord(records, fZip64End);
  appendRecord(records, fZip64Locator);
  writeAll<Context>(file, records);
}

}  // namespace pkg::zip
