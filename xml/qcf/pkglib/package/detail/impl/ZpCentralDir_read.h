#pragma once

#include <cstdio>
#include <cstring>
#include <utility>

#include <boost/endian/conversion.hpp>
#include <boost/make_shared.hpp>

#include "package/detail/BasePkgHexStrings.h"
#include "package/detail/ZipPackage.h"
#include "package/detail/ZpCentralDir.h"
#include "package/source/ExtraField.h"

namespace pkg::zip {

template <class Context>
ZpCentralDir<Context>::ZpCentralDir(std::size_t spare) : fEnd(0), fZip64End(), fZip64Locator() {
  fZip64End.signature = kZip64EndCentralDirectorySignature;
  fZip64Locator.signature = kZip64LocatorSignature;
  fEntries.reserve(spare);
}

template <class Context>
bool ZpCentralDir<Context>::CompareEntryName::operator()(const EntryPtr& entry) const {
  return entry->fName && std::strcmp(entry->fName.get(), name) == 0;
}

template <class Context>
std::uint32_t nameHashOf(const ZpCentralDirEntry<Context>& entry) {
  return entry.fName ? hashOfName(entry.fName.get()) : 0;
}

template <class Context>
void ZpCentralDir<Context>::add(EntryPtr entry, std::uint32_t nameHash) {
  fNameHashes.resize(fEntries.size());  // without one that an addition cut short left behind
  fNameHashes.push_back(nameHash);
  fEntries.push_back(std::move(entry));
}

inline bool readFully(IPkgFSFileCommon* file, void* buffer, int size) {
  return file->read(buffer, size) == size;
}

// Reads `length` bytes with a NUL behind them, or raises `code`.
template <class Deleter>
boost::shared_array<char> readText(IPkgFSFileCommon* file, std::uint16_t length,
                                   PkgLib_Package_Error code) {
  boost::shared_array<char> text(new char[length + std::size_t{1}], Deleter());
  if (!readFully(file, text.get(), length)) throw PackageIOException<>(code);
  text[length] = '\0';
  return text;
}

template <class Context>
void ZpCentralDir<Context>::readECD(IPkgFSFileCommon* file, ZipPackage<Context>* package) {
  if (!file->isSeekable()) throw PackageIOException<>(PkgLib_Err_ReadECD);
  file->seek(-static_cast<long long>(sizeof fEnd), SEEK_END);
  const long long position = file->tell();
  if (!readFully(file, &fEnd, sizeof fEnd)) throw PackageIOException<>(PkgLib_Err_ReadECD);
  if (fEnd.byteswap().signature == kEndCentralDirectorySignature) {
    fEnd =
        fEnd.byteswap();  // the comment, should the record speak of one, would lie beyond the file
  } else {
    const long long found = findEndRecord(file, position);
    fEnd = fEnd.byteswap();
    readComment(file, package, found + static_cast<long long>(sizeof fEnd));
  }
  takeNumbersOfEnd();
}

// Scans backward from `position` to offset 3 of the file, in slices that overlap by three bytes,
// for the last end signature. Reads that record and returns where it stands.
template <class Context>
long long ZpCentralDir<Context>::findEndRecord(IPkgFSFileCommon* file, long long position) {
  constexpr int kSlice = 4096;
  constexpr int kOverlap = 3;
  char slice[kSlice];
  const std::uint32_t signature =
      boost::endian::native_to_little(std::uint32_t{kEndCentralDirectorySignature});
  for (;;) {
    const int size = position >= kSlice ? kSlice : static_cast<int>(position);
    if (size <= kOverlap) throw PackageException<>(PkgLib_Err_FindECD);
    position -= size - kOverlap;
    file->seek(position, SEEK_SET);
    if (!readFully(file, slice, size)) throw PackageIOException<>(PkgLib_Err_ReadECD);
    for (int i = size - static_cast<int>(sizeof signature); i >= 0; --i) {
      if (std::memcmp(slice + i, &signature, sizeof signature) != 0) continue;
      const int held = std::min(size - i, static_cast<int>(sizeof fEnd));
      std::memcpy(static_cast<void*>(&fEnd), slice + i, static_cast<std::size_t>(held));
      const int missing = static_cast<int>(sizeof fEnd) - held;
      if (missing > 0) file->read(reinterpret_cast<char*>(&fEnd) + held, missing);
      return position + i;
    }
  }
}

template <class Context>
void ZpCentralDir<Context>::readComment(IPkgFSFileCommon* file, ZipPackage<Context>* package,
                                        long long position) {
  if (fEnd.commentLength == 0) return;
  file->seek(position, SEEK_SET);
  fComment = readText<MyArrayDeleter<char>>(file, fEnd.commentLength, PkgLib_Err_ReadFileComment);
  package->getPropertyMgr()->setZipProperty(PkgPropertyMgr<Context>::fPkgPath,
                                            QCFPropertyPackageComment,
                                            Context::fromUTF8(fComment.get()), true);
}

template <class Context>
void ZpCentralDir<Context>::takeNumbersOfEnd() {
  fEntryCount = fEnd.totalEntries;
  fDirectorySize = fEnd.directorySize;
  fDirectoryOffset = fEnd.directoryOffset;
}

template <class Context>
void ZpCentralDir<Context>::readZip64Data(IPkgFSFileCommon* file) {
  // All ones in 64 bits: no number that came from an end record's narrower fields is that, so a
  // package is always read through those.
  constexpr std::uint64_t kMarker = ~std::uint64_t{0};
  if (fEntryCount != kMarker && fDirectorySize != kMarker && fDirectoryOffset != kMarker) return;

  if (!file->isSeekable()) throw PackageIOException<>(PkgLib_Err_ReadZip64ECDL);
  const long long fromEnd =
      static_cast<long long>(sizeof fEnd) + fEnd.commentLength + sizeof fZip64Locator;
  file->seek(-fromEnd, SEEK_END);
  if (!readFully(file, &fZip64Locator, sizeof fZip64Locator)) {
    throw PackageIOException<>(PkgLib_Err_ReadZip64ECDL);
  }
  fZip64Locator = fZip64Locator.byteswap();
  if (fZip64Locator.signature != kZip64LocatorSignature) {
    throw PackageIOException<>(PkgLib_Err_BadZip64ECDLSignature);
  }

  file->seek(static_cast<long long>(fZip64Locator.recordOffset), SEEK_SET);
  if (!readFully(file, &fZip64End, sizeof fZip64End)) {
    throw PackageIOException<>(PkgLib_Err_ReadZip64ECD);
  }
  fZip64End = fZip64End.byteswap();
  if (fZip64End.signature != kZip64EndCentralDirectorySignature) {
    throw PackageIOException<>(PkgLib_Err_BadZip64ECDSignature);
  }

  fEntryCount = fZip64End.totalEntries;
  fDirectorySize = fZip64End.directorySize;
  fDirectoryOffset = fZip64End.directoryOffset;
}

template <class Context>
void ZpCentralDir<Context>::readCDEntries(IPkgFSFileCommon* file, ZipPackage<Context>* package) {
  constexpr std::uint64_t kMost = SIZE_MAX / sizeof(EntryPtr);  // what a vector can count
  constexpr std::uint64_t kSpare = 10;
  if (fEntryCount > kMost) throw PackageIOException<>(PkgLib_Err_TooManyCDEntries);
  const std::uint64_t room = fEntryCount <= kMost - kSpare ? fEntryCount + kSpare : kMost;
  fEntries.reserve(static_cast<std::size_t>(room));
  fNameHashes.reserve(static_cast<std::size_t>(room));

  if (file->isSeekable()) file->seek(static_cast<long long>(fDirectoryOffset), SEEK_SET);
  PkgPropertyMgr<Context>* const properties = package->getPropertyMgr();
  for (std::uint64_t i = 0; i < fEntryCount; ++i) {
    EntryPtr entry = boost::make_shared<Entry>();
    const Entry& record = *entry;
    entry->readCDH(file, package);
    add(std::move(entry), nameHashOf(record));
    properties->addRecordDateTime(record.name(), {record.fHeader.date, record.fHeader.time});
  }
}

template <class Context>
void ZpCentralDirEntry<Context>::readCDH(IPkgFSFileCommon* file, ZipPackage<Context>* package) {
  if (!readFully(file, &fHeader, sizeof fHeader)) {
    throw PackageIOException<>(PkgLib_Err_ReadCDHBytes);
  }
  fHeader = fHeader.byteswap();
  if (fHeader.signature != kCentralDirHeaderSignature) {
    throw PackageIOException<>(PkgLib_Err_BadCDHSignature);
  }
  if (fHeader.nameLength != 0) {
    fName = readText<Deleter>(file, fHeader.nameLength, PkgLib_Err_ReadFileName);
  }
  if (fHeader.extraLength != 0) {
    fExtra.reset(new char[fHeader.extraLength], Deleter());
    fExtraBytes = fHeader.extraLength;
    if (!readFully(file, fExtra.get(), fHeader.extraLength)) {
      throw PackageIOException<>(PkgLib_Err_ReadExtraField);
    }
  }
  if (fHeader.commentLength != 0) {
    fComment = readText<Deleter>(file, fHeader.commentLength, PkgLib_Err_ReadFileComment);
  }
  fUncompressedSize = fHeader.uncompressedSize;
  fCompressedSize = fHeader.compressedSize;
  fLocalOffset = joinHalves(fHeader.localOffsetLow, fHeader.localOffsetHigh);
  readExtraField(package);
}

template <class Context>
void ZpCentralDirEntry<Context>::readExtraField(ZipPackage<Context>* package) {
  ExtraFieldWalk walk(fExtra.get(), fExtraBytes);
  while (walk.next()) {
    if (walk.id() == kZip64ExtraId) {
      readZip64Numbers(walk.body(), walk.bodySize(), fExtra.get() + fExtraBytes);
    } else if (walk.id() == kTypeCreatorExtraId && walk.bodySize() >= 12 &&
               walk.bodyAvailable() >= 12) {
      ExtraData_2705 block;
      std::memcpy(static_cast<void*>(&block), walk.block(), sizeof block);
      if (!block.hasMark()) continue;
      package->getPropertyMgr()->setZipProperty(
          getPath(), QCFPropertyZipTypeCreator,
          BasePkgHexStrings<Context>::getInstance()->encodeHexString(&block.typeAndCreator,
                                                                     sizeof block.typeAndCreator),
          true);
    }
  }
}

// The body holds the numbers whose 32-bit field is all ones, one behind the other. A number that
// the end of the extra field cuts off is passed over, and the next is looked for behind it.
template <class Context>
void ZpCentralDirEntry<Context>::readZip64Numbers(const char* body, std::size_t bodySize,
                                                  const char* end) {
  constexpr std::size_t kNumber = sizeof(std::uint64_t);
  std::size_t rest = bodySize;
  std::size_t at = 0;
  const auto available = static_cast<std::size_t>(end - body);
  const auto take = [&](bool marked, std::uint64_t& number) {
    if (!marked || rest < kNumber) return;
    if (at + kNumber <= available) {
      number = boost::endian::load_little_u64(reinterpret_cast<const unsigned char*>(body + at));
    }
    at += kNumber;
    rest -= kNumber;
  };
  take(fHeader.uncompressedSize == 0xFFFFFFFF, fUncompressedSize);
  take(fHeader.compressedSize == 0xFFFFFFFF, fCompressedSize);
  take(fHeader.localOffsetLow == 0xFFFF && fHeader.localOffsetHigh == 0xFFFF, fLocalOffset);
}

template <class Context>
const boost::shared_array<char>& ZpCentralDirEntry<Context>::name() const {
  if (!fName) throw PackageIOException<>(PkgLib_Err_ReadFileName);
  return fName;
}

template <class Context>
typename Context::String ZpCentralDirEntry<Context>::getPath() const {
  return Context::fromUTF8(name().get());
}

}  // namespace pkg::zip
