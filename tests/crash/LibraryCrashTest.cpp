#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "crash/JournalFileSystem.h"
#include "failures/Listing.h"
#include "failures/Ways.h"

// What each way of saving leaves behind when the system stops in the middle: docs/updating.md
// promises it. A program that is killed leaves what it wrote, in order; a power cut may keep any
// part of what was not synced, in any order. QCF_LONG_TESTS=1 tries a hundred power cuts at each
// operation.

namespace crash {

namespace {

using failures::Bytes;
using failures::Client;
using failures::kIn;
using failures::kOut;
using failures::Output;
using failures::Way;

// What the library finds in a file: each entry's bytes, or none where reading it failed.
using Found = std::map<std::string, std::optional<Bytes>>;

std::optional<Found> found(const Bytes& file) {
  support::MemoryFileSystem memory;
  memory.put("left", file);
  Client client(memory, "");
  Found all;
  try {
    client.open(kIn, "left");
    boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> walk;
    for (client.package->initIterator(walk, {}, {}); walk->isValid(); walk->increment())
      all[walk->dereference()->getName()];
  } catch (pkg::PackageException<>&) {
    return std::nullopt;
  }
  for (auto& [name, content] : all) {
    try {
      content = !name.empty() && name.back() == '/' ? "" : client.read(name);
    } catch (pkg::PackageException<>&) {
    } catch (const std::ios_base::failure&) {
    }
  }
  return all;
}

enum class Left { Absent, Old, New, NoPackage, Mixture };

struct Counts {
  std::map<Left, int> left;
  int unnoticed = 0;  // mixtures that the library reads without an error

  friend std::ostream& operator<<(std::ostream& out, const Counts& counts) {
    static const std::map<Left, const char*> kWords = {{Left::Absent, "absent"},
                                                       {Left::Old, "old"},
                                                       {Left::New, "new"},
                                                       {Left::NoPackage, "no package"},
                                                       {Left::Mixture, "mixture"}};
    int all = 0;
    for (const auto& [kind, count] : counts.left) {
      out << kWords.at(kind) << " " << count << ", ";
      all += count;
    }
    return out << "read without an error " << counts.unnoticed << "; together " << all;
  }
};

// To a reader that knows nothing of the library.
bool isSound(const Bytes& file) {
  try {
    for (const auto& [name, entry] : failures::listed(file)) {
      if (!entry.sound) return false;
    }
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

Found whole(const std::map<std::string, Bytes>& entries) {
  return {entries.begin(), entries.end()};
}

// More than the 64 kB in which others look for an end record; the library looks all the way back.
const std::map<std::string, Bytes> kAppended = {{"direct.bin", Bytes(60000, 'd')},
                                                {"direct.txt", Bytes(20000, 'e')}};

constexpr const char* kAppending = "BeginWriteEndInTheFile";

void writeInTheFile(Client& client) {
  client.package->beginUpdate();
  for (const auto& [name, content] : kAppended)
    client.write(name, content, pkg::CompressionStored);
  client.package->endUpdate();
}

// The ways that save, once, and the one that appends and lists no old entry, with more to append
// than failures::ways() has.
std::vector<Way> savingWays() {
  static const std::set<std::string_view> kOthers{"BeginInTheOldFileWriteEnd", "SecondUpdate"};
  std::vector<Way> all;
  for (const Way& way : failures::ways()) {
    const bool saves = way.output != Output::None && way.output != Output::Abandoned;
    if (saves && kOthers.count(way.name) == 0) all.push_back(way);
  }
  Way appending = all.front();
  appending.name = kAppending;
  appending.output = Output::PackageFile;
  appending.change = [](Client&) {};
  appending.save = writeInTheFile;
  appending.saved = kAppended;
  all.push_back(appending);
  return all;
}

class LibraryCrash : public testing::TestWithParam<Way> {
protected:
  LibraryCrash() {
    const Way& way = GetParam();
    if (!way.old.empty()) fBefore["old"] = way.old;
    support::MemoryFileSystem memory;
    for (const auto& [name, bytes] : fBefore)
      memory.put(name, bytes);
    JournalFileSystem files(memory);
    Client client(files, "");
    way.open(client);
    way.change(client);
    way.save(client);
    fJournal = files.journal();
    fAfter = memory.bytes(saved());
    if (!way.old.empty()) fOld = found(way.old).value();
  }

  std::string saved() const { return GetParam().output == Output::PackageFile ? "old" : "new"; }
  bool isInPlace() const { return GetParam().output == Output::PackageFile; }
  // What a killed program leaves: only where the old directory stays is there a package.
  Left inTheMiddle() const {
    return GetParam().name == std::string(kAppending) ? Left::Old : Left::NoPackage;
  }
  // The old file up to its directory: what an appending way must never touch.
  std::size_t oldDirectory() const {
    const Bytes& old = GetParam().old;
    const std::size_t end = old.rfind(zipbytes::u32(0x06054b50));
    std::size_t offset = 0;
    for (int i = 3; i >= 0; --i)
      offset =
          offset << 8 | static_cast<unsigned char>(old.at(end + 16 + static_cast<unsigned>(i)));
    return offset;
  }

  // A write of bytes that an entry then has, at least a sector of them.
  bool isPlainData(const Operation& operation) const {
    if (operation.bytes.size() < kSector) return false;
    for (const auto& [name, content] : GetParam().saved) {
      if (content.find(operation.bytes) != Bytes::npos) return true;
    }
    return false;
  }

  Left look(const Disk& disk, Counts& counts) const {
    Left left = Left::Absent;
    const auto file = disk.find(saved());
    if (file != disk.end()) {
      const auto all = found(file->second);
      left = !all                              ? Left::NoPackage
             : *all == whole(GetParam().saved) ? Left::New
             : isInPlace() && *all == fOld     ? Left::Old
                                               : Left::Mixture;
      if (left == Left::New && !isSound(file->second)) left = Left::Mixture;
      if (left == Left::Mixture) {
        bool told = false;
        for (const auto& [name, content] : *all)
          told = told || !content;
        counts.unnoticed += told ? 0 : 1;
      }
    }
    ++counts.left[left];
    return left;
  }
  // What holds whatever the disk did.
  void expectOldDataKept(const Disk& disk) const {
    if (GetParam().old.empty()) return;
    if (!isInPlace()) {
      EXPECT_EQ(disk.at("old"), GetParam().old);
    } else {
      const std::size_t kept = oldDirectory();
      EXPECT_EQ(disk.at("old").substr(0, kept), GetParam().old.substr(0, kept));
    }
  }
  void report(const char* what, const Counts& counts) const {
    std::cout << GetParam().name << ", " << what << ": " << counts << "\n";
  }

  Disk fBefore;
  Journal fJournal;
  Bytes fAfter;
  Found fOld;
};

TEST_P(LibraryCrash, TheJournalRetoldGivesWhatTheLibraryWrote) {
  Disk disk = fBefore;
  for (const Operation& operation : fJournal)
    perform(operation, disk);
  EXPECT_EQ(disk.at(saved()), fAfter);
  Counts counts;
  EXPECT_EQ(look(disk, counts), Left::New);
}

// Up to each operation, and up to each sector within it.
TEST_P(LibraryCrash, AKilledProgramLeavesWhatItsWayOfSavingPromises) {
  Counts counts;
  Disk disk = fBefore;
  for (std::size_t n = 0;; ++n) {
    SCOPED_TRACE("before operation " + std::to_string(n));
    const Left left = look(disk, counts);
    if (n == 0) {
      EXPECT_EQ(left, isInPlace() ? Left::Old : Left::Absent);
    }
    expectOldDataKept(disk);
    if (n == fJournal.size()) {
      EXPECT_EQ(left, Left::New);
      break;
    }
    if (n > 0) {
      EXPECT_EQ(left, inTheMiddle());
    }
    for (const std::size_t cut : cuts(fJournal[n])) {
      Disk torn = disk;
      perform(fJournal[n], torn, cut);
      EXPECT_EQ(look(torn, counts), inTheMiddle()) << "cut at " << cut;
      expectOldDataKept(torn);
    }
    perform(fJournal[n], disk);
    if (HasFailure()) return;
  }
  report("killed", counts);
}

TEST_P(LibraryCrash, APowerCutLeavesTheOldDataWhereItWas) {
  const char* const isLong = std::getenv("QCF_LONG_TESTS");
  const unsigned seeds = isLong != nullptr && std::string(isLong) == "1" ? 50 : 2;
  Counts lost;
  Counts reordered;
  for (std::size_t n = 1; n <= fJournal.size(); ++n) {
    // Most of them when all is done: nothing but a sync keeps what was written.
    const std::size_t tries = n == fJournal.size() ? seeds * n : seeds;
    for (std::size_t seed = 1; seed <= tries; ++seed) {
      SCOPED_TRACE("before operation " + std::to_string(n) + ", seed " + std::to_string(seed));
      std::mt19937 random(static_cast<unsigned>(seed * 100003 + n));
      const Disk some = loseSome(fJournal, n, fBefore, random);
      look(some, lost);
      expectOldDataKept(some);
      const Disk any = reorder(fJournal, n, fBefore, random);
      look(any, reordered);
      expectOldDataKept(any);
      if (HasFailure()) return;
    }
  }
  EXPECT_GT(lost.left[Left::Mixture] + reordered.left[Left::Mixture], 0) << "the reason to sync";
  report("power cut, writes lost", lost);
  report("power cut, writes reordered and torn", reordered);
}

// Zeros stand in its place: no checksum is compared when an entry is read.
TEST_P(LibraryCrash, ALostWriteOfDataThatIsStoredAsItIsShowsInTheChecksumsAlone) {
  Counts counts;
  for (std::size_t lost = 0; lost < fJournal.size(); ++lost) {
    if (!isPlainData(fJournal[lost])) continue;
    SCOPED_TRACE("without operation " + std::to_string(lost));
    Disk disk = fBefore;
    for (std::size_t n = 0; n < fJournal.size(); ++n) {
      if (n != lost) perform(fJournal[n], disk);
    }
    EXPECT_EQ(look(disk, counts), Left::Mixture);
    EXPECT_FALSE(isSound(disk.at(saved())));
  }
  EXPECT_GT(counts.unnoticed, 0);
  EXPECT_EQ(counts.unnoticed, counts.left[Left::Mixture]);
}

INSTANTIATE_TEST_SUITE_P(Ways, LibraryCrash, testing::ValuesIn(savingWays()),
                         [](const auto& suite) { return std::string(suite.param.name); });

}  // namespace

}  // namespace crash
