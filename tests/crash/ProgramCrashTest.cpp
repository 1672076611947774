#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "crash/Changes.h"
#include "crash/SystemCalls.h"
#include "crash/TracedDisk.h"

// The programs end at each of their calls into the system, the power goes behind each, and each of
// these calls fails or does half of what it should: afterwards the old file or the new one is
// there, whole, and a failure is told in one line. QCF_LONG_TESTS=1 has each call fail, in each
// way, and the power go fifty times behind each; else it is each call that changes something, the
// first of each kind, and one in so many of the others.

namespace crash {

namespace {

constexpr Kept kKept[] = {Kept::All, Kept::Nothing, Kept::Names, Kept::Data};

class ProgramCrash : public ChangeTrial {
protected:
  void SetUp() override {
    if (!canTrace()) GTEST_SKIP() << "programs may not be traced here";
    ChangeTrial::SetUp();
    const Traced whole = go({});
    ASSERT_EQ(whole.finished.status, 0) << whole.finished.err;
    fCalls = whole.calls;
    adoptNew();
    ASSERT_GT(fCalls.size(), 5U);
  }

  Traced go(const Fault& fault) {
    restore();
    const Traced traced = runTraced(change(), fault);
    for (const std::string& output : GetParam().outputs) {
      const Bytes left = bytesOf(output);
      if (left) fSeen.insert(*left);
    }
    return traced;
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

  // What the system does to files that are changed in place before the change is complete: there
  // may be no package, but the old entries' data is where it was. Returns whether all is new.
  bool expectWhatIsPromised(const Files& left) const {
    if (!isInPlace()) return expectOldOrNew(left);
    const std::string& name = GetParam().outputs.front();
    const std::string& old = fInitial.at(name);
    const std::string& now = left.at(name);
    const std::size_t kept = directoryOf(old);
    EXPECT_EQ(now.substr(0, kept), old.substr(0, kept));
    return stateIn(left, name) == fNew.at(name);
  }
  static std::size_t directoryOf(const std::string& package) {
    const std::size_t end = package.rfind(zipbytes::u32(0x06054b50));
    std::size_t offset = 0;
    for (std::size_t i = 4; i > 0; --i)
      offset = offset << 8 | static_cast<unsigned char>(package.at(end + 15 + i));
    return offset;
  }

  TracedDisk diskUnder(const std::vector<Call>& calls) const {
    return {
        fFolder.path().string(), fInitial, {fInitialFolders.begin(), fInitialFolders.end()}, calls};
  }
  // A power cut right after a run that met a fault. A change in place has been taken back by then.
  void expectOldOrNewAfterCut(const Traced& traced) const {
    const TracedDisk disk = diskUnder(traced.calls);
    std::mt19937 random(1);
    for (const Kept kept : kKept) {
      const bool isNew = expectOldOrNew(disk.afterCut(disk.steps(), kept, random));
      if (isInPlace()) {
        EXPECT_EQ(isNew, traced.finished.status == 0);
      }
    }
  }

  Sweep sweep() const {
    if (isLong()) return Sweep::All;
    return GetParam().isVariant ? Sweep::Kinds : Sweep::Changes;
  }

  struct Tally {
    int points = 0, told = 0, survived = 0;
  };
  void tryFault(const Call& call, const Fault& fault, Tally& tally) {
    SCOPED_TRACE(describe(call, fault));
    const Traced traced = go(fault);
    ++tally.points;
    if (isInPlace() && fault.kind == Fault::Kind::Last && traced.finished.status != 0) {
      // What fails for good may keep a change in place from being taken back.
      expectToldAsFailed(traced.finished);
      expectWhatIsPromised(present());
      ++tally.told;
      return;
    }
    const bool isNew = expectOldOrNew();
    if (traced.finished.status == 0) {
      EXPECT_TRUE(isNew);
      ++tally.survived;
    } else {
      const bool mayHitAll =
          fault.kind == Fault::Kind::Last && GetParam().program == std::string(QSNDHOST);
      expectToldAsFailed(traced.finished,
                         mayHitAll ? static_cast<long>(GetParam().outputs.size()) : 1);
      EXPECT_EQ(traced.finished.out, "");
      ++tally.told;
    }
    expectOldOrNewAfterCut(traced);
    // What cannot be removed stays until the next run.
    if (call.name.rfind("unlink", 0) != 0) {
      EXPECT_EQ(leftovers(), std::vector<std::string>());
    }
  }

  std::vector<Call> fCalls;
  std::set<std::string> fSeen;
};

TEST_P(ProgramCrash, AnEndAtAnyCallLeavesWhatIsPromisedAndTheNextRunClearsUp) {
  int points = 0;
  int foundNew = 0;
  int foundLeftovers = 0;
  for (const std::size_t n : chosen(fCalls, sweep())) {
    if (fCalls[n].effect != Effect::Changes) continue;
    const Fault end{Fault::Kind::End, fCalls[n].number, 0};
    SCOPED_TRACE(describe(fCalls[n], end));
    const Traced traced = go(end);
    EXPECT_EQ(traced.finished.status, 128 + SIGKILL);
    foundNew += expectWhatIsPromised(present()) ? 1 : 0;
    const std::vector<std::string> left = leftoversOfTheKilled();
    if (!left.empty()) expectNextRunClears(left);
    foundLeftovers += left.empty() ? 0 : 1;
    ++points;
    if (HasFailure()) return;
  }
  if (!isInPlace()) expectOthersReadThem();
  std::cout << GetParam().name << ", ended at " << points << " calls: old " << points - foundNew
            << ", new " << foundNew << "; with leftovers, all cleared " << foundLeftovers << "\n";
}

TEST_P(ProgramCrash, ACallThatFailsIsToldInOneLineAndLeavesTheOldFileOrTheNew) {
  Tally tally;
  Tally halves;
  for (const std::size_t n : chosen(fCalls, sweep())) {
    for (const Fault& fault : faultsOf(fCalls, n, errorsFor(fCalls[n]), isLong()))
      tryFault(fCalls[n], fault, fault.kind == Fault::Kind::Short ? halves : tally);
  }
  expectOthersReadThem();
  std::cout << GetParam().name << ", failed at " << tally.points << " calls: told " << tally.told
            << ", survived " << tally.survived << "; " << halves.points
            << " transfers cut in half: told " << halves.told << ", survived " << halves.survived
            << "\n";
}

INSTANTIATE_TEST_SUITE_P(Changes, ProgramCrash, testing::ValuesIn(changes()),
                         [](const auto& tested) { return tested.param.name; });

class ProgramPowerCut : public ProgramCrash {
protected:
  // The last call up to `end` that `fits`, or none.
  template <class Fits>
  std::size_t lastBefore(std::size_t end, const Fits& fits) const {
    while (end > 0 && !fits(fCalls[end - 1]))
      --end;
    return end == 0 ? kNone : end - 1;
  }
  static bool isOneOf(const Call& call, const std::set<std::string>& names) {
    return names.count(call.name) != 0;
  }
  // The last call that changes what is in a file or how it is kept.
  std::size_t lastWrite(const std::string& path, std::size_t end) const {
    return lastBefore(end, [&](const Call& call) {
      return call.path == path &&
             isOneOf(call, {"write", "pwrite", "writev", "ftruncate", "fchmod", "fchown"});
    });
  }
  std::size_t lastSync(const std::string& path, std::size_t end) const {
    return lastBefore(end,
                      [&](const Call& call) { return call.path == path && call.name == "fsync"; });
  }

  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
};

TEST_P(ProgramPowerCut, EachFileIsSyncedAfterItsLastWriteThenNamedThenItsFolderIsSynced) {
  const std::size_t all = fCalls.size();
  for (const std::string& output : GetParam().outputs) {
    SCOPED_TRACE(output);
    const std::filesystem::path path = fFolder / output;
    std::size_t named = all;
    std::string written = path;
    if (!isInPlace()) {
      named = lastBefore(all, [&](const Call& call) { return call.to == path; });
      ASSERT_NE(named, kNone) << "it gets its name by a rename or a link";
      EXPECT_EQ(lastWrite(path, all), kNone);
      written = fCalls[named].path;
      const std::size_t folderSync = lastSync(path.parent_path(), all);
      ASSERT_NE(folderSync, kNone);
      EXPECT_GT(folderSync, named);
    }
    const std::size_t write = lastWrite(written, all);
    const std::size_t sync = lastSync(written, named);
    ASSERT_NE(write, kNone);
    ASSERT_NE(sync, kNone);
    EXPECT_GT(sync, write);
  }
}

TEST_P(ProgramPowerCut, BehindAnyCallItLeavesWhatIsPromisedAndNothingOfWhatWasDoneIsLost) {
  const TracedDisk disk = diskUnder(fCalls);
  const int seeds = isLong() ? 50 : 3;
  std::mt19937 random(1);
  int cuts = 0;
  int foundNew = 0;
  std::map<std::vector<std::string>, Disk> namesLeft;
  const auto look = [&](std::size_t step, Kept kept) {
    SCOPED_TRACE("step " + std::to_string(step) + ", kept " +
                 std::to_string(static_cast<int>(kept)));
    const Disk left = disk.afterCut(step, kept, random);
    const bool isNew = expectWhatIsPromised(left);
    if (step == disk.steps()) {
      EXPECT_TRUE(isNew) << "the program had said that all was done";
    }
    std::vector<std::string> names;
    for (const auto& [name, bytes] : left) {
      if (fInitial.count(name) == 0 && !isOutput(name)) names.push_back(name);
    }
    namesLeft[withoutTemporary(names)] = left;
    ++cuts;
    foundNew += isNew ? 1 : 0;
  };
  for (std::size_t step = 0; step <= disk.steps() && !HasFailure(); ++step) {
    for (const Kept kept : kKept)
      look(step, kept);
    for (int seed = 0; seed < seeds; ++seed) {
      look(step, Kept::Some);
      look(step, Kept::Torn);
    }
  }
  for (const auto& [names, left] : namesLeft) {
    restore();
    for (const auto& [name, bytes] : left) {
      std::filesystem::create_directories((fFolder / name).parent_path());
      fFolder.write(name, bytes);
    }
    if (!names.empty()) expectNextRunClears(names);
  }
  std::cout << GetParam().name << ", power cut at " << disk.steps() << " steps, " << cuts
            << " disks: new " << foundNew << "; names left, all cleared " << namesLeft.size() - 1
            << "\n";
}

TEST_P(ProgramPowerCut, TheDiskThatItIsToldOnIsWhatTheProgramWrote) {
  const Traced traced = go({});
  const TracedDisk disk = diskUnder(traced.calls);
  std::mt19937 random(1);
  EXPECT_EQ(disk.afterCut(disk.steps(), Kept::All, random), present());
  EXPECT_EQ(disk.afterCut(0, Kept::Nothing, random), fInitial);
}

INSTANTIATE_TEST_SUITE_P(Changes, ProgramPowerCut, testing::ValuesIn(changes()),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace

}  // namespace crash
