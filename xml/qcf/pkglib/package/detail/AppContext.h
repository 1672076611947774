#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <string>

#include <boost/shared_array.hpp>

#include "package/detail/Visibility.h"

namespace pkg {

// Allocation policy: everything ends in the global operator new and operator delete.
class QCF_API PkgAlloc {
public:
  static void* allocate(std::size_t bytes) { return ::operator new(bytes); }
  static void deallocate(void* block) noexcept { ::operator delete(block); }
};

// Conversion policy between a context's characters and UTF-8.
template <class Char>
class CharConv;

// 8-bit characters are UTF-8 already.
template <>
class QCF_API CharConv<char> {
public:
  static const char* fromUTF8(const char* text) { return text; }
  static char* toUTF8(const char* text) { return const_cast<char*>(text); }
};

// The bundle of types and static operations over which every template of the library is written.
// Never constructed. A client writes a class with empty brackets, `IPackage<>`, to get the one
// instantiation that the library holds, over AppContext below.
template <class Char, class Alloc, template <class> class Allocator, class Traits, class Conv>
class QCF_API BaseAppContext {
public:
  BaseAppContext() = delete;

  using CharType = Char;
  using AllocPolicy = Alloc;
  using TraitsType = Traits;
  using String = std::basic_string<Char, Traits, Allocator<Char>>;

  // Releases a buffer that was allocated with new[].
  template <class T>
  struct MyArrayDeleter {
    void operator()(T* array) const noexcept { delete[] array; }
  };

  // Releases nothing: for a pointer into memory that somebody else owns.
  template <class T>
  struct DeleteNop {
    void operator()(T*) const noexcept {}
  };

  // The context's string of a NUL-terminated UTF-8 text, neither validated nor normalised. `text`
  // is not null.
  static String fromUTF8(const char* text) { return String(Conv::fromUTF8(text)); }

  // The NUL-terminated UTF-8 text of `s`. Nothing is copied: valid while `s` lives and is
  // unchanged.
  static boost::shared_array<char> toUTF8(const String& s) {
    return boost::shared_array<char>(Conv::toUTF8(s.c_str()), DeleteNop<char>());
  }
};

// The context of this library: std::string holding UTF-8.
using AppContext =
    BaseAppContext<char, PkgAlloc, std::allocator, std::char_traits<char>, CharConv<char>>;

}  // namespace pkg
