#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// Ways to the same audio, as one buffer of floats a channel.

// Something that gives audio, a stretch at a time. At most six channels are delivered.
class AudioSource {
public:
  virtual ~AudioSource() = default;
  virtual void read(std::int64_t position, std::uint32_t frames, float* const* buffers) = 0;
};

// A sound document through the importer's bundle.
std::unique_ptr<AudioSource> openBundle(const std::string& path);
// A WAV file through libsndfile, taken apart behind it.
std::unique_ptr<AudioSource> openSndfile(const std::string& path);
// A WAV file through libavformat and libavcodec, taken apart and scaled behind them. Reads on from
// where it stands, or from the start for position 0.
std::unique_ptr<AudioSource> openLibav(const std::string& path);
// A stored sound document, or a WAV file, through stdio and a conversion, both written plainly and
// knowing where the samples lie: the most that an importer with the same block can reach.
std::unique_ptr<AudioSource> openStdio(const std::string& path, int bits, std::size_t channels);

// One buffer of floats a channel.
class Channels {
public:
  Channels(std::size_t channels, std::size_t frames) : fSamples(channels) {
    for (auto& channel : fSamples) {
      channel.resize(frames);
      fPointers.push_back(channel.data());
    }
  }
  float* const* data() const { return fPointers.data(); }
  const std::vector<float>& operator[](std::size_t channel) const { return fSamples[channel]; }

private:
  std::vector<std::vector<float>> fSamples;
  std::vector<float*> fPointers;
};
