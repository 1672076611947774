#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "failures/Checks.h"
#include "failures/Expectation.h"
#include "failures/Trial.h"

// Every way of saving, with the file system failing at its first call, its second, and so on until
// the run succeeds, for each kind of call by itself. What must come out of each is worked out from
// the run in which nothing fails.

namespace failures {

namespace {

using support::FailingFileSystem;
using support::Failure;
using support::FileCall;

struct Kind {
  const char* name;
  Failure failure;
  std::vector<FileCall> calls;
};
const std::vector<Kind>& kinds() {
  static const std::vector<Kind> all = {
      {"open", Failure::Open, {FileCall::Open, FileCall::Reopen}},
      {"create temporary", Failure::CreateTemp, {FileCall::CreateTemp}},
      {"read", Failure::Read, {FileCall::Read}},
      {"short read", Failure::ShortRead, {FileCall::Read}},
      {"write", Failure::Write, {FileCall::Write}},
      {"short write", Failure::ShortWrite, {FileCall::Write}},
      {"seek", Failure::Seek, {FileCall::Seek}},
      {"tell", Failure::Tell, {FileCall::Tell}},
      {"flush", Failure::Flush, {FileCall::Flush}},
      {"truncate", Failure::Truncate, {FileCall::Truncate}},
      {"close", Failure::Close, {FileCall::Close}},
  };
  return all;
}

class FaultPoints : public testing::TestWithParam<Way> {
protected:
  FaultPoints() : fReference(trial(Failure::Read, 0)) { fReference->go(); }

  static std::unique_ptr<Trial> trial(Failure failure, int n,
                                      FailingFileSystem::Span span = FailingFileSystem::Span::Once,
                                      TranslatingFileSystem::Throw thrower = nullptr) {
    return std::make_unique<Trial>(GetParam(), failure, n, span, thrower);
  }

  // The calls of a kind in the run in which nothing fails.
  std::vector<std::size_t> callsOf(const Kind& kind) const {
    std::vector<std::size_t> found;
    const auto& calls = fReference->trace.calls;
    for (std::size_t i = 0; i < calls.size(); ++i) {
      for (const FileCall call : kind.calls) {
        if (calls[i].kind == call) found.push_back(i);
      }
    }
    return found;
  }

  // `own` is what the failing call raised.
  void checkOutcome(const Trial& trial, const Expectation& expected, const std::string& own) {
    switch (expected.effect) {
      case Effect::Raised:
        EXPECT_EQ(trial.what, own);
        break;
      case Effect::Code29:
        EXPECT_EQ(trial.what, "IO 29");
        break;
      case Effect::Short:
        EXPECT_EQ(trial.what, expected.code);
        break;
      case Effect::Parser:
        EXPECT_EQ(trial.what, "cut short");
        break;
      case Effect::Swallowed:
        EXPECT_EQ(trial.what, "");
        checkSwallowed(trial);
        break;
    }
  }

  void checkSwallowed(const Trial& trial) {
    if (saves(GetParam())) {
      expectAtMostOneCutShort(trial.atEnd.at(savedFile(GetParam())), GetParam().saved);
    }
  }

  // What a client can do after call `index` has failed.
  void checkRecovery(Trial& trial, std::size_t index) {
    const Package& package = trial.client.package;
    const Phase phase = fReference->trace.phaseOf(index);
    if (!package || phase == Phase::Opening) return;
    if (phase == Phase::Closing) return checkHalfClosed(package);
    const std::size_t directory = directoryBegin(GetParam(), fReference->trace);
    const bool updates =
        phase == Phase::Saving && index >= outputBegin(GetParam(), fReference->trace);
    if (!updates) {
      EXPECT_EQ(raised([&] { package->cancelUpdate(); }), "37");
    } else if (index < directory) {
      EXPECT_EQ(raised([&] { package->beginUpdate(); }), "35");
      EXPECT_EQ(raised([&] { package->cancelUpdate(); }), "");
    } else {
      checkStranded(trial);
    }
    checkUsable(trial);
  }

  // The update is over, its directory is not written. On another file it can start over.
  void checkStranded(Trial& trial) {
    const Package& package = trial.client.package;
    EXPECT_EQ(raised([&] { package->cancelUpdate(); }), "37");
    EXPECT_EQ(raised([&] { package->endUpdate(); }), "37");
    if (GetParam().output != Output::OtherFile) return;
    checkUnchanged(trial);
    EXPECT_EQ(raised([&] { package->beginUpdate(); }), "");
    EXPECT_EQ(raised([&] { package->endUpdate(); }), "");
    expectHolds(trial.memory.bytes("new"), unchangedEntries());
  }

  // Every entry that nobody changed is there, and can be saved elsewhere.
  void checkUsable(Trial& trial) {
    if (GetParam().output == Output::NewPackage) return;
    checkUnchanged(trial);
    trial.client.streams.clear();
    EXPECT_EQ(raised([&] {
                trial.client.package->saveAs(trial.client.path("rescued"), kIn | kOut | kTrunc);
              }),
              "");
    expectHolds(trial.memory.bytes("rescued"), unchangedEntries());
  }

  void checkUnchanged(Trial& trial) {
    for (const auto& [name, content] : unchangedEntries()) {
      if (name.back() == '/') continue;
      // A copy whose filling failed is not what a new stream reads.
      EXPECT_EQ(trial.client.read(name), content) << name;
    }
  }

  // A package whose file could not be closed has nothing to save any more, and can be closed again.
  static void checkHalfClosed(const Package& package) {
    for (const char* name : {"stored.bin", "deflated.txt", "direct.bin"}) {
      raised([&] {
        char block[100];
        package->getFile(name, false)->open(kIn, false)->read(block, sizeof block);
      });
    }
    EXPECT_EQ(raised([&] { package->beginUpdate("other", kIn | kOut | kTrunc); }), "24");
    EXPECT_EQ(raised([&] { package->close(); }), "");
    EXPECT_EQ(raised([&] { package->close(); }), "24");
  }

  void report(const std::string& what, const std::string& counts) {
    std::cout << GetParam().name << ", " << what << ": " << counts << "\n";
    RecordProperty(what, counts);
  }

  std::unique_ptr<Trial> fReference;
};

TEST_P(FaultPoints, WithoutAFaultTheWayEndsAsItShould) {
  EXPECT_EQ(fReference->what, "");
  if (saves(GetParam())) {
    const Bytes& saved = fReference->atEnd.at(savedFile(GetParam()));
    expectHolds(saved, GetParam().saved);
    EXPECT_EQ(listed(saved).size(), GetParam().saved.size());
  }
  expectNothingLeft(GetParam(), *fReference);
}

TEST_P(FaultPoints, AreToldAsTheyAreAndLeaveNothingBehind) {
  int points = 0;
  std::string counts;
  std::map<Effect, int> effects;
  for (const Kind& kind : kinds()) {
    const std::vector<std::size_t> calls = callsOf(kind);
    for (std::size_t n = 0; n < calls.size(); ++n, ++points) {
      SCOPED_TRACE(kind.name + (" " + std::to_string(n + 1)) + ", call " +
                   std::to_string(calls[n]));
      const auto one = trial(kind.failure, static_cast<int>(n) + 1);
      one->go();
      ASSERT_TRUE(one->failing.hasFailed());
      const Expectation expected =
          expectation(GetParam(), fReference->trace, calls[n], kind.failure);
      ++effects[expected.effect];
      checkOutcome(*one, expected, kind.failure == Failure::ShortWrite ? "IO 29" : "IO 50");
      if (!one->what.empty()) checkRecovery(*one, calls[n]);
      expectNothingLeft(GetParam(), *one);
      if (HasFailure()) return;
    }
    counts += std::string(kind.name) + " " + std::to_string(calls.size()) + ", ";
  }
  report("fault points", counts + "together " + std::to_string(points) + "; raised " +
                             std::to_string(effects[Effect::Raised]) + ", as 29 " +
                             std::to_string(effects[Effect::Code29]) + ", short record " +
                             std::to_string(effects[Effect::Short]) + ", parser " +
                             std::to_string(effects[Effect::Parser]) + ", swallowed " +
                             std::to_string(effects[Effect::Swallowed]));
}

// A client's file system raises what it likes, and that is what its client gets.
TEST_P(FaultPoints, OfAFileSystemWithExceptionsOfItsOwnComeOutAsThose) {
  int points = 0;
  for (const Kind& kind : kinds()) {
    if (kind.failure == Failure::ShortRead) continue;  // raises nothing
    const std::vector<std::size_t> calls = callsOf(kind);
    for (std::size_t n = 0; n < calls.size(); ++n, ++points) {
      SCOPED_TRACE(kind.name + (" " + std::to_string(n + 1)));
      const auto one = trial(kind.failure, static_cast<int>(n) + 1, FailingFileSystem::Span::Once,
                             [] { throw DiskGone(); });
      one->go();
      checkOutcome(*one, expectation(GetParam(), fReference->trace, calls[n], kind.failure),
                   "gone");
      if (!one->what.empty()) checkRecovery(*one, calls[n]);
      expectNothingLeft(GetParam(), *one);
      if (HasFailure()) return;
    }
  }
  report("points with exceptions of its own", std::to_string(points));
}

TEST_P(FaultPoints, OfATemporaryFileThatHasNoPlaceRaise48) {
  const Kind& create = kinds()[1];
  const std::vector<std::size_t> calls = callsOf(create);
  for (std::size_t n = 0; n < calls.size(); ++n) {
    const auto one =
        trial(Failure::CreateTemp, static_cast<int>(n) + 1, FailingFileSystem::Span::Once,
              [] { throw pkg::PackageIOException<>(pkg::PkgLib_Err_CreatingTempFile); });
    one->go();
    EXPECT_EQ(one->what, "IO 48");
    checkRecovery(*one, calls[n]);
    expectNothingLeft(GetParam(), *one);
  }
}

// The disk does not come back: a kind of call, or every call, fails from some moment on.
TEST_P(FaultPoints, ThatStayLeaveNothingBehindEither) {
  int points = 0;
  for (const Kind& kind : kinds()) {
    for (int n = 1;; ++n, ++points) {
      SCOPED_TRACE(kind.name + (" from " + std::to_string(n)));
      const auto one = trial(kind.failure, n, FailingFileSystem::Span::FromThereOn);
      one->go();
      if (!one->failing.hasFailed()) break;
      if (one->client.package) raised([&] { one->client.package->cancelUpdate(); });
      expectNothingLeft(GetParam(), *one);
      if (HasFailure()) return;
    }
  }
  report("points of a disk that stays away", std::to_string(points));
}

INSTANTIATE_TEST_SUITE_P(Ways, FaultPoints, testing::ValuesIn(ways()),
                         [](const auto& suite) { return std::string(suite.param.name); });

}  // namespace

}  // namespace failures
