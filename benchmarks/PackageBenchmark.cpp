// Opening a package and walking over all its entries, against libzip, libarchive and minizip.

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include <archive.h>
#include <archive_entry.h>
#include <minizip/unzip.h>
#include <zip.h>

#include <benchmark/benchmark.h>

#include "package/QCFPackage.h"

#include "Comparison.h"
#include "support/Run.h"
#include "support/TempDir.h"

namespace {

// What a walk finds. Equal for all readers.
struct Answer {
  long long entries = 0;
  long long bytes = 0;       // of the uncompressed data
  std::size_t nameHash = 0;  // over all names, in order

  void add(const char* name, long long size) {
    ++entries;
    bytes += size;
    for (; *name != '\0'; ++name)
      nameHash = nameHash * 31 + static_cast<unsigned char>(*name);
  }
  bool operator==(const Answer& other) const {
    return entries == other.entries && bytes == other.bytes && nameHash == other.nameHash;
  }
};

Answer walkOurs(const std::string& path) {
  const auto package =
      pkg::QCFPackageFactory().openPackage(path, std::ios_base::in, nullptr, nullptr, nullptr);
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> iterator;
  package->initIterator(iterator, {}, "");
  Answer answer;
  for (; iterator->isValid(); iterator->increment()) {
    const auto entry = iterator->dereference();
    answer.add(entry->getName().c_str(), entry->toFile()->getSize64());
  }
  package->close();
  return answer;
}

Answer walkLibzip(const std::string& path) {
  zip_t* const archive = zip_open(path.c_str(), ZIP_RDONLY, nullptr);
  if (archive == nullptr) throw std::runtime_error("libzip cannot open " + path);
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

Answer walkLibarchive(const std::string& path) {
  archive* const reader = archive_read_new();
  archive_read_support_format_zip_seekable(reader);
  if (archive_read_open_filename(reader, path.c_str(), 65536) != ARCHIVE_OK) {
    throw std::runtime_error("libarchive cannot open " + path);
  }
  Answer answer;
  archive_entry* entry = nullptr;
  while (archive_read_next_header(reader, &entry) == ARCHIVE_OK)
    answer.add(archive_entry_pathname(entry), archive_entry_size(entry));
  archive_read_free(reader);
  return answer;
}

Answer walkMinizip(const std::string& path) {
  const unzFile file = unzOpen64(path.c_str());
  if (file == nullptr) throw std::runtime_error("minizip cannot open " + path);
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
  const char* name;
  Answer (*walk)(const std::string& path);
};
constexpr Reader kReaders[] = {{"this", walkOurs},
                               {"libzip", walkLibzip},
                               {"libarchive", walkLibarchive},
                               {"minizip", walkMinizip}};

// A package of `entries` small files in folders, the type first.
std::string makePackage(const support::TempDir& folder, int entries) {
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

void requireSameAnswers(const std::string& path) {
  const Answer expected = walkOurs(path);
  for (const Reader& reader : kReaders) {
    if (reader.walk(path) == expected) continue;
    std::fprintf(stderr, "%s: %s finds something else\n", path.c_str(), reader.name);
    std::exit(1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const support::TempDir folder;
  for (const int entries : {1, 1000, 60000}) {
    const std::string path = makePackage(folder, entries);
    requireSameAnswers(path);
    for (const Reader& reader : kReaders) {
      const std::string name =
          "openAndWalk:" + std::to_string(entries) + "/" + std::string(reader.name);
      benchmark::RegisterBenchmark(name.c_str(), [path, reader](benchmark::State& state) {
        for (auto _ : state)
          benchmark::DoNotOptimize(reader.walk(path));
      })->Unit(benchmark::kMillisecond);
    }
  }
  return runComparison(argc, argv);
}
