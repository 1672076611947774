// Packages made, changed by the ways that keep every change, saved in each of the three ways, and
// read back; and damaged packages changed and saved, which may be refused.

#include <cerrno>
#include <cstdlib>
#include <map>

#include "Input.h"
#include "support/FileSystems.h"
#include "unit/reading/Reading.h"

namespace {

using Contents = std::map<std::string, std::string>;

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

void write(pkg::IPackage<>& package, const std::string& name, const std::string& bytes,
           bool stored) {
  const auto file = package.getFile(name, false);
  file->setCompressionMethod(stored ? pkg::CompressionStored : pkg::CompressionDeflated);
  const auto stream = file->open(std::ios_base::out | std::ios_base::trunc, false);
  stream->exceptions(std::ios_base::badbit);
  stream->write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  stream->close();
}

Contents takeChanges(fuzz::Input& input) {
  Contents changes;
  for (unsigned count = input.below(5); count > 0; --count) {
    const std::string name = kNames[input.below(std::size(kNames))];
    const unsigned size = input.byte() * 16;
    changes[name] = input.bytes(size);
  }
  return changes;
}

void writeAll(pkg::IPackage<>& package, const Contents& contents, fuzz::Input& input) {
  for (const auto& [name, bytes] : contents)
    write(package, name, bytes, input.below(2) != 0);
}

void removeChosen(pkg::IPackage<>& package, Contents& expected, const Contents& changes,
                  unsigned mask) {
  unsigned bit = 1;
  for (const char* const name : kNames) {
    const bool removes = changes.count(name) != 0 || (mask & bit) != 0;
    bit <<= 1;
    if (!removes || expected.erase(name) == 0) continue;
    package.getFile(name, true)->remove();
  }
}

void requireHolds(support::MemoryFileSystem& files, const std::string& path,
                  const Contents& expected) {
  const auto package =
      pkg::QCFPackageFactory().openPackage(path, std::ios_base::in, &files, nullptr, nullptr);
  Contents found;
  for (const std::string& name : reading::walk(*package))
    found[name] = reading::readAll(*package->getFile(name, true));
  package->close();
  if (found != expected) std::abort();
}

void makeAndChange(fuzz::Input& input) {
  support::MemoryFileSystem files;
  pkg::QCFPackageFactory factory;
  Contents expected = takeChanges(input);
  expected["first"] = "a package has at least one entry";
  auto package = factory.openPackage("a.pkg", kNew, &files, nullptr, nullptr);
  package->beginUpdate();
  writeAll(*package, expected, input);
  package->endUpdate();
  package->close();
  requireHolds(files, "a.pkg", expected);

  package = factory.openPackage("a.pkg", kUpdate, &files, nullptr, nullptr);
  std::string path = "a.pkg";
  for (int round = 0; round < 3 && !input.atEnd(); ++round) {
    const unsigned way = input.below(3);
    const Contents changes = takeChanges(input);
    removeChosen(*package, expected, changes, input.byte());
    if (way == 2) {
      writeAll(*package, changes, input);
      package->doUNSAFEUpdateInPlace();
    } else {
      const std::string next = path + "'";
      if (way == 0) writeAll(*package, changes, input);
      package->beginUpdate(next, kNew);
      if (way == 1) writeAll(*package, changes, input);
      package->endUpdate();
      path = next;
    }
    for (const auto& [name, bytes] : changes)
      expected[name] = bytes;
  }
  package->close();
  requireHolds(files, path, expected);
}

void changeDamaged(fuzz::Input& input) {
  const unsigned way = input.below(3);
  const unsigned mask = input.byte();
  const std::string bytes = input.rest();
  support::MemoryFileSystem memory;
  memory.put("a.pkg", bytes);
  SmallDisk files(memory);
  reading::raisedBy([&] {
    const auto package =
        pkg::QCFPackageFactory().openPackage("a.pkg", kUpdate, &files, nullptr, nullptr);
    unsigned bit = 0;
    for (const std::string& name : reading::walk(*package)) {
      if ((mask >> (bit++ % 8) & 1) == 0) continue;
      reading::raisedBy([&] { package->getFile(name, true)->remove(); });
    }
    if (way == 2) {
      reading::raisedBy([&] { write(*package, "added", "data", false); });
      package->doUNSAFEUpdateInPlace();
    } else {
      package->beginUpdate(std::string("b.pkg"), kNew);
      reading::raisedBy([&] { write(*package, "added", "data", way != 0); });
      package->endUpdate();
    }
    package->close();
  });
  for (const char* const path : {"a.pkg", "b.pkg"}) {
    reading::raisedBy([&] {
      const auto package =
          pkg::QCFPackageFactory().openPackage(path, std::ios_base::in, &files, nullptr, nullptr);
      reading::walk(*package);
    });
  }
}

}  // namespace

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  if (input.below(2) == 0) {
    makeAndChange(input);
  } else {
    changeDamaged(input);
  }
}
