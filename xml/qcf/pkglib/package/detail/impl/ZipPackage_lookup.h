#pragma once

#include "package/detail/ZipPackage.h"
#include "package/detail/ZipPackageFactory.h"

namespace pkg::zip {

inline bool isDirectoryName(const char* name) {
  const std::size_t length = std::strlen(name);
  return length != 0 && name[length - 1] == '/';
}

template <class Context>
ZpCentralDir<Context>& ZipPackage<Context>::centralDir() const {
  if (!fCentralDir) throw PackageException<>(PkgLib_Err_IllegalState);
  return *fCentralDir;
}

template <class Context>
typename Context::String ZipPackage<Context>::canonical(const String& path) {
  return ZipPackageFactory<Context>::getInstance()->canonicalize(path, false);
}

template <class Context>
typename Context::String ZipPackage<Context>::relativeTo(const Directory& dir, const String& path) {
  const char separator = ZipPackageFactory<Context>::getInstance()->fPathSeparator;
  if (!dir || (!path.empty() && path.front() == separator)) return path;
  String base = dir->getName();
  if (base.empty()) return path;
  if (base.back() != separator) base += separator;
  return base + path;
}

template <class Context>
PkgEntryType ZipPackage<Context>::entryExists(const String& path) {
  this->requireOpen();
  const String key = canonical(path);
  const auto known = fEntries.find(key);
  if (known != fEntries.end()) {
    return known->second->isDeleted() ? PkgEntryNone : known->second->getEntryType();
  }
  const Record record = centralDir().find(Context::toUTF8(key).get());
  if (!record) return PkgEntryNone;
  return isDirectoryName(record->fName.get()) ? PkgEntryDirectory : PkgEntryFile;
}

template <class Context>
PkgEntryType ZipPackage<Context>::entryExists(const String& path, const Directory& dir) {
  this->requireOpen();
  return this->entryExists(relativeTo(dir, path));
}

template <class Context>
SPRefType<IPkgFile<Context>> ZipPackage<Context>::getFile(const String& path, bool mustExist) {
  this->requireOpen();
  const String key = canonical(path);
  if (isConforming()) requireMimetypeFirst(key, mustExist);
  const auto known = fEntries.find(key);
  if (known == fEntries.end()) return makeFile(key, mustExist);
  if (dynamic_cast<ZipPkgFile<Context>*>(known->second.get()) == nullptr) {
    throw PackageException<>(PkgLib_Err_UnsupportedOperation);
  }
  return known->second->toFile();
}

template <class Context>
SPRefType<IPkgFile<Context>> ZipPackage<Context>::getFile(const String& path, const Directory& dir,
                                                          bool mustExist) {
  this->requireOpen();
  return this->getFile(relativeTo(dir, path), mustExist);
}

// What cannot be found is told before what cannot be a file's path.
template <class Context>
SPRefType<IPkgFile<Context>> ZipPackage<Context>::makeFile(const String& key, bool mustExist) {
  auto file = std::make_unique<ZipPkgFile<Context>>(key, mustExist, this);
  if (isDirectoryName(key.c_str())) throw PackageException<>(PkgLib_Err_BadArgument);
  // An illegal default of the package shows here.
  file->setCompressionMethod(file->getCompressionMethod());
  return enter(file.release())->toFile();
}

template <class Context>
SPRefType<IPkgDirectory<Context>> ZipPackage<Context>::getDirectory(const String& path,
                                                                    bool mustExist) {
  this->requireOpen();
  const char separator = ZipPackageFactory<Context>::getInstance()->fPathSeparator;
  const bool complete = path.empty() || path.back() == separator;
  const String key = canonical(complete ? path : path + separator);
  const auto known = fEntries.find(key);
  if (known == fEntries.end()) return makeDirectory(key, mustExist);
  if (dynamic_cast<ZipPkgDirectory<Context>*>(known->second.get()) == nullptr) {
    throw PackageException<>(PkgLib_Err_UnsupportedOperation);
  }
  return known->second->toDirectory();
}

template <class Context>
SPRefType<IPkgDirectory<Context>> ZipPackage<Context>::getDirectory(const String& path,
                                                                    const Directory& dir,
                                                                    bool mustExist) {
  this->requireOpen();
  return this->getDirectory(relativeTo(dir, path), mustExist);
}

template <class Context>
SPRefType<IPkgDirectory<Context>> ZipPackage<Context>::makeDirectory(const String& key,
                                                                     bool mustExist) {
  auto directory = std::make_unique<ZipPkgDirectory<Context>>(key, mustExist, this);
  if (!isDirectoryName(key.c_str())) throw PackageException<>(PkgLib_Err_BadArgument);
  directory->setCompressionMethod(CompressionStored);
  directory->fUnstored = !directory->fReadCentral;
  directory->fUncreated = directory->fUnstored;
  return enter(directory.release())->toDirectory();
}

template <class Context>
SPRefType<IPkgDirectory<Context>> ZipPackage<Context>::getRootDirectory() const {
  this->requireOpen();
  return fRoot;
}

// Adopts the birth reference of a new entry.
template <class Context>
SPRefType<IPkgEntry<Context>> ZipPackage<Context>::enter(ZipPkgEntry<Context>* entry) {
  EntryHandle handle(entry);
  if (fInUpdate) tieToUpdate(entry);
  fEntries.emplace(entry->fName, handle);
  return handle;
}

// For a new object of an old entry: an update in place may list that already.
template <class Context>
void ZipPackage<Context>::tieToUpdate(ZipPkgEntry<Context>* entry) {
  if (!entry->fReadCentral) return;
  entry->fWriteCentral = fOutCentralDir->find(entry->fReadCentral->name().get());
}

template <class Context>
SPRefType<IPkgEntry<Context>> ZipPackage<Context>::getEntry(const Record& record) {
  const std::size_t known = fEntries.size();
  EntryHandle handle = entryOf(record);
  if (fInUpdate && fEntries.size() != known) tieToUpdate(zipEntry(handle));
  return handle;
}

// A name in the file is a key as it stands, canonical or not, and alone decides between file and
// directory.
template <class Context>
SPRefType<IPkgEntry<Context>> ZipPackage<Context>::entryOf(const Record& record) {
  const String path = record->getPath();
  const auto place = fEntries.lower_bound(path);
  if (place != fEntries.end() && place->first == path) return place->second;
  const EntryHandle entry(
      isDirectoryName(record->fName.get())
          ? static_cast<ZipPkgEntry<Context>*>(new ZipPkgDirectory<Context>(record, this))
          : new ZipPkgFile<Context>(record, this));
  return fEntries.emplace_hint(place, zipEntry(entry)->fName, entry)->second;
}

template <class Context>
ZipPkgEntry<Context>* ZipPackage<Context>::zipEntry(const EntryHandle& handle) {
  return dynamic_cast<ZipPkgEntry<Context>*>(handle.get());
}

template <class Context>
void ZipPackage<Context>::addNewEntry(ZipPkgEntry<Context>* entry) {
  if (fInUpdate) {
    entry->fQueued = true;
  } else {
    this->fModified = true;
    entry->fModified = true;
  }
  (fInUpdate ? fQueuedEntries : fChangedEntries).add(entry);
}

template <class Context>
void ZipPackage<Context>::deleteCDirEntry(const char* name) {
  const auto known = fEntries.find(Context::fromUTF8(name));
  (fInUpdate ? *fOutCentralDir : centralDir()).erase(name);
  if (known == fEntries.end()) return;
  ZipPkgEntry<Context>* const entry = zipEntry(known->second);
  (fInUpdate ? entry->fWriteCentral : entry->fReadCentral).reset();
}

}  // namespace pkg::zip
