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

#include "crash/SystemCalls.h"
#include "failures/Listing.h"

// The programs end at each of their calls into the system, and each of these calls fails or does
// half of what it should: afterwards the old file or the new one is there, whole, and a failure is
// told in one line. QCF_LONG_TESTS=1 has each call fail, in each way; else it is each that changes
// something and one in nine of the others.

namespace crash {

namespace {

struct Change {
  const char* name;
  const char* program;
  std::vector<std::string> arguments;
  std::string output;
  std::vector<std::string> next;  // a later run that writes the same file
};

void PrintTo(const Change& change, std::ostream* out) {
  *out << change.name;
}

bool isLong() {
  const char* const text = std::getenv("QCF_LONG_TESTS");
  return text != nullptr && std::string(text) == "1";
}

// What there is to tell one package, or another file, from the next. Times are left out.
struct State {
  failures::Listing listing;
  std::string rest;  // all of what is no package, the size of what is

  friend bool operator==(const State& a, const State& b) {
    return a.listing == b.listing && a.rest == b.rest;
  }
};

State stateOf(const std::string& bytes) {
  try {
    return {failures::listed(bytes), std::to_string(bytes.size())};
  } catch (const std::exception&) {
    return {{}, bytes};
  }
}

class ProgramCrash : public testing::TestWithParam<Change> {
protected:
  void SetUp() override {
    if (!canTrace()) GTEST_SKIP() << "programs may not be traced here";
    prepare();
    for (const std::string& name : files())
      fInitial[name] = fFolder.read(name);
    fOld = outputState();
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
  // The output, where there is one.
  std::vector<std::string> bytesOf(const std::string& name) const {
    if (!std::filesystem::exists(fFolder / name)) return {};
    return {fFolder.read(name)};
  }
  std::vector<State> outputState() const {
    std::vector<State> states;
    for (const std::string& bytes : bytesOf(GetParam().output))
      states.push_back(stateOf(bytes));
    return states;
  }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& item : std::filesystem::recursive_directory_iterator(fFolder.path())) {
      if (!item.is_regular_file()) continue;
      names.push_back(item.path().lexically_relative(fFolder.path()).string());
    }
    return names;
  }
  // What nobody asked for.
  std::vector<std::string> leftovers() const {
    std::vector<std::string> names;
    for (const std::string& name : files()) {
      if (fInitial.count(name) == 0 && name != GetParam().output) names.push_back(name);
    }
    return names;
  }
  void restore() const {
    for (const std::string& name : files()) {
      if (fInitial.count(name) == 0) std::filesystem::remove(fFolder / name);
    }
    for (const auto& [name, bytes] : fInitial)
      fFolder.write(name, bytes);
  }

  // Returns whether the new file is there, which must be whole where the old one isn't.
  bool expectOldOrNew() const {
    const std::vector<State> left = outputState();
    EXPECT_TRUE(left == fOld || left == fNew);
    return left == fNew;
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
  void expectTold(const support::Finished& finished) const {
    EXPECT_EQ(finished.status, 3) << finished.err;
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
    EXPECT_NE(finished.err.find(": cannot "), std::string::npos) << finished.err;
    EXPECT_EQ(finished.err.find("Success"), std::string::npos) << finished.err;
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

  support::TempDir fFolder;
  std::vector<std::pair<std::string, std::string>> fEnvironment;
  std::map<std::string, std::string> fInitial;
  std::vector<Call> fCalls;
  std::vector<State> fOld, fNew;
  std::set<std::string> fSeen;

private:
  void must(std::vector<std::string> arguments) const {
    support::mustRun({std::move(arguments), {}, fFolder.path(), fEnvironment});
  }
  void prepare() {
    // Under a tracer there is no looking for leaks.
    fEnvironment = {{"XDG_CACHE_HOME", (fFolder / "cache").string()},
                    {"ASAN_OPTIONS", "detect_leaks=0"}};
    fFolder.write("input", "input");
    support::python(
        "import random, wave\n"
        "random.seed(1)\n"
        "with wave.open('in.wav', 'wb') as w:\n"
        "    w.setparams((2, 2, 8000, 0, 'NONE', ''))\n"
        "    w.writeframes(random.randbytes(12000))\n"
        "open('text', 'w').write('some text ' * 900)\n",
        {}, fFolder.path());
    must({QCFPKG, "create", "--type", "a/b", "a.pkg", "input", "one=in.wav", "two=text"});
    must({QCFPKG, "add", "--in-place", "--store", "a.pkg", "dead=text"});
    must({QCFPKG, "remove", "--in-place", "a.pkg", "dead"});  // something for compact to do
    must({QSNDHOST, "make", "in.wav", "out.qsnd", "--type", "application/x-old"});
    must({QSNDHOST, "make", "in.wav", "in.qsnd", "--deflate"});
    fFolder.write("out.wav", "what was here");
  }
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

const std::vector<std::string> kNext = {"create", "--overwrite", "--type", "a/b", "a.pkg", "input"};
const std::vector<std::string> kNextNew = {"create", "--overwrite", "--type",
                                           "a/b",    "new.pkg",     "input"};
const std::vector<std::string> kMake = {"make", "in.wav", "out.qsnd"};
const std::vector<std::string> kExport = {"export", "in.qsnd", "out.wav", "--format", "16"};

const std::vector<Change> kChanges = {
    {"add", QCFPKG, {"add", "a.pkg", "three=input"}, "a.pkg", kNext},
    {"remove", QCFPKG, {"remove", "a.pkg", "two"}, "a.pkg", kNext},
    {"compact", QCFPKG, {"--quiet", "compact", "a.pkg"}, "a.pkg", kNext},
    {"type", QCFPKG, {"type", "a.pkg", "c/d"}, "a.pkg", kNext},
    {"comment", QCFPKG, {"comment", "a.pkg", "words"}, "a.pkg", kNext},
    {"prop", QCFPKG, {"prop", "set", "a.pkg", "two", "mac-type", "TEXT"}, "a.pkg", kNext},
    {"create",
     QCFPKG,
     {"create", "--type", "a/b", "new.pkg", "one=in.wav", "text"},
     "new.pkg",
     kNextNew},
    {"make", QSNDHOST, kMake, "out.qsnd", kMake},
    {"export", QSNDHOST, kExport, "out.wav", kExport}};

INSTANTIATE_TEST_SUITE_P(Changes, ProgramCrash, testing::ValuesIn(kChanges),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace

}  // namespace crash
