#include <iostream>
#include <memory>

#include <gtest/gtest.h>

#include "failures/Expectation.h"
#include "failures/Listing.h"
#include "failures/Ways.h"

// Every way of saving, with the file system failing at its first call, its second, and so on until
// the run succeeds, for each kind of call by itself. What must come out of each is worked out from
// the run in which nothing fails.

namespace failures {

namespace {

using support::FailingFileSystem;
using support::Failure;
using support::FileCall;

// What a client's own file system may raise: nothing that the library knows.
struct DiskGone {};

// Turns the failures of the file system below into others.
class TranslatingFileSystem : public support::FileSystemWrapper {
public:
  using Throw = void (*)();

  TranslatingFileSystem(pkg::IPkgFileSystem<>& inner, Throw thrower)
      : FileSystemWrapper(inner), fThrow(thrower) {}

  File openFile(const FileName& name, openmode mode) override {
    return translated([&] { return FileSystemWrapper::openFile(name, mode); });
  }
  File createTempFile() override {
    return translated([&] { return FileSystemWrapper::createTempFile(); });
  }
  File reopenTempFileByName(const FileName& name, openmode mode) override {
    return translated([&] { return FileSystemWrapper::reopenTempFileByName(name, mode); });
  }

protected:
  void close(InnerFile& file) override {
    translated([&] { file.close(); });
  }
  int read(InnerFile& file, void* buffer, int size) override {
    return translated([&] { return file.read(buffer, size); });
  }
  void write(InnerFile& file, const void* buffer, int size) override {
    translated([&] { file.write(buffer, size); });
  }
  void seek(InnerFile& file, long long offset, int whence) override {
    translated([&] { file.seek(offset, whence); });
  }
  long long tell(InnerFile& file) override {
    return translated([&] { return file.tell(); });
  }
  void flush(InnerFile& file) override {
    translated([&] { file.flush(); });
  }
  void truncate(InnerFile& file, long long size) override {
    translated([&] { file.truncate(size); });
  }

private:
  template <class Operation>
  auto translated(Operation&& operation) -> decltype(operation()) {
    try {
      return operation();
    } catch (pkg::PackageIOException<>&) {
      if (fThrow != nullptr) fThrow();
      throw;
    }
  }

  Throw fThrow;
};

template <class Action>
std::string raised(Action&& action) {
  try {
    action();
  } catch (pkg::PackageIOException<>& e) {
    return "IO " + std::to_string(e.getErrorCode());
  } catch (pkg::PackageException<>& e) {
    return std::to_string(e.getErrorCode());
  } catch (const DiskGone&) {
    return "gone";
  } catch (const DocumentCutShort&) {
    return "cut short";
  }
  return "";
}

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

// One run of a way: its files, and what the library did.
class Trial {
public:
  Trial(const Way& way, Failure failure, int n, FailingFileSystem::Span span,
        TranslatingFileSystem::Throw thrower)
      : fWay(way),
        failing(memory, n, {failure}, span),
        translating(failing, thrower),
        recording(translating),
        run(recording, "") {
    if (!way.old.empty()) memory.put("old", way.old);
  }

  // Goes the way to its end or to the first exception.
  void go() {
    what = raised([&] {
      fWay.open(run);
      endPhase();
      fWay.change(run);
      endPhase();
      fWay.save(run);
      endPhase();
      run.streams.clear();
      run.package->close();
    });
    if (what.empty()) atEnd = memory.snapshot();
    trace.calls = recording.calls();
  }

private:
  void endPhase() { trace.phases.push_back(recording.calls().size()); }

  const Way& fWay;

public:
  support::MemoryFileSystem memory;
  FailingFileSystem failing;
  TranslatingFileSystem translating;
  support::RecordingFileSystem recording;
  Run run;
  std::string what;  // that came out
  std::map<std::string, Bytes> atEnd;
  Trace trace;
};

std::string savedFile(const Way& way) {
  return way.output == Output::PackageFile ? "old" : "new";
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

  // Nothing was told; then at most one entry is shorter than it should be.
  void checkSwallowed(const Trial& trial) {
    if (!trial.what.empty() || GetParam().output == Output::None) return;
    const Listing all = listed(trial.atEnd.at(savedFile(GetParam())));
    std::string cut;
    for (const auto& [name, content] : GetParam().saved) {
      const auto entry = all.find(name);
      ASSERT_NE(entry, all.end()) << name;
      if (entry->second.content == content) continue;
      cut += name + " ";
      EXPECT_EQ(entry->second.content, content.substr(0, entry->second.content.size())) << name;
    }
    EXPECT_EQ(cut.find(' '), cut.empty() ? Bytes::npos : cut.size() - 1) << cut;
    EXPECT_EQ(all.size(), GetParam().saved.size());
  }

  // What a client can do after call `index` has failed.
  void checkRecovery(Trial& trial, std::size_t index) {
    const Package& package = trial.run.package;
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
    const Package& package = trial.run.package;
    EXPECT_EQ(raised([&] { package->cancelUpdate(); }), "37");
    EXPECT_EQ(raised([&] { package->endUpdate(); }), "37");
    if (GetParam().output != Output::OtherFile) return;
    checkUnchanged(trial);
    EXPECT_EQ(raised([&] { package->beginUpdate(); }), "");
    EXPECT_EQ(raised([&] { package->endUpdate(); }), "");
    checkHolds(trial.memory.bytes("new"), unchangedEntries());
  }

  // Every entry that nobody changed is there, and can be saved elsewhere.
  void checkUsable(Trial& trial) {
    if (GetParam().output == Output::NewPackage || GetParam().old.empty()) return;
    checkUnchanged(trial);
    trial.run.streams.clear();
    EXPECT_EQ(
        raised([&] { trial.run.package->saveAs(trial.run.path("rescued"), kIn | kOut | kTrunc); }),
        "");
    checkHolds(trial.memory.bytes("rescued"), unchangedEntries());
  }

  void checkUnchanged(Trial& trial) {
    for (const auto& [name, content] : unchangedEntries()) {
      if (name.back() == '/') continue;
      // A copy whose filling failed is not what a new stream reads.
      EXPECT_EQ(trial.run.read(name), content) << name;
    }
  }

  static void checkHolds(const Bytes& file, const std::map<std::string, Bytes>& entries) {
    Listing all;
    ASSERT_NO_THROW(all = listed(file));
    for (const auto& [name, content] : entries) {
      EXPECT_TRUE(all[name].sound) << name;
      EXPECT_EQ(all[name].content, content) << name;
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

  // Whatever happened: with the package gone nothing is left of it, and the old file is as it was
  // where the output is another.
  void checkNothingLeft(Trial& trial) {
    trial.run.drop();
    EXPECT_EQ(trial.recording.filesAlive(), 0);
    EXPECT_EQ(trial.memory.temporaryFiles(), 0);
    if (!GetParam().old.empty() && GetParam().output != Output::PackageFile) {
      EXPECT_EQ(trial.memory.bytes("old"), GetParam().old);
    }
  }

  void report(const std::string& what, const std::string& counts) {
    std::cout << GetParam().name << ", " << what << ": " << counts << "\n";
    RecordProperty(what, counts);
  }

  std::unique_ptr<Trial> fReference;
};

TEST_P(FaultPoints, WithoutAFaultTheWayEndsAsItShould) {
  EXPECT_EQ(fReference->what, "");
  if (GetParam().output != Output::None) {
    const Listing all = listed(fReference->atEnd.at(savedFile(GetParam())));
    checkHolds(fReference->atEnd.at(savedFile(GetParam())), GetParam().saved);
    EXPECT_EQ(all.size(), GetParam().saved.size());
  }
  checkNothingLeft(*fReference);
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
      checkNothingLeft(*one);
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
      checkNothingLeft(*one);
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
    checkNothingLeft(*one);
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
      if (one->run.package) raised([&] { one->run.package->cancelUpdate(); });
      checkNothingLeft(*one);
      if (HasFailure()) return;
    }
  }
  report("points of a disk that stays away", std::to_string(points));
}

INSTANTIATE_TEST_SUITE_P(Ways, FaultPoints, testing::ValuesIn(ways()),
                         [](const auto& suite) { return std::string(suite.param.name); });

}  // namespace

}  // namespace failures
