// libFuzzer's door to a target, with the rule about memory: while an input is worked on, the heap
// grows by at most 64 MiB and four times the input's size. The allocation that goes beyond ends the
// fuzzer, so that the finding's stack shows who asked for it.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include <sanitizer/allocator_interface.h>

#include "Input.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
constexpr std::size_t kMebibyte = 1U << 20;
constexpr std::size_t kMemory = 64 * kMebibyte;

std::atomic<std::size_t> limit{kNoLimit};
std::atomic<std::size_t> peak{0};  // of what is held, while an input is worked on

void afterAllocation(const volatile void*, std::size_t) {
  if (limit == kNoLimit) return;
  const std::size_t held = __sanitizer_get_current_allocated_bytes();
  peak = std::max(peak.load(), held);
  if (held <= limit) return;
  limit = kNoLimit;
  std::fputs("fuzz: the heap grew by more than 64 MiB and four times the input\n", stderr);
  std::abort();
}

void afterRelease(const volatile void*) {}

// The most that an input took so far. Each new record is told at once: a finding ends the process
// without a word.
class Record {
public:
  explicit Record(const char* name) : fName(name) {}
  void take(std::size_t value) {
    if (value <= fMost) return;
    fMost = value;
    std::fprintf(stderr, "stat::%s: %zu\n", fName, value);
  }

private:
  const char* fName;
  std::size_t fMost = 0;
};

Record slowest("slowest_ms");
Record largest("heap_growth_mb");

std::size_t millisecondsSince(Clock::time_point begin) {
  const auto passed = std::chrono::ceil<std::chrono::milliseconds>(Clock::now() - begin);
  return static_cast<std::size_t>(passed.count());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  return __sanitizer_install_malloc_and_free_hooks(afterAllocation, afterRelease) == 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::size_t before = __sanitizer_get_current_allocated_bytes();
  const Clock::time_point begin = Clock::now();
  peak = before;
  limit = before + kMemory + 4 * size;
  fuzz::run(data, size);
  limit = kNoLimit;
  slowest.take(millisecondsSince(begin));
  largest.take((peak - before + kMebibyte - 1) / kMebibyte);
  return 0;
}
