// Packages, made here and of others, changed by the recipes of docs/updating.md and saved in each
// of the ways. After every save the package and its file hold what they should, to the library and,
// where the file was sound before, to a reader that knows nothing of it; and the old file is what
// it was, as far as the way promises that. A damaged package may be refused.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>

#include "Contents.h"
#include "Input.h"
#include "Layout.h"
#include "failures/Listing.h"
#include "support/FileSystems.h"
#include "unit/reading/Reading.h"

namespace {

using fuzz::Content;
using fuzz::Contents;
using fuzz::handlesOf;
using fuzz::read;
using fuzz::Reader;
using fuzz::require;
using fuzz::requireSame;

constexpr auto kNew = std::ios_base::in | std::ios_base::out | std::ios_base::trunc;
constexpr auto kUpdate = std::ios_base::in | std::ios_base::out;
constexpr const char* kNames[] = {"a",       "b.txt", "dir/c", "dir/sub/d", "\xC3\xA9t\xC3\xA9",
                                  "mimetype"};

// Full at 16 MB: where a damaged package says that its directory begins, an update in place makes
// the file reach.
class SmallDisk : public support::FileSystemWrapper {
public:
  using FileSystemWrapper::FileSystemWrapper;

protected:
  void write(InnerFile& file, const void* buffer, int size) override {
    requireRoom(file.tell() + size);
    file.write(buffer, size);
  }
  void truncate(InnerFile& file, long long size) override {
    requireRoom(size);
    file.truncate(size);
  }

private:
  static void requireRoom(long long size) {
    if (size > 16'000'000) pkg::throwSystemError(ENOSPC);
  }
};

struct Change {
  std::string bytes;
  bool isStored;
};
using Changes = std::map<std::string, Change>;

// The bytes so many times, another each time.
std::string repeated(const std::string& bytes, unsigned times) {
  std::string all;
  for (unsigned i = 0; i < times; ++i) {
    for (const char byte : bytes)
      all += static_cast<char>(static_cast<unsigned char>(byte) ^ i);
  }
  return all;
}

// Up to 130,560 bytes an entry, a few of the blocks that entries are copied by.
Changes takeChanges(fuzz::Input& script) {
  Changes changes;
  for (unsigned count = script.below(5); count > 0; --count) {
    const std::string name = kNames[script.below(std::size(kNames))];
    const unsigned form = script.byte();
    const unsigned size = script.byte() * 16;
    changes[name] = {repeated(script.bytes(size), 1 + form / 2 % 32), form % 2 != 0};
  }
  return changes;
}

void writeAll(pkg::IPackage<>& package, const Changes& changes) {
  for (const auto& [name, change] : changes) {
    const auto file = package.getFile(name, false);
    file->setCompressionMethod(change.isStored ? pkg::CompressionStored : pkg::CompressionDeflated);
    const auto stream = file->open(std::ios_base::out | std::ios_base::trunc, false);
    stream->exceptions(std::ios_base::badbit);
    stream->write(change.bytes.data(), static_cast<std::streamsize>(change.bytes.size()));
    stream->close();
  }
}

// A package that is open, the file that it lives in, and what it should hold.
class Session {
public:
  // A new package of these entries.
  explicit Session(const Changes& changes) {
    fPackage = pkg::QCFPackageFactory().openPackage(fPath, kNew, &fFiles, nullptr, nullptr);
    fPackage->beginUpdate();
    writeAll(*fPackage, changes);
    fPackage->endUpdate();
    take(changes);
    requireHolds();
  }
  // Somebody's package. Raises what opening and walking raise.
  explicit Session(const std::string& bytes) {
    fMemory.put(fPath, bytes);
    fPackage = open(kUpdate);
    const std::size_t entries = handlesOf(*fPackage).size();
    fLimit = kReadAtOnce / std::max<std::size_t>(entries, 1);
    fExpected = read(*fPackage, fLimit);
    const fuzz::Layout layout(bytes);
    fIsKeptInPlace = layout.isInFrontOfDirectory();
    fIsKept = layout.keepsExtraFields();
    fIsSound = layout.compressedSize() <= kInflatedAtOnce && isListed();
  }
  ~Session() {
    fPackage.reset();
    require(fMemory.temporaryFiles() == 0);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Some changes and a save, as the script says. False where it was refused: this is not to be used
  // then any more, nor where it cannot be told what it has kept.
  bool round(fuzz::Input& script) {
    const unsigned way = script.below(kCancelled + 1);
    const unsigned mask = script.byte();
    const Changes changes = takeChanges(script);
    const bool isBefore = script.below(2) != 0;
    if (fExpected.entries.empty()) return false;
    if (way != kCancelled) removeChosen(changes, mask);
    const auto refusal = reading::raisedBy([&] { save(way, changes, isBefore); });
    if (refusal.code != -1 || !fIsKept || (way == kInPlace && !fIsKeptInPlace)) return false;
    if (way != kCancelled) fIsKeptInPlace = true;
    requireHolds();
    if (script.below(2) != 0) fPackage = open(kUpdate);
    return true;
  }

private:
  using Package = boost::shared_ptr<pkg::IPackage<>>;
  static constexpr unsigned kInPlace = 2;
  static constexpr unsigned kCancelled = 4;
  // What is read of a package together: as much again for each of its rounds has to fit into a
  // fuzzer's five seconds.
  static constexpr std::size_t kReadAtOnce = 16U << 20;
  // What is inflated of a package together by who does not look at the sizes: less than the above.
  static constexpr std::size_t kInflatedAtOnce = kReadAtOnce / 1032;

  Package open(std::ios_base::openmode mode) {
    return pkg::QCFPackageFactory().openPackage(fPath, mode, &fFiles, nullptr, nullptr);
  }

  void take(const Changes& changes) {
    for (const auto& [name, change] : changes)
      fExpected.entries[name] = Content(change.bytes);
  }

  // What is written anew is removed before the update begins. Something stays in any case.
  void removeChosen(const Changes& changes, unsigned mask) {
    unsigned index = 0;
    for (const auto& entry : handlesOf(*fPackage)) {
      if (changes.empty() && fExpected.entries.size() == 1) return;
      const std::string name = entry->getName();
      const bool isChosen = (mask >> index++ % 8 & 1) != 0;
      if ((!isChosen && changes.count(name) == 0) || fExpected.entries.erase(name) == 0) continue;
      entry->remove();
    }
  }

  void save(unsigned way, const Changes& changes, bool isBefore) {
    switch (way) {
      case 0:
        return saveAs(changes);
      case 1:
        return updateOtherFile(changes, isBefore);
      case kInPlace:
        return updateInPlace(changes);
      case 3:
        // Without a change this would be no update, and the old entries be listed on.
        return changes.empty() ? saveAs(changes) : updatePackageFile(changes, isBefore);
      case kCancelled:
        return isBefore ? cancelBehind(changes) : updateCancelled(changes);
      default:
        std::abort();
    }
  }

  void writeBefore(const Changes& changes) {
    writeAll(*fPackage, changes);
    take(changes);
    requireSame(read(*fPackage, fLimit), fExpected, Reader::Writer);
  }

  template <class Save>
  void intoOtherFile(Save&& save) {
    const std::string old = fPath;
    const std::string before = fMemory.bytes(old);
    fPath += '\'';
    try {
      save(fPath);
    } catch (...) {
      require(fMemory.bytes(old) == before);
      throw;
    }
    require(fMemory.bytes(old) == before);
  }

  void saveAs(const Changes& changes) {
    writeBefore(changes);
    intoOtherFile([&](const std::string& path) { fPackage->saveAs(path, kNew); });
  }

  void updateOtherFile(const Changes& changes, bool isBefore) {
    if (isBefore) writeBefore(changes);
    intoOtherFile([&](const std::string& path) {
      fPackage->beginUpdate(path, kNew);
      if (!isBefore) writeAll(*fPackage, changes);
      fPackage->endUpdate();
    });
    if (!isBefore) take(changes);
  }

  void updateInPlace(const Changes& changes) {
    writeBefore(changes);
    const std::string before = fMemory.bytes(fPath);
    fPackage->doUNSAFEUpdateInPlace();
    const auto kept = static_cast<std::size_t>(
        std::min<std::uint64_t>(fuzz::Layout(before).directoryOffset(), before.size()));
    require(fMemory.bytes(fPath).compare(0, kept, before, 0, kept) == 0);
  }

  // Only what is written in it is listed afterwards. All that was in the file stays there.
  void updatePackageFile(const Changes& changes, bool isBefore) {
    const std::string before = fMemory.bytes(fPath);
    if (isBefore) writeBefore(changes);
    fPackage->beginUpdate();
    if (!isBefore) writeAll(*fPackage, changes);
    fPackage->endUpdate();
    fExpected.entries.clear();
    take(changes);
    require(fMemory.bytes(fPath).compare(0, before.size(), before) == 0);
  }

  // What is there already stays out of it: it would keep the method that was set.
  void updateCancelled(Changes changes) {
    const std::string before = fMemory.bytes(fPath);
    for (const auto& [name, content] : fExpected.entries)
      changes.erase(name);
    fPackage->beginUpdate(fPath + '\'', kNew);
    writeAll(*fPackage, changes);
    fPackage->cancelUpdate();
    require(fMemory.bytes(fPath) == before);
  }

  // Of what was written before the update this may leave entries that are empty, or listed twice,
  // but nothing of it is in the file, and what was not changed is there.
  void cancelBehind(const Changes& changes) {
    const std::string before = fMemory.bytes(fPath);
    writeAll(*fPackage, changes);
    fPackage->beginUpdate(fPath + '\'', kNew);
    fPackage->cancelUpdate();
    Contents found = read(*fPackage, fLimit);
    Contents unchanged = fExpected;
    for (const auto& [name, change] : changes) {
      found.entries.erase(name);
      unchanged.entries.erase(name);
    }
    requireSame(found, unchanged, Reader::Writer);
    reading::raisedBy([&] { fPackage->saveAs(fPath + "''", kNew); });
    require(fMemory.bytes(fPath) == before);
    fPackage = open(kUpdate);
  }

  // The package as it is open, and its file as somebody else reads it.
  void requireHolds() {
    requireSame(read(*fPackage, fLimit), fExpected, Reader::Writer);
    require(fMemory.temporaryFiles() == 0);
    requireSame(read(*open(std::ios_base::in), fLimit), fExpected, Reader::SomebodyElse);
    if (fIsSound) require(isListed());
  }
  // The same with nothing of the library.
  bool isListed() const {
    try {
      const failures::Listing listing = failures::listed(fMemory.bytes(fPath));
      const auto isExpected = [this](const auto& listed) {
        const auto expected = fExpected.entries.find(listed.first);
        return expected != fExpected.entries.end() && listed.second.sound &&
               Content(listed.second.content) == expected->second;
      };
      return listing.size() == fExpected.entries.size() &&
             std::all_of(listing.begin(), listing.end(), isExpected);
    } catch (const std::exception&) {
      return false;
    }
  }

  support::MemoryFileSystem fMemory;
  SmallDisk fFiles{fMemory};
  std::string fPath = "a.pkg";
  Package fPackage;
  Contents fExpected;
  std::size_t fLimit = kReadAtOnce;  // of an entry
  bool fIsKept = true;               // by any save
  bool fIsSound = true;              // to somebody else, to whom it is to stay so
  bool fIsKeptInPlace = true;        // by one in place
};

void changeMade(fuzz::Input& script) {
  Changes changes = takeChanges(script);
  changes["first"] = {"a package has at least one entry", true};
  Session session(changes);
  for (int round = 0; round < 4 && !script.atEnd(); ++round)
    require(session.round(script));
}

void changeForeign(fuzz::Input& input) {
  constexpr std::size_t kScript = 48;
  const std::string text = input.bytes(kScript);
  fuzz::Input script(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  const std::string bytes = input.rest();
  std::optional<Session> session;
  if (reading::raisedBy([&] { session.emplace(bytes); }).code != -1) return;
  for (int round = 0; round < 2 && session->round(script); ++round) {
  }
}

}  // namespace

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  if (input.below(2) == 0) {
    changeMade(input);
  } else {
    changeForeign(input);
  }
}
