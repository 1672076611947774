#pragma once

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>

#include "crash/ProgramTrial.h"

namespace crash {

// Has the programs go without memory, or without zlib's help, at one point: see Shortage.cpp.
class Shortages {
public:
  explicit Shortages(support::Command command) : fCommand(std::move(command)) {
    fCommand.environment.emplace_back("LD_PRELOAD", QCF_SHORTAGE);
  }

  // An undisturbed run, which counts.
  support::Finished count() {
    const support::TempDir folder;
    support::Command command = fCommand;
    command.environment.emplace_back("QCF_SHORTAGE_COUNTS", (folder / "counts").string());
    const auto finished = support::run(command);
    if (std::sscanf(folder.read("counts").c_str(), "%ld %ld", &fAllocations, &fZlibCalls) != 2) {
      throw std::runtime_error("nothing was counted");
    }
    return finished;
  }
  long allocations() const { return fAllocations; }
  long zlibCalls() const { return fZlibCalls; }

  // `point` is "memory" or "zlib" and the number of the call, from 1: one of those that were
  // counted.
  support::Finished runWithout(const std::string& point) const {
    bool hasFailed = false;
    support::Finished finished = run(point, hasFailed);
    EXPECT_TRUE(hasFailed) << "it is not reached";
    return finished;
  }
  // Behind the last of them nothing fails.
  support::Finished runBeyond(const std::string& kind, long calls) const {
    bool hasFailed = false;
    support::Finished finished = run(kind + " " + std::to_string(calls + 1), hasFailed);
    EXPECT_FALSE(hasFailed);
    return finished;
  }

  // From one allocation that fails to the next: about `points` are tried, in the long form each.
  long step(long points) const { return isLong() ? 1 : std::max(1L, fAllocations / points); }

private:
  support::Finished run(const std::string& point, bool& hasFailed) const {
    const support::TempDir folder;
    support::Command command = fCommand;
    command.environment.emplace_back("QCF_SHORTAGE", point);
    command.environment.emplace_back("QCF_SHORTAGE_MARK", (folder / "mark").string());
    support::Finished finished = support::run(command);
    finished.err = withoutWordsOfTheFonts(finished.err);
    hasFailed = std::filesystem::exists(folder / "mark");
    return finished;
  }
  // The library that looks for fonts may have something to say, too.
  static std::string withoutWordsOfTheFonts(const std::string& err) {
    std::string rest;
    std::istringstream lines(err);
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind("Fontconfig ", 0) != 0) rest += line + "\n";
    }
    return rest;
  }

  support::Command fCommand;
  long fAllocations = 0;
  long fZlibCalls = 0;
};

}  // namespace crash
