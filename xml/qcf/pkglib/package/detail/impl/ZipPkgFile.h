#pragma once

#include <cstring>

#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPackageFactory.h"
#include "package/detail/ZipPkgFile.h"

namespace pkg::zip {

template <class Context>
ZipPkgFile<Context>::ZipPkgFile(const String& name, bool mustExist, ZipPackage<Context>* package)
    : ZipPkgEntry<Context>(name, mustExist, package, PkgEntryFile), fTempFile(package) {}

template <class Context>
ZipPkgFile<Context>::ZipPkgFile(const typename ZipPkgEntry<Context>::Record& record,
                                ZipPackage<Context>* package)
    : ZipPkgEntry<Context>(record, package, PkgEntryFile), fTempFile(package) {}

template <class Context>
ZipPkgFile<Context>::~ZipPkgFile() {
  for (ZipPkgStream<Context>* const stream : fStreams)
    stream->detach();
}

template <class Context>
bool ZipPkgFile<Context>::isMimetype() const {
  return this->fName == Context::fromUTF8(kMimetypeName);
}

template <class Context>
std::uint32_t ZipPkgFile<Context>::getSize() const {
  return static_cast<std::uint32_t>(this->getSize64());
}

template <class Context>
std::uint32_t ZipPkgFile<Context>::getCompressedSize() const {
  return static_cast<std::uint32_t>(this->getCompressedSize64());
}

template <class Context>
std::int64_t ZipPkgFile<Context>::getSize64() const {
  const auto& record = this->currentCentral();
  if (record && record->fUncompressedSize != 0) {
    return static_cast<std::int64_t>(record->fUncompressedSize);
  }
  return this->fExpectedSize;
}

template <class Context>
std::int64_t ZipPkgFile<Context>::getCompressedSize64() const {
  const auto& record = this->currentCentral();
  return !record ? 0 : static_cast<std::int64_t>(record->fCompressedSize);
}

template <class Context>
std::uint32_t ZipPkgFile<Context>::getCRC32() {
  const auto& record = this->currentCentral();
  return record && record->fHeader.crc32 != 0 ? record->fHeader.crc32 : this->fExpectedCRC;
}

template <class Context>
typename Context::String ZipPkgFile<Context>::getProperty(QCFPropertyName name) {
  if (!isZipPropertyOfEntry(name)) return BasePkgFile<Context>::getProperty(name);
  return this->zipPackage()->getPropertyMgr()->getZipProperty(this->fName, name, nullptr);
}

template <class Context>
void ZipPkgFile<Context>::setProperty(QCFPropertyName name, const String& value) {
  if (!isZipPropertyOfEntry(name)) {
    BasePkgFile<Context>::setProperty(name, value);
    return;
  }
  // Headers that are already written cannot follow.
  if (fHasData) throw PackageException<>(PkgLib_Err_UnsupportedOperation);
  this->zipPackage()->getPropertyMgr()->setZipProperty(this->fName, name, value, false);
}

template <class Context>
typename Context::String ZipPkgFile<Context>::resolvePath(const String& path) {
  const auto* const factory = ZipPackageFactory<Context>::getInstance();
  const char separator = factory->fPathSeparator;
  const auto slash = path.find(separator);
  const auto colon = path.find(factory->fSchemaSeparator);
  if (colon != String::npos && (slash == String::npos || colon < slash)) return path;
  if (slash == 0 && path.size() > 1 && path[1] == separator) return path;
  if (slash == 0) return factory->canonicalize(path, true);

  String absolute(1, separator);
  if (!path.empty() && path.front() == factory->fPathAnchor) {
    absolute += this->fName;
  } else {
    absolute.append(this->fName, 0, this->fName.rfind(separator) + 1);
  }
  return factory->canonicalize(absolute + path, true);
}

template <class Context>
void ZipPkgFile<Context>::remove() {
  if (this->zipPackage()->isConforming() && isMimetype()) {
    throw PackageException<>(PkgLib_Err_ConformanceViolation);
  }
  this->removeFromPackage();
  for (const auto& record : {this->fWriteCentral, this->fReadCentral}) {
    if (!record) continue;
    record->fHeader.crc32 = 0;
    record->fHeader.uncompressedSize = 0;
    record->fUncompressedSize = 0;
  }
  this->fExpectedSize = 0;
  this->fExpectedCRC = 0;
}

template <class Context>
SPRefType<IPkgFile<Context>> ZipPkgFile<Context>::toFile() {
  this->addRef();
  return SPRefType<IPkgFile<Context>>(this);
}

template <class Context>
SPRefType<IPkgDirectory<Context>> ZipPkgFile<Context>::toDirectory() {
  throw PackageException<>(PkgLib_Err_UnsupportedOperation);
}

template <class Context>
void ZipPkgFile<Context>::MyTempFile::create(HiddenState state) {
  auto held = std::make_unique<Held>();
  held->state = state;
  held->file = fPackage->fFileSystem->createTempFile();
  try {
    held->name = held->file->getName();
  } catch (...) {
    try {
      held->file->close();
    } catch (...) {  // that it has no name is what the caller is told
    }
    throw;
  }
  fHeld = std::move(held);
}

template <class Context>
const boost::shared_ptr<IPkgFSFile<Context>>& ZipPkgFile<Context>::MyTempFile::reopened() {
  if (!fHeld->file) {
    fHeld->file = fPackage->fFileSystem->reopenTempFileByName(
        fHeld->name, std::ios_base::in | std::ios_base::out);
  }
  return fHeld->file;
}

template <class Context>
void ZipPkgFile<Context>::MyTempFile::close() {
  if (!exists() || !fHeld->file) return;
  const File file = fHeld->file;
  fHeld->file.reset();
  file->close();
}

template <class Context>
void ZipPkgFile<Context>::MyTempFile::discard() {
  if (!exists()) return;
  close();
  fPackage->fFileSystem->deleteTempFileByName(fHeld->name);
  fHeld.reset();
}

template <class Context>
ZipPkgFile<Context>::MyTempFile::~MyTempFile() {
  if (!exists()) return;
  try {
    close();
  } catch (...) {  // the file goes all the same
  }
  try {
    fPackage->fFileSystem->deleteTempFileByName(fHeld->name);
  } catch (...) {  // a destructor has nobody to tell
  }
}

}  // namespace pkg::zip
