#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "failures/Checks.h"
#include "failures/Trial.h"
#include "support/ZlibFaults.h"

// Every way of saving, and of reading, with each call of zlib failing.

namespace failures {

namespace {

using support::FailingFileSystem;
using support::Failure;
using zlibfaults::Function;
using zlibfaults::Span;

// A function of zlib, and what its failure comes out as. The empty text: nothing comes out, and an
// entry is cut short, or nothing is amiss. Swallowed is what fails behind the last byte of an entry
// that is written, in a copy that seeking or the reading of a type needs, and the end of a stream
// that is let go without close().
struct Called {
  const char* name;
  Function function;
  std::set<std::string> outcomes;
};
const std::vector<Called>& functions() {
  static const std::vector<Called> all = {
      {"deflateInit2", Function::DeflateInit, {"32"}},
      {"deflate", Function::Deflate, {"27", "30", "IO 29", ""}},
      {"deflate that takes its input", Function::DeflateTaking, {"27", "30", "IO 29", ""}},
      {"deflateEnd", Function::DeflateEnd, {"30", ""}},
      {"inflateInit2", Function::InflateInit, {"31", "cut short"}},
      {"inflate", Function::Inflate, {"31", "cut short", ""}},
      {"inflateEnd", Function::InflateEnd, {"30", ""}}};
  return all;
}

class ZlibFaults : public testing::TestWithParam<Way> {
protected:
  // Goes the way with the n-th call of a function failing; returns how many there were.
  int go(Trial& trial, Function function, int n, Span span) {
    zlibfaults::fail(function, n, span);
    trial.go();
    return zlibfaults::endFailing();
  }
  static std::unique_ptr<Trial> newTrial() {
    return std::make_unique<Trial>(GetParam(), Failure::Read, 0, FailingFileSystem::Span::Once,
                                   nullptr);
  }

  void check(const Called& called, const Trial& trial) {
    EXPECT_EQ(called.outcomes.count(trial.what), 1u) << "'" << trial.what << "'";
    if (trial.what.empty() && saves(GetParam())) {
      expectAtMostOneCutShort(trial.atEnd.at(savedFile(GetParam())), GetParam().saved);
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
};

TEST_P(ZlibFaults, ComeOutAsTheirNumbersAndLeaveNothingBehind) {
  int points = 0;
  std::map<std::string, int> outcomes;
  for (const Called& called : functions()) {
    for (int n = 1;; ++n, ++points) {
      SCOPED_TRACE(called.name + (" " + std::to_string(n)));
      const auto one = newTrial();
      if (go(*one, called.function, n, Span::Once) < n) break;
      check(called, *one);
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
  for (const Called& called : functions()) {
    for (int n = 1;; ++n) {
      SCOPED_TRACE(called.name + (" from " + std::to_string(n)));
      const auto one = newTrial();
      if (go(*one, called.function, n, Span::FromThereOn) < n) break;
      EXPECT_EQ(called.outcomes.count(one->what), 1u) << "'" << one->what << "'";
      expectNothingLeft(GetParam(), *one);
      if (HasFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Ways, ZlibFaults, testing::ValuesIn(ways()),
                         [](const auto& suite) { return std::string(suite.param.name); });

}  // namespace

}  // namespace failures
