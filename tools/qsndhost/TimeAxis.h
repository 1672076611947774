#pragma once

#include <string>
#include <vector>

// A mark on a time axis.
struct TimeMark {
  double position;    // 0 is the start of the axis, 1 its end
  std::string label;  // empty for a small mark between two others
};

// The marks of an axis that begins at `start` and is `span` long, both in seconds, with at most
// about `labels` labels. The unit goes by the span: "250 ms" below a second, "0.5 s" below a
// minute, "1:30" below an hour, else "1:00:00"; short spans that begin a minute or later are told
// as "1:30.250".
std::vector<TimeMark> timeMarks(double start, double span, double labels);
