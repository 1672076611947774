#include <array>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <map>
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

enum class Came { Nothing, BadAlloc, Code29, Other };
enum class Phase { BeforeSaving, Saving, Closing };

// The failing allocations of which nothing comes out: so many, and no others.
struct Swallowed {
  int quiet = 0;  // asked for without an exception, by an update that begins: nothing is amiss
  int reads = 0;  // of an istream whose end is all that its reader asks for
  int names = 0;  // of temporary files that go with their entries, and stay

  friend bool operator==(const Swallowed& a, const Swallowed& b) {
    return a.quiet == b.quiet && a.reads == b.reads && a.names == b.names;
  }
  friend std::ostream& operator<<(std::ostream& out, const Swallowed& all) {
    return out << "quiet " << all.quiet << ", reads " << all.reads << ", names " << all.names;
  }
};

Swallowed expectedOf(const Way& way) {
  static const std::map<std::string, Swallowed> all = {
      {"SaveAs", {1, 1, 0}},  // inflate's window, for a copy of old data
      {"BeginIntoAnotherFileWriteEnd", {1, 0, 0}},
      {"BeginWriteEndOnANewPackage", {1, 0, 0}},
      {"UnsafeInPlace", {1, 0, 0}},
      {"CreateConformingPackage", {1, 0, 0}},
      {"RepairAtOpenAndSaveAs", {1, 2, 0}},  // inflate's window, and the text of the type
      {"SpoolAndDrop", {0, 0, 0}},
      {"PropertiesReadAndWritten", {1, 1, 0}},  // inflate's window, when the document is there
      {"SeekInADeflatedEntry", {0, 1, 0}},      // inflate's window, for the plain copy
      {"BeginInTheOldFileWriteEnd", {1, 0, 0}},
      {"BeginWriteCancel", {1, 0, 2}},  // the name as it is, and as the system takes it
      {"SecondUpdate", {2, 0, 0}},
      {"WalkAllEntries", {0, 0, 0}},
      {"AcceptAndReadRaw", {0, 0, 0}}};
  return all.at(way.name);
}

class Allocations : public testing::TestWithParam<Way> {
protected:
  // Goes the way to its end or to the first exception, with a shortage at the n-th allocation.
  Came go(Client& client, long n, allocations::Shortage shortage) {
    Came came = Came::Nothing;
    fCode = 0;
    fPhase = Phase::BeforeSaving;
    allocations::fail(n, shortage);
    try {
      GetParam().open(client);
      GetParam().change(client);
      fPhase = Phase::Saving;
      GetParam().save(client);
      fPhase = Phase::Closing;
      client.streams.clear();
      client.package->close();
    } catch (const std::bad_alloc&) {
      came = Came::BadAlloc;
    } catch (pkg::PackageException<>& e) {
      fCode = e.getErrorCode();
      const bool io = dynamic_cast<pkg::PackageIOException<>*>(&e) != nullptr;
      came = io && fCode == 29 ? Came::Code29 : Came::Other;
    } catch (const DocumentCutShort&) {
      came = Came::Other;
    }
    fCount = allocations::endShortage();
    return came;
  }

  std::string path(const std::string& name) const { return (fFolder / name).string(); }

  void putOld() {
    if (!GetParam().old.empty()) fFolder.write("old", GetParam().old);
  }

  // An entry may end early where reading it ended early, and nowhere else.
  void checkSaved(bool mayBeCut) {
    if (GetParam().output == Output::None || GetParam().output == Output::Abandoned) return;
    const bool inPlace = GetParam().output == Output::PackageFile;
    const Bytes saved = fFolder.read(inPlace ? "old" : "new");
    expectAtMostOneCutShort(saved, GetParam().saved);
    if (!mayBeCut) expectHolds(saved, GetParam().saved);
  }

  // The package gives the update up, has its old entries, and can be saved elsewhere.
  void checkRecovery(Client& client) {
    if (!client.package) return;
    if (fPhase == Phase::Closing) {
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
    const bool isOnce = shortage == allocations::Shortage::Once;
    std::array<int, 4> outcomes{};
    Swallowed swallowed;
    int unnamed = 0;
    long n = 1;
    for (;; ++n) {
      SCOPED_TRACE("allocation " + std::to_string(n));
      putOld();
      const long live = allocations::liveBlocks();
      Came came = Came::Nothing;
      {
        Client client(*pkg::BasePkgFileSystem<>::getInstance(), path(""));
        came = go(client, n, shortage);
        if (came != Came::Nothing && isOnce) checkRecovery(client);
      }
      const int stayed = dropWhatCouldNotBeNamed();
      const long left = allocations::liveBlocks() - live;
      EXPECT_EQ(left, 0);
      checkNothingLeft();
      if (fCount < n) checkSaved(false);
      if (fCount < n || HasFailure()) break;
      checkOutcome(came);
      if (came == Came::Nothing) countSwallowed(stayed, swallowed);
      ++outcomes[static_cast<std::size_t>(came)];
      unnamed += stayed;
      if (HasFailure()) break;
    }
    EXPECT_GT(n, 1);
    EXPECT_EQ(swallowed, isOnce ? expectedOf(GetParam()) : Swallowed());
    if (isOnce) {
      EXPECT_EQ(unnamed, swallowed.names);
    }
    const auto count = [&](Came came) {
      return std::to_string(outcomes[static_cast<std::size_t>(came)]);
    };
    const std::string counts = std::to_string(n - 1) + " allocations; bad_alloc " +
                               count(Came::BadAlloc) + ", as 29 " + count(Came::Code29) +
                               ", swallowed " + count(Came::Nothing) + ", temporary files left " +
                               std::to_string(unnamed);
    std::cout << GetParam().name << ", " << what << ": " << counts << "\n";
    RecordProperty(what, counts);
  }

  // As 29 where the output takes a copy, which a save makes.
  void checkOutcome(Came came) const {
    EXPECT_NE(came, Came::Other) << fCode;
    if (came == Came::Code29) {
      EXPECT_EQ(fPhase, Phase::Saving);
    }
  }
  void countSwallowed(int stayed, Swallowed& all) {
    const bool isRead = stayed == 0 && !allocations::failedQuietly();
    ++(isRead ? all.reads : stayed == 0 ? all.quiet : all.names);
    checkSaved(isRead);
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
  Phase fPhase = Phase::BeforeSaving;
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
