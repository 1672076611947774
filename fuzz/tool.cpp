// The package tool on a damaged package: check and list end as they are documented to; extract
// stays in its folder and within its limit, leaves only what the directory tells of, and takes
// every package without findings.

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include "Input.h"
#include "qcfpkg/Commands.h"
#include "qcfpkg/ZipLayout.h"
#include "support/TempDir.h"
#include "support/ZipBytes.h"

namespace {

namespace fs = std::filesystem;
using Entries = std::map<std::string, ziplayout::Header>;

void require(bool holds) {
  if (!holds) std::abort();
}

// Tables and findings are not what is looked at here.
class Silence {
public:
  Silence() : fOutput(::dup(STDOUT_FILENO)) {
    const int nowhere = ::open("/dev/null", O_WRONLY);
    ::dup2(nowhere, STDOUT_FILENO);
    ::close(nowhere);
  }
  ~Silence() {
    ::dup2(fOutput, STDOUT_FILENO);
    ::close(fOutput);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

private:
  int fOutput;
};

int qcfpkg(std::vector<std::string> arguments) {
  const Silence silence;
  arguments.insert(arguments.begin(), {"qcfpkg", "--quiet"});
  std::vector<char*> pointers;
  for (std::string& argument : arguments)
    pointers.push_back(argument.data());
  return runQcfpkg(static_cast<int>(pointers.size()), pointers.data());
}

// Status 2, wrong use, is nowhere allowed: it would be a fault of the target.
int check(const std::string& package) {
  const int status = qcfpkg({"check", "--json", package});
  require(status == 0 || status == 1 || status == 3);
  return status;
}

void list(const std::string& package) {
  const int status = qcfpkg({"list", "--json", package});
  require(status == 0 || status == 3);
}

Entries filesOf(const ziplayout::Layout& layout) {
  Entries files;
  for (const ziplayout::Entry& entry : layout.entries()) {
    if (!entry.isFolder()) files.emplace(entry.central.name, entry.central);
  }
  return files;
}

void requireIsEntry(const fs::path& file, const std::string& name, const Entries& entries) {
  const auto entry = entries.find(name);
  require(entry != entries.end());
  const std::string bytes = support::readFile(file);
  require(bytes.size() == entry->second.size);
  const auto* const data = reinterpret_cast<const Bytef*>(bytes.data());
  require(crc32_z(0, data, bytes.size()) == entry->second.crc);
}

// Files in the folder are whole entries; returns how many there are.
std::size_t countExtracted(const fs::path& target, const Entries& entries, std::uint64_t limit) {
  std::size_t count = 0;
  std::uint64_t total = 0;
  for (const auto& item : fs::recursive_directory_iterator(target)) {
    if (fs::is_directory(item.symlink_status())) continue;
    require(fs::is_regular_file(item.symlink_status()));
    requireIsEntry(item.path(), item.path().lexically_relative(target).string(), entries);
    total += item.file_size();
    ++count;
  }
  require(total <= limit);
  return count;
}

// Beside the package, and the folder that the target is in.
void requireNothingOutside(const support::TempDir& world, const fs::path& target) {
  std::size_t outside = 0;
  for (auto item = fs::recursive_directory_iterator(world.path()); item != fs::end(item); ++item) {
    if (item->path() == target) {
      item.disable_recursion_pending();
    } else {
      ++outside;
    }
  }
  require(outside == 2);
}

// Whether nothing but the package itself can keep it from being extracted.
bool fits(const ziplayout::Layout& layout, std::uint64_t limit) {
  constexpr std::size_t kLongestName = 255;  // of the file system
  std::uint64_t total = 0;
  for (const ziplayout::Entry& entry : layout.entries()) {
    const ziplayout::Header& header = entry.central;
    if (header.name.size() > kLongestName || header.size > limit - total) return false;
    total += header.size;
  }
  return true;
}

// Returns how many files were extracted.
std::size_t extract(const std::string& bytes, std::uint64_t limit) {
  const support::TempDir world;
  const std::string package = world.write("a.pkg", bytes);
  const fs::path target = world / "in/target";
  fs::create_directories(target);
  const int status =
      qcfpkg({"extract", package, "-C", target.string(), "--max-size", std::to_string(limit)});
  require(status == 0 || status == 3);

  const ziplayout::Layout layout(package);
  const Entries entries = filesOf(layout);
  const std::size_t extracted = countExtracted(target, entries, limit);
  requireNothingOutside(world, target);
  if (status == 0) {
    require(extracted == entries.size());
  } else if (fits(layout, limit)) {
    require(check(package) != 0);
  }
  return extracted;
}

// Were the arguments not understood, nothing of the above would ever be looked at.
bool triedOnAWholePackage() {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("mimetype", "application/x-a"), "application/x-a");
  file.add(zipbytes::storedEntry("folder/a", "data"), "data");
  require(extract(file.bytes(), 100'000) == 2);
  return true;
}

}  // namespace

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  static const bool tried = triedOnAWholePackage();
  require(tried);
  fuzz::Input input(data, size);
  const unsigned command = input.below(4);
  if (command >= 2) {
    extract(input.rest(), command == 2 ? 100'000 : 1'000'000 + 2 * size);
    return;
  }
  const support::TempDir world;
  const std::string package = world.write("a.pkg", input.rest());
  if (command == 0) {
    check(package);
  } else {
    list(package);
  }
}
