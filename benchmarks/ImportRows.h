#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "AudioSources.h"
#include "StdioBlocks.h"
#include "Turns.h"

// What the rows of the audio road have in common: files with the same audio, the ways that an
// import takes through them, and contenders that go these ways and agree on what they find.

constexpr std::int64_t kFrames = 48000 * 40;  // in each file
constexpr std::size_t kBlock = Blocks::kBlock;

struct Files {
  std::string wave;
  std::string stored;    // a sound document with the WAV file as its "Mixdown.wav"
  std::string deflated;  // the same, deflated
};

// Copies the files to other memory: which parts of a cache they share differs from place to place.
void moveInMemory(const Files& files);

// The stretches, all of one length, that an import asks for.
struct Pattern {
  std::uint32_t frames;                 // of each
  std::vector<std::int64_t> positions;  // of their first frames
};

// Through the first `length` frames.
Pattern frontToBack(std::uint32_t frames, std::int64_t length = kFrames);
Pattern randomStretches();

struct Way {
  std::string who;
  std::function<std::unique_ptr<AudioSource>()> open;
  bool isFloor = false;
};
using Ways = std::vector<Way>;

// Raises std::runtime_error unless every way gives what the first gives.
void requireSameAnswers(const Ways& ways, const Pattern& pattern, std::size_t channels);

// One who follows `pattern` on a source that is open, for each way, once all have been found to
// give the same.
std::vector<turns::Contender> contenders(const Ways& ways, const Pattern& pattern,
                                         std::size_t channels);

// One who opens, follows `pattern` and closes, for each way but the floors.
std::vector<turns::Contender> wholes(const Ways& ways, const Pattern& pattern,
                                     std::size_t channels);

// The rows on a deflated entry, of 16 bits and two channels.
void addDeflatedRows(const Files& files);
