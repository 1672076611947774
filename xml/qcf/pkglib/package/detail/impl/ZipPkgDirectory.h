#pragma once

#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPkgDirectory.h"

namespace pkg::zip {

template <class Context>
ZipPkgDirectory<Context>::ZipPkgDirectory(const String& name, bool mustExist,
                                          ZipPackage<Context>* package)
    : ZipPkgEntry<Context>(name, mustExist, package, PkgEntryDirectory) {}

template <class Context>
ZipPkgDirectory<Context>::ZipPkgDirectory(const typename ZipPkgEntry<Context>::Record& record,
                                          ZipPackage<Context>* package)
    : ZipPkgEntry<Context>(record, package, PkgEntryDirectory) {}

template <class Context>
void ZipPkgDirectory<Context>::create() {
  if (!this->fDeleted && !(fUnstored && fUncreated)) {
    throw PackageException<>(PkgLib_Err_DirectoryExists);
  }
  const ZipPackage<Context>* const package = this->zipPackage();
  package->requireOpen();
  fUncreated = false;
  this->fDeleted = false;
  if (package->fInUpdate && package->fCurrentWriter == nullptr) {
    this->leaveQueue();
    write();
  } else {
    this->markChanged();
  }
}

template <class Context>
void ZipPkgDirectory<Context>::write() {
  ZipPackage<Context>* const package = this->zipPackage();
  this->createZipData(!fUnstored);
  this->fWriteLocal->fHeader.method = CompressionStored;
  this->fWriteCentral->fHeader.method = CompressionStored;
  this->fWriteCentral->setFinalNumbers(0, 0);
  this->fWriteLocal->writeLFH(package->fOutFile.get(), package);
  if (this->fWriteLocal->hasDescriptor()) {
    this->fWriteLocal->updateFromCDEntry(false, *this->fWriteCentral);
    this->fWriteLocal->writeDescriptor(package->fOutFile.get());
  }
  if (package->fInUpdate) package->fOutputWritten = true;
}

template <class Context>
void ZipPkgDirectory<Context>::remove() {
  this->removeFromPackage();
}

template <class Context>
void ZipPkgDirectory<Context>::endUpdate() {
  fUnstored = fUncreated;
  this->fReadCentral = this->fWriteCentral;
  this->fWriteCentral.reset();
}

template <class Context>
SPRefType<IPkgFile<Context>> ZipPkgDirectory<Context>::toFile() {
  throw PackageException<>(PkgLib_Err_UnsupportedOperation);
}

template <class Context>
SPRefType<IPkgDirectory<Context>> ZipPkgDirectory<Context>::toDirectory() {
  this->addRef();
  return SPRefType<IPkgDirectory<Context>>(this);
}

}  // namespace pkg::zip
