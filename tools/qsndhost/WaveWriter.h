#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <sndfile.h>

#include "common/OutputFile.h"

enum class WaveFormat { Float, Int24, Int16 };

// Writes a WAV file, or an RF64 one where the audio is too long for that. Integers are the floats
// times 2^23 or 2^15, rounded and clipped: audio that was stored with as many bits comes out as it
// was.
class WaveWriter {
public:
  // `output` outlives this. `frames` is what will be written. Raises tools::Failure.
  WaveWriter(const tools::OutputFile& output, WaveFormat format, int channels, int sampleRate,
             std::int64_t frames);
  ~WaveWriter();
  WaveWriter(const WaveWriter&) = delete;
  WaveWriter& operator=(const WaveWriter&) = delete;

  // Writes `frames` frames of one buffer a channel. Raises tools::Failure.
  void write(const std::vector<const float*>& buffers, std::size_t frames);
  // Completes the file. Raises tools::Failure.
  void finish();

private:
  sf_count_t writeInterleaved(std::size_t frames);
  // The format of floats ends with the size of an extension, though there is none. libsndfile
  // leaves that out, and sox complains of it. The padding that follows has room for it.
  void endFormat();

  class Bytes;
  struct Close {
    void operator()(SNDFILE* file) const { sf_close(file); }
  };

  WaveFormat fFormat;
  const tools::OutputFile& fOutput;
  std::unique_ptr<Bytes> fBytes;  // outlives the file
  std::unique_ptr<SNDFILE, Close> fFile;
  std::vector<float> fFloats;
  std::vector<int> fIntegers;
};
