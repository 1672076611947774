#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "WaveformLayout.h"
#include "WaveformSummary.h"

enum class Theme { Light, Dark };
enum class PictureKind { PNG, SVG };

// What a picture of a waveform tells.
struct WaveformTexts {
  std::string name;
  std::string details;
  std::size_t channels = 0;  // of the document; those behind the summary's are not delivered
  double start = 0;          // seconds
  double span = 0;           // seconds; 0 for audio without a rate, which gets no times
};

// Draws the waveform and writes the picture to an open file, which stays the caller's. The summary
// has layout.plot.width columns, or fewer for as many frames, which are then drawn as a line from
// sample to sample. Raises std::runtime_error with the reason.
void writeWaveform(int descriptor, PictureKind kind, Theme theme, const WaveformLayout& layout,
                   const WaveformTexts& texts, const WaveformSummary& summary);
