#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <sndfile.h>

#include <gtest/gtest.h>

#include "plugin/Documents.h"
#include "support/Run.h"
#include "support/TempDir.h"

struct Sound {
  SF_INFO info{};
  std::vector<int> samples;  // in the top of 32 bits
};

Sound readSound(const std::filesystem::path& path);

// The program in a folder of its own.
class Qsndhost : public testing::Test {
protected:
  support::Finished run(std::vector<std::string> arguments);
  // Runs a shell command in which $0 is the program.
  support::Finished shell(const std::string& command);
  // Runs what has to go well and say nothing on standard error.
  std::string must(const std::vector<std::string>& arguments);

  std::string makeDocument(const std::string& name, std::uint16_t bits, std::uint16_t channels,
                           std::size_t frames);
  // Nothing but what the test itself has put there.
  std::vector<std::string> files() const;

  support::TempDir folder;
  std::vector<std::pair<std::string, std::string>> environment;
};

void expectFailure(const support::Finished& finished, int status, const std::string& line);
