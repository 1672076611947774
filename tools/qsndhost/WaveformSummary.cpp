#include "WaveformSummary.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr float kLargest = std::numeric_limits<float>::max();

float finite(float sample) {
  return std::isnan(sample) ? 0.0f : std::clamp(sample, -kLargest, kLargest);
}

}  // namespace

WaveformSummary::WaveformSummary(std::size_t channels, std::int64_t frames, std::size_t columns)
    : fFrames(frames),
      fCount(static_cast<std::size_t>(std::min(frames, static_cast<std::int64_t>(columns)))),
      fColumns(channels, std::vector<WaveformColumn>(fCount)),
      fRunning(channels) {
  beginColumn();
}

std::int64_t WaveformSummary::startOf(std::size_t column) const noexcept {
  // Whole part and rest apart: the product of frames and columns may not fit.
  const auto count = static_cast<std::int64_t>(fCount);
  const auto index = static_cast<std::int64_t>(column);
  return fFrames / count * index + fFrames % count * index / count;
}

void WaveformSummary::beginColumn() noexcept {
  std::fill(fRunning.begin(), fRunning.end(), Running{kLargest, -kLargest, 0});
}

void WaveformSummary::endColumn() noexcept {
  const auto frames = static_cast<double>(startOf(fColumn + 1) - startOf(fColumn));
  for (std::size_t i = 0; i < fRunning.size(); ++i) {
    const Running& running = fRunning[i];
    const double rms = std::sqrt(running.squares / frames);
    fColumns[i][fColumn] = {running.minimum, running.maximum, static_cast<float>(rms)};
  }
  ++fColumn;
  beginColumn();
}

void WaveformSummary::Running::take(const float* samples, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    const float sample = finite(samples[i]);
    minimum = std::min(minimum, sample);
    maximum = std::max(maximum, sample);
    squares += static_cast<double>(sample) * static_cast<double>(sample);
  }
}

void WaveformSummary::add(const std::vector<const float*>& buffers, std::size_t frames) {
  for (std::size_t done = 0; done < frames && fColumn < fCount;) {
    const std::int64_t end = startOf(fColumn + 1);
    const auto count = std::min(frames - done, static_cast<std::size_t>(end - fPosition));
    for (std::size_t i = 0; i < fRunning.size(); ++i)
      fRunning[i].take(buffers[i] + done, count);
    done += count;
    fPosition += static_cast<std::int64_t>(count);
    if (fPosition == end) endColumn();
  }
}
