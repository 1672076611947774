#pragma once

#include <list>
#include <map>

#include "package/Package.h"

namespace pkg::zip {

// Entries in the order in which they came, each of them once. Holds a reference to each.
template <class Context>
class EntryList {
public:
  using Entry = IPkgEntry<Context>;
  using Handle = SPRefType<Entry>;
  using iterator = typename std::list<Handle>::iterator;

  iterator begin() { return fEntries.begin(); }
  iterator end() { return fEntries.end(); }
  bool empty() const { return fEntries.empty(); }
  const Handle& front() const { return fEntries.front(); }

  // Puts it at the end, unless it is there already.
  void add(Entry* entry) {
    if (fPlaces.count(entry) != 0) return;
    const auto place = fPlaces.emplace(entry, fEntries.end()).first;
    try {
      entry->addRef();
      place->second = fEntries.insert(fEntries.end(), Handle(entry));
    } catch (...) {
      fPlaces.erase(place);
      throw;
    }
  }
  // Takes it out, if it is there.
  void remove(Entry* entry) {
    const auto place = fPlaces.find(entry);
    if (place == fPlaces.end()) return;
    const iterator node = place->second;
    fPlaces.erase(place);
    fEntries.erase(node);
  }
  void clear() {
    fPlaces.clear();
    fEntries.clear();
  }

private:
  std::list<Handle> fEntries;
  std::map<Entry*, iterator> fPlaces;
};

}  // namespace pkg::zip
