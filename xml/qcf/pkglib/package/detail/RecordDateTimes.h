#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <boost/shared_array.hpp>

#include "package/source/NameTable.h"

namespace pkg {

// Date and time as the record of each path had them when the package was opened, or got them when
// it was made, in the DOS format. Names are shared with their records.
class RecordDateTimes {
public:
  struct DateTime {
    std::uint16_t date;
    std::uint16_t time;
  };

  // Takes the values of one more record; `name` ends at its first NUL and is not null.
  void add(const boost::shared_array<char>& name, DateTime value);
  std::size_t count() const { return fElements.size(); }
  // Forgets all but the first `count`.
  void keepFirst(std::size_t count);
  // Those of the last record of this name; null where there is none.
  const DateTime* find(const char* name);

private:
  struct Element {
    boost::shared_array<char> name;
    DateTime value;
    std::uint32_t hash;  // of the name, once it has been entered in the table
  };

  void enterLatest();
  NameTable::Index& placeOf(std::uint32_t hash, const char* name);

  std::vector<Element> fElements;
  NameTable fTable;
  std::size_t fEntered = 0;  // so many elements are in the table; a search enters the rest
};

}  // namespace pkg
