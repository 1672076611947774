#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// What a column of a waveform tells of its frames. Samples that are no number count as 0, infinite
// ones as the largest number.
struct WaveformColumn {
  float minimum = 0;
  float maximum = 0;
  float rms = 0;  // the root of the mean square
};

// Sums up audio as it comes, in memory that depends on the number of columns alone.
class WaveformSummary {
public:
  // `frames` frames of `channels` channels will come. Column c of n stands for the frames from
  // floor(c * frames / n) up to, without, floor((c + 1) * frames / n). There are never more columns
  // than frames: each has one at least.
  WaveformSummary(std::size_t channels, std::int64_t frames, std::size_t columns);

  // Takes the next frames, one buffer a channel; what comes behind the announced end is ignored.
  void add(const std::vector<const float*>& buffers, std::size_t frames);

  std::size_t channels() const noexcept { return fColumns.size(); }
  std::size_t columns() const noexcept { return fCount; }
  std::int64_t frames() const noexcept { return fFrames; }
  // The columns of a channel; those whose frames have not all come are zero.
  const std::vector<WaveformColumn>& channel(std::size_t index) const { return fColumns[index]; }

private:
  // The first frame of a column.
  std::int64_t startOf(std::size_t column) const noexcept;
  void beginColumn() noexcept;
  void endColumn() noexcept;

  struct Running {
    float minimum, maximum;
    double squares;
    void take(const float* samples, std::size_t count) noexcept;
  };

  std::int64_t fFrames;
  std::size_t fCount;
  std::vector<std::vector<WaveformColumn>> fColumns;  // by channel
  std::vector<Running> fRunning;                      // by channel: the column that is filling
  std::size_t fColumn = 0;                            // its number
  std::int64_t fPosition = 0;                         // frames so far
};
