#pragma once

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <string_view>

#include <sys/time.h>
#include <unistd.h>

// What an input may take, with a fuzzer and without: five seconds of the processor, whatever else
// the machine does, thirty by the clock, where it waits or the machine is loaded, and a heap that
// grows by 64 MiB and four times the input's size.
namespace fuzz {

constexpr std::size_t kMebibyte = 1U << 20;
constexpr std::size_t mayHold(std::size_t size) {
  return 64 * kMebibyte + 4 * size;
}

// In a signal's handler, too.
[[noreturn]] inline void fail(std::string_view what) {
  if (write(STDERR_FILENO, what.data(), what.size()) < 0) _exit(1);
  std::abort();
}
[[noreturn]] inline void failOverMemory() {
  fail("fuzz: the heap grew by more than 64 MiB and four times the input\n");
}

// Ends a process that still lives in it after its time, where it is: the stack shows at what.
class TimeLimit {
public:
  TimeLimit() {
    // Instead of libFuzzer's own, which would only look at the clock.
    static const bool isSet = std::signal(SIGPROF, overProcessor) != SIG_ERR &&
                              std::signal(SIGALRM, overClock) != SIG_ERR;
    static_cast<void>(isSet);
    setTimers(5, 30);
  }
  ~TimeLimit() { setTimers(0, 0); }
  TimeLimit(const TimeLimit&) = delete;
  TimeLimit& operator=(const TimeLimit&) = delete;

private:
  [[noreturn]] static void overProcessor(int) {
    fail("fuzz: an input took over five seconds of the processor\n");
  }
  [[noreturn]] static void overClock(int) {
    fail("fuzz: an input took over thirty seconds by the clock\n");
  }
  static void setTimers(time_t processor, time_t clock) {
    setTimer(ITIMER_PROF, processor);
    setTimer(ITIMER_REAL, clock);
  }
  template <class Which>
  static void setTimer(Which which, time_t seconds) {
    itimerval timer{};
    timer.it_value.tv_sec = seconds;
    setitimer(which, &timer, nullptr);
  }
};

}  // namespace fuzz
