#include "unit/reading/Allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include <malloc.h>

namespace {

std::atomic<std::size_t> held{0};
std::atomic<std::size_t> peak{0};

}  // namespace

namespace reading {

std::size_t bytesHeld() noexcept {
  return held;
}
std::size_t bytesAtPeak() noexcept {
  return peak;
}
void resetPeak() noexcept {
  peak = held.load();
}

}  // namespace reading

void* operator new(std::size_t size) {
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  held += ::malloc_usable_size(block);
  if (held > peak) peak = held.load();
  return block;
}
void* operator new[](std::size_t size) {
  return ::operator new(size);
}
void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  held -= ::malloc_usable_size(block);
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
