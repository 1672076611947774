#pragma once

#include <atomic>

#include "package/detail/BasePackageFactory.h"
#include "package/detail/PkgMutex.h"

namespace pkg::zip {

// Recognises, opens and creates ZIP packages. One shared instance.
template <class Context = AppContext>
class QCF_API ZipPackageFactory : public BasePackageFactory<Context> {
public:
  using String = typename Context::String;
  using Base = BasePackageFactory<Context>;
  using typename Base::File;
  using typename Base::FileName;
  using typename Base::openmode;
  using typename Base::Package;

  // The shared instance, which lives to the end of the process.
  static ZipPackageFactory* getInstance();
  ~ZipPackageFactory() override;

  Package openPackage(const String& path, openmode mode, IPkgFileSystem<Context>* fs,
                      const IPkgPolicies* policies, IXMLParser* parser) override;
  Package openPackage(const FileName& name, openmode mode, const IPkgPolicies* policies,
                      IXMLParser* parser) override;
  Package openPackage(const File& file, const IPkgPolicies* policies, IXMLParser* parser) override;
  Package createConformingPackage(const String& path, const String& mimeType, bool inUpdate,
                                  IPkgFileSystem<Context>* fs, const IPkgPolicies* policies,
                                  IXMLParser* parser) override;
  bool acceptPackage(const String& path, IPkgFileSystem<Context>* fs, const IPkgPolicies* policies,
                     IXMLParser* parser) override;
  bool acceptPackage(const FileName& name, const IPkgPolicies* policies,
                     IXMLParser* parser) override;
  bool acceptPackage(const File& file, const IPkgPolicies* policies, IXMLParser* parser) override;
  void setDefaultFileSystem(IPkgFileSystem<Context>* fs) override { fDefaultFileSystem = fs; }
  void setPackageXMLParser(IXMLParser* parser) override { fDefaultXMLParser = parser; }

  // The given one or, for null, the default.
  IPkgFileSystem<Context>* fileSystemOrDefault(IPkgFileSystem<Context>* fs) const {
    return fs != nullptr ? fs : fDefaultFileSystem;
  }

private:
  ZipPackageFactory();

  IXMLParser* parserOrDefault(IXMLParser* parser) const {
    return parser != nullptr ? parser : fDefaultXMLParser;
  }
  FileName nameIn(IPkgFileSystem<Context>* fs, const String& path) const;
  IPkgFileSystem<Context>* fileSystemOf(const FileName& name) const;

  IPkgFileSystem<Context>* fDefaultFileSystem;  // not owned
  IXMLParser* fDefaultXMLParser;                // not owned

  static std::atomic<ZipPackageFactory*> fInstance;
  static PkgMutualExclusion fMutex;
};

extern template class ZipPackageFactory<AppContext>;

}  // namespace pkg::zip
