// libFuzzer's door to a target, with the rules about time and memory. What goes beyond them, the
// allocation for one, ends the fuzzer there, so that the finding's stack shows who it was.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <limits>

#include <sanitizer/allocator_interface.h>

#include "Input.h"
#include "Limits.h"

namespace {

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();

std::atomic<std::size_t> limit{kNoLimit};
std::atomic<std::size_t> peak{0};  // of what is held, while an input is worked on

void afterAllocation(const volatile void*, std::size_t) {
  if (limit == kNoLimit) return;
  const std::size_t held = __sanitizer_get_current_allocated_bytes();
  peak = std::max(peak.load(), held);
  if (held <= limit) return;
  limit = kNoLimit;
  fuzz::failOverMemory();
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
Record slowestByClock("slowest_by_clock_ms");
Record largest("heap_growth_mb");

// Of the processor, and by the clock; rounded up.
std::size_t millisecondsSince(std::clock_t begin) {
  constexpr std::clock_t kMillisecond = CLOCKS_PER_SEC / 1000;
  return static_cast<std::size_t>((std::clock() - begin + kMillisecond - 1) / kMillisecond);
}
std::size_t millisecondsSince(std::chrono::steady_clock::time_point begin) {
  const auto passed = std::chrono::steady_clock::now() - begin;
  return static_cast<std::size_t>(std::chrono::ceil<std::chrono::milliseconds>(passed).count());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  return __sanitizer_install_malloc_and_free_hooks(afterAllocation, afterRelease) == 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::TimeLimit time;
  const std::size_t before = __sanitizer_get_current_allocated_bytes();
  const std::clock_t begin = std::clock();
  const auto beginByClock = std::chrono::steady_clock::now();
  peak = before;
  limit = before + fuzz::mayHold(size);
  fuzz::run(data, size);
  limit = kNoLimit;
  slowest.take(millisecondsSince(begin));
  slowestByClock.take(millisecondsSince(beginByClock));
  largest.take((peak - before + fuzz::kMebibyte - 1) / fuzz::kMebibyte);
  return 0;
}
