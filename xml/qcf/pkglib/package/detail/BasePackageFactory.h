#pragma once

#include "package/IXMLParser.h"
#include "package/Package.h"

namespace pkg {

// Where packages of any container format come from, and the path rules of the container.
template <class Context = AppContext>
class QCF_API BasePackageFactory {
public:
  using String = typename Context::String;
  using Package = boost::shared_ptr<IPackage<Context>>;
  using FileName = boost::shared_ptr<IPkgFSFileName<Context>>;
  using File = boost::shared_ptr<IPkgFSFile<Context>>;
  using openmode = std::ios_base::openmode;

  // Opens a package: `in` reads, `in | out` changes, `out | trunc` (or `out`) makes a new one. A
  // null file system or parser stands for the factory's default, null policies for an answer of 0
  // to everything; none is owned, all must outlive the package. Raises what the file system raises,
  // 16 for a split archive, 20 for what is no package, 46 and 47 under conformance value 2, and 2
  // to 15 for a damaged directory.
  virtual Package openPackage(const String& path, openmode mode, IPkgFileSystem<Context>* fs,
                              const IPkgPolicies* policies, IXMLParser* parser) = 0;
  virtual Package openPackage(const FileName& name, openmode mode, const IPkgPolicies* policies,
                              IXMLParser* parser) = 0;
  // The package in an open file, in that file's mode.
  virtual Package openPackage(const File& file, const IPkgPolicies* policies,
                              IXMLParser* parser) = 0;
  // Makes a new package of a type. With `inUpdate` it is left in an update that has written the
  // type as its first entry.
  virtual Package createConformingPackage(const String& path, const String& mimeType, bool inUpdate,
                                          IPkgFileSystem<Context>* fs, const IPkgPolicies* policies,
                                          IXMLParser* parser) = 0;
  // Whether a file begins as a package does. Raises 16 for a split archive, and what the file
  // system raises.
  virtual bool acceptPackage(const String& path, IPkgFileSystem<Context>* fs,
                             const IPkgPolicies* policies, IXMLParser* parser) = 0;
  virtual bool acceptPackage(const FileName& name, const IPkgPolicies* policies,
                             IXMLParser* parser) = 0;
  // The same of an open file, which is left four bytes further on.
  virtual bool acceptPackage(const File& file, const IPkgPolicies* policies,
                             IXMLParser* parser) = 0;
  // The defaults, for packages opened from now on. Not owned. Call them before other threads open
  // packages.
  virtual void setDefaultFileSystem(IPkgFileSystem<Context>* fs) = 0;
  virtual void setPackageXMLParser(IXMLParser* parser) = 0;
  virtual ~BasePackageFactory() = default;

  // `path` without empty, "." and ".." segments; see source/PathRules.h. Raises 22 for an empty
  // path.
  String canonicalize(const String& path, bool keepRoot) const;

  char fPathSeparator;    // '/'
  char fPathDot;          // '.'
  char fSchemaSeparator;  // ':'
  char fPathAnchor;       // '#'

protected:
  BasePackageFactory();
};

extern template class BasePackageFactory<AppContext>;

}  // namespace pkg
