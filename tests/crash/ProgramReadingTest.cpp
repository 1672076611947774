#include <cerrno>
#include <iostream>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "crash/ProgramTrial.h"
#include "crash/Shortages.h"
#include "crash/SystemCalls.h"

// The commands that only read, while calls into the system, allocations and calls of zlib fail:
// they tell it in one line, or have all the same what they have otherwise; no file changes, and
// none is left. QCF_LONG_TESTS=1 has each call and each allocation fail, else it is one in so many.

namespace crash {

namespace {

struct Reading {
  const char* name;
  const char* program;
  std::vector<std::string> arguments;
  bool usesZlib;
};

void PrintTo(const Reading& reading, std::ostream* out) {
  *out << reading.name;
}

class ProgramReading : public ProgramTrial, public testing::WithParamInterface<Reading> {
protected:
  support::Command reading() const { return command(GetParam().program, GetParam().arguments); }

  void expectNothingChanged() const {
    std::map<std::string, std::string> now;
    for (const std::string& name : files())
      now[name] = fFolder.read(name);
    EXPECT_TRUE(now == fInitial);
    EXPECT_EQ(folders(), fInitialFolders);
  }
  // What is told before a failure is what would have been told without it; lists for programs tell
  // the failure, too.
  void expectBeginning(const std::string& out) const {
    if (out.find("\"error\": \"cannot ") != std::string::npos) return;
    EXPECT_EQ(out, fWhole.out.substr(0, out.size()));
  }
  bool isAsOtherwise(const support::Finished& finished) const {
    return finished.status == fWhole.status && finished.out == fWhole.out &&
           finished.err == fWhole.err;
  }

  support::Finished fWhole;
};

class ProgramReadingTraced : public ProgramReading {
protected:
  void SetUp() override {
    if (!canTrace()) GTEST_SKIP() << "programs may not be traced here";
    ProgramReading::SetUp();
    const Traced whole = runTraced(reading());
    fWhole = whole.finished;
    fCalls = whole.calls;
    ASSERT_LE(fWhole.status, 1) << fWhole.err;
    ASSERT_GT(fCalls.size(), 0U);
    expectNothingChanged();
  }

  struct Tally {
    int points = 0, told = 0, survived = 0;
  };
  void tryFault(const Fault& fault, Tally& tally) {
    const Call& call = fCalls[fault.call];
    SCOPED_TRACE(call.name + " " + call.path + ", call " + std::to_string(fault.call) + ", error " +
                 std::to_string(fault.error));
    const Traced traced = runTraced(reading(), fault);
    ++tally.points;
    if (isAsOtherwise(traced.finished)) {
      ++tally.survived;
    } else {
      expectToldAsFailed(traced.finished);
      expectBeginning(traced.finished.out);
      ++tally.told;
    }
    if (call.name == "unlink") return restore();  // what cannot be removed stays
    expectNothingChanged();
  }

  std::vector<Call> fCalls;
};

TEST_P(ProgramReadingTraced, ACallThatFailsIsToldInOneLineAndChangesNothing) {
  Tally tally;
  Tally halves;
  for (std::size_t n = 0; n < fCalls.size(); ++n) {
    const bool changes = fCalls[n].effect == Effect::Changes;
    if (!changes && !isLong() && n % 9 != 0) continue;
    tryFault({Fault::Kind::Fail, n, changes ? ENOSPC : EIO}, tally);
    if (isLong()) tryFault({Fault::Kind::Fail, n, changes ? EIO : ENOMEM}, tally);
    if (fCalls[n].transfers) tryFault({Fault::Kind::Short, n, 0}, halves);
  }
  std::cout << GetParam().name << ", failed at " << tally.points << " calls: told " << tally.told
            << ", survived " << tally.survived << "; " << halves.points
            << " transfers cut in half: told " << halves.told << ", survived " << halves.survived
            << "\n";
}

class ProgramReadingShort : public ProgramReading {
protected:
  void SetUp() override {
    ProgramReading::SetUp();
    fShortages.emplace(reading());
    fWhole = fShortages->count();
    ASSERT_LE(fWhole.status, 1) << fWhole.err;
    ASSERT_GT(fShortages->allocations(), 100);
    expectNothingChanged();
  }

  // Returns whether the program got along without.
  bool tryPoint(const std::string& what, long n) {
    const std::string point = what + " " + std::to_string(n);
    SCOPED_TRACE(point);
    const auto finished = fShortages->runWithout(point);
    expectNothingChanged();
    if (isAsOtherwise(finished)) return true;
    expectBeginning(finished.out);
    if (endedByItsLibrary(reading(), finished)) {
      ++fEnded;
    } else {
      expectToldOnce(finished);
    }
    return false;
  }

  std::optional<Shortages> fShortages;
  long fEnded = 0;
};

TEST_P(ProgramReadingShort, AnAllocationThatFailsIsToldInOneLineAndChangesNothing) {
  const long step = fShortages->step(30);
  long points = 0;
  long survived = 0;
  for (long n = 1; n <= fShortages->allocations() && !HasFailure(); n += step, ++points)
    survived += tryPoint("memory", n) ? 1 : 0;
  std::cout << GetParam().name << ", without memory at " << points << " of "
            << fShortages->allocations() << " allocations: told " << points - survived - fEnded
            << ", survived " << survived << ", ended by a library " << fEnded << "\n";
}

TEST_P(ProgramReadingShort, ACallOfZlibThatFailsIsToldInOneLineAndChangesNothing) {
  const long calls = fShortages->zlibCalls();
  EXPECT_EQ(calls > 0, GetParam().usesZlib);
  long survived = 0;
  for (long n = 1; n <= calls && !HasFailure(); ++n)
    survived += tryPoint("zlib", n) ? 1 : 0;
  std::cout << GetParam().name << ", zlib failed at " << calls << " calls: told "
            << calls - survived << ", survived " << survived << "\n";
}

const std::vector<Reading> kReadings = {
    {"cat", QCFPKG, {"cat", "a.pkg", "one", "two"}, true},
    {"check", QCFPKG, {"check", "a.pkg", "tree.pkg"}, true},
    {"checkJSON", QCFPKG, {"check", "--json", "a.pkg"}, true},
    {"list", QCFPKG, {"list", "a.pkg"}, false},
    {"listJSON", QCFPKG, {"list", "--json", "a.pkg"}, false},
    {"info", QCFPKG, {"info", "a.pkg"}, false},
    {"listOnly", QCFPKG, {"extract", "--list-only", "tree.pkg"}, false},
    {"hostInfo", QSNDHOST, {"info", "in.qsnd"}, true},
    {"hostFormats", QSNDHOST, {"formats"}, false},
    {"hostExport", QSNDHOST, {"export", "in.qsnd", "-"}, true},
    {"hostWaveformJSON", QSNDHOST, {"waveform", "in.qsnd", "--json", "--width", "100"}, true}};

INSTANTIATE_TEST_SUITE_P(Commands, ProgramReadingTraced, testing::ValuesIn(kReadings),
                         [](const auto& tested) { return tested.param.name; });
INSTANTIATE_TEST_SUITE_P(Commands, ProgramReadingShort, testing::ValuesIn(kReadings),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace

}  // namespace crash
