#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "HostKit/AudioSource.h"
#include "common/Command.h"

// A part of a document's audio, in frames.
struct Stretch {
  std::int64_t start = 0;
  std::int64_t frames = std::numeric_limits<std::int64_t>::max();  // or up to the end
};

// Adds --start and --frames, which set `stretch`.
void addStretchOptions(tools::Command& command, Stretch& stretch);

// The part of `wanted` that the document has. Raises tools::Failure when it begins behind the end,
// and when not all of it can be read through the importer. `verb` and `file` are for its words.
Stretch stretchIn(const hostkit::AudioSource& source, const Stretch& wanted,
                  const std::string& verb, const std::string& file);

// How many channels of a document have audio.
std::size_t deliveredChannels(const hostkit::AudioInfo& info);

// Takes `frames` frames, one buffer for each delivered channel; `done` are the frames so far.
using TakeAudio = std::function<void(const std::vector<const float*>& buffers, std::size_t frames,
                                     std::int64_t done)>;

// Reads a stretch from its start to its end, block by block, in memory that doesn't grow with it.
// Raises hostkit::Error. `document` is the file that the source was opened from.
void readStretch(hostkit::AudioSource& source, const std::string& document, const Stretch& stretch,
                 const TakeAudio& take);
