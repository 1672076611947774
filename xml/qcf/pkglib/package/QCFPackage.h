#pragma once

#include "package/IXMLParser.h"
#include "package/Package.h"
#include "package/detail/BasePkgHexStrings.h"
#include "package/detail/PkgFileSys.h"
#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPackageFactory.h"

namespace pkg {

QCF_API extern const char* const QCF_PACKAGE_VERSION_STR;     // "QCF_PACKAGE_VERSION=1.1.102.1"
QCF_API extern const char* const QCF_PACKAGE_CHANGELIST_STR;  // empty

// The version of the library.
class QCF_API QCFVersion {
public:
  // QCF_PACKAGE_VERSION_STR as it stands, with its key.
  static const char* GetQCFVersion();
};

// The front door of the library: each operation is that of the shared zip::ZipPackageFactory, whose
// contracts hold.
class QCF_API QCFPackageFactory final {
public:
  using String = AppContext::String;
  using Package = boost::shared_ptr<IPackage<>>;
  using FileName = boost::shared_ptr<IPkgFSFileName<>>;
  using File = boost::shared_ptr<IPkgFSFile<>>;
  using openmode = std::ios_base::openmode;

  virtual Package openPackage(const String& path, openmode mode, IPkgFileSystem<>* fs,
                              const IPkgPolicies* policies, IXMLParser* parser);
  virtual Package openPackage(const FileName& name, openmode mode, const IPkgPolicies* policies,
                              IXMLParser* parser);
  virtual Package openPackage(const File& file, const IPkgPolicies* policies, IXMLParser* parser);
  virtual Package createConformingPackage(const String& path, const String& mimeType, bool inUpdate,
                                          IPkgFileSystem<>* fs, const IPkgPolicies* policies,
                                          IXMLParser* parser);
  virtual bool acceptPackage(const String& path, IPkgFileSystem<>* fs, const IPkgPolicies* policies,
                             IXMLParser* parser);
  virtual bool acceptPackage(const FileName& name, const IPkgPolicies* policies,
                             IXMLParser* parser);
  virtual bool acceptPackage(const File& file, const IPkgPolicies* policies, IXMLParser* parser);
  virtual void setDefaultFileSystem(IPkgFileSystem<>* fs);
  virtual void setPackageXMLParser(IXMLParser* parser);

  // A path inside a package, reduced: no empty, "." or ".." segments. Raises 22 for an empty path.
  String canonicalizeEntry(const String& path);  // without a leading "/"
  String canonicalizePath(const String& path);   // with a leading "/" where `path` has one
  char getPathAnchor();                          // '#'
  char getSchemaSeparator();                     // ':'
  char getPathDot();                             // '.'
  char getPathSeparator();                       // '/'
};

}  // namespace pkg
