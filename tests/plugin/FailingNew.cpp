#include "FailingNew.h"

#include <cstdlib>
#include <new>

static thread_local int tAllocationToFail = 0;

void failAllocation(int n) {
  tAllocationToFail = n;
}

void* operator new(std::size_t size) {
  if (tAllocationToFail > 0 && --tAllocationToFail == 0) throw std::bad_alloc();
  if (void* const memory = std::malloc(size != 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
