#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tools {

// A progress bar on standard error: only where that is a terminal, and only on work that takes a
// while. The line is gone when the work is.
class Progress {
public:
  // `total` is the whole of the work, in units of its own. Nothing is shown when `quiet`.
  Progress(std::string label, std::int64_t total, bool quiet);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void update(std::int64_t done);

private:
  using Clock = std::chrono::steady_clock;

  std::string fLabel;
  std::int64_t fTotal;
  bool fActive;
  bool fDrawn = false;
  Clock::time_point fNext;
};

}  // namespace tools
