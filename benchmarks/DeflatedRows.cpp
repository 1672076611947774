// A deflated entry as a stream and under an import, against inflate alone and against what a
// plain copy of the entry costs at least.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <minizip/unzip.h>
#include <zlib.h>

#include <benchmark/benchmark.h>

#include "package/QCFPackage.h"

#include "ImportRows.h"
#include "StdioBlocks.h"
#include "support/TempDir.h"

namespace {

// The entry with the audio, as a stream of the package library.
class EntryStream {
public:
  explicit EntryStream(const std::string& path)
      : fPackage(
            pkg::QCFPackageFactory().openPackage(path, std::ios::in, nullptr, nullptr, nullptr)),
        fFile(fPackage->getFile("Mixdown.wav", true)),
        fStream(fFile->open(std::ios::in, false)) {}
  std::istream& operator*() { return *fStream; }

private:
  boost::shared_ptr<pkg::IPackage<>> fPackage;
  pkg::SPRefType<pkg::IPkgFile<>> fFile;
  boost::shared_ptr<pkg::IPkgStream<>> fStream;
};

std::string readAll(const std::function<std::size_t(char*)>& read) {
  std::string all;
  std::vector<char> block(kBlock);
  while (const std::size_t count = read(block.data()))
    all.append(block.data(), count);
  return all;
}

std::size_t readStream(std::istream& stream, char* block) {
  stream.read(block, kBlock);
  return static_cast<std::size_t>(stream.gcount());
}

// The deflated bytes of an entry, and inflate on them without anything else.
class InflateAlone {
public:
  explicit InflateAlone(const std::string& path) {
    const auto package =
        pkg::QCFPackageFactory().openPackage(path, std::ios::in, nullptr, nullptr, nullptr);
    const auto file = package->getFile("Mixdown.wav", true);
    const auto stream = file->open(std::ios::in, true);
    fDeflated = readAll([&](char* block) { return readStream(*stream, block); });
  }
  // Hands each block to `take`.
  template <class Take>
  void inflateAll(Take take) {
    z_stream z{};
    inflateInit2(&z, -MAX_WBITS);
    std::size_t given = 0;
    for (int result = Z_OK; result == Z_OK;) {
      z.next_out = reinterpret_cast<Bytef*>(fBlock.data());
      z.avail_out = static_cast<uInt>(fBlock.size());
      while (z.avail_out != 0 && result == Z_OK) {
        if (z.avail_in == 0) {
          z.next_in = reinterpret_cast<Bytef*>(fDeflated.data()) + given;
          z.avail_in = static_cast<uInt>(std::min<std::size_t>(4096, fDeflated.size() - given));
          given += z.avail_in;
        }
        result = inflate(&z, Z_NO_FLUSH);
      }
      take(fBlock.data(), fBlock.size() - z.avail_out);
    }
    inflateEnd(&z);
  }

private:
  std::string fDeflated;
  std::vector<char> fBlock = std::vector<char>(kBlock);
};

// Inflates an entry as it must be read, 4,096 bytes at a time through stdio. Hands each block of
// `size` bytes to `take`.
template <class Take>
void inflateThroughStdio(const std::string& path, std::int64_t start, std::size_t size, Take take) {
  StdioFile file(path);
  z_stream z{};
  inflateInit2(&z, -MAX_WBITS);
  std::vector<char> block(size);
  char input[4096];
  for (int result = Z_OK; result == Z_OK;) {
    z.next_out = reinterpret_cast<Bytef*>(block.data());
    z.avail_out = static_cast<uInt>(block.size());
    while (z.avail_out != 0 && result == Z_OK) {
      if (z.avail_in == 0) {
        z.next_in = reinterpret_cast<Bytef*>(input);
        z.avail_in = static_cast<uInt>(file.read(start, input, sizeof(input)));
        start += z.avail_in;
      }
      result = inflate(&z, Z_NO_FLUSH);
    }
    take(block.data(), block.size() - z.avail_out);
  }
  inflateEnd(&z);
}

// Where the data of the second entry, the audio, starts: behind its local header.
std::int64_t dataStart(const std::string& path) {
  const std::string bytes = support::readFile(path);
  const std::size_t header = bytes.find("PK\3\4", 4);
  const auto two = [&](std::size_t at) {
    return static_cast<unsigned char>(bytes[at]) | static_cast<unsigned char>(bytes[at + 1]) << 8;
  };
  return static_cast<std::int64_t>(header) + 30 + two(header + 26) + two(header + 28);
}

void requireSameBytes(const std::string& ours, const std::string& theirs, const char* who) {
  if (ours != theirs) throw std::runtime_error(std::string("the bytes of ") + who + " differ");
}

turns::Contender stdioInflate(const std::string& path) {
  return {"inflate behind stdio", [path, start = dataStart(path)] {
            inflateThroughStdio(path, start, kBlock,
                                [](const char*, std::size_t) { benchmark::ClobberMemory(); });
          }};
}

turns::Contender stdioInflate(const std::string& path, const std::string& expected) {
  std::string all;
  inflateThroughStdio(path, dataStart(path), kBlock,
                      [&](const char* block, std::size_t count) { all.append(block, count); });
  requireSameBytes(expected, all, "inflate behind stdio");
  return stdioInflate(path);
}

// And writes the plain copy, 4,096 bytes at a time through stdio.
void copyThroughStdio(const std::string& path, std::int64_t start, const std::string& copy) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(copy.c_str(), "w+b"),
                                                            std::fclose);
  inflateThroughStdio(path, start, 4096, [&](const char* block, std::size_t count) {
    std::fwrite(block, 1, count, out.get());
  });
}

turns::Contender stdioCopy(const std::string& path, const std::string& expected) {
  const std::string copy = path + ".copy";
  const std::int64_t start = dataStart(path);
  copyThroughStdio(path, start, copy);
  requireSameBytes(expected, support::readFile(copy), "the copy by stdio");
  return {"the copy by stdio", [=] { copyThroughStdio(path, start, copy); },
          [=] { std::remove(copy.c_str()); }};
}

// And imports from it.
turns::Contender stdioImport(const Files& files, const Pattern& pattern) {
  const std::string copy = files.deflated + ".copied";
  const Way way{"the copy by stdio, and conversion", [=, start = dataStart(files.deflated)] {
                  copyThroughStdio(files.deflated, start, copy);
                  return openStdio(copy, 16, 2);
                }};
  requireSameAnswers({{"libsndfile", [=] { return openSndfile(files.wave); }}, way}, pattern, 2);
  const auto buffers = std::make_shared<Channels>(2, pattern.frames);
  return {way.who,
          [=] {
            const std::unique_ptr<AudioSource> source = way.open();
            for (const std::int64_t position : pattern.positions)
              source->read(position, pattern.frames, buffers->data());
          },
          [=] { std::remove(copy.c_str()); }};
}

turns::Contender inflateAlone(const std::string& path, const std::string& expected) {
  const auto floor = std::make_shared<InflateAlone>(path);
  std::string all;
  floor->inflateAll([&](const char* block, std::size_t count) { all.append(block, count); });
  requireSameBytes(expected, all, "inflate");
  return {"inflate alone", [floor] {
            floor->inflateAll([](const char*, std::size_t) { benchmark::ClobberMemory(); });
          }};
}

template <class Take>
void readMinizip(const std::string& path, Take take) {
  const unzFile file = unzOpen64(path.c_str());
  if (file == nullptr || unzLocateFile(file, "Mixdown.wav", 1) != UNZ_OK ||
      unzOpenCurrentFile(file) != UNZ_OK) {
    throw std::runtime_error("minizip cannot open " + path);
  }
  std::vector<char> block(kBlock);
  for (int count = 0; (count = unzReadCurrentFile(file, block.data(), kBlock)) > 0;)
    take(block.data(), static_cast<std::size_t>(count));
  unzClose(file);
}

void readEntry(const std::string& path) {
  EntryStream stream(path);
  std::vector<char> block(kBlock);
  while (readStream(*stream, block.data()) != 0)
    benchmark::ClobberMemory();
}

turns::Contender minizip(const std::string& path, const std::string& expected) {
  std::string all;
  readMinizip(path, [&](const char* block, std::size_t count) { all.append(block, count); });
  requireSameBytes(expected, all, "minizip");
  return {"minizip", [path] {
            readMinizip(path, [](const char*, std::size_t) { benchmark::ClobberMemory(); });
          }};
}

std::vector<turns::Contender> deflatedStream(const std::string& path) {
  EntryStream stream(path);
  const std::string bytes = readAll([&](char* block) { return readStream(*stream, block); });
  return {{"stream", [path] { readEntry(path); }},
          inflateAlone(path, bytes),
          stdioInflate(path, bytes),
          minizip(path, bytes)};
}

// The importer moves to the start of the audio before each block, so its second block makes the
// plain copy of the entry.
std::vector<turns::Contender> deflatedImport(const Files& files) {
  const Pattern pattern = frontToBack(4096);
  requireSameAnswers({{"deflated", [=] { return openBundle(files.deflated); }},
                      {"libsndfile", [=] { return openSndfile(files.wave); }}},
                     pattern, 2);
  const auto buffers = std::make_shared<Channels>(2, pattern.frames);
  const auto source = std::make_shared<std::shared_ptr<AudioSource>>();
  EntryStream stream(files.deflated);
  const std::string bytes = readAll([&](char* block) { return readStream(*stream, block); });
  return {{"importer",
           [=] {
             for (const std::int64_t position : pattern.positions)
               (*source)->read(position, pattern.frames, buffers->data());
           },
           [=] { *source = openBundle(files.deflated); }},
          inflateAlone(files.deflated, bytes),
          minizip(files.deflated, bytes),
          stdioCopy(files.deflated, bytes),
          stdioImport(files, pattern)};
}

// The byte there.
int seekTo(std::istream& stream, std::streamoff position) {
  stream.seekg(position);
  return stream.get();
}

std::vector<turns::Contender> firstSeek(const std::string& path) {
  EntryStream stream(path);
  const std::string bytes = readAll([&](char* block) { return readStream(*stream, block); });
  const auto entry = std::make_shared<std::unique_ptr<EntryStream>>();
  const auto prepare = [=] { *entry = std::make_unique<EntryStream>(path); };
  const std::size_t middle = bytes.size() / 2;
  const auto seek = [=] {
    if (seekTo(***entry, static_cast<std::streamoff>(middle)) !=
        static_cast<unsigned char>(bytes[middle])) {
      throw std::runtime_error("the byte behind a seek differs");
    }
  };
  return {{"stream", seek, prepare}, inflateAlone(path, bytes), stdioCopy(path, bytes)};
}

// As the plain copy of an entry is written. The sizes of the writes decide in how large pieces a
// file lies in the page cache.
void copyInPages(const std::string& from, const std::string& to) {
  constexpr std::size_t kPage = 4096;
  const std::string bytes = support::readFile(from);
  std::ofstream out(to, std::ios::binary);
  for (std::size_t at = 0; at < bytes.size(); at += kPage)
    out.write(bytes.data() + at, static_cast<std::streamsize>(std::min(kPage, bytes.size() - at)));
  if (!out.flush()) throw std::runtime_error("cannot write " + to);
}

}  // namespace

void addDeflatedRows(const Files& files) {
  const std::string path = files.deflated;
  const turns::Contender minizip{"minizip",
                                 [=] { readMinizip(path, [](const char*, std::size_t) {}); }};

  const auto addRow = [&](const char* name,
                          const std::function<std::vector<turns::Contender>()>& open,
                          std::vector<turns::Contender> whole) {
    turns::Row row{std::string(name) + ", deflated, 16 bit", [=] {
                     moveInMemory(files);
                     return open();
                   }};
    row.whole = std::move(whole);
    turns::add(std::move(row));
  };
  const Way import{"importer", [=] { return openBundle(path); }};
  const Way storedInPages{"the same, stored in pages", [=, to = files.stored + ".pages"] {
                            copyInPages(files.stored, to);
                            return openBundle(to);
                          }};
  const Ways either = {
      import, {"the same, stored", [=] { return openBundle(files.stored); }}, storedInPages};

  addRow("entry front to back", [=] { return deflatedStream(path); },
         {{"stream", [=] { readEntry(path); }}, minizip});
  addRow("import front to back", [=] { return deflatedImport(files); },
         {wholes({import}, frontToBack(4096), 2)[0], minizip});
  addRow("first real seek", [=] { return firstSeek(path); },
         {{"stream", [=] { seekTo(*EntryStream(path), kFrames * 2); }}, stdioInflate(path)});
  addRow(
      "random stretches after it", [=] { return contenders(either, randomStretches(), 2); },
      wholes(either, randomStretches(), 2));
}
