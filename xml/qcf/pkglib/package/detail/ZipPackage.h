#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string_view>

#include "package/detail/BasePackage.h"
#include "package/detail/EntryList.h"
#include "package/detail/ZipPkgDirectory.h"
#include "package/detail/ZipPkgFile.h"
#include "package/detail/ZpCentralDir.h"

namespace pkg::zip {

// A package in a ZIP file. Opening reads the whole directory; entry objects are made when they are
// asked for, and the table keeps them.
template <class Context>
class QCF_API ZipPackage : public BasePackage<Context> {
public:
  using String = typename Context::String;
  using openmode = std::ios_base::openmode;
  using FileName = boost::shared_ptr<IPkgFSFileName<Context>>;
  using FileHandle = boost::shared_ptr<IPkgFSFile<Context>>;
  using Directory = SPRefType<IPkgDirectory<Context>>;
  using Record = boost::shared_ptr<ZpCentralDirEntry<Context>>;

  // The package in an open file, whose mode, name and file system it takes. Raises what init
  // raises.
  ZipPackage(const FileHandle& file, const IPkgPolicies* policies, IXMLParser* parser);
  // A package whose file is still to be opened: openFile follows.
  ZipPackage(const FileName& name, IPkgFileSystem<Context>* fileSystem,
             const IPkgPolicies* policies, IXMLParser* parser);
  // Frees what it owns; neither saves nor closes.
  ~ZipPackage() override = default;

  // Opens the package's file and reads it. Raises 18 when there is a file already, what the file
  // system raises, and 16, 20, 46, 47 or what the directory readers raise when it is no package of
  // the wanted kind.
  void openFile(openmode mode);

  void beginUpdate() override;
  void beginUpdate(const String& name, openmode mode) override;
  void beginUpdate(const FileName& name, openmode mode) override;
  void doUNSAFEUpdateInPlace() override;
  void endUpdate() override;
  void cancelUpdate() override;
  void saveAs(const String& name, openmode mode) override;
  void saveAs(const FileName& name, openmode mode) override;
  void close() override;
  void closeWithoutSave() override;

  PkgEntryType entryExists(const String& path) override;
  PkgEntryType entryExists(const String& path, const Directory& dir) override;
  SPRefType<IPkgFile<Context>> getFile(const String& path, bool mustExist) override;
  SPRefType<IPkgFile<Context>> getFile(const String& path, const Directory& dir,
                                       bool mustExist) override;
  Directory getDirectory(const String& path, bool mustExist) override;
  Directory getDirectory(const String& path, const Directory& dir, bool mustExist) override;
  Directory getRootDirectory() const override;

  void setMIMEType(const String& type) override;
  String getMIMEType() override;
  String getProperty(QCFPropertyName name) override;
  void setProperty(QCFPropertyName name, const String& value) override;
  std::int32_t checkConformance() override;
  void initIterator(boost::shared_ptr<IPkgEntryIteratorImpl<Context>>& iterator,
                    const Directory& dir, const String& pattern) override;

  // The entry object of a record of the directory. Raises what a damaged local header raises.
  SPRefType<IPkgEntry<Context>> getEntry(const Record& record);
  // Enters an entry, once, in the list of changed entries or, during an update, in the queue.
  void addNewEntry(ZipPkgEntry<Context>* entry);
  // Takes the first record of a name out of the directory that is being built, else of the one that
  // stands.
  void deleteCDirEntry(const char* name);

private:
  class ZipPkgEntryIteratorImpl;
  friend class ZipPkgEntry<Context>;
  friend class ZipPkgDirectory<Context>;
  friend class ZipPkgFile<Context>;
  friend class ZipPkgStreamBuf<Context>;

  using EntryHandle = SPRefType<IPkgEntry<Context>>;
  using EntryList = zip::EntryList<Context>;
  using NameView = std::basic_string_view<typename String::value_type>;

  // Opening.
  void init();
  void initNew();
  void initExisting();
  void applyMimetypeRules();
  bool isValidMimetype(const SPRefType<IPkgFile<Context>>& file) const;
  void repairMimetype(const SPRefType<IPkgFile<Context>>& file);
  static String readToken(IPkgFile<Context>& file);

  // Lookup.
  // Raises 24 where a failed close has taken the directory away.
  ZpCentralDir<Context>& centralDir() const;
  static String canonical(const String& path);
  static String relativeTo(const Directory& dir, const String& path);
  EntryHandle enter(ZipPkgEntry<Context>* entry);
  EntryHandle entryOf(const Record& record);
  void tieToUpdate(ZipPkgEntry<Context>* entry);
  SPRefType<IPkgFile<Context>> makeFile(const String& key, bool mustExist);
  Directory makeDirectory(const String& key, bool mustExist);
  void requireMimetypeFirst(const String& key, bool mustExist);
  bool isConforming() const;

  // Transactions.
  void requireNoUpdate() const;
  void requireUpdate() const;
  void startUpdate(bool outputWritten);
  void privateUpdate();
  void writeMimetypeFirst();
  void writeOldEntries();
  void writeChangedEntries();
  void keepOldRecords();
  void closeCurrentWriter();
  void writeQueuedEntries();
  void writeDirectory();
  void adoptOutput();
  static ZipPkgEntry<Context>* zipEntry(const EntryHandle& handle);

  std::unique_ptr<ZpCentralDir<Context>> fCentralDir;
  Directory fRoot;
  bool fInUpdate = false;
  bool fSaveAs = false;
  ZipPkgFile<Context>* fCurrentWriter = nullptr;  // the entry with the direct stream
  bool fOutputWritten = false;
  std::map<NameView, EntryHandle> fEntries;  // by their own names
  EntryList fChangedEntries;
  EntryList fQueuedEntries;
  FileHandle fOutFile;
  std::unique_ptr<ZpCentralDir<Context>> fOutCentralDir;
  bool fMimetypeSeen = false;
  PkgLib_Package_Error fConformance = PkgLib_Err_None;
  bool fMimetypeFirst = false;
};

extern template class ZipPackage<AppContext>;

}  // namespace pkg::zip
