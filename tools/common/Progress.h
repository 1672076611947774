#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tools {

// A progress bar on standard error: only where that is a terminal that can move its cursor, and
// only on work that takes a while. It tells the time left and, for bytes, the rate. The line is
// gone when the work is.
class Progress {
public:
  enum class Unit { Any, Bytes };

  // `total` is the whole of the work, in units of its own; 0 where nobody knows, which leaves out
  // the bar and the time left. Nothing is shown when `quiet`.
  Progress(std::string label, std::int64_t total, bool quiet, Unit unit = Unit::Any);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void update(std::int64_t done);

private:
  using Clock = std::chrono::steady_clock;

  std::string remarks(std::int64_t done, Clock::time_point now) const;
  std::string line(std::int64_t done, Clock::time_point now) const;

  std::string fLabel;
  std::int64_t fTotal;
  Unit fUnit;
  bool fActive;
  bool fDrawn = false;
  Clock::time_point fStart;
  Clock::time_point fNext;
};

}  // namespace tools
