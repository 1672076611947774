#include "WaveformLayout.h"

#include <algorithm>

namespace {

constexpr int kHeader = 58, kAxis = 30, kMargin = 16, kScale = 44;
constexpr int kSmallMargin = 4;
constexpr int kLeastLane = 7;

int gapBetween(int laneAndGap) {
  return laneAndGap >= 40 ? 6 : laneAndGap >= 16 ? 2 : 1;
}

std::vector<Box> lanesIn(const Box& plot, std::size_t channels) {
  const auto most = static_cast<std::size_t>(std::max(plot.height / (kLeastLane + 1), 1));
  const int count = static_cast<int>(std::min(std::max<std::size_t>(channels, 1), most));
  const int gap = count == 1 ? 0 : gapBetween(plot.height / count);
  const int room = (plot.height - gap * (count - 1)) / count;
  const int height = std::max(room - (room % 2 == 0 ? 1 : 0), 1);
  std::vector<Box> lanes;
  for (int i = 0; i < count; ++i) {
    // What division leaves over goes between the lanes.
    const int y = count == 1 ? 0 : (plot.height - height) * i / (count - 1);
    lanes.push_back({plot.x, plot.y + y, plot.width, height});
  }
  return lanes;
}

}  // namespace

int comfortableHeight(std::size_t channels) {
  const int count = static_cast<int>(std::clamp<std::size_t>(channels, 1, 64));
  const int lane = count == 1 ? 200 : count == 2 ? 150 : std::max(660 / count, 56);
  return kHeader + count * lane + (count - 1) * 6 + kAxis + kMargin / 2;
}

WaveformLayout layoutWaveform(int width, int height, std::size_t channels) {
  WaveformLayout layout;
  layout.width = width;
  layout.height = height;
  const bool isWide = width >= 240;
  layout.hasHeader = isWide && height >= 140;
  layout.hasAxis = width >= 120 && height >= 80;
  const int right = isWide ? kMargin : kSmallMargin;
  const int top = layout.hasHeader ? kHeader : kSmallMargin;
  const int bottom = layout.hasAxis ? kAxis : kSmallMargin;
  const auto place = [&](int left) {
    layout.plot = {left, top, std::max(width - left - right, 1),
                   std::max(height - top - bottom, 1)};
    layout.lanes = lanesIn(layout.plot, channels);
  };
  place(right);
  layout.hasScale = isWide && layout.lanes.front().height >= 17;
  if (layout.hasScale) place(kScale);
  return layout;
}
