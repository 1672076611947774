#pragma once

#include <set>

#include "package/detail/BasePkgEntry.h"
#include "package/detail/ZipPackage.h"

namespace pkg::zip {

// Walks the records of a package and then its changed entries: all of them, or the children of one
// directory, each child directory once, whether it has a record or is only implied by deeper names.
template <class Context>
class ZipPackage<Context>::ZipPkgEntryIteratorImpl final
    : public BasePkgEntryIteratorImpl<Context> {
public:
  // Stands on the first valid entry. `directory` is null for all entries.
  ZipPkgEntryIteratorImpl(ZipPackage* package, const Directory& directory, const String& pattern);

  EntryHandle dereference() const override;
  void increment() override;
  bool isValid() const override;

private:
  void makeValid();
  bool isValidEntry(const EntryHandle& entry);
  bool impliesNewDirectory(const String& path);
  ZipPackage* zipPackage() const { return static_cast<ZipPackage*>(this->fPackage); }

  Directory fDirectory;
  String fPattern;
  int fPhase = 0;  // 0 in the records, 1 in the changed entries
  typename ZpCentralDir<Context>::Entries::iterator fRecord;
  typename EntryList::iterator fChanged;
  std::set<String> fSeenDirectories;
  EntryHandle fCurrent;  // what the position stands on, whatever becomes of the record
  EntryHandle fImplied;
};

}  // namespace pkg::zip
