// libFuzzer's door to a target, with the rule about memory: while an input is worked on, the heap
// grows by at most 64 MiB and four times the input's size. The allocation that goes beyond ends the
// fuzzer, so that the finding's stack shows who asked for it.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include <sanitizer/allocator_interface.h>

#include "Input.h"

namespace {

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
constexpr std::size_t kMemory = 64U << 20;

std::atomic<std::size_t> limit{kNoLimit};

void afterAllocation(const volatile void*, std::size_t) {
  if (__sanitizer_get_current_allocated_bytes() <= limit) return;
  limit = kNoLimit;
  std::fputs("fuzz: the heap grew by more than 64 MiB and four times the input\n", stderr);
  std::abort();
}

void afterRelease(const volatile void*) {}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  return __sanitizer_install_malloc_and_free_hooks(afterAllocation, afterRelease) == 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  limit = __sanitizer_get_current_allocated_bytes() + kMemory + 4 * size;
  fuzz::run(data, size);
  limit = kNoLimit;
  return 0;
}
