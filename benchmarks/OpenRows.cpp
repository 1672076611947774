// Opening a package and walking over all its entries, against libzip, libarchive and minizip.

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <archive.h>
#include <archive_entry.h>
#include <malloc.h>
#include <minizip/unzip.h>
#include <zip.h>

#include "package/QCFPackage.h"

#include "PackageRows.h"
#include "PlainZip.h"
#include "Targets.h"
#include "Turns.h"
#include "support/Run.h"

namespace {

// What a walk finds. Equal for all readers.
struct Answer {
  long long entries = 0;
  long long bytes = 0;       // of the uncompressed data
  std::size_t nameHash = 0;  // over all names, in order

  void add(std::string_view name, long long size) {
    ++entries;
    bytes += size;
    for (const char letter : name)
      nameHash = nameHash * 31 + static_cast<unsigned char>(letter);
  }
  bool operator==(const Answer& other) const {
    return entries == other.entries && bytes == other.bytes && nameHash == other.nameHash;
  }
};

Answer walkOurs(const std::string& path) {
  const auto package = openPackage(path, std::ios::in);
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> iterator;
  package->initIterator(iterator, {}, "");
  Answer answer;
  for (; iterator->isValid(); iterator->increment()) {
    const auto entry = iterator->dereference();
    answer.add(entry->getName(), entry->toFile()->getSize64());
  }
  package->close();
  return answer;
}

void openOurs(const std::string& path) {
  openPackage(path, std::ios::in)->close();
}

Answer walkLibzip(const std::string& path) {
  zip_t* const archive = zip_open(path.c_str(), ZIP_RDONLY, nullptr);
  require(archive != nullptr, "libzip cannot open " + path);
  Answer answer;
  const zip_int64_t count = zip_get_num_entries(archive, 0);
  for (zip_int64_t i = 0; i < count; ++i) {
    zip_stat_t status;
    if (zip_stat_index(archive, static_cast<zip_uint64_t>(i), 0, &status) != 0) break;
    answer.add(status.name, static_cast<long long>(status.size));
  }
  zip_discard(archive);
  return answer;
}

// As the walk, without the sum of what it finds: zip_stat_index is all the work. Returns how many
// entries it tells of.
long long openLibzip(const std::string& path) {
  zip_t* const archive = zip_open(path.c_str(), ZIP_RDONLY, nullptr);
  require(archive != nullptr, "libzip cannot open " + path);
  const zip_int64_t count = zip_get_num_entries(archive, 0);
  long long told = 0;
  for (zip_int64_t i = 0; i < count; ++i) {
    zip_stat_t status;
    if (zip_stat_index(archive, static_cast<zip_uint64_t>(i), 0, &status) == 0) ++told;
  }
  zip_discard(archive);
  return told;
}

Answer walkLibarchive(const std::string& path) {
  archive* const reader = archive_read_new();
  archive_read_support_format_zip_seekable(reader);
  require(archive_read_open_filename(reader, path.c_str(), 65536) == ARCHIVE_OK,
          "libarchive cannot open " + path);
  Answer answer;
  archive_entry* entry = nullptr;
  while (archive_read_next_header(reader, &entry) == ARCHIVE_OK)
    answer.add(archive_entry_pathname(entry), archive_entry_size(entry));
  archive_read_free(reader);
  return answer;
}

Answer walkMinizip(const std::string& path) {
  const unzFile file = unzOpen64(path.c_str());
  require(file != nullptr, "minizip cannot open " + path);
  Answer answer;
  for (int result = unzGoToFirstFile(file); result == UNZ_OK; result = unzGoToNextFile(file)) {
    unz_file_info64 info;
    char name[256];
    if (unzGetCurrentFileInfo64(file, &info, name, sizeof name, nullptr, 0, nullptr, 0) != UNZ_OK) {
      break;
    }
    answer.add(name, static_cast<long long>(info.uncompressed_size));
  }
  unzClose(file);
  return answer;
}

struct Reader {
  const char* who;
  Answer (*walk)(const std::string& path);
};
constexpr Reader kReaders[] = {{"package", walkOurs},
                               {"libzip", walkLibzip},
                               {"libarchive", walkLibarchive},
                               {"minizip", walkMinizip}};

// A package of `entries` small files in folders, the type first.
std::string makePackage(const support::TempDir& folder, std::size_t entries) {
  const std::string path = (folder / (std::to_string(entries) + ".zip")).string();
  support::python(R"(
import sys, zipfile
with zipfile.ZipFile(sys.argv[1], 'w') as package:
    package.writestr('mimetype', 'application/x-test')
    for i in range(1, int(sys.argv[2])):
        package.writestr('folder%d/file%d.xml' % (i // 100, i), 'x' * (i % 50))
)",
                  {path, std::to_string(entries)});
  return path;
}

std::vector<turns::Contender> walkers(const std::string& path) {
  std::vector<turns::Contender> all;
  for (const Reader& reader : kReaders) {
    turns::apart([&] {
      require(reader.walk(path) == walkOurs(path), std::string(reader.who) + " finds otherwise");
    });
    all.push_back({reader.who, [path, reader] { reader.walk(path); }});
  }
  return all;
}

double peakOfPrototype(const std::string& path) {
  return static_cast<double>(turns::peakOf([&] {
    Answer answer;
    walkPlainZip(path, [&](std::string_view name, std::uint32_t size) { answer.add(name, size); });
    require(answer == walkMinizip(path), "the prototype finds otherwise");
  }));
}

double peakOfWalk(const std::string& path) {
  return static_cast<double>(turns::peakOf([&] { walkOurs(path); }));
}

double heapOfOpenPackage(const std::string& path, std::size_t entries) {
  const auto held = [] {
    const auto heap = ::mallinfo2();
    return static_cast<double>(heap.uordblks + heap.hblkhd);
  };
  const double before = held();
  const auto package = openPackage(path, std::ios::in);
  const double after = held();
  package->close();
  return (after - before) / static_cast<double>(entries);
}

}  // namespace

void addOpenRows(const support::TempDir& folder, std::size_t part) {
  for (const std::size_t full : {std::size_t{10000}, std::size_t{60000}}) {
    const std::size_t entries = full / part;
    const std::string path = makePackage(folder, entries);
    const int repeats = full == 10000 ? 5 : 1;
    const std::string number = full == 10000 ? "10,000 entries" : "60,000 entries";
    turns::add({"open " + number,
                [path] {
                  turns::apart([&] {
                    const Answer ours = walkOurs(path);
                    require(ours == walkLibzip(path) && ours.entries == openLibzip(path),
                            "libzip finds otherwise");
                  });
                  return std::vector<turns::Contender>{{"package", [path] { openOurs(path); }},
                                                       {"libzip", [path] { openLibzip(path); }}};
                },
                turns::Place::OwnProcess, false, repeats});
    turns::add({"open and walk " + number, [path] { return walkers(path); },
                turns::Place::OwnProcess, false, repeats});
    turns::add(turns::Fact{
        "heap of an open package of " + number + ", bytes an entry",
        [=] { return turns::valueOf([=] { return heapOfOpenPackage(path, entries); }); }, 600});
    turns::add(turns::Fact{"peak memory of a walk of " + number + " above its prototype's, KiB",
                           [=] { return peakOfWalk(path) - peakOfPrototype(path); },
                           static_cast<double>(turns::kMemoryAllowance)});
  }
}
