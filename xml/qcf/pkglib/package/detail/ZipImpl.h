#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include <boost/shared_array.hpp>

#include "package/detail/AppContext.h"
#include "package/source/ZipImpl.h"

namespace pkg::zip {

// The standard-library face of an allocation policy. Without state.
template <class T, class Policy = PkgAlloc>
class ZipAllocator {
public:
  using value_type = T;

  ZipAllocator() = default;
  template <class U>
  ZipAllocator(const ZipAllocator<U, Policy>&) noexcept {}  // NOLINT(google-explicit-constructor)

  T* allocate(std::size_t count) {
    if (count > SIZE_MAX / sizeof(T)) throw std::bad_array_new_length();
    return static_cast<T*>(Policy::allocate(count * sizeof(T)));
  }
  void deallocate(T* block, std::size_t) noexcept { Policy::deallocate(block); }

  template <class U>
  friend bool operator==(const ZipAllocator&, const ZipAllocator<U, Policy>&) noexcept {
    return true;
  }
  template <class U>
  friend bool operator!=(const ZipAllocator&, const ZipAllocator<U, Policy>&) noexcept {
    return false;
  }
};

// A copy of `length` bytes with `spare` zero bytes behind them, released through `Deleter`. `from`
// may be null: the copy is all zero then. `Deleter` is the owner's MyArrayDeleter.
template <class Deleter>
boost::shared_array<char> copyBytes(const char* from, std::size_t length, std::size_t spare) {
  boost::shared_array<char> copy(new char[length + spare](), Deleter());
  if (from != nullptr && length != 0) std::memcpy(copy.get(), from, length);
  return copy;
}

}  // namespace pkg::zip
