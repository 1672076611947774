#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "HostSession.h"
#include "QFL/Alert.h"
#include "qvacore/Localizer.h"
#include "support/Allocations.h"
#include "support/TempDir.h"

// A whole session of a host with the built plug-in, in which something fails.

// NOLINTBEGIN(bugprone-reserved-identifier): of the leak sanitizer, where there is one
extern "C" [[gnu::weak]] void __lsan_disable();
extern "C" [[gnu::weak]] void __lsan_enable();
// NOLINTEND(bugprone-reserved-identifier)

namespace sessionfaults {

namespace fs = std::filesystem;

// What a host may be answered.
inline const std::map<int, std::set<std::int32_t>> kResults = {
    {0, {400}},       {1, {0}},
    {8, {0}},         {9, {0, 3}},
    {14, {0, 3}},     {25, {0, 1, 38, -1, 3}},
    {37, {0, 31, 3}}, {39, {0, 31, 99, 3}}};

inline std::ptrdiff_t filesIn(const fs::path& folder) {
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

constexpr Document kDocuments[] = {{"Stored", false, false},
                                   {"Deflated", true, false},
                                   {"StoredAndReopened", false, true},
                                   {"DeflatedAndReopened", true, true}};
inline std::string nameOf(const testing::TestParamInfo<Document>& tested) {
  return tested.param.name;
}

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
    expectWorked(fresh);
  }
  static void expectWorked(const HostSession& one) {
    for (const auto& answer : one) {
      const bool isBehind = answer.selector == 25 && answer.result == 1;  // the position
      EXPECT_TRUE(isBehind || answer.result == (answer.selector == 0 ? 400 : 0))
          << answer.selector << " gave " << answer.result;
    }
    EXPECT_TRUE(one.servedRight());
    EXPECT_TRUE(one.recordsRight());
    EXPECT_STREQ(one.format().name, "Quillon Sound Document");
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
    // A document that is closed then cannot name its temporary file to have it deleted.
    if (nothingToBeHad && temporaryFiles() > 0) dropTemporaryFiles(1);
    EXPECT_EQ(temporaryFiles(), 0);
    return count;
  }

  static void dropTemporaryFiles(std::ptrdiff_t count) {
    EXPECT_EQ(temporaryFiles(), count);
    fs::remove_all(temporaryFolder());
    fs::create_directory(temporaryFolder());
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

}  // namespace sessionfaults
