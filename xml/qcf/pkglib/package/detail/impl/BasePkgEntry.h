#pragma once

#include "package/detail/BasePackage.h"
#include "package/detail/BasePkgEntry.h"

namespace pkg {

template <class Context>
BasePkgEntry<Context>::BasePkgEntry(const String& name, PkgEntryType type, CompressionMethod method,
                                    IPackage<Context>* package)
    : fName(name), fType(type), fMethod(method), fPackage(package) {}

template <class Context>
void BasePkgEntry<Context>::setCompressionMethod(CompressionMethod method) {
  if (method != CompressionStored && method != CompressionDeflated) {
    throw PackageException<>(PkgLib_Err_BadArgument);
  }
  fMethod = method;
}

template <class Context>
void BasePkgEntry<Context>::release() {
  if (--fRefCount == 0) delete this;
}

template <class Context>
typename Context::String BasePkgFile<Context>::getProperty(QCFPropertyName name) {
  auto* const package = static_cast<BasePackage<Context>*>(this->getPackage());
  return package->getPropertyMgr()->getGenericProperty(this->getName(), name, nullptr);
}

template <class Context>
void BasePkgFile<Context>::setProperty(QCFPropertyName name, const String& value) {
  auto* const package = static_cast<BasePackage<Context>*>(this->getPackage());
  package->getPropertyMgr()->setGenericProperty(this->getName(), name, value, false);
}

}  // namespace pkg
