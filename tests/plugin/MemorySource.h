#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "AudioHandler.h"

// Stored audio in memory, and the read callback on it. Frame 0 stands at `start` of `bytes`, so
// that frames before the first can be asked for.
struct MemorySource {
  std::string bytes;
  std::uint32_t frameBytes = 1;
  long long start = 0;
  std::int32_t failure = 0;            // what the callback returns instead of reading
  bool leaveFramesAlone = false;       // a failing callback that does not set framesRead
  unsigned int mostFrames = ~0u;       // short reads
  std::vector<long long> positions;    // one a call
  std::vector<unsigned int> requests;  // one a call

  static std::int32_t read(void* context, AudioHandler&, long long position, unsigned int frames,
                           char* destination, int& framesRead) {
    auto& self = *static_cast<MemorySource*>(context);
    self.positions.push_back(position);
    self.requests.push_back(frames);
    if (self.failure != 0) {
      if (!self.leaveFramesAlone) framesRead = 0;
      return self.failure;
    }
    const long long offset = self.start + position * static_cast<long long>(self.frameBytes);
    const long long size = static_cast<long long>(self.bytes.size());
    long long available = offset < 0 || offset > size ? 0 : (size - offset) / self.frameBytes;
    if (available > frames) available = frames;
    if (available > self.mostFrames) available = self.mostFrames;
    std::memcpy(destination, self.bytes.data() + (available > 0 ? offset : 0),
                static_cast<std::size_t>(available) * self.frameBytes);
    framesRead = static_cast<int>(available);
    return 0;
  }
};

// One buffer of `frames` floats a channel, filled with a value that no conversion makes.
struct ChannelBuffers {
  static constexpr float kUntouched = 77.0f;

  ChannelBuffers(std::size_t channels, std::size_t frames)
      : samples(channels, std::vector<float>(frames, kUntouched)) {
    for (auto& channel : samples)
      pointers.push_back(channel.data());
  }
  const std::vector<float>& operator[](std::size_t channel) const { return samples[channel]; }
  float* const* data() const { return pointers.data(); }

  std::vector<std::vector<float>> samples;
  std::vector<float*> pointers;
};
