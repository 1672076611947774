#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <boost/shared_array.hpp>

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
  // Those of the last record of this name; null where there is none. A search after many additions
  // sorts.
  const DateTime* find(const char* name);

private:
  struct Element {
    boost::shared_array<char> name;
    DateTime value;
  };

  void sort();

  std::vector<Element> fElements;
  std::size_t fSorted = 0;  // so many in the order of their names, then the latest as they came
};

}  // namespace pkg
