#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "crash/ProgramTrial.h"
#include "crash/SystemCalls.h"

// The programs end at each of their calls into the system, and each of these calls fails or does
// half of what it should: afterwards the old file or the new one is there, whole, and a failure is
// told in one line. QCF_LONG_TESTS=1 has each call fail, in each way; else it is each that changes
// something and one in nine of the others.

namespace crash {

namespace {

class ProgramCrash : public ProgramTrial {
protected:
  void SetUp() override {
    if (!canTrace()) GTEST_SKIP() << "programs may not be traced here";
    ProgramTrial::SetUp();
    const Traced whole = go({});
    ASSERT_EQ(whole.finished.status, 0) << whole.finished.err;
    fCalls = whole.calls;
    fNew = outputState();
    ASSERT_FALSE(fNew == fOld);
    ASSERT_GT(fCalls.size(), 5U);
  }

  Traced go(const Fault& fault) {
    restore();
    std::vector<std::string> arguments = GetParam().arguments;
    arguments.insert(arguments.begin(), GetParam().program);
    const Traced traced = runTraced({arguments, {}, fFolder.path(), fEnvironment}, fault);
    const auto left = bytesOf(GetParam().output);
    fSeen.insert(left.begin(), left.end());
    return traced;
  }
  // The next run takes away what is left, and says so.
  void expectNextRunClears(const std::vector<std::string>& left) {
    std::vector<std::string> arguments = GetParam().next;
    arguments.insert(arguments.begin(), GetParam().program);
    const auto next = support::run({arguments, {}, fFolder.path(), fEnvironment});
    EXPECT_EQ(next.status, 0) << next.err;
    EXPECT_TRUE(leftovers().empty()) << leftovers().front();
    for (const std::string& name : left)
      EXPECT_NE(next.err.find(name + ", which an interrupted run had left"), std::string::npos)
          << next.err;
  }
  // One reader that knows nothing of this project looks at all that was ever left.
  void expectOthersReadThem() const {
    std::filesystem::create_directory(fFolder / "seen");
    int count = 0;
    for (const std::string& bytes : fSeen) {
      if (bytes.rfind("PK", 0) == 0) fFolder.write("seen/" + std::to_string(++count), bytes);
    }
    support::python(
        "import os, zipfile\n"
        "for name in os.listdir('seen'):\n"
        "    with zipfile.ZipFile('seen/' + name) as z: assert z.testzip() is None, name\n",
        {}, fFolder.path());
    std::filesystem::remove_all(fFolder / "seen");
  }

  struct Tally {
    int points = 0, told = 0, survived = 0;
  };
  void tryFault(const Fault& fault, Tally& tally) {
    const Call& call = fCalls[fault.call];
    SCOPED_TRACE(call.name + ", call " + std::to_string(fault.call) + ", error " +
                 std::to_string(fault.error));
    const Traced traced = go(fault);
    const bool isNew = expectOldOrNew();
    ++tally.points;
    if (traced.finished.status == 0) {
      EXPECT_TRUE(isNew);
      ++tally.survived;
    } else {
      expectTold(traced.finished);
      ++tally.told;
    }
    // What cannot be removed stays until the next run.
    if (call.name.rfind("unlink", 0) != 0) {
      EXPECT_EQ(leftovers(), std::vector<std::string>());
    }
  }

  std::vector<Call> fCalls;
  std::set<std::string> fSeen;
};

TEST_P(ProgramCrash, AnEndAtAnyCallLeavesTheOldFileOrTheNewAndTheNextRunClearsUp) {
  int points = 0;
  int foundNew = 0;
  int foundLeftovers = 0;
  for (std::size_t n = 0; n < fCalls.size(); ++n) {
    if (fCalls[n].effect != Effect::Changes) continue;
    SCOPED_TRACE(fCalls[n].name + ", call " + std::to_string(n));
    const Traced traced = go({Fault::Kind::End, n, 0});
    EXPECT_EQ(traced.finished.status, 128 + SIGKILL);
    foundNew += expectOldOrNew() ? 1 : 0;
    const std::vector<std::string> left = leftovers();
    if (!left.empty()) expectNextRunClears(left);
    foundLeftovers += left.empty() ? 0 : 1;
    ++points;
    if (HasFailure()) return;
  }
  expectOthersReadThem();
  std::cout << GetParam().name << ", ended at " << points << " calls: old " << points - foundNew
            << ", new " << foundNew << "; with leftovers, all cleared " << foundLeftovers << "\n";
}

TEST_P(ProgramCrash, ACallThatFailsIsToldInOneLineAndLeavesTheOldFileOrTheNew) {
  Tally tally;
  Tally halves;
  for (std::size_t n = 0; n < fCalls.size(); ++n) {
    const bool changes = fCalls[n].effect == Effect::Changes;
    if (!changes && !isLong() && n % 9 != 0) continue;
    tryFault({Fault::Kind::Fail, n, changes ? ENOSPC : EIO}, tally);
    if (isLong()) tryFault({Fault::Kind::Fail, n, changes ? EIO : ENOMEM}, tally);
    if (fCalls[n].transfers) tryFault({Fault::Kind::Short, n, 0}, halves);
  }
  expectOthersReadThem();
  std::cout << GetParam().name << ", failed at " << tally.points << " calls: told " << tally.told
            << ", survived " << tally.survived << "; " << halves.points
            << " transfers cut in half: told " << halves.told << ", survived " << halves.survived
            << "\n";
}

INSTANTIATE_TEST_SUITE_P(Changes, ProgramCrash, testing::ValuesIn(kChanges),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace

}  // namespace crash
