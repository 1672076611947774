#pragma once

#include <cstdint>

#include "AudioHandler.h"
#include "MemorySource.h"

// 16-bit samples: that of frame f and channel c is f * 8 + c.
inline MemorySource numberedSource(std::uint32_t channels, int frames, int firstFrame = 0) {
  MemorySource source;
  source.frameBytes = 2 * channels;
  source.start = -static_cast<long long>(firstFrame) * source.frameBytes;
  for (int frame = firstFrame; frame < frames; ++frame) {
    for (std::uint32_t channel = 0; channel < channels; ++channel) {
      const int value = frame * 8 + static_cast<int>(channel);
      source.bytes.push_back(static_cast<char>(value & 0xFF));
      source.bytes.push_back(static_cast<char>((value >> 8) & 0xFF));
    }
  }
  return source;
}

inline float numbered(long long frame, int channel) {
  return static_cast<float>(static_cast<std::int16_t>(frame * 8 + channel)) * 0x1p-15f;
}

inline std::uint32_t configure(AudioHandler& handler, std::uint32_t channels, std::int64_t frames,
                               std::uint32_t bytes = 2, SampleKind kind = SampleKind::IntLittle) {
  return handler.ConfigureSource(channels, bytes, frames, kind, &MemorySource::read);
}
