#include "QFL/Allocator.h"

#include <new>

namespace QFL {

void* Allocator::Allocate(std::size_t size) {
  return ::operator new(size);
}

void Allocator::Dispose(void* memory, unsigned long /*size*/) noexcept {
  ::operator delete(memory);
}

}  // namespace QFL
