#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "HostSuites.h"
#include "SampleFormats.h"

class AudioHandler;

// Reads at most `frames` whole frames, starting at absolute frame `position`, to `destination`,
// interleaved as stored. `destination` holds AudioHandler::kRawBlockBytes. Sets `framesRead`, at
// most `frames`. Returns 0, or another number to fail, which goes to the host as it is.
using AudioReadCallback = std::int32_t (*)(void* context, AudioHandler& handler, long long position,
                                           unsigned int frames, char* destination, int& framesRead);

// Turns stored PCM into one buffer of 32-bit floats a channel. Pulls blocks of whole frames through
// a callback and serves requests from the block in hand. Positions and lengths are in frames, a
// frame being one sample of every stored channel; channels keep their stored order. One thread at a
// time.
class AudioHandler {
public:
  static constexpr std::size_t kRawBlockBytes = 32768;
  // Length of a key in the host's buffer cache, in bytes, the NUL included.
  static constexpr std::size_t kKeyBytes = 37;
  using Key = std::array<char, kKeyBytes>;

  enum Result : std::int32_t { Served = 0, BeyondEnd = 1, NothingRead = 38 };

  AudioHandler() = default;
  // Releases the cached buffer.
  ~AudioHandler();
  AudioHandler(const AudioHandler&) = delete;
  AudioHandler& operator=(const AudioHandler&) = delete;

  // Begins with a source. `channels` times `bytes`, the size of a frame in bytes, must not be 0.
  // Returns the number of the sample format for the host.
  std::uint32_t ConfigureSource(std::uint32_t channels, std::uint32_t bytes, std::int64_t frames,
                                SampleKind sampleKind, AudioReadCallback callback);

  // Writes `size` frames from `position` on to `buffers`, one of at least `size` floats an output
  // channel; frames behind the end are 0. Returns Served; BeyondEnd with nothing written;
  // NothingRead, or the callback's failure, with the frames before it written.
  std::int32_t ServeAudio(std::int64_t position, std::uint32_t size, float* const* buffers,
                          void* context);

  // Fills the block from `position` on, floatBlock or the cached buffer with it. Returns 0,
  // NothingRead, or the callback's failure; after a failure the block counts as standing at
  // `position`.
  std::int32_t TransferToAudioBuffer(long long position, void* context);

  std::int64_t totalFrames = -1;
  std::uint32_t sourceChannels = 0;
  std::uint32_t outputChannels = 0;  // delivered: at most maxChannels
  std::uint32_t bytesPerSample = 2;
  std::uint32_t sampleFormat = SampleFormatInt16Little;
  std::int32_t readFlags = -1;
  std::int32_t spareWord = -1;
  std::int32_t bufferFrames = -1;  // valid in the block
  std::int32_t blockSamples = -1;  // capacity of the block
  std::int64_t bufferStartFrame = -1;
  std::int64_t nextFrame = -1;  // behind the last one served
  std::vector<int> channelMap;  // per output channel the source channel, negative for silence
  bool useChannelMap = false;
  AudioReadCallback readCallback = nullptr;
  std::uint32_t maxChannels = 6;
  std::vector<char> rawBlock;
  // Normalised, interleaved. ServeAudio converts from rawBlock straight to the buffers where it can
  // and leaves this as it is.
  std::vector<float> floatBlock;

  // Normalised blocks of sources with more channels than are delivered are kept in buffers of the
  // host once cacheEnabled is set and all three tables are there. The tables are the host's.
  const HostBufferSuite* bufferSuite = nullptr;
  const HostBufferCreatorSuite* bufferCreatorSuite = nullptr;
  const HostBufferCacheSuite* bufferCacheSuite = nullptr;
  HostBufferRef cachedBuffer = nullptr;         // in use instead of floatBlock; owned
  std::array<char, kKeyBytes> cacheIdentity{};  // mixed into every key; the client sets it
  bool cacheEnabled = false;

private:
  // Samples of the block that are still only in rawBlock: the first `samples` there, of format
  // `number`, and silence behind them.
  struct Unconverted {
    std::uint32_t number = 0;
    std::size_t samples = 0;
  };

  bool BlockHolds(std::int64_t position) const;
  std::int32_t ReadBlock(std::int64_t position, void* context);
  bool CacheUsable() const;
  Key MakeCacheKey(std::int64_t position) const;
  bool FindCachedBlock(std::int64_t position);
  void ReleaseCachedBuffer();
  void CreateCachedBuffer();
  float* CachedMemory(std::int32_t access) const;
  float* FloatBlockMemory();
  Unconverted DeliveredSamples();
  void ConvertToFloatBlock();
  void ConvertCachedBlock();
  void CopyFrames(std::int64_t position, std::uint32_t done, std::uint32_t count,
                  float* const* buffers);

  std::optional<Unconverted> unconverted;  // none: floatBlock or cachedBuffer is up to date
};
