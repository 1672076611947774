#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "WaveformLayout.h"
#include "WaveformSummary.h"
#include "common/OutputFile.h"

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

// Draws the waveform and writes the picture to `output`, which is not committed. The
// summary has layout.plot.width columns, or fewer for as many frames, which are then drawn as a
// line from sample to sample. Raises tools::Failure.
void writeWaveform(const tools::OutputFile& output, PictureKind kind, Theme theme,
                   const WaveformLayout& layout, const WaveformTexts& texts,
                   const WaveformSummary& summary);
