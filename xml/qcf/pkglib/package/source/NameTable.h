#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

namespace pkg {

inline std::uint32_t hashOfName(const char* name) {
  return static_cast<std::uint32_t>(std::hash<std::string_view>()(name));
}

// Which element of an array has a name. The array is its user's, who compares the names.
class NameTable {
public:
  using Index = std::uint32_t;
  static constexpr Index kNone = 0xFFFFFFFF;

  // An empty table with room for `count` names.
  explicit NameTable(std::size_t count = 0) : fPlaces(placesFor(count), Index{kNone}) {}

  std::size_t room() const { return fPlaces.size() / 2; }
  // Where the index stands for which `fits(index)` holds, or else where the index of a name with
  // this hash is to be put: kNone stands there.
  template <class Fits>
  Index& place(std::uint32_t hash, Fits fits) {
    const std::size_t mask = fPlaces.size() - 1;
    std::size_t at = hash & mask;
    while (fPlaces[at] != kNone && !fits(fPlaces[at]))
      at = (at + 1) & mask;
    return fPlaces[at];
  }

private:
  // A power of two, and at least half of them stay empty.
  static std::size_t placesFor(std::size_t count) {
    std::size_t places = 16;
    while (places / 2 < count)
      places *= 2;
    return places;
  }

  std::vector<Index> fPlaces;
};

}  // namespace pkg
