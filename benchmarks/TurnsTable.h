#pragma once

#include <string>
#include <vector>

// What was measured, as Markdown and as JSON. Names hold nothing that either would need escaped.

namespace turns {

struct Line {
  std::string row;
  std::string against;
  double ours;    // milliseconds on the processor, median
  double theirs;  // the same
  double ratio;   // how many times as fast as they, median
  double low;     // quartiles of the ratio
  double high;
  double wallRatio;  // as the clock on the wall tells it, median
  double target;     // 0: none
  bool met() const { return ratio >= target; }
};

struct MemoryLine {
  std::string row;
  long ours;  // peak, KiB
  std::string leanest;
  long theirs;
  bool met() const;
};

struct FactLine {
  std::string name;
  double value;
  double atMost;  // 0: none
  bool met() const { return value <= atMost; }
};

struct Failure {
  std::string name;
  std::string reason;
};

struct Table {
  std::vector<Line> speed;
  std::vector<MemoryLine> memory;
  std::vector<FactLine> facts;
  std::vector<Failure> failures;

  std::string markdown() const;
  std::string json() const;
};

}  // namespace turns
