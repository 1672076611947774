#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>

#include <boost/endian/conversion.hpp>

#include "package/detail/ZipPackage.h"
#include "package/detail/ZpLocalFileEntry.h"
#include "package/detail/impl/ZpCentralDir_read.h"
#include "package/detail/impl/ZpHeaderProperties.h"
#include "package/source/ExtraField.h"

namespace pkg::zip {

// Blocks of other kinds in the record's extra field do not reach the local header.
template <class Context>
ZpLocalFileEntry<Context>::ZpLocalFileEntry(const ZpCentralDirEntry<Context>& record,
                                            ZipPackage<Context>* package)
    : fHeader(record.fHeader),
      fName(record.fName),
      fIsZip64(isLarge(record.fUncompressedSize) || isLarge(record.fCompressedSize)) {
  std::string extra;
  if (fIsZip64) {
    Zip64LocalExtendedInfo block;
    block.uncompressedSize = record.fUncompressedSize;
    block.compressedSize = record.fCompressedSize;
    appendRecord(extra, block);
  }
  const String typeAndCreator = package->getPropertyMgr()->getZipProperty(
      record.getPath(), QCFPropertyZipTypeCreator, nullptr);
  if (!typeAndCreator.empty()) appendTypeCreatorBlock<Context>(extra, typeAndCreator);
  if (extra.empty()) return;
  fExtra = copyBytes<Deleter>(extra.data(), extra.size(), 0);
  fHeader.extraLength = static_cast<std::uint16_t>(extra.size());
}

template <class Context>
void ZpLocalFileEntry<Context>::readLFH(IPkgFSFileCommon* file) {
  if (!readFully(file, &fHeader, sizeof fHeader)) {
    throw PackageIOException<>(PkgLib_Err_ReadCDHBytes);
  }
  fHeader = fHeader.byteswap();
  if (fHeader.signature != kLocalFileHeaderSignature) {
    throw PackageIOException<>(PkgLib_Err_BadLFHSignature);
  }
  // The name has to be there, and no more: the record's counts. The bytes of the extra field are
  // not even read. Only the lengths of both matter, for where the data starts, and nothing is kept
  // for them: many records may lead to one header that claims a lot.
  char passed[4096];
  for (int rest = fHeader.nameLength; rest > 0;) {
    const int part = std::min(rest, static_cast<int>(sizeof passed));
    if (!readFully(file, passed, part)) throw PackageIOException<>(PkgLib_Err_ReadFileName);
    rest -= part;
  }
}

template <class Context>
std::uint64_t ZpLocalFileEntry<Context>::dataOffset() const {
  return std::uint64_t{fHeader.calcStructSize()} + fHeader.nameLength + fHeader.extraLength;
}

// The first block of both sizes; null where there is none.
template <class Context>
char* ZpLocalFileEntry<Context>::findZip64Block() const {
  ExtraFieldWalk walk(fExtra.get(), fHeader.extraLength);
  while (walk.next()) {
    if (walk.id() != kZip64ExtraId) continue;
    const bool whole = walk.totalSize() == sizeof(Zip64LocalExtendedInfo) &&
                       walk.bodyAvailable() == walk.bodySize();
    return whole ? walk.block() : nullptr;
  }
  return nullptr;
}

template <class Context>
void ZpLocalFileEntry<Context>::writeLFH(IPkgFSFileCommon* file, ZipPackage<Context>* package) {
  String typeAndCreator;
  if (fHeader.nameLength != 0) {
    const ZpHeaderProperties<Context> properties(package->getPropertyMgr(), fName.get(), fHeader);
    typeAndCreator = properties.typeAndCreator();
  }
  std::string record;
  appendRecord(record, fHeader);
  if (fHeader.nameLength != 0) record.append(fName.get(), fHeader.nameLength);
  record += composeExtraField(typeAndCreator);
  writeAll<Context>(file, record);
}

// The extra field as it goes to the file. A block that is left out leaves no gap, and the header
// goes on counting it.
template <class Context>
std::string ZpLocalFileEntry<Context>::composeExtraField(const String& typeAndCreator) {
  std::string out;
  ExtraFieldWalk walk(fExtra.get(), fHeader.extraLength);
  while (walk.next()) {
    if (walk.id() == kZip64ExtraId) {
      if (walk.totalSize() != sizeof(Zip64LocalExtendedInfo)) continue;
      fZip64Place = static_cast<std::uint32_t>(out.size());
      out.append(walk.block(), sizeof(ExtraDataHeader) + walk.bodyAvailable());
    } else if (walk.id() == kTypeCreatorExtraId) {
      if (!typeAndCreator.empty()) appendTypeCreatorBlock<Context>(out, typeAndCreator);
    } else {
      out.append(walk.block(), sizeof(ExtraDataHeader) + walk.bodyAvailable());
    }
  }
  return out;
}

template <class Context>
bool ZpLocalFileEntry<Context>::updateFromCDEntry(bool sizesAreFinal,
                                                  const ZpCentralDirEntry<Context>& record) {
  constexpr std::uint64_t kLargest32 = 0xFFFFFFFF;
  if (!fIsZip64 && (record.fUncompressedSize > kLargest32 || record.fCompressedSize > kLargest32)) {
    throw PackageException<>(PkgLib_Err_FileSizeTooBig);
  }
  const CentralDirHeader& central = record.fHeader;
  if (hasDescriptor()) {
    if (!fDescriptor) fDescriptor = std::make_unique<DataDescriptor>();
    fDescriptor->signature = kDataDescriptorSignature;
    fDescriptor->crc32 = central.crc32;
    if (fIsZip64) {
      fDescriptor->sizes64 = {record.fCompressedSize, record.fUncompressedSize};
    } else {
      fDescriptor->sizes32 = {central.compressedSize, central.uncompressedSize};
    }
    return true;
  }

  const bool sameSizes = fHeader.compressedSize() == central.compressedSize &&
                         fHeader.uncompressedSize() == central.uncompressedSize;
  const bool outOfDate = !sameSizes || fHeader.crc32() != central.crc32;
  if (outOfDate) {
    fHeader.setCRC32(central.crc32);
    if (sizesAreFinal && !sameSizes) throw PackageException<>(PkgLib_Err_BadLFHSizeValue);
    fHeader.setSizes(central.compressedSize, central.uncompressedSize);
  }
  return updateZip64Block(record) || outOfDate;
}

// Whether the sizes in the Zip64 block had to change.
template <class Context>
bool ZpLocalFileEntry<Context>::updateZip64Block(const ZpCentralDirEntry<Context>& record) {
  char* const block = fIsZip64 ? findZip64Block() : nullptr;
  if (block == nullptr) return false;
  Zip64LocalExtendedInfo info;
  std::memcpy(static_cast<void*>(&info), block, sizeof info);
  info = info.byteswap();
  if (info.uncompressedSize == record.fUncompressedSize &&
      info.compressedSize == record.fCompressedSize) {
    return false;
  }
  info.uncompressedSize = record.fUncompressedSize;
  info.compressedSize = record.fCompressedSize;
  info = info.byteswap();
  std::memcpy(block, &info, sizeof info);
  return true;
}

template <class Context>
void ZpLocalFileEntry<Context>::writeDescriptor(IPkgFSFileCommon* file) const {
  using boost::endian::native_to_little;
  DataDescriptor onDisk = *fDescriptor;
  onDisk.signature = native_to_little(fDescriptor->signature);
  onDisk.crc32 = native_to_little(fDescriptor->crc32);
  if (fIsZip64) {
    onDisk.sizes64 = {native_to_little(fDescriptor->sizes64.compressed),
                      native_to_little(fDescriptor->sizes64.uncompressed)};
  } else {
    onDisk.sizes32 = {native_to_little(fDescriptor->sizes32.compressed),
                      native_to_little(fDescriptor->sizes32.uncompressed)};
  }
  file->write(&onDisk, fIsZip64 ? DataDescriptor::kSize64 : DataDescriptor::kSize32);
}

template <class Context>
void ZpLocalFileEntry<Context>::patch(IPkgFSFileCommon* file, std::uint64_t offset) {
  constexpr int kFirst = offsetof(LocalFileHeader, crc32Low);
  constexpr int kCount = offsetof(LocalFileHeader, nameLength) - kFirst;
  const LocalFileHeader onDisk = fHeader.byteswap();
  file->seek(static_cast<long long>(offset), SEEK_SET);
  file->seek(kFirst, SEEK_CUR);
  file->write(reinterpret_cast<const char*>(&onDisk) + kFirst, kCount);

  const char* const block = fIsZip64 ? findZip64Block() : nullptr;
  if (block == nullptr) return;
  constexpr int kLengthFields = sizeof(LocalFileHeader) - kFirst - kCount;
  const long long toSizes = kLengthFields + static_cast<long long>(fHeader.nameLength) +
                            fZip64Place + static_cast<long long>(sizeof(ExtraDataHeader));
  file->seek(toSizes, SEEK_CUR);
  file->write(block + sizeof(ExtraDataHeader),
              static_cast<int>(sizeof(Zip64LocalExtendedInfo) - sizeof(ExtraDataHeader)));
}

}  // namespace pkg::zip
