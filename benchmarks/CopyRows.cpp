// Saving an unchanged package to another file and appending to one where it stands, against
// libzip, minizip and programs.

#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <minizip/unzip.h>
#include <minizip/zip.h>
#include <zip.h>
#include <zlib.h>

#include "PackageRows.h"
#include "PlainZip.h"
#include "Turns.h"

namespace {

void saveLibzip(const std::string& from, const std::string& to) {
  zip_t* const source = zip_open(from.c_str(), ZIP_RDONLY, nullptr);
  zip_t* const target = zip_open(to.c_str(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
  require(source != nullptr && target != nullptr, "libzip cannot open");
  for (zip_int64_t i = 0; i < zip_get_num_entries(source, 0); ++i) {
    const auto index = static_cast<zip_uint64_t>(i);
    zip_source_t* const data = zip_source_zip(target, source, index, ZIP_FL_COMPRESSED, 0, -1);
    const zip_int64_t copy = zip_file_add(target, zip_get_name(source, index, 0), data, 0);
    zip_stat_t status;
    zip_stat_index(source, index, 0, &status);
    // Else it would be deflated.
    zip_set_file_compression(target, static_cast<zip_uint64_t>(copy), status.comp_method, 0);
  }
  require(zip_close(target) == 0, "libzip cannot close");
  zip_discard(source);
}

// Moves one entry as it is.
void moveRaw(unzFile from, zipFile to) {
  unz_file_info64 info;
  char name[256];
  unzGetCurrentFileInfo64(from, &info, name, sizeof name, nullptr, 0, nullptr, 0);
  int method = 0;
  int level = 0;
  require(unzOpenCurrentFile2(from, &method, &level, 1) == UNZ_OK, "minizip cannot read");
  const zip_fileinfo fileInfo{};
  require(zipOpenNewFileInZip2(to, name, &fileInfo, nullptr, 0, nullptr, 0, nullptr, method, level,
                               1) == ZIP_OK,
          "minizip cannot write");
  std::vector<char> block(kContentBlock);
  for (int count = 0; (count = unzReadCurrentFile(from, block.data(), kContentBlock)) > 0;)
    zipWriteInFileInZip(to, block.data(), static_cast<unsigned>(count));
  zipCloseFileInZipRaw64(to, info.uncompressed_size, info.crc);
  unzCloseCurrentFile(from);
}

void saveMinizip(const std::string& from, const std::string& to) {
  const unzFile source = unzOpen64(from.c_str());
  const zipFile target = zipOpen64(to.c_str(), APPEND_STATUS_CREATE);
  require(source != nullptr && target != nullptr, "minizip cannot open");
  for (int result = unzGoToFirstFile(source); result == UNZ_OK; result = unzGoToNextFile(source))
    moveRaw(source, target);
  unzClose(source);
  require(zipClose(target, nullptr) == ZIP_OK, "minizip cannot close");
}

std::vector<turns::Contender> savers(const Shape& shape) {
  const auto folder = std::make_shared<support::TempDir>();
  const std::string from = (*folder / "package.zip").string();
  turns::apart([&] { createPackage(from, shape); });
  std::vector<turns::Contender> all;
  const auto enlist = [&](const char* who, const std::function<void(const std::string&)>& save) {
    const std::string to = (*folder / (std::string("saved-") + who + ".zip")).string();
    turns::apart([&] { save(to); });
    turns::apart([&] { requireSameEntries(from, to); });
    all.push_back(
        {who, [=] { save(to); }, {}, false, [folder, to] { std::filesystem::remove(to); }});
    all.back().cleanUp();
  };
  enlist("package", [=](const std::string& to) { savePackage(from, to); });
  enlist("libzip", [=](const std::string& to) { saveLibzip(from, to); });
  enlist("minizip", [=](const std::string& to) { saveMinizip(from, to); });
  enlist("cp", [=](const std::string& to) { turns::become({"cp", from, to}); });
  return all;
}

void appendLibzip(const std::string& path, const std::string& name) {
  zip_t* const archive = zip_open(path.c_str(), 0, nullptr);
  require(archive != nullptr, "libzip cannot open");
  zip_source_t* const data = zip_source_buffer(archive, content(1), 1024, 0);
  zip_file_add(archive, name.c_str(), data, 0);
  require(zip_close(archive) == 0, "libzip cannot close");
}

void appendMinizip(const std::string& path, const std::string& name) {
  const zipFile file = zipOpen64(path.c_str(), APPEND_STATUS_ADDINZIP);
  require(file != nullptr, "minizip cannot open");
  const zip_fileinfo info{};
  zipOpenNewFileInZip(file, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED,
                      Z_DEFAULT_COMPRESSION);
  zipWriteInFileInZip(file, content(1), 1024);
  require(zipClose(file, nullptr) == ZIP_OK, "minizip cannot close");
}

// Who leaves the old data where it is, and who writes the file anew. The former are so much faster
// that they have a row of their own, with many rounds.
enum class Appending { Only, OrRewriting };

// What is appended has a new name each time; the programs take it from a file of that name. Each
// contender has a package of its own, which keeps what was appended in earlier rounds.
class Appenders {
public:
  Appenders(const Shape& shape, Appending appending) {
    turns::apart([&] { createPackage(path("old"), shape); });
    enlist("package", appendToPackage);
    if (appending == Appending::Only) {
      enlistAppending();
    } else {
      enlistRewriting();
    }
    for (const turns::Contender& one : all)
      turns::apart([&] { requireSameEntries(path("package"), path(one.who)); });
    std::filesystem::remove(path("old"));
    if (appending == Appending::Only) {
      all.push_back({kDeflateAlone, [] { deflateAlone({1, 1, 1024, true}, 1); }, {}, true});
    }
  }

  std::vector<turns::Contender> all;

private:
  using Append = std::function<void(const std::string& path, const std::string& name)>;

  void enlistAppending() {
    enlist("minizip", appendMinizip);
    enlist(kPlainZip, appendPlainZip);
    all.back().isFloor = true;
  }

  void enlistRewriting() {
    enlist("libzip", appendLibzip);
    enlist("zip", [this](const std::string& to, const std::string& name) {
      turns::become({"zip", "-q", to, name}, fFolder.path().string());
    });
    enlist("7z", [this](const std::string& to, const std::string& name) {
      turns::become({"7z", "a", "-tzip", "-mx=1", to, name}, fFolder.path().string());
    });
  }

  std::string path(const std::string& who) const { return (fFolder / (who + ".zip")).string(); }

  void enlist(const char* who, const Append& append) {
    std::filesystem::copy_file(path("old"), path(who));
    const auto next = std::make_shared<int>(0);
    const auto work = [to = path(who), append, next] { append(to, "new" + std::to_string(*next)); };
    const auto prepare = [this, next] {
      fFolder.write("new" + std::to_string(++*next), {content(1), 1024});
    };
    prepare();
    turns::apart(work);
    all.push_back({who, work, prepare});
  }

  support::TempDir fFolder;
};

std::vector<turns::Contender> appenders(const Shape& shape, Appending appending) {
  const auto state = std::make_shared<Appenders>(shape, appending);
  std::vector<turns::Contender> all = state->all;
  for (turns::Contender& one : all)
    one.prepare = [state, prepare = one.prepare] {
      if (prepare) prepare();
    };
  return all;
}

}  // namespace

void addCopyRows(std::size_t part) {
  const Shape large{10, 1'000'000'000 / 10 / kContentBlock / part, kContentBlock, false};
  turns::add({"save 1 GB under another name", [=] { return savers(large); },
              turns::Place::OwnProcess, true});
  const Shape many{10000 / part, 1, 1024, true};
  for (const auto& [name, shape] : {std::pair{"append 1 KiB to 1 GB", large},
                                    std::pair{"append 1 KiB to 10,000 entries", many}}) {
    const auto add = [&, shape = shape](const std::string& row, Appending appending) {
      turns::add({row, [=] { return appenders(shape, appending); }, turns::Place::OwnProcess,
                  shape.entries == large.entries});
    };
    add(name, Appending::OrRewriting);
    add(std::string(name) + ", many rounds", Appending::Only);
  }
}
