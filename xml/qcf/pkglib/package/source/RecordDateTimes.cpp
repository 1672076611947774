#include "package/detail/RecordDateTimes.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace pkg {

void RecordDateTimes::add(const boost::shared_array<char>& name, DateTime value) {
  fElements.push_back({name, value});
}

const RecordDateTimes::DateTime* RecordDateTimes::find(const char* name) {
  constexpr std::size_t kFew = 64;
  if (fElements.size() - fSorted > kFew) sort();
  for (std::size_t i = fElements.size(); i > fSorted; --i) {
    const Element& latest = fElements[i - 1];
    if (std::strcmp(latest.name.get(), name) == 0) return &latest.value;
  }
  const auto end = fElements.begin() + static_cast<std::ptrdiff_t>(fSorted);
  const auto behind = std::upper_bound(fElements.begin(), end, name,
                                       [](const char* wanted, const Element& element) {
                                         return std::strcmp(wanted, element.name.get()) < 0;
                                       });
  if (behind == fElements.begin()) return nullptr;
  const Element& last = *std::prev(behind);
  return std::strcmp(last.name.get(), name) == 0 ? &last.value : nullptr;
}

// Among equal names the later one stays behind the earlier.
void RecordDateTimes::sort() {
  const auto byName = [](const Element& a, const Element& b) {
    return std::strcmp(a.name.get(), b.name.get()) < 0;
  };
  const auto latest = fElements.begin() + static_cast<std::ptrdiff_t>(fSorted);
  std::stable_sort(latest, fElements.end(), byName);
  std::inplace_merge(fElements.begin(), latest, fElements.end(), byName);
  fSorted = fElements.size();
}

}  // namespace pkg
