// The one instantiation of the library's templates, over AppContext.

#include "package/QCFPackage.h"
#include "package/detail/impl/BasePackage.h"
#include "package/detail/impl/BasePkgEntry.h"
#include "package/detail/impl/BasePkgHexStrings.h"
#include "package/detail/impl/PkgFileSys_file.h"
#include "package/detail/impl/PkgFileSys_system.h"
#include "package/detail/impl/PkgPropertyMgr.h"
#include "package/detail/impl/PropertiesDocument.h"
#include "package/detail/impl/ZipPackageFactory.h"
#include "package/detail/impl/ZipPackage_conformance.h"
#include "package/detail/impl/ZipPackage_lookup.h"
#include "package/detail/impl/ZipPackage_open.h"
#include "package/detail/impl/ZipPackage_update.h"
#include "package/detail/impl/ZipPkgDirectory.h"
#include "package/detail/impl/ZipPkgEntry.h"
#include "package/detail/impl/ZipPkgEntryIterator.h"
#include "package/detail/impl/ZipPkgFile.h"
#include "package/detail/impl/ZipPkgFile_open.h"
#include "package/detail/impl/ZipPkgStream_close.h"
#include "package/detail/impl/ZipPkgStream_construct.h"
#include "package/detail/impl/ZipPkgStream_read.h"
#include "package/detail/impl/ZipPkgStream_seek.h"
#include "package/detail/impl/ZipPkgStream_write.h"
#include "package/detail/impl/ZpCentralDir_read.h"
#include "package/detail/impl/ZpCentralDir_write.h"
#include "package/detail/impl/ZpLocalFileEntry.h"

namespace pkg {

// Ready with static initialisation, before any singleton is asked for. Their order is the
// compiler's, which makes those of one class in one go: none needs another.
template <class Context>
PkgMutualExclusion zip::ZipPackageFactory<Context>::fMutex;
template <class Context>
PkgMutualExclusion BasePkgFileSystem<Context>::fMutex;
template <class Context>
const typename Context::String PkgPropertyMgr<Context>::fPkgPath = Context::fromUTF8("/");
template <class Context>
PkgMutualExclusion BasePkgHexStrings<Context>::fMutex;
template <class Context>
const typename Context::String PkgPropertyMgr<Context>::fPropertiesXMLFilePath =
    Context::fromUTF8("/META-INF/pkgproperties.xml");

template class zip::ZipPackageFactory<AppContext>;
template class BasePkgFileSystem<AppContext>;
template class PkgPropertyMgr<AppContext>;
template class BasePkgHexStrings<AppContext>;
template class BasePackageFactory<AppContext>;
template class BasePackage<AppContext>;
template class BasePkgEntry<AppContext>;
template class BasePkgFile<AppContext>;
template class BasePkgFSFileName<AppContext>;
template class BasePkgFSFile<AppContext>;

namespace zip {
template class ZpCentralDirEntry<AppContext>;
template class ZpCentralDir<AppContext>;
template class ZpLocalFileEntry<AppContext>;
template class ZipPkgEntry<AppContext>;
template class ZipPkgFile<AppContext>;
template class ZipPkgDirectory<AppContext>;
template class ZipPkgStreamData<AppContext>;
template class ZipPkgStreamBuf<AppContext>;
template class ZipPkgStream<AppContext>;
template class ZipPackage<AppContext>;
}  // namespace zip

}  // namespace pkg
