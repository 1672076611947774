#include "failures/FailingNew.h"

#include <cstdlib>
#include <new>

namespace {

bool counting = false;
bool forGood = false;
long failAt = 0;
long count = 0;
long live = 0;

}  // namespace

namespace failures {

void failAllocation(long n, Shortage shortage) noexcept {
  failAt = n;
  forGood = shortage == Shortage::FromThereOn;
  count = 0;
  counting = true;
}
long endShortage() noexcept {
  counting = false;
  return count;
}
long liveBlocks() noexcept {
  return live;
}

}  // namespace failures

void* operator new(std::size_t size) {
  if (counting) {
    ++count;
    if (count == failAt || (forGood && failAt > 0 && count > failAt)) throw std::bad_alloc();
  }
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  ++live;
  return block;
}
void* operator new[](std::size_t size) {
  return ::operator new(size);
}
void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  --live;
  std::free(block);
}
void operator delete[](void* block) noexcept {
  ::operator delete(block);
}
void operator delete(void* block, std::size_t) noexcept {
  ::operator delete(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  ::operator delete(block);
}
