#include <iostream>
#include <map>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "failures/Checks.h"
#include "failures/Trial.h"
#include "failures/ZlibExpectation.h"
#include "support/ZlibFaults.h"

// Every way of saving, and of reading, with each call of zlib failing. What must come out of each
// is worked out from the run in which none fails.

namespace failures {

namespace {

using support::FailingFileSystem;
using support::Failure;
using zlibfaults::Function;
using zlibfaults::Span;

struct Called {
  const char* name;
  Function function;
};
constexpr Called kFunctions[] = {{"deflateInit2", Function::DeflateInit},
                                 {"deflate", Function::Deflate},
                                 {"deflate that takes its input", Function::DeflateTaking},
                                 {"deflateEnd", Function::DeflateEnd},
                                 {"inflateInit2", Function::InflateInit},
                                 {"inflate", Function::Inflate},
                                 {"inflateEnd", Function::InflateEnd}};

class ZlibFaults : public testing::TestWithParam<Way> {
protected:
  ZlibFaults() {
    const auto reference = newTrial();
    go(*reference, Function::Deflate, 0, Span::Once);
    EXPECT_EQ(reference->what, "");
    fTrace = fCalls;
  }

  // Goes the way with the n-th call of a function failing; returns how many there were.
  int go(Trial& trial, Function function, int n, Span span) {
    fCalls.clear();
    zlibfaults::note(&fCalls);
    zlibfaults::fail(function, n, span);
    trial.go();
    zlibfaults::note(nullptr);
    return zlibfaults::endFailing();
  }
  static std::unique_ptr<Trial> newTrial() {
    return std::make_unique<Trial>(GetParam(), Failure::Read, 0, FailingFileSystem::Span::Once,
                                   nullptr);
  }

  // What comes out of a trial. Its client was stopped in a call of its own, or was not.
  static std::string told(ZlibEffect effect, const Client& client) {
    switch (effect) {
      case ZlibEffect::NoDeflating:
        return "32";
      case ZlibEffect::NotWritten: {
        const bool isDocument = GetParam().name == std::string("PropertiesReadAndWritten");
        return client.isPutting || isDocument ? "27" : "IO 29";
      }
      case ZlibEffect::NotClosed:
        return "30";
      case ZlibEffect::NotRead:
        return "31";
      case ZlibEffect::Parser:
        return "cut short";
      case ZlibEffect::Cut:
      case ZlibEffect::Harmless:
        break;
    }
    return "";
  }

  // Nothing is amiss in what was saved, but for the entry that was cut.
  static void checkSaved(const Trial& trial, ZlibEffect effect) {
    if (!isSilent(effect) || !saves(GetParam())) return;
    EXPECT_EQ(cutShort(trial.atEnd.at(savedFile(GetParam())), GetParam().saved),
              effect == ZlibEffect::Cut ? 1 : 0);
  }

  // A stream whose call has failed is ended, and asked for nothing else.
  void checkAskedNoMore(std::size_t failed) const {
    const Function function = fCalls.at(failed).function;
    if (function != Function::Deflate && function != Function::Inflate) return;
    const Function end =
        function == Function::Deflate ? Function::DeflateEnd : Function::InflateEnd;
    for (std::size_t at = failed + 1; at < fCalls.size(); ++at) {
      if (fCalls[at].stream != fCalls[failed].stream) continue;
      EXPECT_EQ(fCalls[at].function, end);
      break;
    }
  }

  // The update can be given up, and the package saved elsewhere.
  void checkRecovery(Trial& trial) {
    const Package& package = trial.client.package;
    if (!package || GetParam().old.empty()) return;
    const std::string cancelled = raised([&] { package->cancelUpdate(); });
    EXPECT_TRUE(cancelled.empty() || cancelled == "37") << cancelled;
    trial.client.streams.clear();
    EXPECT_EQ(raised([&] { package->saveAs(trial.client.path("rescued"), kIn | kOut | kTrunc); }),
              "");
    expectHolds(trial.memory.bytes("rescued"), unchangedEntries());
  }

  ZlibTrace fTrace;  // of the run in which none fails
  ZlibTrace fCalls;  // of the last run
};

TEST_P(ZlibFaults, ComeOutAsTheirNumbersAndLeaveNothingBehind) {
  int points = 0;
  std::map<std::string, int> outcomes;
  for (const Called& called : kFunctions) {
    for (int n = 1;; ++n, ++points) {
      SCOPED_TRACE(called.name + (" " + std::to_string(n)));
      const std::size_t failed = callOf(fTrace, called.function, n);
      const auto one = newTrial();
      const int count = go(*one, called.function, n, Span::Once);
      ASSERT_EQ(count < n, failed == fTrace.size());
      if (count < n) break;
      const ZlibEffect effect = zlibEffect(GetParam(), fTrace, failed, called.function);
      EXPECT_EQ(one->what, told(effect, one->client));
      checkSaved(*one, effect);
      checkAskedNoMore(failed);
      ++outcomes[std::string(called.name) + " " + (one->what.empty() ? "swallowed" : one->what)];
      if (!one->what.empty()) checkRecovery(*one);
      expectNothingLeft(GetParam(), *one);
      if (HasFailure()) return;
    }
  }
  std::string counts = ", zlib of the library failed at " + std::to_string(points) + " calls";
  for (const auto& [outcome, count] : outcomes)
    counts += ", " + outcome + ": " + std::to_string(count);
  std::cout << GetParam().name << counts << "\n";
}

TEST_P(ZlibFaults, ThatStayLeaveNothingBehindEither) {
  for (const Called& called : kFunctions) {
    for (int n = 1;; ++n) {
      SCOPED_TRACE(called.name + (" from " + std::to_string(n)));
      const auto one = newTrial();
      if (go(*one, called.function, n, Span::FromThereOn) < n) break;
      const ZlibEffect effect = zlibEffectFromThereOn(
          GetParam(), fTrace, callOf(fTrace, called.function, n), called.function);
      EXPECT_EQ(one->what, told(effect, one->client));
      expectNothingLeft(GetParam(), *one);
      if (HasFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Ways, ZlibFaults, testing::ValuesIn(ways()),
                         [](const auto& suite) { return std::string(suite.param.name); });

}  // namespace

}  // namespace failures
