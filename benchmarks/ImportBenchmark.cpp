// Audio of a sound document through the importer's bundle, as one buffer of floats a channel,
// against libraries that read the same WAV file, and against the floor of inflate alone.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <minizip/unzip.h>
#include <zlib.h>

#include <benchmark/benchmark.h>

#include "package/QCFPackage.h"

#include "AudioSources.h"
#include "Turns.h"
#include "support/Run.h"
#include "support/TempDir.h"

namespace {

constexpr std::int64_t kFrames = 48000 * 40;
constexpr std::size_t kBlock = 32768;  // what the importer asks of its stream

struct Format {
  const char* name;
  const char* file;
  int bits;
  std::size_t channels;
  double goal;        // front to back, against libsndfile
  double randomGoal;  // random stretches
};
constexpr Format kFormats[] = {{"8 bit", "u8", 8, 2, 2.5, 2.0},
                               {"16 bit", "s16", 16, 2, 2.2, 1.8},
                               {"24 bit", "s24", 24, 2, 2.2, 1.6},
                               {"float", "f32", 32, 2, 1.2, 1.4},
                               {"24 bit, 8 channels", "s24x8", 24, 8, 2.0, 1.9}};

struct Files {
  std::string wave;
  std::string stored;
  std::string deflated;
};

// Tones with a little noise, as WAV and as sound documents that hold it stored and deflated.
Files makeFiles(const support::TempDir& folder, const Format& format) {
  const std::string stem = (folder / format.file).string();
  support::python(R"(
import array, math, random, struct, sys, zipfile
stem, bits, channels, frames = sys.argv[1], *map(int, sys.argv[2:5])
random.seed(1)
count = 48000 * channels
values = [0.4 * math.sin(i * 0.01) + 0.3 * math.sin(i * 0.0137) + random.gauss(0, 0.003)
          for i in range(count)]
if bits == 32:
    second = array.array('f', values).tobytes()
elif bits == 8:
    second = bytes(int(128 + 127 * v) for v in values)
else:
    second = b''.join(int(v * (1 << bits - 1)).to_bytes(bits // 8, 'little', signed=True) for v in values)
frame = channels * bits // 8
data = second * (frames // 48000)
with open(stem + '.wav', 'wb') as out:
    out.write(b'RIFF' + struct.pack('<I', 36 + len(data)) + b'WAVEfmt ' + struct.pack(
        '<IHHIIHH', 16, 3 if bits == 32 else 1, channels, 48000, 48000 * frame, frame, bits))
    out.write(b'data' + struct.pack('<I', len(data)) + data)
for suffix, method in ('.stored.qsnd', zipfile.ZIP_STORED), ('.deflated.qsnd', zipfile.ZIP_DEFLATED):
    if method == zipfile.ZIP_DEFLATED and bits != 16:
        continue
    with zipfile.ZipFile(stem + suffix, 'w') as package:
        package.writestr('mimetype', 'application/x-test')
        package.write(stem + '.wav', 'Mixdown.wav', method)
)",
                  {stem, std::to_string(format.bits), std::to_string(format.channels),
                   std::to_string(kFrames)});
  return {stem + ".wav", stem + ".stored.qsnd", stem + ".deflated.qsnd"};
}

// The positions at which an import asks for stretches of `frames`.
struct Pattern {
  std::uint32_t frames;
  std::vector<std::int64_t> positions;
};

Pattern frontToBack(std::uint32_t frames) {
  Pattern pattern{frames, {}};
  for (std::int64_t at = 0; at + frames <= kFrames; at += frames)
    pattern.positions.push_back(at);
  return pattern;
}

Pattern randomStretches() {
  Pattern pattern{1024, {}};
  std::mt19937 numbers(1);
  for (int i = 0; i < 2000; ++i)
    pattern.positions.push_back(static_cast<std::int64_t>(numbers() % (kFrames - 1024)));
  return pattern;
}

using Sources = std::vector<std::pair<std::string, std::shared_ptr<AudioSource>>>;

void requireSameAnswers(const Sources& sources, const Pattern& pattern, std::size_t channels) {
  Channels ours(channels, pattern.frames);
  Channels theirs(channels, pattern.frames);
  for (const std::int64_t position : pattern.positions) {
    sources[0].second->read(position, pattern.frames, ours.data());
    for (std::size_t who = 1; who < sources.size(); ++who) {
      sources[who].second->read(position, pattern.frames, theirs.data());
      for (std::size_t channel = 0; channel < std::min<std::size_t>(channels, 6); ++channel) {
        if (std::memcmp(ours[channel].data(), theirs[channel].data(),
                        pattern.frames * sizeof(float)) != 0) {
          throw std::runtime_error("the answer of " + sources[who].first + " differs");
        }
      }
    }
  }
}

std::vector<turns::Contender> contenders(const Sources& sources, const Pattern& pattern,
                                         std::size_t channels) {
  requireSameAnswers(sources, pattern, channels);
  const auto buffers = std::make_shared<Channels>(channels, pattern.frames);
  std::vector<turns::Contender> all;
  for (const auto& [who, source] : sources) {
    all.push_back({who, [source = source, pattern, buffers] {
                     for (const std::int64_t position : pattern.positions) {
                       source->read(position, pattern.frames, buffers->data());
                       benchmark::ClobberMemory();
                     }
                   }});
  }
  return all;
}

// What an import cannot do without: a seek and a read of a whole block through stdio, with its
// default buffer, wherever a request leaves the block in hand.
turns::Contender stdioAlone(const std::string& path, const Pattern& pattern,
                            std::size_t frameBytes) {
  const std::shared_ptr<std::FILE> file(std::fopen(path.c_str(), "rb"), std::fclose);
  const auto block = std::make_shared<std::vector<char>>(kBlock);
  const auto blockFrames = static_cast<std::int64_t>(kBlock / frameBytes);
  return {
      "stdio alone", [=] {
        std::int64_t held = -blockFrames;
        for (const std::int64_t position : pattern.positions) {
          for (std::int64_t at = position; at < position + pattern.frames;) {
            if (at < held || at >= held + blockFrames) {
              held = at;
              // The importer's stream sits on odd offsets too.
              fseeko(file.get(), 61 + at * static_cast<std::int64_t>(frameBytes), SEEK_SET);
              if (std::fread(block->data(), 1, frameBytes * static_cast<std::size_t>(blockFrames),
                             file.get()) == 0) {
                return;
              }
            }
            at = held + blockFrames;
          }
        }
      }};
}

void addStoredRows(const Format& format, const Files& files) {
  const std::size_t frameBytes = format.channels * static_cast<std::size_t>(format.bits / 8);
  for (const std::uint32_t frames : {1024u, 4096u, 65536u}) {
    turns::add({std::string("import front to back, stored, ") + format.name + ", " +
                    std::to_string(frames) + " frames",
                [=] {
                  auto all = contenders({{"importer", openBundle(files.stored)},
                                         {"libsndfile", openSndfile(files.wave)},
                                         {"libav", openLibav(files.wave)}},
                                        frontToBack(frames), format.channels);
                  all.push_back(stdioAlone(files.stored, frontToBack(frames), frameBytes));
                  return all;
                },
                {{"libsndfile", format.goal}, {"libav", 1.0}}});
  }
  turns::add({std::string("random stretches, stored, ") + format.name,
              [=] {
                auto all = contenders({{"importer", openBundle(files.stored)},
                                       {"libsndfile", openSndfile(files.wave)}},
                                      randomStretches(), format.channels);
                all.push_back(stdioAlone(files.stored, randomStretches(), frameBytes));
                return all;
              },
              {{"libsndfile", format.randomGoal}}});
}

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

// Inflates an entry as it must be read: a seek and 4,096 bytes at a time through stdio. Hands each
// block of `size` bytes to `take`.
template <class Take>
void inflateThroughStdio(const std::string& path, std::int64_t start, std::size_t size, Take take) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                             std::fclose);
  z_stream z{};
  inflateInit2(&z, -MAX_WBITS);
  std::vector<char> block(size);
  char input[4096];
  for (int result = Z_OK; result == Z_OK;) {
    z.next_out = reinterpret_cast<Bytef*>(block.data());
    z.avail_out = static_cast<uInt>(block.size());
    while (z.avail_out != 0 && result == Z_OK) {
      if (z.avail_in == 0) {
        fseeko(file.get(), start, SEEK_SET);
        z.next_in = reinterpret_cast<Bytef*>(input);
        z.avail_in = static_cast<uInt>(std::fread(input, 1, sizeof(input), file.get()));
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

turns::Contender stdioInflate(const std::string& path) {
  return {"inflate behind stdio", [path, start = dataStart(path)] {
            inflateThroughStdio(path, start, kBlock,
                                [](const char*, std::size_t) { benchmark::ClobberMemory(); });
          }};
}

// And writes the plain copy, 4,096 bytes at a time through stdio.
turns::Contender stdioCopy(const std::string& path) {
  return {"the copy by stdio",
          [path, start = dataStart(path)] {
            const std::string copy = path + ".copy";
            {
              const std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(
                  std::fopen(copy.c_str(), "w+b"), std::fclose);
              inflateThroughStdio(path, start, 4096, [&](const char* block, std::size_t count) {
                std::fwrite(block, 1, count, out.get());
              });
            }
          },
          [path] { std::remove((path + ".copy").c_str()); }};
}

void requireSameBytes(const std::string& ours, const std::string& theirs, const char* who) {
  if (ours != theirs) throw std::runtime_error(std::string("the bytes of ") + who + " differ");
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

std::vector<turns::Contender> deflatedStream(const std::string& path) {
  EntryStream stream(path);
  const std::string bytes = readAll([&](char* block) { return readStream(*stream, block); });
  std::string theirs;
  readMinizip(path, [&](const char* block, std::size_t count) { theirs.append(block, count); });
  requireSameBytes(bytes, theirs, "minizip");
  return {{"stream", [path] { readEntry(path); }},
          inflateAlone(path, bytes),
          stdioInflate(path),
          {"minizip", [path] {
             readMinizip(path, [](const char*, std::size_t) { benchmark::ClobberMemory(); });
           }}};
}

// The importer moves to the start of the audio before each block, so its second block makes the
// plain copy of the entry.
std::vector<turns::Contender> deflatedImport(const Files& files) {
  const Pattern pattern = frontToBack(4096);
  requireSameAnswers(
      {{"deflated", openBundle(files.deflated)}, {"libsndfile", openSndfile(files.wave)}}, pattern,
      2);
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
          stdioCopy(files.deflated)};
}

std::vector<turns::Contender> firstSeek(const std::string& path) {
  EntryStream stream(path);
  const std::string bytes = readAll([&](char* block) { return readStream(*stream, block); });
  const auto entry = std::make_shared<std::unique_ptr<EntryStream>>();
  const auto prepare = [=] { *entry = std::make_unique<EntryStream>(path); };
  const auto seek = [=] {
    std::istream& moved = ***entry;
    moved.seekg(static_cast<std::streamoff>(bytes.size() / 2));
    if (moved.get() != static_cast<unsigned char>(bytes[bytes.size() / 2]))
      throw std::runtime_error("the byte behind a seek differs");
  };
  return {{"stream", seek, prepare}, inflateAlone(path, bytes), stdioCopy(path)};
}

void addDeflatedRows(const Files& files) {
  turns::add({"entry front to back, deflated, 16 bit",
              [=] { return deflatedStream(files.deflated); },
              {{"inflate alone", 0.95}, {"minizip", 1.0}}});
  turns::add({"import front to back, deflated, 16 bit",
              [=] { return deflatedImport(files); },
              {{"inflate alone", 0.95}}});
  turns::add({"first real seek, deflated, 16 bit",
              [=] { return firstSeek(files.deflated); },
              {{"inflate alone", 1 / 1.15}}});
  turns::add({"random stretches after it, deflated, 16 bit",
              [=] {
                return contenders({{"importer", openBundle(files.deflated)},
                                   {"the same, stored", openBundle(files.stored)}},
                                  randomStretches(), 2);
              },
              {{"the same, stored", 0.95}}});
}

}  // namespace

int main(int argc, char** argv) {
  const support::TempDir folder;
  // The copies of deflated audio go there.
  ::setenv("XDG_CACHE_HOME", folder.path().c_str(), 1);
  for (const Format& format : kFormats) {
    const Files files = makeFiles(folder, format);
    addStoredRows(format, files);
    if (format.bits == 16) addDeflatedRows(files);
  }
  return turns::run(argc, argv);
}
