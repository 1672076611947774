#pragma once

#include "package/detail/ZipPkgEntry.h"

namespace pkg::zip {

// A directory entry. It has a record only where the package holds one or create() asked for one.
template <class Context = AppContext>
class QCF_API ZipPkgDirectory : public ZipPkgEntry<Context>, public virtual IPkgDirectory<Context> {
public:
  using String = typename Context::String;

  ZipPkgDirectory(const String& name, bool mustExist, ZipPackage<Context>* package);
  ZipPkgDirectory(const typename ZipPkgEntry<Context>::Record& record,
                  ZipPackage<Context>* package);

  void create() override;
  void remove() override;
  void write() override;
  void endUpdate() override;
  SPRefType<IPkgFile<Context>> toFile() override;
  SPRefType<IPkgDirectory<Context>> toDirectory() override;

private:
  friend class ZipPackage<Context>;

  bool fUnstored = false;   // no record in the package as it stands
  bool fUncreated = false;  // create() has not been called
};

extern template class ZipPkgDirectory<AppContext>;

}  // namespace pkg::zip
