#include <cstdint>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <dlfcn.h>

#include <gtest/gtest.h>

#include "SessionFaultsFixture.h"

// A whole session of a host with the built plug-in, in which one thing after the other fails: each
// allocation, each text, each alert.

namespace {

using namespace sessionfaults;
using allocations::Shortage;

TEST_P(SessionFaults, AllocationsGiveNumbersOfTheTables) {
  for (const Shortage shortage : {Shortage::Once, Shortage::FromThereOn}) {
    long n = 1;
    for (; !HasFailure(); ++n) {
      SCOPED_TRACE(n);
      const long count =
          runWith([&] { allocations::fail(n, shortage); },
                  [] { return allocations::endShortage(); }, shortage == Shortage::FromThereOn);
      if (count < n) break;
      expectWorks();
    }
    EXPECT_GT(n, 1);
    report(", memory of the importer failed at " + std::to_string(n - 1) + " allocations" +
           (shortage == Shortage::Once ? "" : " and ever after"));
  }
}

// What is made once in a process is made again in each module that is loaded anew.
TEST_P(SessionFaults, AllocationsInAModuleThatWasJustLoadedGiveNumbersOfTheTables) {
  const support::TempDir scratch;
  fs::copy(QSND_BUNDLE, scratch / "Fresh.bundle", fs::copy_options::recursive);
  const std::string module = (scratch / "Fresh.bundle/Contents/Linux/ImporterQSND.so").string();
  long n = 1;
  for (; !HasFailure(); ++n) {
    SCOPED_TRACE(n);
    ASSERT_EQ(dlopen(module.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "it is unloaded";
    const Plugin fresh(module);
    HostSession one = session(fresh);
    alerts = 0;
    const LossesAllowed losses;
    allocations::fail(n);
    one.run();
    const long count = allocations::endShortage();
    check(one);
    expectWorks(fresh);
    EXPECT_EQ(filesIn("/proc/self/fd"), descriptors);
    EXPECT_EQ(temporaryFiles(), 0);
    if (count < n) break;
  }
  EXPECT_GT(n, 1);
  report(", memory of the importer failed at " + std::to_string(n - 1) +
         " allocations, just loaded");
}

// What the host's localizer can do instead of giving a text.
struct BadLookup {
  const char* name;
  void (*raise)();
};
constexpr BadLookup kBadLookups[] = {
    {"a standard exception", [] { throw std::runtime_error("no texts"); }},
    {"bad_alloc", [] { throw std::bad_alloc(); }},
    {"an exception of its own", [] { throw 17; }}};

TEST_P(SessionFaults, LookupsOfTextsGive3AndTheSessionGoesOn) {
  int points = 0;
  for (const BadLookup& bad : kBadLookups) {
    for (int n = 1; !HasFailure(); ++n) {
      SCOPED_TRACE(bad.name + (" " + std::to_string(n)));
      int lookups = 0;
      qvacore::config::Localizer::Get().SetLookup([&](const std::string&) -> std::u16string {
        if (++lookups == n) bad.raise();
        return u"text";
      });
      HostSession one = session();
      alerts = 0;
      one.run();
      qvacore::config::Localizer::Get().SetLookup({});
      if (lookups < n) break;
      ++points;
      EXPECT_EQ(alerts, 1);
      for (const auto& [selector, result] : one) {
        const bool isBehind = selector == 25 && result == 1;
        EXPECT_EQ(result, selector == 14 ? 3 : selector == 0 ? 400 : isBehind ? 1 : 0) << selector;
      }
      EXPECT_TRUE(one.servedRight());
      expectWorks();
    }
  }
  EXPECT_EQ(points, 6) << "the two names";
  report(", texts of the importer failed at " + std::to_string(points) + " calls");
}

// The text of an alert cannot be made, either.
TEST_P(SessionFaults, AlertsWithoutMemoryForTheirTextGive3) {
  long n = 1;
  for (; !HasFailure(); ++n) {
    SCOPED_TRACE(n);
    qvacore::config::Localizer::Get().SetLookup([n](const std::string&) -> std::u16string {
      allocations::fail(n);
      throw 17;
    });
    imIndFormatRec format{};
    alerts = 0;
    const std::int32_t result = plugin(14, nullptr, &format);
    const long count = allocations::endShortage();
    EXPECT_EQ(result, 3);
    EXPECT_EQ(alerts, 1);
    if (count < n) break;
  }
  EXPECT_GT(n, 1);
}

// Where an alert decides, and the process ends: everything in a session that makes one.
class SessionAlertsDeathTest : public SessionFaults {
protected:
  // The allocations without which the session alarms the host.
  std::vector<long> alarming() {
    std::vector<long> all;
    for (long n = 1;; ++n) {
      const long count =
          runWith([&] { allocations::fail(n); }, [] { return allocations::endShortage(); });
      if (count < n) return all;
      if (alerts > 0) all.push_back(n);
    }
  }
};

TEST_P(SessionAlertsDeathTest, OneThatIsThrownOnOrRaisesItselfEndsTheProcess) {
  const std::vector<long> points = alarming();
  EXPECT_GE(points.size(), 2u) << "an instance, and its path";
  const QFL::UnhandledExceptionAlert ends[] = {
      [](bool&, const std::string&) { return true; },
      [](bool&, const std::string&) -> bool { throw std::runtime_error("of the alert"); }};
  for (const auto& alert : ends) {
    for (const long n : points) {
      SCOPED_TRACE(n);
      QFL::SetUnhandledExceptionAlert(alert);
      EXPECT_DEATH(
          {
            HostSession one = session();
            allocations::fail(n);
            one.run();
          },
          "terminate");
    }
  }
  report(", alerts of the importer ended the process at " + std::to_string(2 * points.size()) +
         " points");
}

// The three kinds are silenced one by one.
TEST_P(SessionFaults, AlertsThatAreSilencedLeaveTheNumbersAsTheyAre) {
  support::TempDir scratch;
  fs::copy(QSND_BUNDLE, scratch / "Silent.bundle", fs::copy_options::recursive);
  const Plugin silent((scratch / "Silent.bundle/Contents/Linux/ImporterQSND.so").string());
  QFL::SetUnhandledExceptionAlert([](bool& disabled, const std::string&) {
    ++alerts;
    disabled = true;
    return false;
  });
  alerts = 0;
  for (long n = 1; !HasFailure(); ++n) {
    SCOPED_TRACE(n);
    HostSession one = session(silent);
    const LossesAllowed losses;
    allocations::fail(n);
    one.run();
    const long count = allocations::endShortage();
    for (const auto& [selector, result] : one)
      EXPECT_EQ(kResults.at(selector).count(result), 1u) << selector << " gave " << result;
    if (count < n) break;
  }
  EXPECT_EQ(alerts, 2) << "of an instance that cannot be made, and of a standard exception";
}

INSTANTIATE_TEST_SUITE_P(Host, SessionFaults, testing::ValuesIn(kDocuments), nameOf);
INSTANTIATE_TEST_SUITE_P(Host, SessionAlertsDeathTest, testing::ValuesIn(kDocuments), nameOf);

}  // namespace
