#include "package/detail/RecordDateTimes.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace pkg {

void RecordDateTimes::add(const boost::shared_array<char>& name, DateTime value) {
  fElements.push_back({name, value});
  fSorted = false;
}

const RecordDateTimes::DateTime* RecordDateTimes::find(const char* name) {
  if (!fSorted) {
    std::stable_sort(fElements.begin(), fElements.end(), [](const Element& a, const Element& b) {
      return std::strcmp(a.name.get(), b.name.get()) < 0;
    });
    fSorted = true;
  }
  const auto behind = std::upper_bound(fElements.begin(), fElements.end(), name,
                                       [](const char* wanted, const Element& element) {
                                         return std::strcmp(wanted, element.name.get()) < 0;
                                       });
  if (behind == fElements.begin()) return nullptr;
  const Element& last = *std::prev(behind);
  return std::strcmp(last.name.get(), name) == 0 ? &last.value : nullptr;
}

}  // namespace pkg
