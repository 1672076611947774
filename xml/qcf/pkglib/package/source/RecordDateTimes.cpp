#include "package/detail/RecordDateTimes.h"

#include <cstring>

namespace pkg {

void RecordDateTimes::add(const boost::shared_array<char>& name, DateTime value) {
  fElements.push_back({name, value, 0});
}

void RecordDateTimes::keepFirst(std::size_t count) {
  fElements.erase(fElements.begin() + static_cast<std::ptrdiff_t>(count), fElements.end());
  fTable = NameTable();
  fEntered = 0;
}

const RecordDateTimes::DateTime* RecordDateTimes::find(const char* name) {
  enterLatest();
  const NameTable::Index found = placeOf(hashOfName(name), name);
  return found == NameTable::kNone ? nullptr : &fElements[found].value;
}

NameTable::Index& RecordDateTimes::placeOf(std::uint32_t hash, const char* name) {
  return fTable.place(hash, [&](NameTable::Index index) {
    const Element& element = fElements[index];
    return element.hash == hash && std::strcmp(element.name.get(), name) == 0;
  });
}

// Of equal names the later takes the place of the earlier.
void RecordDateTimes::enterLatest() {
  if (fTable.room() < fElements.size()) {
    fTable = NameTable(fElements.size());
    fEntered = 0;
  }
  for (; fEntered < fElements.size(); ++fEntered) {
    Element& element = fElements[fEntered];
    element.hash = hashOfName(element.name.get());
    placeOf(element.hash, element.name.get()) = static_cast<NameTable::Index>(fEntered);
  }
}

}  // namespace pkg
