#pragma once

#include <cstddef>
#include <cstdint>

namespace hostkit {

// The layout of a document's audio.
struct AudioInfo {
  std::uint32_t channels = 0;
  float sampleRate = 0;           // hertz
  std::int32_t sampleFormat = 0;  // the importer's number of the stored format
  std::int64_t frames = 0;
};

// The most channels that an importer delivers; those behind are silent.
constexpr std::size_t kMostChannelsDelivered = 6;

// The audio of a document that an importer has opened, in this process or in another. One thread at
// a time.
class AudioSource {
public:
  virtual ~AudioSource() = default;

  virtual const AudioInfo& info() const noexcept = 0;

  // Frames from the start that can be read. An importer seeks by byte offsets of 31 bits; frames
  // behind them come out wrong. For samples of an unknown size, all frames.
  virtual std::int64_t reachableFrames() const noexcept = 0;

  // Fills `buffers`, one of `frames` floats for each of info().channels, with the audio from
  // `position` on; silence behind the end, and in the channels that are not delivered. A negative
  // position goes on from the last read. Raises Error with result 1 for a position at or behind the
  // end, 38 when the data ends too early, another when it cannot be read; the buffers then hold
  // anything.
  virtual void read(std::int64_t position, std::uint32_t frames, float* const* buffers) = 0;

  // Has the importer let go of the document; nothing is read afterwards. Raises Error where that
  // can be told from outside: an importer in another process that faults on the way. The destructor
  // closes too, but tells nothing.
  virtual void close() = 0;
};

}  // namespace hostkit
