#pragma once

#include <cstddef>
#include <vector>

// Where things are in a picture of a waveform; all in pixels, from the upper left corner.

struct Box {
  int x = 0, y = 0, width = 0, height = 0;
};

struct WaveformLayout {
  int width = 0, height = 0;
  bool hasHeader = false;  // there is room for name, rate and duration
  bool hasAxis = false;    // for times
  bool hasScale = false;   // for words beside the lanes
  Box plot;                // all the lanes
  std::vector<Box> lanes;  // one a channel, of odd heights: zero has a row of its own
};

// The height that shows so many channels well.
int comfortableHeight(std::size_t channels);

// A layout for a picture of that size. Where room is short, header, scale and axis are left out,
// and then lanes: there may be fewer than channels, but one at least.
WaveformLayout layoutWaveform(int width, int height, std::size_t channels);
