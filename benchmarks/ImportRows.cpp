#include "ImportRows.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <random>
#include <stdexcept>

#include <benchmark/benchmark.h>

void moveInMemory(const Files& files) {
  for (const std::string& path : {files.wave, files.stored, files.deflated}) {
    if (!std::filesystem::exists(path)) continue;
    std::filesystem::copy_file(path, path + ".moved");
    std::filesystem::rename(path + ".moved", path);
  }
}

Pattern frontToBack(std::uint32_t frames, std::int64_t length) {
  Pattern pattern{frames, {}};
  for (std::int64_t at = 0; at + frames <= length; at += frames)
    pattern.positions.push_back(at);
  return pattern;
}

Pattern randomStretches() {
  Pattern pattern{1024, {}};
  std::mt19937 numbers(1);
  for (int i = 0; i < 2000; ++i)
    pattern.positions.push_back(static_cast<std::int64_t>(numbers() % (kFrames - 1024)));
  return pattern;
}

namespace {

using Sources = std::vector<std::shared_ptr<AudioSource>>;

// All ways open, and found to give the same.
Sources sourcesOf(const Ways& ways, const Pattern& pattern, std::size_t channels) {
  Sources sources;
  for (const Way& way : ways)
    sources.push_back(way.open());
  Channels ours(channels, pattern.frames);
  Channels theirs(channels, pattern.frames);
  for (const std::int64_t position : pattern.positions) {
    sources[0]->read(position, pattern.frames, ours.data());
    for (std::size_t who = 1; who < sources.size(); ++who) {
      sources[who]->read(position, pattern.frames, theirs.data());
      for (std::size_t channel = 0; channel < std::min<std::size_t>(channels, 6); ++channel) {
        if (std::memcmp(ours[channel].data(), theirs[channel].data(),
                        pattern.frames * sizeof(float)) != 0) {
          throw std::runtime_error("the answer of " + ways[who].who + " differs");
        }
      }
    }
  }
  return sources;
}

void follow(const Pattern& pattern, AudioSource& source, const Channels& buffers) {
  for (const std::int64_t position : pattern.positions) {
    source.read(position, pattern.frames, buffers.data());
    benchmark::ClobberMemory();
  }
}

}  // namespace

void requireSameAnswers(const Ways& ways, const Pattern& pattern, std::size_t channels) {
  sourcesOf(ways, pattern, channels);
}

std::vector<turns::Contender> contenders(const Ways& ways, const Pattern& pattern,
                                         std::size_t channels) {
  const Sources sources = sourcesOf(ways, pattern, channels);
  const auto buffers = std::make_shared<Channels>(channels, pattern.frames);
  std::vector<turns::Contender> all;
  for (std::size_t who = 0; who < ways.size(); ++who) {
    all.push_back(
        {ways[who].who,
         [source = sources[who], pattern, buffers] { follow(pattern, *source, *buffers); },
         {},
         ways[who].isFloor});
  }
  return all;
}

std::vector<turns::Contender> wholes(const Ways& ways, const Pattern& pattern,
                                     std::size_t channels) {
  std::vector<turns::Contender> all;
  for (const Way& way : ways) {
    if (way.isFloor) continue;
    all.push_back({way.who, [=] {
                     const Channels buffers(channels, pattern.frames);
                     follow(pattern, *way.open(), buffers);
                   }});
  }
  return all;
}
