#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <sndfile.h>

#include <gtest/gtest.h>

#include "Documents.h"
#include "Plugin.h"
#include "support/TempDir.h"

// What comes out of a document is, bit for bit, what another reader finds in its WAV file.

namespace {

constexpr int kFrames = 20011;

using Layout = std::tuple<int /*subtype*/, int /*channels*/, bool /*deflated*/>;

std::string nameOf(const testing::TestParamInfo<Layout>& info) {
  const auto [subtype, channels, deflated] = info.param;
  const char* const format = subtype == SF_FORMAT_PCM_U8   ? "UInt8"
                             : subtype == SF_FORMAT_PCM_16 ? "Int16"
                             : subtype == SF_FORMAT_PCM_24 ? "Int24"
                                                           : "Float";
  return std::string(format) + "x" + std::to_string(channels) + (deflated ? "Deflated" : "Stored");
}

// Random samples; integers of every bit pattern, floats beyond the range and denormal ones too.
void writeWave(const std::string& path, int subtype, int channels, int rate) {
  SF_INFO info{};
  info.channels = channels;
  info.samplerate = rate;
  info.format = SF_FORMAT_WAV | subtype;
  SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &info);
  ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
  std::mt19937 random(static_cast<std::uint32_t>(subtype * 100 + channels));
  const auto count = static_cast<std::size_t>(kFrames * channels);
  if (subtype == SF_FORMAT_FLOAT) {
    std::vector<float> samples(count);
    std::uniform_real_distribution<float> value(-1.5f, 1.5f);
    for (float& sample : samples)
      sample = random() % 100 == 0 ? 1e-40f : value(random);
    ASSERT_EQ(sf_writef_float(file, samples.data(), kFrames), kFrames);
  } else {
    std::vector<int> samples(count);
    for (int& sample : samples)
      sample = static_cast<int>(random());
    ASSERT_EQ(sf_writef_int(file, samples.data(), kFrames), kFrames);
  }
  sf_close(file);
}

std::vector<float> readWave(const std::string& path) {
  SF_INFO info{};
  SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
  std::vector<float> samples(static_cast<std::size_t>(info.frames * info.channels));
  sf_readf_float(file, samples.data(), info.frames);
  sf_close(file);
  return samples;
}

class AudioComparison : public testing::TestWithParam<Layout> {
protected:
  void open(int rate) {
    const auto [subtype, channelCount, deflated] = GetParam();
    channels = static_cast<std::size_t>(channelCount);
    const std::string wave = (folder / "Mixdown.wav").string();
    ASSERT_NO_FATAL_FAILURE(writeWave(wave, subtype, channelCount, rate));
    expected = readWave(wave);
    const std::string document = (folder / "sound.qsnd").string();
    if (deflated) {
      makeDeflatedDocument(document, support::readFile(wave));
    } else {
      folder.write("sound.qsnd", storedDocument(support::readFile(wave)));
    }
    file.close();
    ASSERT_EQ(file.open(document), 0);
    ASSERT_EQ(file.getInfo(), 0);
    ASSERT_EQ(file.info.channelCount, channels);
    ASSERT_EQ(file.info.sampleRate, static_cast<float>(rate));
    ASSERT_EQ(file.info.frameCount, kFrames);
  }

  // Reads and compares bit by bit: the frames that exist, silence behind them, nothing in channels
  // that are not delivered.
  void expectStretch(std::int64_t position, std::uint32_t size) {
    out.resize(channels, std::vector<float>());
    std::vector<float*> pointers;
    for (auto& channel : out) {
      channel.assign(size, ChannelBuffers::kUntouched);
      pointers.push_back(channel.data());
    }
    imImportAudioRec7 record{};
    record.position = position;
    record.size = size;
    record.buffers = pointers.data();
    record.privateData = file.instance;
    ASSERT_EQ(plugin(25, file.reference, &record), 0) << position << ", " << size;
    std::vector<float> wanted(size);
    for (std::size_t channel = 0; channel < channels; ++channel) {
      for (std::size_t i = 0; i < size; ++i) {
        const auto frame = static_cast<std::size_t>(position) + i;
        wanted[i] = channel >= 6      ? ChannelBuffers::kUntouched
                    : frame < kFrames ? expected[frame * channels + channel]
                                      : 0.0f;
      }
      ASSERT_TRUE(size == 0 ||
                  std::memcmp(wanted.data(), out[channel].data(), size * sizeof(float)) == 0)
          << "channel " << channel << ", " << size << " frames from " << position;
    }
  }

  support::TempDir folder;
  Plugin plugin;
  HostFile file{plugin};
  std::size_t channels = 0;
  std::vector<float> expected;
  std::vector<std::vector<float>> out;
};

TEST_P(AudioComparison, FrontToBackAndBackToFront) {
  for (const int rate : {8000, 44100, 48000, 192000}) {
    ASSERT_NO_FATAL_FAILURE(open(rate));
    for (int position = 0; position < kFrames; position += 777) {
      ASSERT_NO_FATAL_FAILURE(expectStretch(position, 777));
    }
    for (int position = kFrames - 1; position > 0; position -= 777) {
      ASSERT_NO_FATAL_FAILURE(expectStretch(position, 777));
    }
    ASSERT_NO_FATAL_FAILURE(expectStretch(0, kFrames));
  }
}

TEST_P(AudioComparison, AcrossTheEndsOfBlocksAndOfTheDocument) {
  ASSERT_NO_FATAL_FAILURE(open(44100));
  const auto [subtype, channelCount, deflated] = GetParam();
  const int bytes = subtype == SF_FORMAT_PCM_U8   ? 1
                    : subtype == SF_FORMAT_PCM_16 ? 2
                    : subtype == SF_FORMAT_PCM_24 ? 3
                                                  : 4;
  const int block = 32768 / (channelCount * bytes);
  for (int end = block; end < kFrames + block; end += block) {
    for (int begin = std::min(end, kFrames) - 2; begin < std::min(end + 2, kFrames); ++begin) {
      for (const std::uint32_t size : {1u, 2u, 5u, static_cast<std::uint32_t>(block)}) {
        ASSERT_NO_FATAL_FAILURE(expectStretch(begin, size));
      }
    }
  }
}

// 10,000 stretches over all layouts; QSND_RANDOM_STRETCHES sets how many each layout has.
TEST_P(AudioComparison, RandomStretches) {
  ASSERT_NO_FATAL_FAILURE(open(48000));
  const char* const wish = std::getenv("QSND_RANDOM_STRETCHES");
  const int count = wish != nullptr ? std::atoi(wish) : 10000 / 32 + 1;
  std::mt19937 random(7);
  for (int i = 0; i < count; ++i) {
    const auto position = static_cast<std::int64_t>(random() % kFrames);
    const auto size = static_cast<std::uint32_t>(random() % (random() % 8 == 0 ? 9000 : 300));
    ASSERT_NO_FATAL_FAILURE(expectStretch(position, size));
  }
  std::cout << "random stretches: " << count << "\n";
}

INSTANTIATE_TEST_SUITE_P(EveryLayout, AudioComparison,
                         testing::Combine(testing::Values(SF_FORMAT_PCM_U8, SF_FORMAT_PCM_16,
                                                          SF_FORMAT_PCM_24, SF_FORMAT_FLOAT),
                                          testing::Values(1, 2, 6, 8), testing::Bool()),
                         nameOf);

}  // namespace
