#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <utility>

#include <dlfcn.h>

#include <gtest/gtest.h>

#include "FailingCalls.h"
#include "SessionFaultsFixture.h"
#include "support/ZlibFaults.h"

// A whole session of a host with the built plug-in, in which one call after the other fails, for a
// file, for the folder of temporary files or of zlib.

namespace {

using namespace sessionfaults;
using failingcalls::Call;
using failingcalls::Span;

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

// Seeking in deflated audio takes a temporary copy.
TEST_P(SessionCallFaults, OfFilesGiveNumbersOfTheTables) {
  struct Kind {
    const char* name;
    Call call;
    bool ofCopies = false;
  };
  const Kind kinds[] = {{"open", Call::Open},         {"create temporary", Call::Temporary, true},
                        {"read", Call::Read},         {"short read", Call::ShortRead},
                        {"write", Call::Write, true}, {"seek", Call::Seek},
                        {"tell", Call::Tell},         {"flush", Call::Flush},
                        {"close", Call::Close}};
  std::string counts;
  int together = 0;
  for (const Kind& kind : kinds) {
    const auto fail = [&kind](int n, bool forGood) {
      failingcalls::fail(kind.call, n, forGood ? Span::FromThereOn : Span::Once);
    };
    const int calls = sweep(kind.name, fail, &failingcalls::endFailing);
    EXPECT_EQ(calls > 0, GetParam().deflated || !kind.ofCopies) << kind.name;
    counts += (counts.empty() ? "" : ", ") + std::string(kind.name) + " " + std::to_string(calls);
    together += calls;
  }
  report(", files of the importer failed at " + std::to_string(together) + " calls: " + counts);
}

// The copy stays; nobody is told.
TEST_P(SessionCallFaults, OfTheRemovalOfACopyChangeNoNumber) {
  int points = 0;
  for (const Span span : {Span::Once, Span::FromThereOn}) {
    for (int n = 1; !HasFailure(); ++n, ++points) {
      SCOPED_TRACE(n);
      HostSession one = session();
      alerts = 0;
      failingcalls::fail(Call::Remove, n, span);
      one.run();
      const int count = failingcalls::endFailing();
      expectWorked(one);
      EXPECT_EQ(alerts, 0);
      EXPECT_EQ(filesIn("/proc/self/fd"), descriptors);
      const int failed = count < n ? 0 : span == Span::Once ? 1 : count - n + 1;
      dropTemporaryFiles(failed);
      if (count < n) break;
    }
  }
  EXPECT_EQ(points > 0, GetParam().deflated);
  report(", files of the importer failed at " + std::to_string(points) + " calls: remove");
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
    const int calls = sweep(name, fail, &zlibfaults::endFailing);
    EXPECT_EQ(calls > 0, GetParam().deflated) << name;
    together += calls;
  }
  report(", zlib of the importer failed at " + std::to_string(together) + " calls");
}

// The folder for temporary files is looked for once in a process, and so in each module that is
// loaded anew.
class SessionFolderFaults : public SessionFaults {
protected:
  SessionFolderFaults() {
    fs::copy(QSND_BUNDLE, fScratch / "Fresh.bundle", fs::copy_options::recursive);
  }
  ~SessionFolderFaults() override {
    set("XDG_CACHE_HOME", fCache);
    set("HOME", fHome);
  }

  static void set(const char* name, const std::string& value) {
    if (value.empty()) {
      unsetenv(name);
    } else {
      setenv(name, value.c_str(), 1);
    }
  }
  static std::string valueOf(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
  }

  // `hasNone`: the n-th call leaves it without the folder. Returns how many calls there were.
  int runJustLoaded(Call call, int n, Span span, bool hasNone) {
    const std::string module = (fScratch / "Fresh.bundle/Contents/Linux/ImporterQSND.so").string();
    EXPECT_EQ(dlopen(module.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "it is unloaded";
    const Plugin fresh(module);
    HostSession one = session(fresh);
    alerts = 0;
    failingcalls::fail(call, n, span);
    one.run();
    const int count = failingcalls::endFailing();
    EXPECT_EQ(alerts, 0);
    if (count >= n && hasNone && GetParam().deflated) {
      expectServedTheFirstBlock(one);
    } else {
      expectWorked(one);
      expectWorks(fresh);
    }
    EXPECT_EQ(filesIn("/proc/self/fd"), descriptors);
    return count;
  }

  // What lies behind it would be read from a copy.
  static void expectServedTheFirstBlock(const HostSession& one) {
    constexpr std::int32_t kServed[] = {0, 0, 0, 38, 38, 1};
    std::size_t reads = 0;
    for (const auto& [selector, result] : one) {
      const std::int32_t other = selector == 0 ? 400 : 0;
      EXPECT_EQ(result, selector == 25 ? kServed[reads++ % std::size(kServed)] : other) << selector;
    }
    EXPECT_GE(reads, std::size(kServed));
    EXPECT_TRUE(one.servedRight());
    EXPECT_TRUE(one.recordsRight());
  }

  support::TempDir fScratch;
  const std::string fCache = valueOf("XDG_CACHE_HOME");
  const std::string fHome = valueOf("HOME");
};

TEST_P(SessionFolderFaults, TakeTheAudioBehindTheFirstBlockFromDeflatedDocuments) {
  set("XDG_CACHE_HOME", (fScratch / "cache").string());
  int points = 0;
  for (const bool isThere : {false, true}) {
    for (const Call call : {Call::Status, Call::MakeFolder}) {
      for (const Span span : {Span::Once, Span::FromThereOn}) {
        int n = 1;
        for (; !HasFailure(); ++n, ++points) {
          SCOPED_TRACE(n);
          fs::remove_all(fScratch / "cache");
          if (isThere) fs::create_directories(temporaryFolder());
          // Where one is there and is not seen, the system says so when it is to be made.
          const bool hasNone = call == Call::MakeFolder || (isThere && span == Span::FromThereOn);
          const int count = runJustLoaded(call, n, span, hasNone);
          EXPECT_EQ(temporaryFiles(), 0);
          if (count < n) break;
        }
        EXPECT_EQ(n > 1, call == Call::Status || !isThere);
      }
    }
  }
  report(", files of the importer failed at " + std::to_string(points) +
         " calls: stat and mkdir of a module just loaded");
}

TEST_P(SessionFolderFaults, OfAUserWhomNobodyKnowsTakeItTheSameWay) {
  set("XDG_CACHE_HOME", "");
  set("HOME", "");
  EXPECT_EQ(runJustLoaded(Call::User, 1, Span::Once, true), 1);
}

INSTANTIATE_TEST_SUITE_P(Host, SessionCallFaults, testing::ValuesIn(kDocuments), nameOf);
INSTANTIATE_TEST_SUITE_P(Host, SessionFolderFaults, testing::ValuesIn(kDocuments), nameOf);

}  // namespace
