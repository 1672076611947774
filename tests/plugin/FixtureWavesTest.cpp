#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Documents.h"
#include "Plugin.h"
#include "support/Fixtures.h"
#include "support/TempDir.h"

// WAV files of many writers, each wrapped as a document.

namespace {

struct Fixture {
  const char* name;
  std::uint32_t channels;  // 0: does not open
  float rate;
  std::size_t sampleBytes;
  std::int32_t format;
  std::int64_t frames;
  std::size_t start;  // of the samples in the file
};

constexpr Fixture kFixtures[] = {
    {"RustPython__pluck-pcm8.wav", 2, 11025, 1, 2, 3307, 142},
    {"RustPython__pluck-pcm16.wav", 2, 11025, 2, 3, 3307, 142},
    {"RustPython__pluck-pcm24.wav", 2, 11025, 3, 4, 3307, 142},
    {"RustPython__pluck-pcm24-ext.wav", 2, 11025, 3, 4, 3307, 80},
    // Samples of four bytes are floats, whatever the format tag says.
    {"RustPython__pluck-pcm32.wav", 2, 11025, 4, 6, 3307, 142},
    {"hound__waveformatextensible-24bit-4byte-48kHz-stereo.wav", 2, 48000, 4, 6, 2, 68},
    {"scipy__test-44100Hz-2ch-32bit-float-le.wav", 2, 44100, 4, 6, 441, 58},
    // The data chunk is longer than the file.
    {"scipy__test-44100Hz-le-1ch-4bytes-early-eof.wav", 1, 44100, 4, 6, 4410, 80},
    {"scipy__test-8000Hz-le-3ch-5S-24bit.wav", 3, 8000, 3, 4, 5, 44},
    {"wavefile-out__16-bit-8kHz-mono-fromScratch-WITH-TAGS.wav", 1, 8000, 2, 3, 8000, 44},
    // Companded samples are taken for unsigned bytes.
    {"music-metadata__mulaw.wav", 2, 44100, 1, 2, 4410, 92},
    // Samples of eight bytes are read as integers of two.
    {"wavefile-out__64-bit-441kHz-mono-fromScratch.wav", 1, 44100, 8, 14, 4, 44},
    {"scipy__test-8000Hz-le-3ch-5S-24bit-rf64.wav", 0, 0, 0, 0, 0, 0},
    {"libbw64__rect_24bit_wrong_fmt_size.wav", 0, 0, 0, 0, 0, 0},
};

void PrintTo(const Fixture& fixture, std::ostream* stream) {
  *stream << fixture.name;
}

// Sample `index` as the importer is to convert it, with arithmetic of its own.
float decoded(const Fixture& fixture, const std::string& wave, std::size_t index) {
  const std::size_t bytes = fixture.sampleBytes == 8 ? 2 : fixture.sampleBytes;
  const std::size_t offset = fixture.start + index * bytes;
  std::int64_t value = 0;
  for (std::size_t i = 0; i < bytes; ++i) {
    value |= static_cast<std::int64_t>(static_cast<unsigned char>(wave[offset + i])) << (8 * i);
  }
  if (bytes == 4) {
    float sample;
    std::memcpy(&sample, wave.data() + offset, sizeof(sample));
    return sample;
  }
  if (bytes == 1) return static_cast<float>(std::ldexp(static_cast<double>(value - 128), -7));
  const std::int64_t half = std::int64_t{1} << (8 * bytes - 1);
  if (value >= half) value -= 2 * half;
  return static_cast<float>(
      std::ldexp(static_cast<double>(value), 1 - 8 * static_cast<int>(bytes)));
}

class FixtureWave : public testing::TestWithParam<Fixture> {
protected:
  void expectServed(const std::string& document, const std::string& wave) {
    const Fixture& fixture = GetParam();
    const Plugin plugin;
    HostFile file(plugin);
    if (fixture.channels == 0) {
      EXPECT_EQ(file.open(document), 31);
      return;
    }
    ASSERT_EQ(file.open(document), 0);
    ASSERT_EQ(file.getInfo(), 0);
    EXPECT_EQ(file.info.channelCount, fixture.channels);
    EXPECT_EQ(file.info.sampleRate, fixture.rate);
    EXPECT_EQ(file.info.sampleFormat, fixture.format);
    EXPECT_EQ(file.info.frameCount, fixture.frames);

    const std::size_t frameBytes = fixture.channels * fixture.sampleBytes;
    const auto present = std::min<std::size_t>(static_cast<std::size_t>(fixture.frames),
                                               (wave.size() - fixture.start) / frameBytes);
    const bool whole = present == static_cast<std::size_t>(fixture.frames);
    ChannelBuffers out(fixture.channels, static_cast<std::size_t>(fixture.frames));
    EXPECT_EQ(file.read(0, static_cast<std::uint32_t>(fixture.frames), out), whole ? 0 : 38);
    for (std::size_t frame = 0; frame < present; ++frame) {
      for (std::size_t channel = 0; channel < fixture.channels; ++channel) {
        const float expected = decoded(fixture, wave, frame * fixture.channels + channel);
        ASSERT_EQ(std::memcmp(&out[channel][frame], &expected, sizeof(float)), 0)
            << "frame " << frame << ", channel " << channel;
      }
    }
  }
};

TEST_P(FixtureWave, IsServedAsItsBytesSay) {
  const std::string name = std::string("wav/") + GetParam().name;
  QCF_REQUIRE_FIXTURE(name);
  const std::string wave = support::readFile(support::fixture(name));
  const support::TempDir folder;
  expectServed(folder.write("stored.qsnd", storedDocument(wave)), wave);
  makeDeflatedDocument(folder / "deflated.qsnd", wave);
  expectServed((folder / "deflated.qsnd").string(), wave);
}

INSTANTIATE_TEST_SUITE_P(Files, FixtureWave, testing::ValuesIn(kFixtures));

}  // namespace
