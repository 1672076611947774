#pragma once

#include "package/detail/BasePackage.h"

namespace pkg {

template <class Context>
BasePackage<Context>::BasePackage(const boost::shared_ptr<IPkgFSFileName<Context>>& name,
                                  IPkgFileSystem<Context>* fileSystem, const IPkgPolicies* policies,
                                  IXMLParser* parser)
    : fOpenMode(),
      fUpdateMode(),
      fDefaultMethod(CompressionDeflated),
      fFileName(name),
      fFileSystem(fileSystem),
      fXMLParser(parser),
      fModified(false),
      fIsOpen(false),
      fProperties(new PkgPropertyMgr<Context>(this)),
      fPolicies(policies) {}

template <class Context>
BasePackage<Context>::~BasePackage() {
  delete fProperties;
}

template <class Context>
void BasePackage<Context>::requireOpen() const {
  if (!fIsOpen) throw PackageException<>(PkgLib_Err_IllegalState);
}

template <class Context>
std::ios_base::openmode BasePackage<Context>::getOpenMode(bool current) const {
  requireOpen();
  return current ? fOpenMode : fUpdateMode;
}

template <class Context>
void BasePackage<Context>::setDefaultCompressionMethod(CompressionMethod method) {
  requireOpen();
  fDefaultMethod = method;
}

template <class Context>
CompressionMethod BasePackage<Context>::getDefaultCompressionMethod() const {
  requireOpen();
  return fDefaultMethod;
}

template <class Context>
bool BasePackage<Context>::isModified() const {
  requireOpen();
  return fModified;
}

template <class Context>
void BasePackage<Context>::close() {
  requireOpen();
  this->closeWithoutSave();
}

template <class Context>
typename Context::String BasePackage<Context>::getName() const {
  requireOpen();
  return fFileName->getName();
}

template <class Context>
boost::shared_ptr<IPkgFSFile<Context>> BasePackage<Context>::getFSFile() const {
  requireOpen();
  return fPackageFile;
}

template <class Context>
typename Context::String BasePackage<Context>::getProperty(QCFPropertyName name) {
  requireOpen();
  return fProperties->getGenericProperty(PkgPropertyMgr<Context>::fPkgPath, name, nullptr);
}

template <class Context>
void BasePackage<Context>::setProperty(QCFPropertyName name, const String& value) {
  requireOpen();
  fProperties->setGenericProperty(PkgPropertyMgr<Context>::fPkgPath, name, value, false);
}

template <class Context>
std::int32_t BasePackage<Context>::getPolicy(IPkgPolicies::Policies policy) const {
  return fPolicies == nullptr ? 0 : fPolicies->getPolicy(policy);
}

}  // namespace pkg
