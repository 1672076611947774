#include "Stretch.h"

#include <algorithm>

#include <fmt/format.h>

#include "CacheFolder.h"
#include "HostKit/Error.h"
#include "HostKit/Selectors.h"
#include "Words.h"
#include "common/Failure.h"

namespace {

constexpr std::int64_t kBlockFrames = 65536;

void readBlock(hostkit::AudioSource& source, const std::string& document, std::int64_t position,
               std::int64_t frames, float* const* buffers) {
  try {
    source.read(position, static_cast<std::uint32_t>(frames), buffers);
  } catch (const hostkit::Error& error) {
    if (error.result() != hostkit::ResultNothingRead) throw;
    const std::string fault = cacheFault(document);
    throw hostkit::Error(fault.empty() ? "the audio data ends too early" : fault, error.result());
  }
}

}  // namespace

void addStretchOptions(tools::Command& command, Stretch& stretch) {
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  command.option("--start", stretch.start, "The first frame, from 0")
      .range(0, kMost)
      .typeName("FRAME");
  command.option("--frames", stretch.frames, "How many frames; all that follow by default")
      .range(0, kMost)
      .typeName("COUNT");
}

// The importer finds a frame by its byte offset in 31 bits; what lies behind that would come out
// wrong.
Stretch stretchIn(const hostkit::AudioSource& source, const Stretch& wanted,
                  const std::string& verb, const std::string& file) {
  if (!isKnownSampleFormat(source.info().sampleFormat)) {
    throw tools::Failure(
        fmt::format("cannot {} {}: the importer does not know the format of its samples", verb,
                    tools::shown(file)));
  }
  const std::int64_t total = source.info().frames;
  if (wanted.start > total) {
    throw tools::Failure(fmt::format("cannot {} {}: --start {} is behind the end, {} frames", verb,
                                     tools::shown(file), wanted.start, total),
                         tools::ExitUsage);
  }
  const Stretch stretch{wanted.start, std::min(wanted.frames, total - wanted.start)};
  const std::int64_t reachable = source.reachableFrames();
  if (stretch.start + stretch.frames > reachable) {
    throw tools::Failure(
        fmt::format("cannot {} {}: only the first {} frames can be read through the importer", verb,
                    tools::shown(file), reachable));
  }
  return stretch;
}

std::size_t deliveredChannels(const hostkit::AudioInfo& info) {
  return std::min<std::size_t>(info.channels, hostkit::kMostChannelsDelivered);
}

void readStretch(hostkit::AudioSource& source, const std::string& document, const Stretch& stretch,
                 const TakeAudio& take) {
  const std::size_t delivered = deliveredChannels(source.info());
  const auto blockFrames = static_cast<std::size_t>(std::min(kBlockFrames, stretch.frames));
  // The channels that are not delivered share what nobody looks at.
  std::vector<float> samples((delivered + 1) * blockFrames);
  std::vector<float*> buffers(source.info().channels, samples.data() + delivered * blockFrames);
  std::vector<const float*> taken;
  for (std::size_t channel = 0; channel < delivered; ++channel) {
    buffers[channel] = samples.data() + channel * blockFrames;
    taken.push_back(buffers[channel]);
  }
  for (std::int64_t done = 0; done < stretch.frames;) {
    const auto count = std::min(kBlockFrames, stretch.frames - done);
    readBlock(source, document, stretch.start + done, count, buffers.data());
    done += count;
    take(taken, static_cast<std::size_t>(count), done);
  }
}
