#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "crash/ProgramTrial.h"

// Each allocation of the programs fails, and each call that they make into zlib: they tell it in
// one line and leave the old file, or get along without and leave the new one. QCF_LONG_TESTS=1
// tries each allocation, else it is one in 23.

namespace crash {

namespace {

class ProgramShortage : public ProgramTrial {
protected:
  void SetUp() override {
    ProgramTrial::SetUp();
    const auto whole = go({{"QCF_SHORTAGE_COUNTS", (fFolder / "counts").string()}});
    ASSERT_EQ(whole.status, 0) << whole.err;
    ASSERT_EQ(std::sscanf(fFolder.read("counts").c_str(), "%ld %ld", &fAllocations, &fZlib), 2);
    std::filesystem::remove(fFolder / "counts");
    ASSERT_GT(fAllocations, 100);
    fNew = outputState();
  }

  support::Finished go(std::vector<std::pair<std::string, std::string>> environment) {
    restore();
    std::vector<std::string> arguments = GetParam().arguments;
    arguments.insert(arguments.begin(), GetParam().program);
    environment.insert(environment.end(), fEnvironment.begin(), fEnvironment.end());
    environment.emplace_back("LD_PRELOAD", QCF_SHORTAGE);
    return support::run({arguments, {}, fFolder.path(), environment});
  }

  // Returns whether the program got along without.
  bool tryPoint(const std::string& what, long n) {
    const std::string point = what + " " + std::to_string(n);
    SCOPED_TRACE(point);
    const auto finished = go({{"QCF_SHORTAGE", point}});
    const bool isNew = expectOldOrNew();
    if (finished.status == 0) {
      EXPECT_EQ(leftovers(), std::vector<std::string>());
      EXPECT_TRUE(isNew);
      return true;
    }
    if (endedByItsLibrary(finished)) {
      ++fEnded;
      return false;
    }
    EXPECT_EQ(leftovers(), std::vector<std::string>());
    expectToldOnce(finished);
    return false;
  }

  // The JSON library that results are told with cannot let go of them without memory.
  static bool endedByItsLibrary(const support::Finished& finished) {
    return GetParam().program == std::string(QSNDHOST) && finished.status == 128 + SIGABRT;
  }
  // What the importer's own process says as it ends comes before what the program tells of that.
  static void expectToldOnce(const support::Finished& finished) {
    EXPECT_EQ(finished.status, 3) << finished.err;
    std::istringstream lines(finished.err);
    int told = 0;
    bool crashed = false;
    std::string last;
    for (std::string line; std::getline(lines, line); last = line) {
      const bool own = line.rfind("qcfpkg: ", 0) == 0 || line.rfind("qsndhost: ", 0) == 0;
      told += own ? 1 : 0;
      crashed = crashed || line.rfind("terminate called", 0) == 0;
    }
    EXPECT_EQ(told, 1) << finished.err;
    EXPECT_EQ(last.find("std::"), std::string::npos) << finished.err;
    EXPECT_EQ(crashed, last.find("the importer crashed: Aborted") != std::string::npos)
        << finished.err;
  }

  long fAllocations = 0;
  long fZlib = 0;
  long fEnded = 0;
};

TEST_P(ProgramShortage, AnAllocationThatFailsIsToldInOneLineAndLeavesTheOldFileOrTheNew) {
  const long step = isLong() ? 1 : 23;
  long points = 0;
  long survived = 0;
  for (long n = 1; n <= fAllocations && !HasFailure(); n += step, ++points)
    survived += tryPoint("memory", n) ? 1 : 0;
  std::cout << GetParam().name << ", without memory at " << points << " of " << fAllocations
            << " allocations: told " << points - survived - fEnded << ", survived " << survived
            << ", ended by a library " << fEnded << "\n";
}

TEST_P(ProgramShortage, ACallOfZlibThatFailsIsToldInOneLineAndLeavesTheOldFileOrTheNew) {
  long survived = 0;
  for (long n = 1; n <= fZlib && !HasFailure(); ++n)
    survived += tryPoint("zlib", n) ? 1 : 0;
  std::cout << GetParam().name << ", zlib failed at " << fZlib << " calls: told "
            << fZlib - survived << ", survived " << survived << "\n";
}

INSTANTIATE_TEST_SUITE_P(Changes, ProgramShortage, testing::ValuesIn(kChanges),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace

}  // namespace crash
