#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <dlfcn.h>

#include <gtest/gtest.h>

#include "FailingCalls.h"
#include "HostSession.h"
#include "QFL/Alert.h"
#include "qvacore/Localizer.h"
#include "support/Allocations.h"
#include "support/TempDir.h"
#include "support/ZlibFaults.h"

// A whole session of a host with the built plug-in, in which one thing after the other fails: each
// allocation, each call for a file or of zlib, each text, each alert.

// NOLINTBEGIN(bugprone-reserved-identifier): of the leak sanitizer, where there is one
extern "C" [[gnu::weak]] void __lsan_disable();
extern "C" [[gnu::weak]] void __lsan_enable();
// NOLINTEND(bugprone-reserved-identifier)

namespace {

namespace fs = std::filesystem;
using allocations::Shortage;

// What a host may be answered.
const std::map<int, std::set<std::int32_t>> kResults = {{0, {400}},       {1, {0}},
                                                        {8, {0}},         {9, {0, 3}},
                                                        {14, {0, 3}},     {25, {0, 1, 38, -1, 3}},
                                                        {37, {0, 31, 3}}, {39, {0, 31, 99, 3}}};

std::ptrdiff_t filesIn(const fs::path& folder) {
  return fs::exists(folder) ? std::distance(fs::directory_iterator(folder), {}) : 0;
}

// What is allocated while this lives is none of the leak sanitizer's: an instance that an exception
// in selector 39 takes from the host is lost for good. The tests count blocks instead.
struct LossesAllowed {
  LossesAllowed() {
    if (__lsan_disable != nullptr) __lsan_disable();
  }
  ~LossesAllowed() {
    if (__lsan_enable != nullptr) __lsan_enable();
  }
};

struct Document {
  const char* name;
  bool deflated;
  bool reopens;  // and serves again after quiet
};

class SessionFaults : public testing::TestWithParam<Document> {
protected:
  SessionFaults() {
    if (GetParam().deflated) {
      makeDeflatedDocument(folder / "d.qsnd", HostSession::wave());
    } else {
      folder.write("d.qsnd", storedDocument(HostSession::wave()));
    }
    alerts = 0;
    // Nothing that allocates: it is called where nothing may be had.
    QFL::SetUnhandledExceptionAlert([](bool&, const std::string&) {
      ++alerts;
      return false;
    });
  }
  ~SessionFaults() override {
    QFL::SetUnhandledExceptionAlert({});
    qvacore::config::Localizer::Get().SetLookup({});
  }

  void SetUp() override {
    expectWorks();
    descriptors = filesIn("/proc/self/fd");
  }

  HostSession session() const { return session(plugin); }
  HostSession session(const Plugin& entry) const {
    return HostSession(entry, (folder / "d.qsnd").string(), GetParam().reopens);
  }

  void expectWorks() const { expectWorks(plugin); }
  void expectWorks(const Plugin& entry) const {
    HostSession fresh = session(entry);
    fresh.run();
    for (const auto& answer : fresh) {
      const bool isBehind = answer.selector == 25 && answer.result == 1;  // the position
      EXPECT_TRUE(isBehind || answer.result == (answer.selector == 0 ? 400 : 0))
          << answer.selector << " gave " << answer.result;
    }
    EXPECT_TRUE(fresh.servedRight());
    EXPECT_TRUE(fresh.recordsRight());
    EXPECT_STREQ(fresh.format().name, "Quillon Sound Document");
  }

  // One session with something that fails; returns how many things could have.
  template <class Begin, class End>
  long runWith(Begin&& begin, End&& end, bool nothingToBeHad = false) {
    const long blocks = allocations::liveBlocks();
    long count = 0;
    int lost = 0;
    {
      HostSession one = session();
      alerts = 0;
      const LossesAllowed losses;
      begin();
      one.run();
      count = end();
      check(one);
      lost = one.instancesLost();
    }
    if (lost == 0) {
      EXPECT_EQ(allocations::liveBlocks(), blocks);
    } else {
      EXPECT_GT(allocations::liveBlocks(), blocks);
    }
    EXPECT_EQ(filesIn("/proc/self/fd"), descriptors);
    if (nothingToBeHad && temporaryFiles() > 0) dropWhatCouldNotBeNamed();
    EXPECT_EQ(temporaryFiles(), 0);
    return count;
  }

  // A document that is closed while there is no memory at all cannot name its temporary file to
  // have it deleted.
  static void dropWhatCouldNotBeNamed() {
    EXPECT_EQ(temporaryFiles(), 1);
    for (const auto& file : fs::directory_iterator(temporaryFolder()))
      fs::remove(file.path());
  }

  void check(const HostSession& one) {
    for (const auto& [selector, result] : one) {
      EXPECT_EQ(kResults.at(selector).count(result), 1u) << selector << " gave " << result;
      const bool isAlarming = result == 99 || (result == 3 && selector != 9);
      EXPECT_TRUE(!isAlarming || alerts > 0) << selector;
    }
    EXPECT_TRUE(one.servedRight());
    EXPECT_TRUE(one.recordsRight());
  }

  static fs::path temporaryFolder() {
    return fs::path(std::getenv("XDG_CACHE_HOME")) / "TemporaryItems";
  }
  static std::ptrdiff_t temporaryFiles() { return filesIn(temporaryFolder()); }

  void report(const std::string& counts) const { std::cout << (GetParam().name + counts) << "\n"; }

  inline static int alerts = 0;
  support::TempDir folder;
  Plugin plugin;
  std::ptrdiff_t descriptors = 0;
};

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

// Each call of a kind fails, alone and with all that follow. Returns how many there are.
class SessionCallFaults : public SessionFaults {
protected:
  template <class Fail>
  int sweep(const char* name, Fail&& fail, int (*end)() noexcept) {
    int calls = 0;
    for (const bool forGood : {false, true}) {
      for (int n = 1; !HasFailure(); ++n) {
        SCOPED_TRACE(name + (" " + std::to_string(n)));
        const long count = runWith([&] { fail(n, forGood); }, [&] { return long{end()}; });
        if (count < n) break;
        calls = n;
        expectWorks();
      }
    }
    return calls;
  }
};

TEST_P(SessionCallFaults, OfFilesGiveNumbersOfTheTables) {
  using failingcalls::Call;
  const std::pair<const char*, Call> kinds[] = {
      {"open", Call::Open},   {"create temporary", Call::Temporary},
      {"read", Call::Read},   {"short read", Call::ShortRead},
      {"write", Call::Write}, {"seek", Call::Seek},
      {"tell", Call::Tell},   {"flush", Call::Flush},
      {"close", Call::Close}};
  std::string counts;
  int together = 0;
  for (const auto& [name, call] : kinds) {
    const auto fail = [kind = call](int n, bool forGood) {
      using failingcalls::Span;
      failingcalls::fail(kind, n, forGood ? Span::FromThereOn : Span::Once);
    };
    const int calls = sweep(name, fail, &failingcalls::endFailing);
    counts += (counts.empty() ? "" : ", ") + std::string(name) + " " + std::to_string(calls);
    together += calls;
  }
  EXPECT_GT(together, 0);
  report(", files of the importer failed at " + std::to_string(together) + " calls: " + counts);
}

TEST_P(SessionCallFaults, OfZlibGiveNumbersOfTheTables) {
  using zlibfaults::Function;
  const std::pair<const char*, Function> functions[] = {{"inflateInit2", Function::InflateInit},
                                                        {"inflate", Function::Inflate},
                                                        {"inflateEnd", Function::InflateEnd}};
  int together = 0;
  for (const auto& [name, function] : functions) {
    const auto fail = [which = function](int n, bool forGood) {
      using zlibfaults::Span;
      zlibfaults::fail(which, n, forGood ? Span::FromThereOn : Span::Once);
    };
    together += sweep(name, fail, &zlibfaults::endFailing);
  }
  EXPECT_EQ(together > 0, GetParam().deflated);
  report(", zlib of the importer failed at " + std::to_string(together) + " calls");
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

constexpr Document kDocuments[] = {{"Stored", false, false},
                                   {"Deflated", true, false},
                                   {"StoredAndReopened", false, true},
                                   {"DeflatedAndReopened", true, true}};
const auto nameOf = [](const auto& suite) { return std::string(suite.param.name); };
INSTANTIATE_TEST_SUITE_P(Host, SessionFaults, testing::ValuesIn(kDocuments), nameOf);
INSTANTIATE_TEST_SUITE_P(Host, SessionAlertsDeathTest, testing::ValuesIn(kDocuments), nameOf);
INSTANTIATE_TEST_SUITE_P(Host, SessionCallFaults, testing::ValuesIn(kDocuments), nameOf);

}  // namespace
