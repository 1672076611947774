// Creating packages from memory, against libzip, minizip and libarchive in process, and against
// programs that read the same from files.

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <archive.h>
#include <archive_entry.h>
#include <minizip/zip.h>
#include <zip.h>
#include <zlib.h>

#include <benchmark/benchmark.h>

#include "PackageRows.h"
#include "PlainZip.h"
#include "Turns.h"

namespace {

void createMinizip(const std::string& path, const Shape& shape) {
  const zipFile file = zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
  const zip_fileinfo info{};
  const int method = shape.deflate ? Z_DEFLATED : 0;
  for (std::size_t entry = 0; entry < shape.entries; ++entry) {
    zipOpenNewFileInZip(file, shape.name(entry).c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                        method, Z_DEFAULT_COMPRESSION);
    for (std::size_t block = 0; block < shape.blocks; ++block)
      zipWriteInFileInZip(file, content(entry + block), static_cast<unsigned>(shape.blockSize));
    zipCloseFileInZip(file);
  }
  require(zipClose(file, nullptr) == ZIP_OK, "minizip cannot close");
}

// libzip asks for the data of an entry when it closes the archive.
struct Supply {
  const Shape* shape;
  std::size_t entry;
  std::size_t at = 0;

  std::size_t give(void* data, std::size_t size) {
    const std::size_t inside = at % shape->blockSize;
    const std::size_t count = std::min({size, shape->entrySize() - at, shape->blockSize - inside});
    std::memcpy(data, content(entry + at / shape->blockSize) + inside, count);
    at += count;
    return count;
  }

  static zip_int64_t answer(void* self, void* data, zip_uint64_t size, zip_source_cmd_t command) {
    auto& supply = *static_cast<Supply*>(self);
    switch (command) {
      case ZIP_SOURCE_OPEN:
        supply.at = 0;
        return 0;
      case ZIP_SOURCE_READ:
        return static_cast<zip_int64_t>(supply.give(data, size));
      case ZIP_SOURCE_STAT: {
        auto* const status = static_cast<zip_stat_t*>(data);
        zip_stat_init(status);
        status->size = supply.shape->entrySize();
        status->valid = ZIP_STAT_SIZE;
        return sizeof *status;
      }
      case ZIP_SOURCE_SUPPORTS:
        return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                              ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE,
                                              -1);
      default:
        return 0;
    }
  }
};

void createLibzip(const std::string& path, const Shape& shape) {
  zip_t* const archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
  require(archive != nullptr, "libzip cannot create");
  std::vector<Supply> supplies(shape.entries);
  for (std::size_t entry = 0; entry < shape.entries; ++entry) {
    supplies[entry] = {&shape, entry};
    zip_source_t* const source = zip_source_function(archive, Supply::answer, &supplies[entry]);
    const zip_int64_t index = zip_file_add(archive, shape.name(entry).c_str(), source, 0);
    zip_set_file_compression(archive, static_cast<zip_uint64_t>(index),
                             shape.deflate ? ZIP_CM_DEFLATE : ZIP_CM_STORE, 6);
  }
  require(zip_close(archive) == 0, "libzip cannot close");
}

void createLibarchive(const std::string& path, const Shape& shape) {
  archive* const writer = archive_write_new();
  archive_write_set_format_zip(writer);
  // Large blocks go out as they are, small entries many at a time.
  archive_write_set_bytes_per_block(writer, shape.entries == 1 ? 0 : 65536);
  if (shape.deflate) {
    archive_write_zip_set_compression_deflate(writer);
  } else {
    archive_write_zip_set_compression_store(writer);
  }
  require(archive_write_open_filename(writer, path.c_str()) == ARCHIVE_OK,
          "libarchive cannot create");
  archive_entry* const entry = archive_entry_new();
  for (std::size_t number = 0; number < shape.entries; ++number) {
    archive_entry_clear(entry);
    archive_entry_set_pathname(entry, shape.name(number).c_str());
    archive_entry_set_filetype(entry, AE_IFREG);
    archive_entry_set_perm(entry, 0644);
    archive_entry_set_size(entry, static_cast<la_int64_t>(shape.entrySize()));
    archive_write_header(writer, entry);
    for (std::size_t block = 0; block < shape.blocks; ++block)
      archive_write_data(writer, content(number + block), shape.blockSize);
  }
  archive_entry_free(entry);
  require(archive_write_close(writer) == ARCHIVE_OK, "libarchive cannot close");
  archive_write_free(writer);
}

// The programs' input: a file for each entry, and the list of them.
void makeFiles(const support::TempDir& folder, const std::filesystem::path& files,
               const Shape& shape) {
  std::filesystem::remove_all(files);
  std::filesystem::create_directory(files);
  std::string list;
  for (std::size_t entry = 0; entry < shape.entries; ++entry) {
    std::string bytes;
    for (std::size_t block = 0; block < shape.blocks; ++block)
      bytes.append(content(entry + block), shape.blockSize);
    support::writeFile(files / shape.name(entry), bytes);
    list += shape.name(entry) + "\n";
  }
  folder.write("list", list);
}

// How each program is told to do the same, as quickly as it can.
std::vector<std::vector<std::string>> programs(const support::TempDir& folder, const Shape& shape) {
  const std::string list = (folder / "list").string();
  const bool deflate = shape.deflate;
  return {{"zip", "-q", "-X", "-r", deflate ? "-6" : "-0", (folder / "zip.zip").string(), "."},
          {"bsdtar", "--format", "zip", "--options",
           deflate ? "compression=deflate" : "compression=store", "-cf",
           (folder / "bsdtar.zip").string(), "-T", list},
          {"7z", "a", "-tzip", deflate ? "-mx=1" : "-mx=0", "-mmt=off",
           (folder / "7z.zip").string(), "@" + list}};
}

// Each entry with a state of its own.
turns::Contender deflateAlone(const Shape& shape) {
  return {kDeflateAlone,
          [=] {
            keepHeap();
            for (std::size_t entry = 0; entry < shape.entries; ++entry)
              deflateAlone(shape, entry);
          },
          {},
          true};
}

using Create = void (*)(const std::string&, const Shape&);

// The contenders of a row keep its folder.
std::vector<turns::Contender> creators(const Shape& shape) {
  const auto kept = std::make_shared<support::TempDir>();
  const support::TempDir& folder = *kept;
  std::vector<turns::Contender> all;
  const auto enlist = [&](const std::string& who, const std::function<void()>& work) {
    const std::string path = (folder / (who + ".zip")).string();
    turns::apart(work);
    turns::apart([&] { requireSameEntries((folder / "package.zip").string(), path); });
    all.push_back({who, work, {}, false, [kept, path] { std::filesystem::remove(path); }});
  };
  const auto enlistLibrary = [&](const std::string& who, Create create) {
    const std::string path = (folder / (who + ".zip")).string();
    enlist(who, [=] { create(path, shape); });
  };
  enlistLibrary("package", createPackage);
  enlistLibrary("libzip", createLibzip);
  enlistLibrary("minizip", createMinizip);
  enlistLibrary("libarchive", createLibarchive);
  enlistLibrary(kPlainZip, createPlainZip);
  all.back().isFloor = true;
  const std::string files = (folder / "files").string();
  turns::apart([&] { makeFiles(folder, files, shape); });
  for (const auto& words : programs(folder, shape))
    enlist(words[0], [=] { turns::become(words, files); });
  for (const turns::Contender& one : all)
    one.cleanUp();
  if (shape.deflate) all.push_back(deflateAlone(shape));
  return all;
}

std::vector<turns::Contender> oneDeflated(const Shape& shape, bool withPrototype) {
  const auto folder = std::make_shared<support::TempDir>();
  const auto archive = [&](const char* name) { return (*folder / name).string(); };
  // Made in a moment, as it is stored; holds the same entry.
  const std::string expected = archive("expected.zip");
  turns::apart([&] { createPlainZip(expected, {1, shape.blocks, shape.blockSize, false}); });
  std::vector<turns::Contender> all;
  const auto enlist = [&](const char* who, const std::string& path, Create create) {
    const auto work = [=] { create(path, shape); };
    turns::apart(work);
    turns::apart([&] { requireSameEntries(expected, path); });
    all.push_back({who, work, {}, false, [folder, path] { std::filesystem::remove(path); }});
    all.back().cleanUp();
  };
  enlist("package", archive("deflated.zip"), createPackage);
  if (withPrototype) {
    enlist(kPlainZip, archive("plain.zip"), createPlainZip);
    all.back().isFloor = true;
  }
  std::filesystem::remove(expected);
  all.push_back(deflateAlone(shape));
  return all;
}

}  // namespace

void addCreateRows(std::size_t part) {
  const Shape small{10000 / part, 1, 1024, true};
  turns::add({"create 10,000 entries of 1 KiB, deflated", [=] { return creators(small); },
              turns::Place::OwnProcess});
  const std::size_t blocks = 500'000'000 / kContentBlock / part;
  const Shape stored{1, blocks, kContentBlock, false};
  turns::add(
      {"create 500 MB stored", [=] { return creators(stored); }, turns::Place::OwnProcess, true});
  // As large as the goal has it, and short enough to have the prototype beside it.
  const auto addDeflated = [&](const char* name, std::size_t size, bool withPrototype) {
    const Shape deflated{1, size, kContentBlock, true};
    turns::add({name, [=] { return oneDeflated(deflated, withPrototype); },
                turns::Place::OwnProcess, !withPrototype});
  };
  addDeflated("create 25 MB deflated", blocks / 20, true);
  addDeflated("create 500 MB deflated", blocks, false);
}
