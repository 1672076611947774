#pragma once

#include <cstddef>
#include <cstring>
#include <iterator>
#include <new>

#include "package/detail/ZipPackage.h"

namespace pkg::zip {

template <class Context>
void ZipPackage<Context>::requireNoUpdate() const {
  this->requireOpen();
  if (fInUpdate) throw PackageException<>(PkgLib_Err_UpdateInProgress);
}

template <class Context>
void ZipPackage<Context>::requireUpdate() const {
  this->requireOpen();
  if (!fInUpdate) throw PackageException<>(PkgLib_Err_UpdateNotInProgress);
}

template <class Context>
void ZipPackage<Context>::beginUpdate() {
  requireNoUpdate();
  // With fSaveAs still set, an earlier end failed on another output: this starts over on it.
  if (!fSaveAs) {
    this->fUpdateMode = this->fOpenMode;
    fOutFile = this->fPackageFile;
  }
  startUpdate(false);
  writeOldEntries();
  writeChangedEntries();
  this->fProperties->beginUpdate();
}

template <class Context>
void ZipPackage<Context>::beginUpdate(const String& name, openmode mode) {
  requireNoUpdate();
  this->beginUpdate(this->fFileSystem->getFSFileName(name), mode);
}

template <class Context>
void ZipPackage<Context>::beginUpdate(const FileName& name, openmode mode) {
  requireNoUpdate();
  if ((mode & std::ios_base::out) == 0) {
    throw PackageException<>(PkgLib_Err_UpdateRequiresWrite);
  }
  fOutFile = this->fFileSystem->openFile(name, mode);
  this->fUpdateMode = mode;
  fSaveAs = true;
  privateUpdate();
}

template <class Context>
void ZipPackage<Context>::privateUpdate() {
  startUpdate(false);
  if (fMimetypeFirst) writeMimetypeFirst();
  writeOldEntries();
  writeChangedEntries();
  this->fProperties->beginUpdate();
}

// glibc hands the free end of the heap back to the system once it is longer than twice the largest
// block that was ever mapped and freed. The state of zlib that each deflated entry takes and frees
// is: without this block, its pages would be fetched anew for every entry.
inline void keepHeapForDeflate() {
  constexpr std::size_t kAsLargeAsItsState = 384 * 1024;
  ::operator delete(::operator new(kAsLargeAsItsState, std::nothrow));
}

template <class Context>
void ZipPackage<Context>::startUpdate(bool outputWritten) {
  constexpr std::size_t kRoom = 10;
  keepHeapForDeflate();
  // An end that failed has left the records of its directory, which goes now.
  for (const auto& [path, handle] : fEntries) {
    zipEntry(handle)->cancelUpdate();
  }
  fOutCentralDir = std::make_unique<ZpCentralDir<Context>>(kRoom);
  fInUpdate = true;
  fCurrentWriter = nullptr;
  fOutputWritten = outputWritten;
  fMimetypeSeen = false;
}

// The entry that opening has put right, which no other may precede.
template <class Context>
void ZipPackage<Context>::writeMimetypeFirst() {
  ZipPkgEntry<Context>* const first =
      fChangedEntries.empty() ? nullptr : zipEntry(fChangedEntries.front());
  if (first == nullptr || first->getEntryType() != PkgEntryFile ||
      first->fName != Context::fromUTF8(kMimetypeName)) {
    throw PackageException<>(PkgLib_Err_MissingMimetype);
  }
  first->write();
  fChangedEntries.remove(first);
  fMimetypeFirst = false;
}

// Into another file everything goes, into this one what has changed. Copying does not mark the
// package.
template <class Context>
void ZipPackage<Context>::writeOldEntries() {
  const bool modified = this->fModified;
  for (const auto& record : centralDir().fEntries) {
    const EntryHandle handle = entryOf(record);
    ZipPkgEntry<Context>* const entry = zipEntry(handle);
    if (!entry->fDeleted && (fSaveAs || entry->fModified)) entry->write();
  }
  this->fModified = modified;
}

// A changed old entry was written with the old ones, and is written again here from its old data.
template <class Context>
void ZipPackage<Context>::writeChangedEntries() {
  for (const EntryHandle& handle : fChangedEntries) {
    ZipPkgEntry<Context>* const entry = zipEntry(handle);
    if (!entry->fDeleted) entry->write();
  }
}

template <class Context>
void ZipPackage<Context>::doUNSAFEUpdateInPlace() {
  this->fUpdateMode = this->fOpenMode;
  fOutFile = this->fPackageFile;
  startUpdate(true);  // the old directory goes: a new one is written in any case
  keepOldRecords();
  if (fOutFile->isSeekable()) {
    fOutFile->truncate(static_cast<long long>(fCentralDir->fDirectoryOffset));
  }
  writeChangedEntries();
  this->fProperties->beginUpdate();
  this->endUpdate();
}

// The bytes of unchanged entries stay where they are, and so do their offsets. What nobody has
// asked for cannot have changed, and gets no entry object.
template <class Context>
void ZipPackage<Context>::keepOldRecords() {
  const ZpCentralDir<Context>& old = centralDir();
  for (const std::size_t at : old.firstOfEachName()) {
    const Record& record = old.fEntries[at];
    const auto known = fEntries.find(record->getPath());
    ZipPkgEntry<Context>* const entry = known == fEntries.end() ? nullptr : zipEntry(known->second);
    if (entry != nullptr && (entry->fDeleted || entry->fModified)) continue;
    const Record& copy = fOutCentralDir->appendCopy(old, at);
    if (entry != nullptr) entry->fWriteCentral = copy;
  }
}

template <class Context>
void ZipPackage<Context>::endUpdate() {
  requireUpdate();
  this->fProperties->endUpdate();
  closeCurrentWriter();
  writeQueuedEntries();
  fInUpdate = false;
  if (fOutputWritten && fOutFile) {
    writeDirectory();
    adoptOutput();
  }
  fSaveAs = false;
}

template <class Context>
void ZipPackage<Context>::closeCurrentWriter() {
  if (fCurrentWriter == nullptr) return;
  ZipPkgFile<Context>* const writer = fCurrentWriter;
  writer->closeStreams();
  writer->fTempFile.discard();
}

template <class Context>
void ZipPackage<Context>::writeQueuedEntries() {
  for (auto node = fQueuedEntries.begin(); node != fQueuedEntries.end();) {
    const EntryHandle handle = *node++;  // writing takes the node out
    ZipPkgEntry<Context>* const entry = zipEntry(handle);
    if (!entry->fDeleted) entry->write();
  }
}

template <class Context>
void ZipPackage<Context>::writeDirectory() {
  IPkgFSFileCommon* const out = fOutFile.get();
  if (out->isSeekable()) out->seek(0, SEEK_END);
  fOutCentralDir->fDirectoryOffset = static_cast<std::uint64_t>(out->tell());
  for (const auto& record : fOutCentralDir->fEntries)
    record->writeCDH(out, this);
  fOutCentralDir->writeECD(out, this);
  out->flush();
}

template <class Context>
void ZipPackage<Context>::adoptOutput() {
  this->fModified = false;
  this->fPackageFile = fOutFile;
  fOutFile.reset();
  this->fOpenMode = this->fUpdateMode;
  fCentralDir = std::move(fOutCentralDir);
  fChangedEntries.clear();
  fQueuedEntries.clear();
  for (auto node = fEntries.begin(); node != fEntries.end();) {
    ZipPkgEntry<Context>* const entry = zipEntry(node->second);
    if (entry->fDeleted) {
      entry->leavePackage();
      node = fEntries.erase(node);
    } else {
      entry->endUpdate();
      ++node;
    }
  }
}

template <class Context>
void ZipPackage<Context>::cancelUpdate() {
  requireUpdate();
  fSaveAs = false;
  fInUpdate = false;
  for (const EntryHandle& handle : fQueuedEntries) {
    zipEntry(handle)->cancelUpdate();
    fEntries.erase(zipEntry(handle)->fName);
  }
  for (auto node = fEntries.begin(); node != fEntries.end();) {
    ZipPkgEntry<Context>* const entry = zipEntry(node->second);
    const bool madeInUpdate = entry->fWriteCentral && !entry->fReadCentral;
    entry->cancelUpdate();
    node = madeInUpdate ? fEntries.erase(node) : std::next(node);
  }
  fQueuedEntries.clear();
  fOutCentralDir.reset();
  this->fProperties->cancelUpdate();
}

template <class Context>
void ZipPackage<Context>::saveAs(const String& name, openmode mode) {
  this->requireOpen();
  this->saveAs(this->fFileSystem->getFSFileName(name), mode);
}

template <class Context>
void ZipPackage<Context>::saveAs(const FileName& name, openmode mode) {
  this->requireOpen();
  this->beginUpdate(name, mode);
  this->endUpdate();
}

template <class Context>
void ZipPackage<Context>::close() {
  this->requireOpen();
  this->closeWithoutSave();
}

template <class Context>
void ZipPackage<Context>::closeWithoutSave() {
  this->requireOpen();
  fCentralDir.reset();
  for (auto& [path, handle] : fEntries) {
    auto* const file = dynamic_cast<ZipPkgFile<Context>*>(handle.get());
    if (file == nullptr) continue;
    file->closeStreams();
    file->fTempFile.discard();
  }
  if (this->fPackageFile) {
    this->fPackageFile->close();  // which can be tried again where it fails
    this->fPackageFile.reset();
  }
  this->fIsOpen = false;
}

template <class Context>
typename Context::String ZipPackage<Context>::getProperty(QCFPropertyName name) {
  this->requireOpen();
  if (name != QCFPropertyPackageComment) return BasePackage<Context>::getProperty(name);
  return this->fProperties->getZipProperty(PkgPropertyMgr<Context>::fPkgPath, name, nullptr);
}

template <class Context>
void ZipPackage<Context>::setProperty(QCFPropertyName name, const String& value) {
  constexpr std::size_t kLongestComment = 65534;
  this->requireOpen();
  if (name != QCFPropertyPackageComment) {
    BasePackage<Context>::setProperty(name, value);
    return;
  }
  if (std::strlen(Context::toUTF8(value).get()) > kLongestComment) {
    throw PackageException<>(PkgLib_Err_BadArgument);
  }
  this->fProperties->setZipProperty(PkgPropertyMgr<Context>::fPkgPath, name, value, false);
}

}  // namespace pkg::zip
