#pragma once

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <sndfile.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "plugin/Documents.h"
#include "support/Run.h"
#include "support/TempDir.h"

struct Sound {
  SF_INFO info{};
  std::vector<int> samples;  // in the top of 32 bits
};

inline Sound readSound(const std::filesystem::path& path) {
  Sound sound;
  SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &sound.info);
  if (file == nullptr) throw std::runtime_error(sf_strerror(nullptr));
  sound.samples.resize(static_cast<std::size_t>(sound.info.frames * sound.info.channels));
  sf_readf_int(file, sound.samples.data(), sound.info.frames);
  sf_close(file);
  return sound;
}

// The program in a folder of its own.
class Qsndhost : public testing::Test {
protected:
  support::Finished run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), QSNDHOST);
    return support::run({arguments, {}, folder.path(), environment});
  }
  // Runs a shell command in which $0 is the program.
  support::Finished shell(const std::string& command) {
    return support::run({{"sh", "-c", command, QSNDHOST}, {}, folder.path(), environment});
  }

  // Runs what has to go well and say nothing on standard error.
  std::string must(const std::vector<std::string>& arguments) {
    const auto finished = run(arguments);
    EXPECT_EQ(finished.status, 0) << finished.err;
    EXPECT_EQ(finished.err, "");
    return finished.out;
  }

  std::string makeDocument(const std::string& name, std::uint16_t bits, std::uint16_t channels,
                           std::size_t frames) {
    Wave wave;
    wave.bits = bits;
    wave.channels = channels;
    wave.rate = 8000;
    wave.data = noise(frames * channels * bits / 8, bits);
    return folder.write(name, storedDocument(wave.bytes()));
  }
  // Nothing but what the test itself has put there.
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& item : std::filesystem::directory_iterator(folder.path())) {
      names.push_back(item.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  support::TempDir folder;
  std::vector<std::pair<std::string, std::string>> environment;
};

inline void expectFailure(const support::Finished& finished, int status, const std::string& line) {
  EXPECT_EQ(finished.status, status);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(finished.err, "qsndhost: " + line + "\n");
}
