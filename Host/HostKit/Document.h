#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>

#include "HostKit/Bundle.h"

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

// A document that an importer has opened. One thread at a time.
class Document {
public:
  // Opens the document at `path` and asks for its layout. Raises Error with the reason. The bundle
  // may go before.
  Document(const Bundle& bundle, const std::filesystem::path& path);
  // Closes it.
  ~Document();
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  const AudioInfo& info() const noexcept { return fInfo; }

  // Frames from the start that can be read. An importer seeks by byte offsets of 31 bits; frames
  // behind them come out wrong. For samples of an unknown size, all frames.
  std::int64_t reachableFrames() const noexcept;

  // Fills `buffers`, one of `frames` floats for each of info().channels, with the audio from
  // `position` on; silence behind the end, and in the channels that are not delivered. A negative
  // position goes on from the last read. Raises Error with result 1 for a position at or behind the
  // end, 38 when the data ends too early, another when it cannot be read; what came before it is
  // then in the buffers.
  void read(std::int64_t position, std::uint32_t frames, float* const* buffers);

  // Closes the file and lets it be opened again by reopen().
  void quiet();
  // Raises Error when the file cannot be opened any more.
  void reopen();

private:
  void open();
  void inform();
  void close() noexcept;

  std::shared_ptr<const Module> fModule;
  std::u16string fPath;
  void* fFileRef = nullptr;   // the importer's token
  void* fInstance = nullptr;  // the importer's, from its first answer until it is closed
  AudioInfo fInfo;
};

}  // namespace hostkit
