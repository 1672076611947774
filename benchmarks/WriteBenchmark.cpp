// Creating, saving and appending to packages, against libzip, minizip, zip and cp. Every run has a
// process of its own, so that its time and its peak memory are its own; contenders take turns, and
// the answer of each is tested by unzip before anything is timed. Arguments: --quick for a fiftieth
// of the sizes, a folder to work in.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <minizip/unzip.h>
#include <minizip/zip.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zip.h>

#include "package/QCFPackage.h"

namespace {

constexpr auto kNew = std::ios::in | std::ios::out | std::ios::trunc;
constexpr std::size_t kBlock = 1 << 16;

struct Run {
  double seconds = 0;
  long peakKiB = 0;
};

struct Contender {
  std::string name;
  std::function<void()> work;
  std::string result;  // the file to test; empty for none
};

void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

// Half text, half noise, different in every block.
const char* content(std::size_t block) {
  static std::vector<char> bytes(4 * kBlock);
  static const bool filled = [] {
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      state = state * 1664525 + 1013904223;
      bytes[i] = static_cast<char>(i / 512 % 2 ? state >> 24 : 'a' + (state >> 28));
    }
    return true;
  }();
  static_cast<void>(filled);
  return bytes.data() + block * 4099 % (3 * kBlock);
}

Run measure(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) {
    try {
      work();
      _exit(0);
    } catch (const std::exception& e) {
      std::fprintf(stderr, "%s\n", e.what());
    }
    _exit(1);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "a contender failed");
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  return {elapsed.count(), usage.ru_maxrss};
}

void program(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  for (const std::string& word : words)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  throw std::runtime_error("cannot run " + words[0]);
}

void contest(const char* title, const std::vector<Contender>& contenders, int rounds) {
  for (const Contender& contender : contenders) {
    measure(contender.work);
    if (contender.result.empty()) continue;
    const std::string test = "unzip -tq '" + contender.result + "' >/dev/null";
    require(std::system(test.c_str()) == 0, "unzip objects to an answer");
  }
  std::map<std::string, std::vector<Run>> runs;
  for (int round = 0; round < rounds; ++round) {
    for (const Contender& contender : contenders)
      runs[contender.name].push_back(measure(contender.work));
  }
  double ours = 0;
  for (const Contender& contender : contenders) {
    auto& all = runs[contender.name];
    std::sort(all.begin(), all.end(),
              [](const Run& a, const Run& b) { return a.seconds < b.seconds; });
    const Run& median = all[all.size() / 2];
    if (ours == 0) ours = median.seconds;
    std::printf("%-32s %-10s %9.3f s (%.3f to %.3f) %8.2f times ours %7.1f MiB\n", title,
                contender.name.c_str(), median.seconds, all.front().seconds, all.back().seconds,
                median.seconds / ours, static_cast<double>(median.peakKiB) / 1024);
    std::fflush(stdout);
  }
}

// Entries of one size each, from memory.
struct Shape {
  std::size_t entries;
  std::size_t blocks;  // of `blockSize` bytes
  std::size_t blockSize;
  bool deflate;

  std::string name(std::size_t entry) const { return "entry" + std::to_string(entry); }
};

void createOurs(const std::string& path, const Shape& shape) {
  pkg::QCFPackageFactory factory;
  const auto package = factory.openPackage(path, kNew, nullptr, nullptr, nullptr);
  package->beginUpdate();
  for (std::size_t entry = 0; entry < shape.entries; ++entry) {
    const auto file = package->getFile(shape.name(entry), false);
    file->setCompressionMethod(shape.deflate ? pkg::CompressionDeflated : pkg::CompressionStored);
    const auto stream = file->open(std::ios::out, false);
    for (std::size_t block = 0; block < shape.blocks; ++block)
      stream->write(content(entry + block), static_cast<std::streamsize>(shape.blockSize));
    stream->close();
  }
  package->endUpdate();
  package->close();
}

void createMinizip(const std::string& path, const Shape& shape) {
  zipFile file = zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
  zip_fileinfo info{};
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

  static zip_int64_t answer(void* self, void* data, zip_uint64_t size, zip_source_cmd_t command) {
    auto& supply = *static_cast<Supply*>(self);
    const std::size_t total = supply.shape->blocks * supply.shape->blockSize;
    switch (command) {
      case ZIP_SOURCE_OPEN:
        supply.at = 0;
        return 0;
      case ZIP_SOURCE_READ: {
        const std::size_t block = supply.at / supply.shape->blockSize;
        const std::size_t inside = supply.at % supply.shape->blockSize;
        const std::size_t count = std::min(
            {static_cast<std::size_t>(size), total - supply.at, supply.shape->blockSize - inside});
        std::memcpy(data, content(supply.entry + block) + inside, count);
        supply.at += count;
        return static_cast<zip_int64_t>(count);
      }
      case ZIP_SOURCE_STAT: {
        auto* const status = static_cast<zip_stat_t*>(data);
        zip_stat_init(status);
        status->size = total;
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

void create(const char* title, const std::string& folder, const Shape& shape, int rounds) {
  std::vector<Contender> contenders;
  const auto add = [&](const char* name, void (*work)(const std::string&, const Shape&)) {
    const std::string path = folder + "/" + name + ".zip";
    contenders.push_back({name, [=] { work(path, shape); }, path});
  };
  add("ours", createOurs);
  add("libzip", createLibzip);
  add("minizip", createMinizip);
  contest(title, contenders, rounds);
}

void saveLibzip(const std::string& from, const std::string& to) {
  zip_t* const source = zip_open(from.c_str(), ZIP_RDONLY, nullptr);
  zip_t* const target = zip_open(to.c_str(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
  for (zip_int64_t i = 0; i < zip_get_num_entries(source, 0); ++i) {
    const auto index = static_cast<zip_uint64_t>(i);
    zip_source_t* const data = zip_source_zip(target, source, index, ZIP_FL_COMPRESSED, 0, -1);
    zip_file_add(target, zip_get_name(source, index, 0), data, 0);
  }
  require(zip_close(target) == 0, "libzip cannot close");
  zip_discard(source);
}

void saveOurs(const std::string& from, const std::string& to) {
  pkg::QCFPackageFactory factory;
  const auto package = factory.openPackage(from, std::ios::in, nullptr, nullptr, nullptr);
  package->saveAs(to, kNew);
  package->close();
}

void appendOurs(const std::string& path, std::size_t number) {
  pkg::QCFPackageFactory factory;
  const auto package =
      factory.openPackage(path, std::ios::in | std::ios::out, nullptr, nullptr, nullptr);
  const auto stream =
      package->getFile("new" + std::to_string(number), false)->open(std::ios::out, false);
  stream->write(content(number), 1024);
  stream->close();
  package->doUNSAFEUpdateInPlace();
  package->close();
}

void appendLibzip(const std::string& path, std::size_t number) {
  zip_t* const archive = zip_open(path.c_str(), 0, nullptr);
  require(archive != nullptr, "libzip cannot open");
  zip_source_t* const data = zip_source_buffer(archive, content(number), 1024, 0);
  zip_file_add(archive, ("new" + std::to_string(number)).c_str(), data, 0);
  require(zip_close(archive) == 0, "libzip cannot close");
}

void appendMinizip(const std::string& path, std::size_t number) {
  zipFile file = zipOpen64(path.c_str(), APPEND_STATUS_ADDINZIP);
  zip_fileinfo info{};
  zipOpenNewFileInZip(file, ("new" + std::to_string(number)).c_str(), &info, nullptr, 0, nullptr, 0,
                      nullptr, Z_DEFLATED, Z_DEFAULT_COMPRESSION);
  zipWriteInFileInZip(file, content(number), 1024);
  zipCloseFileInZip(file);
  require(zipClose(file, nullptr) == ZIP_OK, "minizip cannot close");
}

// Each contender appends to a copy of its own, another entry every time.
void append(const char* title, const std::string& folder, const std::string& package, int rounds) {
  std::vector<Contender> contenders;
  const auto add = [&](const char* name,
                       std::function<void(const std::string&, std::size_t)> work) {
    const std::string path = folder + "/" + name + ".zip";
    std::filesystem::copy_file(package, path, std::filesystem::copy_options::overwrite_existing);
    const auto another = [=] { work(path, static_cast<std::size_t>(getpid())); };
    contenders.push_back({name, another, path});
  };
  add("ours", appendOurs);
  add("minizip", appendMinizip);
  add("libzip", appendLibzip);
  add("zip", [&](const std::string& path, std::size_t value) {
    const std::string name = folder + "/new" + std::to_string(value);
    std::FILE* const file = std::fopen(name.c_str(), "wb");
    std::fwrite(content(value), 1, 1024, file);
    std::fclose(file);
    program({"zip", "-q", "-j", path, name});
  });
  contest(title, contenders, rounds);
}

int run(int argc, char** argv) {
  std::size_t part = 1;
  std::string folder = ".";
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quick") == 0) {
      part = 50;
    } else {
      folder = argv[i];
    }
  }
  folder += "/write-benchmark." + std::to_string(getpid());
  std::filesystem::create_directories(folder);
  const int rounds = part == 1 ? 5 : 3;
  const std::size_t megabyte = 1000 * 1000;

  create("10,000 entries of 1 KiB", folder, {10000 / part, 1, 1024, true}, rounds);
  const std::size_t blocks = 500 * megabyte / kBlock / part;
  create("500 MB, stored", folder, {1, blocks, kBlock, false}, rounds);
  create("500 MB, deflated", folder, {1, blocks, kBlock, true}, 3);

  const std::string package = folder + "/package.zip";
  createOurs(package, {10, 2 * blocks / 10, kBlock, false});
  contest("save 1 GB as",
          {{"ours", [&] { saveOurs(package, folder + "/ours.zip"); }, folder + "/ours.zip"},
           {"libzip", [&] { saveLibzip(package, folder + "/libzip.zip"); }, folder + "/libzip.zip"},
           {"cp",
            [&] {
              program({"cp", package, folder + "/cp.zip"});
            },
            folder + "/cp.zip"}},
          rounds);
  append("append 1 KiB to 1 GB", folder, package, rounds);
  createOurs(package, {10000 / part, 1, 1024, true});
  append("append 1 KiB to 10,000 entries", folder, package, rounds);
  std::filesystem::remove_all(folder);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "write_benchmark: %s\n", e.what());
    return 1;
  }
}
