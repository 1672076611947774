#include "TimeAxis.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <fmt/format.h>

namespace {

// The distance of labels in seconds, and into how many parts small marks divide it.
struct Step {
  double seconds;
  int parts;
};

// Above a second, steps are those of a clock.
constexpr Step kClockSteps[] = {{1, 5},     {2, 4},     {5, 5},    {10, 5},   {15, 3},
                                {30, 3},    {60, 4},    {120, 4},  {300, 5},  {600, 5},
                                {900, 3},   {1800, 3},  {3600, 4}, {7200, 4}, {10800, 3},
                                {21600, 6}, {43200, 4}, {86400, 4}};

Step decimalStep(double least) {
  const double decade = std::pow(10.0, std::floor(std::log10(least)));
  for (const Step& step : {Step{1, 5}, Step{2, 4}, Step{5, 5}}) {
    if (decade * step.seconds >= least * (1 - 1e-9)) return {decade * step.seconds, step.parts};
  }
  return {decade * 10, 5};
}

Step stepFor(double least) {
  if (least <= 0.5) return decimalStep(least);
  const auto* const found = std::find_if(std::begin(kClockSteps), std::end(kClockSteps),
                                         [&](const Step& step) { return step.seconds >= least; });
  if (found != std::end(kClockSteps)) return *found;
  const double days = decimalStep(least / 86400).seconds;
  return {days * 86400, 5};
}

// Decimals that tell multiples of `step` apart.
int decimalsOf(double step) {
  return step >= 1 ? 0 : static_cast<int>(std::ceil(-std::log10(step) - 1e-9));
}

std::string clockText(double seconds, int decimals, bool withHours) {
  const double scale = std::pow(10.0, decimals);
  const auto units = std::llround(seconds * scale);
  const auto whole = units / std::llround(scale);
  std::string text = withHours
                         ? fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60)
                         : fmt::format("{}:{:02}", whole / 60, whole % 60);
  if (decimals > 0) text += fmt::format(".{:0{}}", units % std::llround(scale), decimals);
  return text;
}

std::string labelOf(double seconds, double start, double span, double step) {
  constexpr double kMinute = 60, kHour = 3600;
  const double end = start + span;
  if (span >= kMinute || start >= kMinute) {
    return clockText(seconds, decimalsOf(step), end >= kHour);
  }
  if (end < 1) return fmt::format("{:.{}f} ms", seconds * 1000, decimalsOf(step * 1000));
  return fmt::format("{:.{}f} s", seconds, decimalsOf(step));
}

}  // namespace

std::vector<TimeMark> timeMarks(double start, double span, double labels) {
  if (!(span > 0)) return {{0, labelOf(start, start, 0, 1e-3)}};
  const Step step = stepFor(span / std::max(labels, 1.0));
  const double small = step.seconds / step.parts;
  std::vector<TimeMark> marks;
  const auto first = static_cast<std::int64_t>(std::ceil(start / small - 1e-9));
  const auto last = static_cast<std::int64_t>(std::floor((start + span) / small + 1e-9));
  for (std::int64_t i = first; i <= last; ++i) {
    const double seconds = static_cast<double>(i) * small;
    const bool labelled = i % step.parts == 0;
    marks.push_back({std::clamp((seconds - start) / span, 0.0, 1.0),
                     labelled ? labelOf(seconds, start, span, step.seconds) : std::string()});
  }
  return marks;
}
