#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "package/detail/BasePkgEntry.h"
#include "package/detail/ZpCentralDir.h"
#include "package/detail/ZpLocalFileEntry.h"

namespace pkg::zip {

// What file and directory entries of a ZIP package share: the tie between a path and its headers,
// as the package stands and as they are being written.
template <class Context = AppContext>
class QCF_API ZipPkgEntry : public BasePkgEntry<Context> {
public:
  using String = typename Context::String;
  using Record = boost::shared_ptr<ZpCentralDirEntry<Context>>;

  ~ZipPkgEntry() override = default;

  // Carries the entry into the output file of the running update.
  virtual void write() = 0;
  // Makes what was written what stands.
  virtual void endUpdate();
  // Forgets what was written.
  virtual void cancelUpdate();

protected:
  friend class ZipPackage<Context>;

  // By path: bound to the record of that name where there is one. Raises 21 where there is none and
  // `mustExist` asks for one, and what readLFH raises.
  ZipPkgEntry(const String& name, bool mustExist, ZipPackage<Context>* package, PkgEntryType type);
  // By record. Raises 22 for a null package, and what readLFH raises.
  ZipPkgEntry(const Record& record, ZipPackage<Context>* package, PkgEntryType type);

  // Builds the record and the local header to be written, at the end of the output file; with
  // `copy` from the record as it stands. Raises 22 for a name of 65536 bytes or more.
  void createZipData(bool copy);

  ZipPackage<Context>* zipPackage() const;
  // The record of the running update, else the one as the package stands; null for a new entry.
  const Record& currentCentral() const { return fWriteCentral ? fWriteCentral : fReadCentral; }
  // Marks the entry as changed or, during an update, as waiting for the output file.
  void markChanged();
  // Takes the entry out of the package's queue, now that it goes straight out.
  void leaveQueue();
  // Takes the entry's record out of the package where that can be written and read, else marks both
  // as changed; then marks the entry as deleted.
  void removeFromPackage();
  // Lets go of all that ties the entry to the package, which lists it no more: a client may hold it
  // longer, and write it anew.
  void leavePackage();

  // What is kept of the local header as the package stands.
  struct ReadLocal {
    explicit ReadLocal(const ZpLocalFileEntry<Context>& local)
        : dataOffset(static_cast<std::uint32_t>(local.dataOffset())),
          method(local.fHeader.method) {}

    std::uint32_t dataOffset;  // from the header's start to the data
    std::uint16_t method;
  };

  std::unique_ptr<ZpLocalFileEntry<Context>> fWriteLocal;
  // Shared with the package's directory and the update's, so that a client may hold an entry longer
  // than those.
  Record fReadCentral;
  Record fWriteCentral;
  std::int64_t fExpectedSize = 0;
  std::uint32_t fExpectedCRC = 0;
  std::optional<ReadLocal> fReadLocal;

private:
  void bindToRecord(const Record& record);
  Record makeNewRecord() const;
  void settleDescriptor(ZpLocalFileEntry<Context>& local, bool seekable);
  void settleDateTime(ZpLocalFileEntry<Context>& local);
  bool hasDateTime() const;
  std::uint16_t dateTimeProperty(QCFPropertyName name, std::uint16_t now);
};

extern template class ZipPkgEntry<AppContext>;

}  // namespace pkg::zip
