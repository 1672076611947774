// Audio of a sound document through the importer's bundle, as one buffer of floats a channel,
// against libsndfile on the same WAV file with the channels taken apart behind it.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <sndfile.h>

#include <benchmark/benchmark.h>

#include "Comparison.h"
#include "HostKit/Document.h"
#include "support/Run.h"
#include "support/TempDir.h"

namespace {

// One buffer of floats a channel.
class Channels {
public:
  Channels(std::size_t channels, std::size_t frames) : fSamples(channels) {
    for (auto& channel : fSamples) {
      channel.resize(frames);
      fPointers.push_back(channel.data());
    }
  }
  float* const* data() const { return fPointers.data(); }
  const std::vector<float>& operator[](std::size_t channel) const { return fSamples[channel]; }

private:
  std::vector<std::vector<float>> fSamples;
  std::vector<float*> fPointers;
};

// Something that gives audio, a stretch at a time.
class Source {
public:
  virtual ~Source() = default;
  virtual void read(std::int64_t position, std::uint32_t frames, float* const* buffers) = 0;
};

class BundleSource : public Source {
public:
  explicit BundleSource(const std::string& path) : fDocument(fBundle, path) {}
  void read(std::int64_t position, std::uint32_t frames, float* const* buffers) override {
    fDocument.read(position, frames, buffers);
  }

private:
  hostkit::Bundle fBundle{QSND_BUNDLE};
  hostkit::Document fDocument;
};

class SndfileSource : public Source {
public:
  explicit SndfileSource(const std::string& path) : fFile(sf_open(path.c_str(), SFM_READ, &fInfo)) {
    if (fFile == nullptr) throw std::runtime_error("libsndfile cannot open " + path);
  }
  ~SndfileSource() override { sf_close(fFile); }
  void read(std::int64_t position, std::uint32_t frames, float* const* buffers) override {
    const auto channels = static_cast<std::size_t>(fInfo.channels);
    fInterleaved.resize(channels * frames);
    if (position != fPosition) sf_seek(fFile, position, SEEK_SET);
    const auto count = static_cast<std::size_t>(sf_readf_float(fFile, fInterleaved.data(), frames));
    fPosition = position + static_cast<std::int64_t>(count);
    for (std::size_t frame = 0; frame < count; ++frame) {
      for (std::size_t channel = 0; channel < channels; ++channel)
        buffers[channel][frame] = fInterleaved[frame * channels + channel];
    }
  }

private:
  SF_INFO fInfo{};
  SNDFILE* fFile;
  std::int64_t fPosition = 0;
  std::vector<float> fInterleaved;
};

// Two minutes of noise, as WAV and as sound documents that hold it stored and deflated.
constexpr std::int64_t kFrames = 48000 * 120;
constexpr std::size_t kChannels = 2;

struct Format {
  const char* name;
  int bits;
};
constexpr Format kFormats[] = {{"16bit", 16}, {"24bit", 24}};

struct Files {
  std::string wave;
  std::string stored;
  std::string deflated;
};

Files makeFiles(const support::TempDir& folder, const Format& format) {
  const std::string stem = (folder / format.name).string();
  support::python(R"(
import random, sys, wave, zipfile
stem, bits, frames = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
random.seed(1)
with wave.open(stem + '.wav', 'wb') as out:
    out.setnchannels(2)
    out.setsampwidth(bits // 8)
    out.setframerate(48000)
    out.writeframes(random.randbytes(frames * 2 * bits // 8))
for suffix, method in ('.stored.qsnd', zipfile.ZIP_STORED), ('.deflated.qsnd', zipfile.ZIP_DEFLATED):
    with zipfile.ZipFile(stem + suffix, 'w') as package:
        package.writestr('mimetype', 'application/x-test')
        package.write(stem + '.wav', 'Mixdown.wav', method)
)",
                  {stem, std::to_string(format.bits), std::to_string(kFrames)});
  return {stem + ".wav", stem + ".stored.qsnd", stem + ".deflated.qsnd"};
}

// The positions at which an import asks for stretches of `frames`.
struct Pattern {
  const char* name;
  std::uint32_t frames;
  std::vector<std::int64_t> positions;
};

std::vector<Pattern> patterns() {
  Pattern frontToBack{"frontToBack", 4800, {}};
  for (std::int64_t at = 0; at + 4800 <= kFrames; at += 4800)
    frontToBack.positions.push_back(at);
  Pattern random{"random", 1024, {}};
  std::mt19937 numbers(1);
  for (int i = 0; i < 1000; ++i)
    random.positions.push_back(static_cast<std::int64_t>(numbers() % (kFrames - 1024)));
  return {frontToBack, random};
}

void run(Source& source, const Pattern& pattern, Channels& channels) {
  for (const std::int64_t position : pattern.positions) {
    source.read(position, pattern.frames, channels.data());
    benchmark::ClobberMemory();
  }
}

void requireSameAnswers(const Files& files) {
  SndfileSource expected(files.wave);
  for (const std::string& path : {files.stored, files.deflated}) {
    BundleSource source(path);
    for (const Pattern& pattern : patterns()) {
      Channels ours(kChannels, pattern.frames);
      Channels theirs(kChannels, pattern.frames);
      for (const std::int64_t position : pattern.positions) {
        source.read(position, pattern.frames, ours.data());
        expected.read(position, pattern.frames, theirs.data());
        for (std::size_t channel = 0; channel < kChannels; ++channel) {
          for (std::size_t frame = 0; frame < pattern.frames; ++frame) {
            if (std::fabs(ours[channel][frame] - theirs[channel][frame]) < 1e-4f) continue;
            std::fprintf(stderr, "%s: frame %lld differs\n", path.c_str(),
                         static_cast<long long>(position + static_cast<std::int64_t>(frame)));
            std::exit(1);
          }
        }
      }
    }
  }
}

template <class Opened>
void add(const std::string& which, const char* who, const Pattern& pattern,
         const std::string& path) {
  const std::string name = which + "/" + who;
  benchmark::RegisterBenchmark(name.c_str(), [pattern, path](benchmark::State& state) {
    Channels channels(kChannels, pattern.frames);
    for (auto _ : state) {
      Opened source(path);
      run(source, pattern, channels);
    }
    state.SetItemsProcessed(state.iterations() * pattern.frames *
                            static_cast<std::int64_t>(pattern.positions.size()));
  })->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
  const support::TempDir folder;
  // The copies of deflated audio go there.
  ::setenv("XDG_CACHE_HOME", folder.path().c_str(), 1);
  for (const Format& format : kFormats) {
    const Files files = makeFiles(folder, format);
    requireSameAnswers(files);
    for (const Pattern& pattern : patterns()) {
      const std::string which = std::string(pattern.name) + ":" + format.name;
      add<BundleSource>(which, "stored", pattern, files.stored);
      add<BundleSource>(which, "deflated", pattern, files.deflated);
      add<SndfileSource>(which, "libsndfile", pattern, files.wave);
    }
  }
  return runComparison(argc, argv);
}
