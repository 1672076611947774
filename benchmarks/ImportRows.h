#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
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

// The stretches, all of one length, that an import asks for.
struct Pattern {
  std::uint32_t frames;                 // of each
  std::vector<std::int64_t> positions;  // of their first frames
};

Pattern frontToBack(std::uint32_t frames);
Pattern randomStretches();

using Sources = std::vector<std::pair<std::string, std::shared_ptr<AudioSource>>>;

// Raises std::runtime_error unless every source gives what the first gives.
void requireSameAnswers(const Sources& sources, const Pattern& pattern, std::size_t channels);

// One who follows `pattern` for each source, once all have been found to give the same.
std::vector<turns::Contender> contenders(const Sources& sources, const Pattern& pattern,
                                         std::size_t channels);

// The rows on a deflated entry, of 16 bits and two channels.
void addDeflatedRows(const Files& files);
