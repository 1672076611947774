#pragma once

#include <cstdio>

#include <boost/make_shared.hpp>

#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPkgEntry.h"
#include "package/detail/impl/ZpHeaderProperties.h"

namespace pkg::zip {

// The method of a new entry; raises 22 for a null package.
template <class Context>
CompressionMethod defaultMethodOf(const ZipPackage<Context>* package) {
  if (package == nullptr) throw PackageException<>(PkgLib_Err_BadArgument);
  return package->getDefaultCompressionMethod();
}

template <class Context>
ZipPkgEntry<Context>::ZipPkgEntry(const String& name, bool mustExist, ZipPackage<Context>* package,
                                  PkgEntryType type)
    : BasePkgEntry<Context>(name, type, defaultMethodOf(package), package) {
  const Record record = package->centralDir().find(Context::toUTF8(name).get());
  if (record) {
    bindToRecord(record);
  } else if (mustExist) {
    throw PackageException<>(PkgLib_Err_EntryNotFound);
  } else if (this->fMethod == CompressionDefault) {
    this->fMethod = CompressionDeflated;
  }
}

template <class Context>
ZipPkgEntry<Context>::ZipPkgEntry(const Record& record, ZipPackage<Context>* package,
                                  PkgEntryType type)
    : BasePkgEntry<Context>(record->getPath(), type, defaultMethodOf(package), package) {
  bindToRecord(record);
}

template <class Context>
void ZipPkgEntry<Context>::bindToRecord(const Record& record) {
  fReadCentral = record;
  IPkgFSFileCommon* const file = zipPackage()->fPackageFile.get();
  if (file->isSeekable()) {
    file->seek(static_cast<long long>(record->fLocalOffset), SEEK_SET);
    ZpLocalFileEntry<Context> local;
    local.readLFH(file);
    fReadLocal = ReadLocal(local);
  }
  this->fMethod = record->fHeader.method == 0 ? CompressionStored : CompressionDeflated;
  fExpectedSize = static_cast<std::int64_t>(record->fUncompressedSize);
  fExpectedCRC = record->fHeader.crc32;
}

template <class Context>
ZipPackage<Context>* ZipPkgEntry<Context>::zipPackage() const {
  return static_cast<ZipPackage<Context>*>(this->fPackage);
}

template <class Context>
void ZipPkgEntry<Context>::createZipData(bool copy) {
  ZipPackage<Context>* const package = zipPackage();
  IPkgFSFileCommon* const out = package->fOutFile.get();
  copy = copy && fReadCentral;
  if (fWriteCentral) {
    package->deleteCDirEntry(Context::toUTF8(this->fName).get());
    fWriteCentral.reset();
  }
  const Record record =
      copy ? boost::make_shared<ZpCentralDirEntry<Context>>(*fReadCentral) : makeNewRecord();

  const bool seekable = out->isSeekable();
  if (seekable) out->seek(0, SEEK_END);
  record->fLocalOffset = static_cast<std::uint64_t>(out->tell());
  package->fOutCentralDir->append(record);
  fWriteCentral = record;

  auto local = std::make_unique<ZpLocalFileEntry<Context>>(*record, package);
  local->fHeader.flags |= kFlagUTF8Name;
  record->fHeader.flags |= kFlagUTF8Name;
  settleDescriptor(*local, seekable);
  fWriteLocal = std::move(local);
  if (!copy) settleDateTime(*fWriteLocal);

  constexpr std::uint32_t kDirectoryAttribute = 0x10;
  if (this->fType == PkgEntryDirectory) record->fHeader.externalAttributes |= kDirectoryAttribute;
}

template <class Context>
typename ZipPkgEntry<Context>::Record ZipPkgEntry<Context>::makeNewRecord() const {
  auto record = boost::make_shared<ZpCentralDirEntry<Context>>();
  CentralDirHeader& header = record->fHeader;
  header.versionMadeBy = FLATE_VERSION;
  header.versionNeeded = FLATE_VERSION;
  header.flags = this->fMethod == CompressionDeflated ? kFlagMaximumDeflate : 0;
  header.method = static_cast<std::uint16_t>(this->fMethod);
  record->setName(this->fName);
  record->fUncompressedSize = static_cast<std::uint64_t>(fExpectedSize);
  record->fCompressedSize = static_cast<std::uint64_t>(fExpectedSize);
  return record;
}

// Decides on the data descriptor. Without one, an output that cannot seek needs sizes and CRC in
// the header at once.
template <class Context>
void ZipPkgEntry<Context>::settleDescriptor(ZpLocalFileEntry<Context>& local, bool seekable) {
  constexpr std::int32_t kAlways = 2;
  constexpr std::int32_t kNever = 3;
  const std::int32_t answer = zipPackage()->getPolicy(IPkgPolicies::PolicyDataDescriptor);
  if (answer == kAlways || (answer != kNever && !seekable)) {
    local.fHeader.flags |= kFlagDataDescriptor;
    fWriteCentral->fHeader.flags |= kFlagDataDescriptor;
  }
  if (seekable) return;

  if (!local.hasDescriptor()) {
    local.fHeader.setSizes(static_cast<std::uint32_t>(fWriteCentral->fCompressedSize),
                           static_cast<std::uint32_t>(fWriteCentral->fUncompressedSize));
  }
  const std::int32_t crcAnswer = zipPackage()->getPolicy(IPkgPolicies::PolicyCRC);
  if (crcAnswer == 0 || crcAnswer == 4) local.fHeader.setCRC32(fExpectedCRC);
}

template <class Context>
void ZipPkgEntry<Context>::settleDateTime(ZpLocalFileEntry<Context>& local) {
  DOSTime when = getDOSTime();
  if (hasDateTime()) {
    const std::uint16_t date = dateTimeProperty(QCFPropertyZipDate, highHalf(when));
    const std::uint16_t time = dateTimeProperty(QCFPropertyZipTime, lowHalf(when));
    when = joinHalves(time, date);
  } else {
    zipPackage()->getPropertyMgr()->addRecordDateTime(fWriteCentral->fName,
                                                      {highHalf(when), lowHalf(when)});
  }
  local.fHeader.setDateTime(when);
  fWriteCentral->fHeader.setDateTime(when);
}

// Whether there are properties to heed. A name that its record cannot hold whole has to have some.
template <class Context>
bool ZipPkgEntry<Context>::hasDateTime() const {
  PkgPropertyMgr<Context>* const properties = zipPackage()->getPropertyMgr();
  return fWriteCentral->getPath() != this->fName || properties->hasOwnDateTime(this->fName) ||
         properties->findRecordDateTime(this->fName) != nullptr;
}

// The property's value or, where there is none yet, `now`, which it becomes.
template <class Context>
std::uint16_t ZipPkgEntry<Context>::dateTimeProperty(QCFPropertyName name, std::uint16_t now) {
  PkgPropertyMgr<Context>* const properties = zipPackage()->getPropertyMgr();
  const String text = properties->getZipProperty(this->fName, name, nullptr);
  if (!text.empty()) return ZpHeaderProperties<Context>::decodeWord(text);
  const unsigned short value = now;
  properties->setZipProperty(this->fName, name,
                             BasePkgHexStrings<Context>::getInstance()->iToHexString(value), true);
  return now;
}

template <class Context>
void ZipPkgEntry<Context>::endUpdate() {
  this->fModified = false;
  if (fWriteLocal) fReadLocal = ReadLocal(*fWriteLocal);
  fWriteLocal.reset();
  fReadCentral = fWriteCentral;  // null for an entry that the new directory does not list
  fWriteCentral.reset();
  if (!fReadCentral) return;
  fExpectedSize = static_cast<std::int64_t>(fReadCentral->fUncompressedSize);
  fExpectedCRC = fReadCentral->fHeader.crc32;
}

template <class Context>
void ZipPkgEntry<Context>::cancelUpdate() {
  fWriteLocal.reset();
  fWriteCentral.reset();
}

template <class Context>
void ZipPkgEntry<Context>::markChanged() {
  ZipPackage<Context>* const package = zipPackage();
  if (!this->fModified || (package->fInUpdate && !this->fQueued)) {
    package->addNewEntry(this);
  } else if (!package->fInUpdate) {
    package->fModified = true;
  }
}

template <class Context>
void ZipPkgEntry<Context>::leavePackage() {
  fReadLocal.reset();
  fWriteLocal.reset();
  fReadCentral.reset();
  fWriteCentral.reset();
  this->fModified = false;
  this->fQueued = false;
}

template <class Context>
void ZipPkgEntry<Context>::leaveQueue() {
  if (this->fQueued) zipPackage()->fQueuedEntries.remove(this);
}

template <class Context>
void ZipPkgEntry<Context>::removeFromPackage() {
  constexpr auto kReadWrite = std::ios_base::in | std::ios_base::out;
  ZipPackage<Context>* const package = zipPackage();
  if ((package->fOpenMode & kReadWrite) == kReadWrite) {
    package->deleteCDirEntry(Context::toUTF8(this->fName).get());
    this->fModified = false;
  } else {
    package->fModified = true;
    this->fModified = true;
  }
  this->fDeleted = true;
}

}  // namespace pkg::zip
