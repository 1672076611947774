#include <array>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "package/detail/PkgFileSys.h"

#include "failures/Checks.h"
#include "failures/Ways.h"
#include "support/Allocations.h"
#include "support/TempDir.h"

// Every way of saving, with real files, and operator new failing at its first call, its second, and
// so on until the run succeeds.

namespace failures {

namespace {

namespace fs = std::filesystem;

std::ptrdiff_t filesIn(const fs::path& folder) {
  return fs::exists(folder) ? std::distance(fs::directory_iterator(folder), {}) : 0;
}
std::ptrdiff_t openDescriptors() {
  return filesIn("/proc/self/fd");
}
fs::path temporaryFolder() {
  return fs::path(std::getenv("XDG_CACHE_HOME")) / "TemporaryItems";
}
std::ptrdiff_t temporaryFiles() {
  return filesIn(temporaryFolder());
}

enum class Came { Nothing, BadAlloc, Code29, CutShort, Other };

class Allocations : public testing::TestWithParam<Way> {
protected:
  // Goes the way to its end or to the first exception, with a shortage at the n-th allocation.
  Came go(Client& client, long n, allocations::Shortage shortage) {
    Came came = Came::Nothing;
    fCode = 0;
    fIsClosing = false;
    allocations::fail(n, shortage);
    try {
      GetParam().open(client);
      GetParam().change(client);
      GetParam().save(client);
      fIsClosing = true;
      client.streams.clear();
      client.package->close();
    } catch (const std::bad_alloc&) {
      came = Came::BadAlloc;
    } catch (pkg::PackageException<>& e) {
      fCode = e.getErrorCode();
      const bool io = dynamic_cast<pkg::PackageIOException<>*>(&e) != nullptr;
      came = io && fCode == 29 ? Came::Code29 : Came::Other;
    } catch (const DocumentCutShort&) {
      came = Came::CutShort;
    }
    fCount = allocations::endShortage();
    return came;
  }

  std::string path(const std::string& name) const { return (fFolder / name).string(); }

  void putOld() {
    if (!GetParam().old.empty()) fFolder.write("old", GetParam().old);
  }

  void checkSaved() {
    if (GetParam().output == Output::None || GetParam().output == Output::Abandoned) return;
    const bool inPlace = GetParam().output == Output::PackageFile;
    expectAtMostOneCutShort(fFolder.read(inPlace ? "old" : "new"), GetParam().saved);
  }

  // The package gives the update up, has its old entries, and can be saved elsewhere.
  void checkRecovery(Client& client) {
    if (!client.package) return;
    if (fIsClosing) {
      EXPECT_NO_THROW(client.package->close());
      return;
    }
    try {
      client.package->cancelUpdate();
    } catch (pkg::PackageException<>& e) {
      EXPECT_EQ(e.getErrorCode(), 37);
    }
    if (GetParam().old.empty()) return;
    client.streams.clear();
    ASSERT_NO_THROW(client.package->saveAs(path("rescued"), kIn | kOut | kTrunc));
    expectHolds(fFolder.read("rescued"), unchangedEntries());
  }

  void sweep(allocations::Shortage shortage, const std::string& what) {
    std::array<int, 5> outcomes{};
    int unnamed = 0;
    long n = 1;
    for (;; ++n) {
      SCOPED_TRACE("allocation " + std::to_string(n));
      putOld();
      const long live = allocations::liveBlocks();
      bool done = false;
      {
        Client client(*pkg::BasePkgFileSystem<>::getInstance(), path(""));
        const Came came = go(client, n, shortage);
        done = fCount < n;
        if (!done) ++outcomes[static_cast<std::size_t>(came)];
        EXPECT_NE(came, Came::Other) << fCode;
        if (came == Came::Nothing) checkSaved();
        if (came != Came::Nothing && shortage == allocations::Shortage::Once) checkRecovery(client);
      }
      unnamed += dropWhatCouldNotBeNamed();
      const long left = allocations::liveBlocks() - live;
      EXPECT_EQ(left, 0);
      checkNothingLeft();
      if (done || HasFailure()) break;
    }
    if (shortage == allocations::Shortage::Once) {
      EXPECT_EQ(unnamed, GetParam().output == Output::Abandoned ? 2 : 0);
    }
    const auto count = [&](Came came) {
      return std::to_string(outcomes[static_cast<std::size_t>(came)]);
    };
    const std::string counts =
        std::to_string(n - 1) + " allocations; bad_alloc " + count(Came::BadAlloc) + ", as 29 " +
        count(Came::Code29) + ", parser " + count(Came::CutShort) + ", swallowed " +
        count(Came::Nothing) + ", temporary files left " + std::to_string(unnamed);
    std::cout << GetParam().name << ", " << what << ": " << counts << "\n";
    RecordProperty(what, counts);
  }

  // A temporary file that goes with its entry, and for whose name there is no memory then, stays
  // behind. Of one failing allocation that takes an entry which a cancelled update had made.
  static int dropWhatCouldNotBeNamed() {
    const auto left = static_cast<int>(temporaryFiles());
    EXPECT_LE(left, 1);
    if (left == 0) return 0;
    for (const auto& file : fs::directory_iterator(temporaryFolder()))
      fs::remove(file.path());
    return left;
  }

  void checkNothingLeft() {
    EXPECT_EQ(openDescriptors(), fDescriptors);
    EXPECT_EQ(temporaryFiles(), 0);
    if (!GetParam().old.empty() && GetParam().output != Output::PackageFile) {
      EXPECT_EQ(fFolder.read("old"), GetParam().old);
    }
  }

  // Builds what is built once in a process.
  void SetUp() override {
    putOld();
    Client client(*pkg::BasePkgFileSystem<>::getInstance(), path(""));
    ASSERT_EQ(go(client, 0, allocations::Shortage::Once), Came::Nothing);
    client.drop();
    fDescriptors = openDescriptors();
  }

  support::TempDir fFolder;
  std::ptrdiff_t fDescriptors = 0;
  int fCode = 0;
  bool fIsClosing = false;
  long fCount = 0;
};

TEST_P(Allocations, ThatFailOnceComeOutAsBadAllocAndLeaveNothingBehind) {
  sweep(allocations::Shortage::Once, "one allocation fails");
}

TEST_P(Allocations, ThatFailFromThereOnLeaveNothingBehindEither) {
  sweep(allocations::Shortage::FromThereOn, "no memory from there on");
}

INSTANTIATE_TEST_SUITE_P(Ways, Allocations, testing::ValuesIn(ways()),
                         [](const auto& suite) { return std::string(suite.param.name); });

}  // namespace

}  // namespace failures
