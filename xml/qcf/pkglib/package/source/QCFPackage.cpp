#include "package/QCFPackage.h"

namespace pkg {

const char* const QCF_PACKAGE_VERSION_STR = "QCF_PACKAGE_VERSION=1.1.102.1";
const char* const QCF_PACKAGE_CHANGELIST_STR = "";

const char* QCFVersion::GetQCFVersion() {
  return QCF_PACKAGE_VERSION_STR;
}

bool IPkgFSFileCommon::isSeekable() {
  return (getCapabilities() & CapabilitySeek) != 0;
}

namespace {

zip::ZipPackageFactory<>& factory() {
  return *zip::ZipPackageFactory<>::getInstance();
}

}  // namespace

QCFPackageFactory::Package QCFPackageFactory::openPackage(const String& path, openmode mode,
                                                          IPkgFileSystem<>* fs,
                                                          const IPkgPolicies* policies,
                                                          IXMLParser* parser) {
  return factory().openPackage(path, mode, fs, policies, parser);
}

QCFPackageFactory::Package QCFPackageFactory::openPackage(const FileName& name, openmode mode,
                                                          const IPkgPolicies* policies,
                                                          IXMLParser* parser) {
  return factory().openPackage(name, mode, policies, parser);
}

QCFPackageFactory::Package QCFPackageFactory::openPackage(const File& file,
                                                          const IPkgPolicies* policies,
                                                          IXMLParser* parser) {
  return factory().openPackage(file, policies, parser);
}

QCFPackageFactory::Package QCFPackageFactory::createConformingPackage(
    const String& path, const String& mimeType, bool inUpdate, IPkgFileSystem<>* fs,
    const IPkgPolicies* policies, IXMLParser* parser) {
  return factory().createConformingPackage(path, mimeType, inUpdate, fs, policies, parser);
}

bool QCFPackageFactory::acceptPackage(const String& path, IPkgFileSystem<>* fs,
                                      const IPkgPolicies* policies, IXMLParser* parser) {
  return factory().acceptPackage(path, fs, policies, parser);
}

bool QCFPackageFactory::acceptPackage(const FileName& name, const IPkgPolicies* policies,
                                      IXMLParser* parser) {
  return factory().acceptPackage(name, policies, parser);
}

bool QCFPackageFactory::acceptPackage(const File& file, const IPkgPolicies* policies,
                                      IXMLParser* parser) {
  return factory().acceptPackage(file, policies, parser);
}

void QCFPackageFactory::setDefaultFileSystem(IPkgFileSystem<>* fs) {
  factory().setDefaultFileSystem(fs);
}

void QCFPackageFactory::setPackageXMLParser(IXMLParser* parser) {
  factory().setPackageXMLParser(parser);
}

QCFPackageFactory::String QCFPackageFactory::canonicalizeEntry(const String& path) {
  return factory().canonicalize(path, false);
}

QCFPackageFactory::String QCFPackageFactory::canonicalizePath(const String& path) {
  return factory().canonicalize(path, true);
}

char QCFPackageFactory::getPathAnchor() {
  return factory().fPathAnchor;
}
char QCFPackageFactory::getSchemaSeparator() {
  return factory().fSchemaSeparator;
}
char QCFPackageFactory::getPathDot() {
  return factory().fPathDot;
}
char QCFPackageFactory::getPathSeparator() {
  return factory().fPathSeparator;
}

}  // namespace pkg
