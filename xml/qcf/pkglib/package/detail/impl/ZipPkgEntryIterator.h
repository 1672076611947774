#pragma once

#include "package/detail/ZipPackageFactory.h"
#include "package/detail/ZipPkgEntryIterator.h"

namespace pkg::zip {

template <class Context>
void ZipPackage<Context>::initIterator(boost::shared_ptr<IPkgEntryIteratorImpl<Context>>& iterator,
                                       const Directory& dir, const String& pattern) {
  this->requireOpen();
  iterator = boost::shared_ptr<IPkgEntryIteratorImpl<Context>>(
      new ZipPkgEntryIteratorImpl(this, dir, pattern));
  if (!pattern.empty()) throw PackageException<>(PkgLib_Err_NotImplemented);
}

template <class Context>
ZipPackage<Context>::ZipPkgEntryIteratorImpl::ZipPkgEntryIteratorImpl(ZipPackage* package,
                                                                      const Directory& directory,
                                                                      const String& pattern)
    : BasePkgEntryIteratorImpl<Context>(package),
      fDirectory(directory),
      fPattern(pattern),
      fRecord(package->centralDir().fEntries.begin()),
      fChanged(package->fChangedEntries.begin()) {
  makeValid();
}

template <class Context>
void ZipPackage<Context>::ZipPkgEntryIteratorImpl::makeValid() {
  auto& records = zipPackage()->centralDir().fEntries;
  for (; fPhase == 0 && fRecord != records.end(); ++fRecord) {
    fCurrent = zipPackage()->getEntry(*fRecord);
    if (isValidEntry(fCurrent)) return;
  }
  EntryList& changed = zipPackage()->fChangedEntries;
  if (fPhase == 0) {
    fPhase = 1;
    fChanged = changed.begin();
  }
  for (; fChanged != changed.end(); ++fChanged) {
    fCurrent = *fChanged;
    if (isValidEntry(fCurrent)) return;
  }
}

template <class Context>
void ZipPackage<Context>::ZipPkgEntryIteratorImpl::increment() {
  EntryList& changed = zipPackage()->fChangedEntries;
  fImplied.reset();
  if (fPhase == 0) {
    ++fRecord;
  } else if (fChanged != changed.end()) {
    ++fChanged;
  } else {
    fChanged = changed.begin();  // a step beyond the end goes round
  }
  makeValid();
}

template <class Context>
SPRefType<IPkgEntry<Context>> ZipPackage<Context>::ZipPkgEntryIteratorImpl::dereference() const {
  return fImplied ? fImplied : fCurrent;
}

template <class Context>
bool ZipPackage<Context>::ZipPkgEntryIteratorImpl::isValid() const {
  return fPhase == 0 || fChanged != zipPackage()->fChangedEntries.end();
}

// Whether the walk shows this entry. For an entry further down, what it shows is the child
// directory on the way.
template <class Context>
bool ZipPackage<Context>::ZipPkgEntryIteratorImpl::isValidEntry(const EntryHandle& entry) {
  if (entry->isDeleted()) return false;
  if (!fDirectory) return true;
  const String name = entry->getName();
  std::size_t childStart = 0;
  if (fDirectory != zipPackage()->getRootDirectory()) {
    const String parent = fDirectory->getName();
    if (name.compare(0, parent.size(), parent) != 0 || name.size() == parent.size()) return false;
    childStart = parent.size() + 1;  // a child's name has at least one character
  }
  const char separator = ZipPackageFactory<Context>::getInstance()->fPathSeparator;
  const std::size_t end = name.find(separator, childStart);
  return end == String::npos || impliesNewDirectory(name.substr(0, end + 1));
}

template <class Context>
bool ZipPackage<Context>::ZipPkgEntryIteratorImpl::impliesNewDirectory(const String& path) {
  if (!fSeenDirectories.insert(path).second) return false;
  const Directory directory = zipPackage()->getDirectory(path, false);
  directory->addRef();
  fImplied = EntryHandle(directory.get());
  return true;
}

}  // namespace pkg::zip
