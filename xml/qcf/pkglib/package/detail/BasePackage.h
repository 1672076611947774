#pragma once

#include <cstdint>

#include "package/IXMLParser.h"
#include "package/Package.h"
#include "package/detail/PkgPropertyMgr.h"

namespace pkg {

// What a package of any container format shares: its file, modes, flags, policies and properties.
template <class Context>
class QCF_API BasePackage : public IPackage<Context> {
public:
  using String = typename Context::String;
  using openmode = std::ios_base::openmode;

  ~BasePackage() override;
  BasePackage(const BasePackage&) = delete;
  BasePackage& operator=(const BasePackage&) = delete;

  openmode getOpenMode(bool current) const override;
  void setDefaultCompressionMethod(CompressionMethod method) override;
  CompressionMethod getDefaultCompressionMethod() const override;
  bool isModified() const override;
  void close() override;
  String getName() const override;
  boost::shared_ptr<IPkgFSFile<Context>> getFSFile() const override;
  String getProperty(QCFPropertyName name) override;
  void setProperty(QCFPropertyName name, const String& value) override;
  const IPkgPolicies* getPolicies() override { return fPolicies; }
  std::int32_t getPolicy(IPkgPolicies::Policies policy) const override;

  // Owned by the package.
  PkgPropertyMgr<Context>* getPropertyMgr() const { return fProperties; }
  // Not owned; null where the client gave none.
  IXMLParser* getXMLParser() const { return fXMLParser; }

protected:
  BasePackage(const boost::shared_ptr<IPkgFSFileName<Context>>& name,
              IPkgFileSystem<Context>* fileSystem, const IPkgPolicies* policies,
              IXMLParser* parser);

  // Raises 24 unless the package is open.
  void requireOpen() const;

  openmode fOpenMode;
  openmode fUpdateMode;
  CompressionMethod fDefaultMethod;
  boost::shared_ptr<IPkgFSFile<Context>> fPackageFile;
  boost::shared_ptr<IPkgFSFileName<Context>> fFileName;
  IPkgFileSystem<Context>* fFileSystem;  // not owned
  IXMLParser* fXMLParser;                // not owned
  bool fModified;
  bool fIsOpen;
  PkgPropertyMgr<Context>* fProperties;  // owned
  const IPkgPolicies* fPolicies;         // not owned
};

extern template class BasePackage<AppContext>;

}  // namespace pkg
