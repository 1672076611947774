// Reading everything that a package holds, against libzip, minizip and libarchive in process, and
// against programs that do the same.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <archive.h>
#include <archive_entry.h>
#include <minizip/unzip.h>
#include <zip.h>
#include <zlib.h>

#include <benchmark/benchmark.h>

#include "PackageRows.h"
#include "Turns.h"
#include "support/Run.h"

namespace {

constexpr std::size_t kBlock = 32768;

using Take = std::function<void(const char* bytes, std::size_t size)>;
using Read = void (*)(const std::string& path, const Take& take);

void readLibzip(const std::string& path, const Take& take) {
  zip_t* const archive = zip_open(path.c_str(), ZIP_RDONLY, nullptr);
  require(archive != nullptr, "libzip cannot open " + path);
  std::vector<char> block(kBlock);
  const auto entries = static_cast<zip_uint64_t>(zip_get_num_entries(archive, 0));
  for (zip_uint64_t entry = 0; entry < entries; ++entry) {
    zip_file_t* const file = zip_fopen_index(archive, entry, 0);
    require(file != nullptr, "libzip cannot open an entry");
    for (zip_int64_t count = 0; (count = zip_fread(file, block.data(), kBlock)) > 0;)
      take(block.data(), static_cast<std::size_t>(count));
    zip_fclose(file);
  }
  zip_discard(archive);
}

void readMinizip(const std::string& path, const Take& take) {
  const unzFile file = unzOpen64(path.c_str());
  require(file != nullptr, "minizip cannot open " + path);
  std::vector<char> block(kBlock);
  for (int result = unzGoToFirstFile(file); result == UNZ_OK; result = unzGoToNextFile(file)) {
    require(unzOpenCurrentFile(file) == UNZ_OK, "minizip cannot open an entry");
    for (int count = 0; (count = unzReadCurrentFile(file, block.data(), kBlock)) > 0;)
      take(block.data(), static_cast<std::size_t>(count));
    unzCloseCurrentFile(file);
  }
  unzClose(file);
}

void readLibarchive(const std::string& path, const Take& take) {
  archive* const reader = archive_read_new();
  archive_read_support_format_zip_seekable(reader);
  require(archive_read_open_filename(reader, path.c_str(), 65536) == ARCHIVE_OK,
          "libarchive cannot open " + path);
  std::vector<char> block(kBlock);
  archive_entry* entry = nullptr;
  while (archive_read_next_header(reader, &entry) == ARCHIVE_OK) {
    for (la_ssize_t count = 0; (count = archive_read_data(reader, block.data(), kBlock)) > 0;)
      take(block.data(), static_cast<std::size_t>(count));
  }
  archive_read_free(reader);
}

struct Library {
  const char* who;
  Read read;
};
constexpr Library kLibraries[] = {{"package", readPackage},
                                  {"libzip", readLibzip},
                                  {"minizip", readMinizip},
                                  {"libarchive", readLibarchive}};

struct Program {
  const char* who;
  std::vector<std::string> words;
  bool gives = true;  // what it reads, in order, and not only a verdict on it
};
const Program kPrograms[] = {{"unzip -p", {"unzip", "-p"}},
                             {"unzip -t", {"unzip", "-tq"}, false},
                             {"bsdtar -xO", {"bsdtar", "-xOf"}},
                             {"7z e -so", {"7z", "e", "-so", "-mmt=off"}}};

uLong checksum(Read read, const std::string& path) {
  uLong crc = crc32(0, nullptr, 0);
  read(path, [&](const char* bytes, std::size_t size) {
    crc = crc32(crc, reinterpret_cast<const Bytef*>(bytes), static_cast<uInt>(size));
  });
  return crc;
}

// Raises std::runtime_error unless the program gives bytes with that checksum.
void requireOutput(const std::vector<std::string>& words, uLong crc) {
  std::vector<std::string> arguments = {std::to_string(crc)};
  arguments.insert(arguments.end(), words.begin(), words.end());
  support::python(R"(
import subprocess, sys, zlib
program = subprocess.Popen(sys.argv[2:], stdout=subprocess.PIPE)
crc = 0
while block := program.stdout.read(1 << 20):
    crc = zlib.crc32(block, crc)
if program.wait() != 0 or crc != int(sys.argv[1]):
    sys.exit('the output of %s differs' % sys.argv[2])
)",
                  arguments);
}

std::vector<turns::Contender> readers(const std::string& path, const Shape& shape) {
  turns::apart([&] { createPackage(path, shape); });
  std::vector<turns::Contender> all;
  for (const auto& [who, read] : kLibraries) {
    turns::apart([&, who = who, read = read] {
      require(checksum(read, path) == checksum(readPackage, path),
              std::string("the bytes of ") + who + " differ");
    });
    all.push_back({who, [path, read = read] {
                     read(path, [](const char*, std::size_t) { benchmark::ClobberMemory(); });
                   }});
  }
  for (const Program& program : kPrograms) {
    std::vector<std::string> words = program.words;
    words.push_back(path);
    turns::apart([&] {
      if (program.gives) requireOutput(words, checksum(readPackage, path));
    });
    all.push_back({program.who, [words] { turns::become(words); }});
  }
  return all;
}

}  // namespace

void addReadRows(const support::TempDir& folder, std::size_t part) {
  const auto add = [&](const char* row, const char* file, const Shape& shape) {
    const std::string path = (folder / file).string();
    turns::add({row, [=] { return readers(path, shape); }, turns::Place::OwnProcess});
  };
  add("read 100 MB stored", "large.zip",
      {1, 100'000'000 / kContentBlock / part, kContentBlock, false});
  add("read 10,000 entries of 1 KiB, deflated", "small.zip", {10000 / part, 1, 1024, true});
}
