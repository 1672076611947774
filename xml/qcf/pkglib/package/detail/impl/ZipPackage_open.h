#pragma once

#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPackageFactory.h"

namespace pkg::zip {

template <class Context>
ZipPackage<Context>::ZipPackage(const FileHandle& file, const IPkgPolicies* policies,
                                IXMLParser* parser)
    : BasePackage<Context>(
          file->getName(),
          ZipPackageFactory<Context>::getInstance()->fileSystemOrDefault(file->getFileSystem()),
          policies, parser) {
  this->fPackageFile = file;
  this->fOpenMode = file->getMode();
  init();
}

template <class Context>
ZipPackage<Context>::ZipPackage(const FileName& name, IPkgFileSystem<Context>* fileSystem,
                                const IPkgPolicies* policies, IXMLParser* parser)
    : BasePackage<Context>(name, fileSystem, policies, parser) {}

template <class Context>
void ZipPackage<Context>::openFile(openmode mode) {
  if (this->fPackageFile) throw PackageException<>(PkgLib_Err_PackageAlreadyOpen);
  this->fOpenMode = mode;
  this->fPackageFile = this->fFileSystem->openFile(this->fFileName, mode);
  init();
}

template <class Context>
void ZipPackage<Context>::init() {
  using std::ios_base;
  if ((this->fOpenMode & ios_base::trunc) != 0 || (this->fOpenMode & ios_base::in) == 0) {
    initNew();
  } else {
    initExisting();
  }
}

template <class Context>
void ZipPackage<Context>::initNew() {
  constexpr std::size_t kRoom = 10;
  fCentralDir = std::make_unique<ZpCentralDir<Context>>(kRoom);
  this->fIsOpen = true;
  fRoot = getDirectory(canonical(PkgPropertyMgr<Context>::fPkgPath), false);
}

template <class Context>
void ZipPackage<Context>::initExisting() {
  const FileHandle& file = this->fPackageFile;
  if (!ZipPackageFactory<Context>::getInstance()->acceptPackage(file, this->fPolicies,
                                                                this->fXMLParser)) {
    throw PackageException<>(PkgLib_Err_NotAValidPackage);
  }
  fCentralDir = std::make_unique<ZpCentralDir<Context>>();
  fCentralDir->readECD(file.get(), this);
  fCentralDir->readZip64Data(file.get());
  fCentralDir->readCDEntries(file.get(), this);
  this->fIsOpen = true;
  fRoot = getDirectory(canonical(PkgPropertyMgr<Context>::fPkgPath), false);
  applyMimetypeRules();
}

}  // namespace pkg::zip
