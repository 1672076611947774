#include "support/Allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include <malloc.h>

namespace {

thread_local bool counting = false;
thread_local bool forGood = false;
thread_local bool quietly = false;
thread_local long failAt = 0;
thread_local long count = 0;

std::atomic<long> live{0};
std::atomic<std::size_t> held{0};
std::atomic<std::size_t> peak{0};

}  // namespace

namespace allocations {

void fail(long n, Shortage shortage) noexcept {
  failAt = n;
  forGood = shortage == Shortage::FromThereOn;
  count = 0;
  quietly = false;
  counting = true;
}
long endShortage() noexcept {
  counting = false;
  return count;
}
bool failedQuietly() noexcept {
  return quietly;
}
long liveBlocks() noexcept {
  return live;
}
std::size_t bytesHeld() noexcept {
  return held;
}
std::size_t bytesAtPeak() noexcept {
  return peak;
}
void resetPeak() noexcept {
  peak = held.load();
}

}  // namespace allocations

void* operator new(std::size_t size) {
  if (counting) {
    ++count;
    if (count == failAt || (forGood && failAt > 0 && count > failAt)) throw std::bad_alloc();
  }
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  ++live;
  held += ::malloc_usable_size(block);
  if (held > peak) peak = held.load();
  return block;
}
void* operator new[](std::size_t size) {
  return ::operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    quietly = true;
    return nullptr;
  }
}
void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  --live;
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
