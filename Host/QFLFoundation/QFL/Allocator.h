#pragma once

#include <cstddef>

#include "QFL/Visibility.h"

namespace QFL {

// The host's small-object allocator.
class QFL_API Allocator {
public:
  // `size` bytes, aligned for any object; raises std::bad_alloc. The caller gives them back to
  // Dispose.
  static void* Allocate(std::size_t size);
  // Takes back what Allocate returned, with the same size. Null is ignored.
  static void Dispose(void* memory, unsigned long size) noexcept;
};

}  // namespace QFL
