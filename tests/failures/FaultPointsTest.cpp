#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "failures/Checks.h"
#include "failures/Expectation.h"
#include "failures/Trial.h"

// Every way of saving, with the file system failing at its first call, its second, and so on until
// the run succeeds, for each kind of call by itself, once or for good. What must come out of each
// is worked out from the run in which nothing fails.

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
      {"delete temporary", Failure::DeleteTemp, {FileCall::DeleteTemp}},
      {"file name", Failure::FileName, {FileCall::FileName}},
      {"name", Failure::Name, {FileCall::Name}},
      {"capabilities", Failure::Capabilities, {FileCall::Capabilities}},
  };
  return all;
}

class FaultPoints : public testing::TestWithParam<Way> {
protected:
  FaultPoints() : fReference(trial(Failure::Read, 0)) { fReference->go(); }

  static std::unique_ptr<Trial> trial(Failure failure, int n,
                                      FailingFileSystem::Span span = FailingFileSystem::Span::Once,
                                      FailingFileSystem::Throw thrower = nullptr) {
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

  Expectation expectedOf(const Kind& kind, std::size_t index) const {
    return expectation(GetParam(), fReference->trace, index, kind.failure);
  }
  // Of the n-th call, from 0, and all that follow it: the first failure that is not swallowed. Of
  // an entry whose copying one has ended, nothing more is written.
  Expectation expectedFrom(const Kind& kind, std::size_t n) const {
    const std::vector<std::size_t> calls = callsOf(kind);
    Expectation first = expectedOf(kind, calls.at(n));
    const bool isSwallowed = first.effect == Effect::Swallowed;
    while (first.effect == Effect::Swallowed || (isSwallowed && first.effect == Effect::Code29)) {
      if (++n == calls.size()) return {Effect::Swallowed};
      first = expectedOf(kind, calls[n]);
    }
    return first;
  }

  // One to seek in, of which nothing could be read: then nobody reads it.
  static bool hasEmptyCopy(const Kind& kind, const Trial& trial) {
    const auto& calls = trial.recording;
    return kind.failure == Failure::Read &&
           GetParam().name == std::string("SeekInADeflatedEntry") &&
           calls.count(FileCall::CreateTemp) == 1 && calls.total(FileCall::Write) == 0;
  }

  // `own` is what the failing call raised.
  void checkOutcome(const Trial& trial, const Expectation& expected, const std::string& own,
                    std::size_t failures = 1) {
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
        checkSwallowed(trial, failures);
        break;
    }
  }

  // What was saved or read may end early, and is nothing else.
  void checkSwallowed(const Trial& trial, std::size_t failures) {
    ASSERT_EQ(trial.what, "");
    if (saves(GetParam())) {
      const int cut = cutShort(trial.atEnd.at(savedFile(GetParam())), GetParam().saved);
      EXPECT_LE(static_cast<std::size_t>(cut), failures);
    }
    const std::vector<Bytes>& seen = trial.client.seen;
    const std::vector<Bytes>& whole = fReference->client.seen;
    ASSERT_EQ(seen.size(), whole.size());
    std::size_t ended = 0;
    for (std::size_t i = 0; i < seen.size(); ++i) {
      EXPECT_EQ(seen[i], whole[i].substr(0, seen[i].size()));
      if (seen[i] != whole[i]) ++ended;
    }
    // A copy for seeking that was cut short stands for its entry: two texts are read of it.
    const bool seeks = GetParam().name == std::string_view("SeekInADeflatedEntry");
    EXPECT_LE(ended, seeks ? 2 * failures : failures);
  }

  // What a client can do after call `failed`.
  void checkRecovery(Trial& trial, std::size_t failed) {
    const std::size_t index = seekOf(fReference->trace, failed);
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

  static std::string raisedBy(const Kind& kind) {
    return kind.failure == Failure::ShortWrite ? "IO 29" : "IO 50";
  }

  // One whose name could not be asked for nobody deletes, and one that goes with its entry nobody
  // tries to delete again.
  static int temporaryFilesLeft(const Kind& kind, Effect effect) {
    const bool isDeletion = kind.failure == Failure::DeleteTemp;
    const bool stays = isDeletion ? effect == Effect::Swallowed : kind.failure == Failure::Name;
    return stays ? 1 : 0;
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
      const Effect effect = expectedOf(kind, calls[n]).effect;
      ++effects[effect];
      checkOutcome(*one, expectedOf(kind, calls[n]), raisedBy(kind));
      if (!one->what.empty()) checkRecovery(*one, calls[n]);
      expectNothingLeft(GetParam(), *one, temporaryFilesLeft(kind, effect));
      if (HasFailure()) return;
    }
    counts += std::string(kind.name) + " " + std::to_string(calls.size()) + ", ";
  }
  EXPECT_GT(points, 0);
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
      ASSERT_TRUE(one->failing.hasFailed());
      checkOutcome(*one, expectedOf(kind, calls[n]), "gone");
      if (!one->what.empty()) checkRecovery(*one, calls[n]);
      expectNothingLeft(GetParam(), *one,
                        temporaryFilesLeft(kind, expectedOf(kind, calls[n]).effect));
      if (HasFailure()) return;
    }
  }
  EXPECT_GT(points, 0);
  report("points with exceptions of its own", std::to_string(points));
}

TEST_P(FaultPoints, OfATemporaryFileThatHasNoPlaceRaise48) {
  const Kind& create = kinds()[1];
  const std::vector<std::size_t> calls = callsOf(create);
  const std::set<std::string> withoutAny = {"PropertiesReadAndWritten", "WalkAllEntries",
                                            "AcceptAndReadRaw"};
  EXPECT_EQ(calls.empty(), withoutAny.count(GetParam().name) != 0);
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

// The disk does not come back: a kind of call fails from some moment on.
TEST_P(FaultPoints, ThatStayAreToldAsTheyAreAndLeaveNothingBehindEither) {
  int points = 0;
  for (const Kind& kind : kinds()) {
    const std::size_t calls = callsOf(kind).size();
    for (std::size_t n = 0;; ++n, ++points) {
      SCOPED_TRACE(kind.name + (" from " + std::to_string(n + 1)));
      const auto one =
          trial(kind.failure, static_cast<int>(n) + 1, FailingFileSystem::Span::FromThereOn);
      one->go();
      ASSERT_EQ(one->failing.hasFailed(), n < calls);
      if (n == calls) {
        EXPECT_EQ(one->what, "");
        break;
      }
      const Expectation first =
          hasEmptyCopy(kind, *one) ? Expectation{Effect::Swallowed} : expectedFrom(kind, n);
      checkOutcome(*one, first, raisedBy(kind), calls - n);
      if (one->client.package) raised([&] { one->client.package->cancelUpdate(); });
      const int undeleted = one->recording.count(FileCall::CreateTemp) - static_cast<int>(n);
      expectNothingLeft(
          GetParam(), *one,
          kind.failure == Failure::DeleteTemp ? undeleted : temporaryFilesLeft(kind, first.effect));
      if (HasFailure()) return;
    }
  }
  EXPECT_GT(points, 0);
  report("fault points", "of a disk that stays away, together " + std::to_string(points));
}

INSTANTIATE_TEST_SUITE_P(Ways, FaultPoints, testing::ValuesIn(ways()),
                         [](const auto& suite) { return std::string(suite.param.name); });

}  // namespace

}  // namespace failures
