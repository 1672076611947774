#include <gtest/gtest.h>

#include "WaveformLayout.h"

namespace {

// Every sensible and senseless size holds its lanes, apart from each other, with a row for zero.
TEST(WaveformLayout, LanesStayInsideAndApartWhateverTheSize) {
  for (const int width : {16, 100, 240, 1200, 32767}) {
    for (const int height : {16, 80, 139, 300, 32767}) {
      for (const std::size_t channels : {0u, 1u, 2u, 6u, 40u, 65535u}) {
        const WaveformLayout layout = layoutWaveform(width, height, channels);
        ASSERT_GE(layout.lanes.size(), 1u);
        int y = layout.plot.y;
        for (const Box& lane : layout.lanes) {
          ASSERT_GE(lane.y, y) << width << "x" << height << ", " << channels;
          ASSERT_EQ(lane.height % 2, 1);
          ASSERT_GE(lane.width, 1);
          y = lane.y + lane.height;
        }
        ASSERT_LE(y, height);
        ASSERT_LE(layout.plot.x + layout.plot.width, width);
      }
    }
  }
}

TEST(WaveformLayout, AComfortablePictureHasALaneAChannelAndAllItsParts) {
  for (const std::size_t channels : {1u, 2u, 6u, 8u, 24u, 64u}) {
    const WaveformLayout layout = layoutWaveform(1200, comfortableHeight(channels), channels);
    EXPECT_EQ(layout.lanes.size(), channels);
    EXPECT_TRUE(layout.hasHeader && layout.hasAxis && layout.hasScale) << channels;
  }
  EXPECT_LE(comfortableHeight(65535), 8000);
}

TEST(WaveformLayout, MoreChannelsThanRoomAreCutOff) {
  const WaveformLayout layout = layoutWaveform(1200, 400, 65535);
  EXPECT_GT(layout.lanes.size(), 10u);
  EXPECT_LT(layout.lanes.size(), 60u);
}

}  // namespace
