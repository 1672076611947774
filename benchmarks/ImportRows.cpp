#include "ImportRows.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <stdexcept>

#include <benchmark/benchmark.h>

Pattern frontToBack(std::uint32_t frames) {
  Pattern pattern{frames, {}};
  for (std::int64_t at = 0; at + frames <= kFrames; at += frames)
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

void requireSameAnswers(const Sources& sources, const Pattern& pattern, std::size_t channels) {
  Channels ours(channels, pattern.frames);
  Channels theirs(channels, pattern.frames);
  for (const std::int64_t position : pattern.positions) {
    sources[0].second->read(position, pattern.frames, ours.data());
    for (std::size_t who = 1; who < sources.size(); ++who) {
      sources[who].second->read(position, pattern.frames, theirs.data());
      for (std::size_t channel = 0; channel < std::min<std::size_t>(channels, 6); ++channel) {
        if (std::memcmp(ours[channel].data(), theirs[channel].data(),
                        pattern.frames * sizeof(float)) != 0) {
          throw std::runtime_error("the answer of " + sources[who].first + " differs");
        }
      }
    }
  }
}

std::vector<turns::Contender> contenders(const Sources& sources, const Pattern& pattern,
                                         std::size_t channels) {
  requireSameAnswers(sources, pattern, channels);
  const auto buffers = std::make_shared<Channels>(channels, pattern.frames);
  std::vector<turns::Contender> all;
  for (const auto& [who, source] : sources) {
    all.push_back({who, [source = source, pattern, buffers] {
                     for (const std::int64_t position : pattern.positions) {
                       source->read(position, pattern.frames, buffers->data());
                       benchmark::ClobberMemory();
                     }
                   }});
  }
  return all;
}
