#include <algorithm>
#include <iostream>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "crash/Changes.h"
#include "crash/ProgramTrial.h"
#include "crash/Shortages.h"
#include "crash/SystemCalls.h"

// The commands that print, write to standard output, or refuse, while calls into the system,
// allocations and calls of zlib fail: they tell it in one line, or have all the same what they have
// otherwise; no file changes, and none is left. QCF_LONG_TESTS=1 has each call and each allocation
// fail, else it is one in so many.

namespace crash {

namespace {

struct Reading {
  const char* name;
  const char* program;
  std::vector<std::string> arguments;
  bool usesZlib;
  int refusal = 0;  // the status of one that is refused
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
  // the failure, too. Packages have their times, and pictures their words.
  void expectBeginning(const std::string& out) const {
    if (out.find("\"error\": \"cannot ") != std::string::npos) return;
    if (!(stateOf(fWhole.out) == State{{}, fWhole.out})) return;
    EXPECT_EQ(out, fWhole.out.substr(0, out.size()));
  }
  bool isAsOtherwise(const support::Finished& finished) const {
    return finished.status == fWhole.status && finished.err == fWhole.err &&
           stateOf(finished.out) == stateOf(fWhole.out);
  }

  bool endsAsItShould() const {
    const int refusal = GetParam().refusal;
    return refusal == 0 ? fWhole.status <= 1 : fWhole.status == refusal;
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
    ASSERT_TRUE(endsAsItShould()) << fWhole.status << fWhole.err;
    ASSERT_GT(fCalls.size(), 0U);
    expectNothingChanged();
  }

  struct Tally {
    int points = 0, told = 0, survived = 0;
  };
  void tryFault(const Call& call, const Fault& fault, Tally& tally) {
    SCOPED_TRACE(describe(call, fault));
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
  for (const std::size_t n : chosen(fCalls, isLong() ? Sweep::All : Sweep::Changes)) {
    for (const Fault& fault : faultsOf(fCalls, n, errorsFor(fCalls[n]), isLong()))
      tryFault(fCalls[n], fault, fault.kind == Fault::Kind::Short ? halves : tally);
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
    ASSERT_TRUE(endsAsItShould()) << fWhole.status << fWhole.err;
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
    expectToldOnce(finished);
    return false;
  }

  std::optional<Shortages> fShortages;
};

TEST_P(ProgramReadingShort, AnAllocationThatFailsIsToldInOneLineAndChangesNothing) {
  const long step = fShortages->step(15);
  long points = 0;
  long survived = 0;
  for (long n = 1; n <= fShortages->allocations() && !HasFailure(); n += step, ++points)
    survived += tryPoint("memory", n) ? 1 : 0;
  std::cout << GetParam().name << ", without memory at " << points << " of "
            << fShortages->allocations() << " allocations: told " << points - survived
            << ", survived " << survived << "\n";
}

TEST_P(ProgramReadingShort, ACallOfZlibThatFailsIsToldInOneLineAndChangesNothing) {
  const long calls = fShortages->zlibCalls();
  EXPECT_EQ(calls > 0, GetParam().usesZlib);
  const long step = isLong() ? 1 : std::max(1L, calls / 20);
  long points = 0;
  long survived = 0;
  for (long n = 1; n <= calls && !HasFailure(); n += step, ++points)
    survived += tryPoint("zlib", n) ? 1 : 0;
  std::cout << GetParam().name << ", zlib failed at " << points << " of " << calls
            << " calls: told " << points - survived << ", survived " << survived << "\n";
}

// So small that no word of it moves anything else. Without memory, what finds the fonts may wait
// for itself for ever.
std::vector<std::string> drawn(const std::string& kind) {
  return {"--timeout", "2",       "waveform", "in.qsnd",  "-",  "--as",
          kind,        "--width", "200",      "--height", "100"};
}

const std::vector<Reading> kReadings = {
    {"cat", QCFPKG, {"cat", "a.pkg", "one", "two"}, true},
    {"check", QCFPKG, {"check", "a.pkg", "tree.pkg"}, true},
    {"checkJSON", QCFPKG, {"check", "--json", "a.pkg"}, true},
    {"propGet", QCFPKG, {"prop", "get", "a.pkg", "two", "modified"}, false},
    {"propList", QCFPKG, {"prop", "list", "a.pkg"}, false},
    {"propListJSON", QCFPKG, {"prop", "list", "--json", "a.pkg"}, false},
    {"type", QCFPKG, {"type", "a.pkg"}, false},
    {"comment", QCFPKG, {"comment", "tree.pkg"}, false},
    {"list", QCFPKG, {"list", "a.pkg"}, false},
    {"listJSON", QCFPKG, {"list", "--json", "a.pkg"}, false},
    {"info", QCFPKG, {"info", "a.pkg"}, false},
    {"infoJSON", QCFPKG, {"info", "--json", "a.pkg"}, false},
    {"listOnly", QCFPKG, {"extract", "--list-only", "tree.pkg"}, false},
    {"hostInfo", QSNDHOST, {"info", "in.qsnd"}, true},
    {"hostInfoJSON", QSNDHOST, {"info", "--json", "in.qsnd"}, true},
    {"hostInfoWithoutLimit", QSNDHOST, {"--timeout", "0", "info", "in.qsnd"}, true},
    {"hostFormats", QSNDHOST, {"formats"}, false},
    {"hostFormatsJSON", QSNDHOST, {"formats", "--json"}, false},
    {"hostMake", QSNDHOST, {"make", "in.wav", "-"}, false},
    {"hostWaveform", QSNDHOST, drawn("png"), true},
    {"hostWaveformSVG", QSNDHOST, drawn("svg"), true},
    {"hostExport", QSNDHOST, {"export", "in.qsnd", "-"}, true},
    {"hostExportJSON", QSNDHOST, {"export", "--json", "in.qsnd", "/dev/null"}, true},
    {"hostWaveformJSON", QSNDHOST, {"waveform", "in.qsnd", "--json", "--width", "100"}, true},
    // Refused, and never mistaken for something else.
    {"addItself", QCFPKG, {"add", "a.pkg", "x=a.pkg"}, false, 3},
    {"hostMakeOntoItself", QSNDHOST, {"make", "in.wav", "in.wav"}, false, 2},
    {"hostExportOntoItself", QSNDHOST, {"export", "in.qsnd", "in.qsnd"}, false, 2}};

INSTANTIATE_TEST_SUITE_P(Commands, ProgramReadingTraced, testing::ValuesIn(kReadings),
                         [](const auto& tested) { return tested.param.name; });
INSTANTIATE_TEST_SUITE_P(Commands, ProgramReadingShort, testing::ValuesIn(kReadings),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace

}  // namespace crash
