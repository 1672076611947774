#pragma once

#include <algorithm>
#include <cstdio>
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

  // `point` is "memory" or "zlib" and the number of the call, from 1.
  support::Finished runWithout(const std::string& point) const {
    support::Command command = fCommand;
    command.environment.emplace_back("QCF_SHORTAGE", point);
    command.seconds = 20;
    return support::run(command);
  }

  // From one allocation that fails to the next: about `points` are tried, in the long form each of
  // them, but for those of drawing, most of which are the fonts'.
  long step(long points) const {
    constexpr long kMost = 4000;
    return std::max(1L, fAllocations / (isLong() ? kMost : points));
  }

private:
  support::Command fCommand;
  long fAllocations = 0;
  long fZlibCalls = 0;
};

}  // namespace crash
