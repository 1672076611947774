#include "AudioHandler.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "QFL/Hash.h"
#include "qvacore/Guid.h"
#include "qvacore/Unicode.h"

namespace {

constexpr std::int32_t kReadAccess = 0;
constexpr std::int32_t kWriteAccess = 2;
constexpr std::int64_t kNoBlock = 0x7FFFFFFF;

// Sums and differences of positions wrap, whatever a host asks for.
std::int64_t add(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}
std::int64_t subtract(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

// The fourth word of the hash also counts the bytes mixed in.
void mixIn(QFL::HashValue& hash, const void* data, std::size_t size) {
  hash.words[3] += static_cast<std::uint32_t>(size);
  QFL::MixHash::MixInData(hash, data, size);
}

qvacore::utility::Guid guidOf(const QFL::HashValue& hash) {
  const auto [first, second, third, fourth] = hash.words;
  std::array<std::uint8_t, 8> tail{};
  for (std::size_t i = 0; i < 4; ++i) {
    const auto shift = 24 - 8 * i;
    tail[i] = static_cast<std::uint8_t>(third >> shift);
    tail[i + 4] = static_cast<std::uint8_t>(fourth >> shift);
  }
  return {first, static_cast<std::uint16_t>(second >> 16), static_cast<std::uint16_t>(second),
          tail};
}

}  // namespace

AudioHandler::~AudioHandler() {
  ReleaseCachedBuffer();
}

std::uint32_t AudioHandler::ConfigureSource(std::uint32_t channels, std::uint32_t bytes,
                                            std::int64_t frames, SampleKind sampleKind,
                                            AudioReadCallback callback) {
  // What may find no memory comes first: the handler is then as it was.
  channelMap.resize(std::min(channels, maxChannels));
  rawBlock.resize(kRawBlockBytes);
  sourceChannels = channels;
  outputChannels = std::min(channels, maxChannels);
  useChannelMap = false;
  // The map ends silent: a client that switches it on is to fill it in first.
  for (std::uint32_t i = 0; i < std::min(sourceChannels, outputChannels); ++i) {
    channelMap[i] = static_cast<int>(i);
  }
  std::fill(channelMap.begin(), channelMap.end(), -1);
  bytesPerSample = bytes;
  totalFrames = frames;
  bufferStartFrame = kNoBlock;
  nextFrame = -1;
  readFlags = 0;
  spareWord = 0;
  const std::uint32_t blockFrames =
      static_cast<std::uint32_t>(kRawBlockBytes) / (sourceChannels * bytesPerSample);
  bufferFrames = static_cast<std::int32_t>(blockFrames);
  blockSamples = static_cast<std::int32_t>(blockFrames * sourceChannels);
  readCallback = callback;
  const SampleFormatChoice choice = chooseSampleFormat(sampleKind, bytesPerSample);
  if (choice.kept != 0) sampleFormat = choice.kept;
  return choice.reported;
}

std::int32_t AudioHandler::ServeAudio(std::int64_t position, std::uint32_t size,
                                      float* const* buffers, void* context) {
  std::uint32_t remaining = size;
  bool padTail = false;
  if (add(position, size) >= totalFrames) {
    remaining = static_cast<std::uint32_t>(subtract(totalFrames, position));
    padTail = true;
  }
  if (totalFrames <= position) return BeyondEnd;
  std::uint32_t done = 0;
  while (remaining != 0) {
    if (!BlockHolds(position)) {
      const std::int32_t result = ReadBlock(position, context);
      if (result != Served) return result;
      continue;
    }
    const std::int64_t blockEnd = bufferStartFrame + bufferFrames;
    const std::uint32_t count = blockEnd <= position + remaining
                                    ? static_cast<std::uint32_t>(blockEnd - position)
                                    : remaining;
    CopyFrames(position, done, count, buffers);
    done += count;
    position += count;
    remaining -= count;
    if (remaining != 0) {
      const std::int32_t result = ReadBlock(position, context);
      if (result != Served) return result;
    }
  }
  if (padTail && done < size) {
    for (std::uint32_t channel = 0; channel < outputChannels; ++channel) {
      std::fill(buffers[channel] + done, buffers[channel] + size, 0.0f);
    }
  }
  nextFrame = position;
  return Served;
}

std::int32_t AudioHandler::TransferToAudioBuffer(long long position, void* context) {
  const std::int32_t result = ReadBlock(position, context);
  if (unconverted) ConvertToFloatBlock();
  return result;
}

// Leaves the conversion to those who need the samples, unless the host's cache does.
std::int32_t AudioHandler::ReadBlock(std::int64_t position, void* context) {
  bufferStartFrame = position;
  unconverted.reset();
  if (CacheUsable() && FindCachedBlock(position)) return Served;
  ReleaseCachedBuffer();
  if (CacheUsable()) CreateCachedBuffer();
  unconverted = Unconverted{};  // a read that fails leaves silence
  const std::uint32_t frames = static_cast<std::uint32_t>(blockSamples) / sourceChannels;
  const std::int32_t result =
      readCallback(context, *this, position, frames, rawBlock.data(), bufferFrames);
  if (result != Served) return result;
  if (bufferFrames == 0) return NothingRead;
  unconverted = DeliveredSamples();
  if (CacheUsable()) ConvertCachedBlock();
  return Served;
}

bool AudioHandler::BlockHolds(std::int64_t position) const {
  return position >= bufferStartFrame && position < add(bufferStartFrame, bufferFrames);
}

bool AudioHandler::CacheUsable() const {
  return cacheEnabled && bufferSuite != nullptr && bufferCreatorSuite != nullptr &&
         bufferCacheSuite != nullptr && outputChannels < sourceChannels;
}

AudioHandler::Key AudioHandler::MakeCacheKey(std::int64_t position) const {
  static constexpr char kPurpose[] = "AudioHandler Cached Normalized AudioBuffer";
  QFL::HashValue hash;
  mixIn(hash, kPurpose, sizeof(kPurpose) - 1);
  mixIn(hash, &position, sizeof(position));
  mixIn(hash, &blockSamples, sizeof(blockSamples));
  mixIn(hash, cacheIdentity.data(), cacheIdentity.size());
  const std::string text = qvacore::utility::UTF16to8(guidOf(hash).AsString().c_str());
  Key key{};
  std::copy_n(text.data(), std::min(text.size(), key.size()), key.data());
  return key;
}

bool AudioHandler::FindCachedBlock(std::int64_t position) {
  ReleaseCachedBuffer();
  floatBlock.clear();
  return bufferCacheSuite->findByName(MakeCacheKey(position).data(), &cachedBuffer) == 0 &&
         cachedBuffer != nullptr;
}

void AudioHandler::ReleaseCachedBuffer() {
  if (cachedBuffer == nullptr || bufferSuite == nullptr) return;
  bufferSuite->release(cachedBuffer);
  cachedBuffer = nullptr;
}

void AudioHandler::CreateCachedBuffer() {
  constexpr std::uint32_t kAudioData = 0x64756140;
  const auto size = static_cast<std::uint32_t>(blockSamples) * std::uint32_t{sizeof(float)};
  if (bufferCreatorSuite->create(&cachedBuffer, 2, kAudioData, 1, 1, 1, 1, size) != 0) {
    cachedBuffer = nullptr;
  }
}

float* AudioHandler::CachedMemory(std::int32_t access) const {
  if (!CacheUsable() || cachedBuffer == nullptr) return nullptr;
  void* memory = nullptr;
  if (bufferSuite->getMemory(cachedBuffer, access, &memory) != 0) return nullptr;
  return static_cast<float*>(memory);
}

// A host may refuse the memory of a buffer that it made; the block then needs its own after all.
float* AudioHandler::FloatBlockMemory() {
  const auto size = static_cast<std::size_t>(blockSamples);
  if (floatBlock.size() < size) floatBlock.resize(size, 0.0f);
  return floatBlock.data();
}

AudioHandler::Unconverted AudioHandler::DeliveredSamples() {
  const SampleFormat format = findSampleFormat(sampleFormat);
  if (format.converter == nullptr) return {};
  // A number kept from an earlier source may name wider samples than the block holds.
  const std::size_t delivered =
      std::size_t{static_cast<std::uint32_t>(bufferFrames)} * sourceChannels;
  const std::size_t room = static_cast<std::uint32_t>(blockSamples);
  const std::size_t count = std::min({delivered, room, rawBlock.size() / format.storedBytes});
  if (sampleFormat != SampleFormatFloat32Big) return {sampleFormat, count};
  swapFloats(rawBlock.data(), count);
  return {SampleFormatFloat32Little, count};
}

void AudioHandler::ConvertToFloatBlock() {
  const auto [number, samples] = *unconverted;
  floatBlock.resize(std::max(static_cast<std::size_t>(blockSamples), samples));
  if (samples != 0) findSampleFormat(number).converter(rawBlock.data(), floatBlock.data(), samples);
  std::fill(floatBlock.begin() + static_cast<std::ptrdiff_t>(samples), floatBlock.end(), 0.0f);
  unconverted.reset();
}

void AudioHandler::ConvertCachedBlock() {
  float* const cached = CachedMemory(kWriteAccess);
  if (cached == nullptr) {
    ConvertToFloatBlock();
  } else {
    const auto [number, samples] = *unconverted;
    if (samples != 0) findSampleFormat(number).converter(rawBlock.data(), cached, samples);
    unconverted.reset();
  }
  if (cachedBuffer != nullptr) {
    bufferCacheSuite->storeByName(MakeCacheKey(bufferStartFrame).data(), cachedBuffer);
  }
}

void AudioHandler::CopyFrames(std::int64_t position, std::uint32_t done, std::uint32_t count,
                              float* const* buffers) {
  const float* source = CachedMemory(kReadAccess);
  const auto first = static_cast<std::size_t>(position - bufferStartFrame) * sourceChannels;
  if (source == nullptr && unconverted) {
    const auto [number, samples] = *unconverted;
    const std::size_t end = first + std::size_t{count} * sourceChannels;
    if (!useChannelMap && end <= samples && sourceChannels <= kMostChannelsInOnePass) {
      const char* const raw = rawBlock.data() + first * findSampleFormat(number).storedBytes;
      convertFrames(number, raw, sourceChannels, outputChannels, buffers, done, count);
      return;
    }
    ConvertToFloatBlock();
  }
  if (source == nullptr) source = FloatBlockMemory();
  source += first;
  if (!useChannelMap) {
    deinterleave(source, sourceChannels, outputChannels, buffers, done, count);
    return;
  }
  for (std::uint32_t channel = 0; channel < outputChannels; ++channel) {
    const int mapped = channelMap[channel];
    float* const destination = buffers[channel] + done;
    if (mapped < 0) {
      std::fill(destination, destination + count, 0.0f);
    } else {
      copyChannel(source + mapped, sourceChannels, destination, count);
    }
  }
}
