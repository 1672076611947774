#pragma once

#include <mutex>

#include <boost/make_shared.hpp>

#include "package/detail/PkgFileSys.h"
#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPackageFactory.h"
#include "package/source/PathRules.h"

namespace pkg {

template <class Context>
BasePackageFactory<Context>::BasePackageFactory()
    : fPathSeparator(Context::fromUTF8("/")[0]),
      fPathDot(Context::fromUTF8(".")[0]),
      fSchemaSeparator(Context::fromUTF8(":")[0]),
      fPathAnchor(Context::fromUTF8("#")[0]) {}

template <class Context>
typename Context::String BasePackageFactory<Context>::canonicalize(const String& path,
                                                                   bool keepRoot) const {
  return reducePath(path, keepRoot, {fPathSeparator, fPathDot, fPathAnchor});
}

namespace zip {

template <class Context>
std::atomic<ZipPackageFactory<Context>*> ZipPackageFactory<Context>::fInstance{nullptr};

// The default file system is built under this lock, and takes its own lock meanwhile: never the
// other way round.
template <class Context>
ZipPackageFactory<Context>* ZipPackageFactory<Context>::getInstance() {
  ZipPackageFactory* instance = fInstance.load(std::memory_order_acquire);
  if (instance != nullptr) return instance;
  std::lock_guard<PkgMutualExclusion> guard(fMutex);
  if (fInstance.load(std::memory_order_relaxed) == nullptr) {
    static ZipPackageFactory _instance;
    fInstance.store(&_instance, std::memory_order_release);
  }
  return fInstance.load(std::memory_order_relaxed);
}

template <class Context>
ZipPackageFactory<Context>::ZipPackageFactory()
    : fDefaultFileSystem(BasePkgFileSystem<Context>::getInstance()), fDefaultXMLParser(nullptr) {}

template <class Context>
ZipPackageFactory<Context>::~ZipPackageFactory() {
  fInstance = nullptr;
}

template <class Context>
typename ZipPackageFactory<Context>::FileName ZipPackageFactory<Context>::nameIn(
    IPkgFileSystem<Context>* fs, const String& path) const {
  return fileSystemOrDefault(fs)->getFSFileName(path);
}

template <class Context>
IPkgFileSystem<Context>* ZipPackageFactory<Context>::fileSystemOf(const FileName& name) const {
  return fileSystemOrDefault(name->getFileSystem());
}

template <class Context>
typename ZipPackageFactory<Context>::Package ZipPackageFactory<Context>::openPackage(
    const String& path, openmode mode, IPkgFileSystem<Context>* fs, const IPkgPolicies* policies,
    IXMLParser* parser) {
  return this->openPackage(nameIn(fs, path), mode, policies, parser);
}

template <class Context>
typename ZipPackageFactory<Context>::Package ZipPackageFactory<Context>::openPackage(
    const FileName& name, openmode mode, const IPkgPolicies* policies, IXMLParser* parser) {
  auto package = boost::make_shared<ZipPackage<Context>>(name, fileSystemOf(name), policies,
                                                         parserOrDefault(parser));
  package->openFile(mode);
  return package;
}

template <class Context>
typename ZipPackageFactory<Context>::Package ZipPackageFactory<Context>::openPackage(
    const File& file, const IPkgPolicies* policies, IXMLParser* parser) {
  return boost::make_shared<ZipPackage<Context>>(file, policies, parserOrDefault(parser));
}

template <class Context>
typename ZipPackageFactory<Context>::Package ZipPackageFactory<Context>::createConformingPackage(
    const String& path, const String& mimeType, bool inUpdate, IPkgFileSystem<Context>* fs,
    const IPkgPolicies* policies, IXMLParser* parser) {
  Package package =
      this->openPackage(path, std::ios_base::out | std::ios_base::trunc, fs, policies, parser);
  if (inUpdate) package->beginUpdate();
  package->setMIMEType(mimeType);
  return package;
}

template <class Context>
bool ZipPackageFactory<Context>::acceptPackage(const String& path, IPkgFileSystem<Context>* fs,
                                               const IPkgPolicies* policies, IXMLParser* parser) {
  return this->acceptPackage(nameIn(fs, path), policies, parser);
}

template <class Context>
bool ZipPackageFactory<Context>::acceptPackage(const FileName& name, const IPkgPolicies* policies,
                                               IXMLParser* parser) {
  const File file = fileSystemOf(name)->openFile(name, std::ios_base::in);
  return this->acceptPackage(file, policies, parser);
}

template <class Context>
bool ZipPackageFactory<Context>::acceptPackage(const File& file, const IPkgPolicies*, IXMLParser*) {
  constexpr unsigned char kSplitArchive[4] = {0x50, 0x4B, 0x07, 0x08};
  unsigned char first[4];
  if (file->read(first, sizeof first) < static_cast<int>(sizeof first)) return false;
  if (std::memcmp(first, kSplitArchive, sizeof first) == 0) {
    throw PackageException<>(PkgLib_Err_SplitZip);
  }
  unsigned int signature = 0;
  std::memcpy(&signature, first, sizeof signature);
  return LocalFileHeader::isSwappedSignature(signature);
}

}  // namespace zip
}  // namespace pkg
