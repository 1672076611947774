// Audio of a sound document through the importer's bundle, as one buffer of floats a channel,
// against libraries that read the same WAV file, and against the floor of inflate alone.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "AudioSources.h"
#include "ImportRows.h"
#include "Targets.h"
#include "Turns.h"
#include "support/Run.h"
#include "support/TempDir.h"

namespace {

struct Format {
  const char* name;
  const char* file;
  int bits;
  std::size_t channels;
  std::size_t frameBytes() const { return channels * static_cast<std::size_t>(bits / 8); }
};
constexpr Format kFormats[] = {{"8 bit", "u8", 8, 2},
                               {"16 bit", "s16", 16, 2},
                               {"24 bit", "s24", 24, 2},
                               {"float", "f32", 32, 2},
                               {"24 bit, 8 channels", "s24x8", 24, 8}};

// Tones with a little noise, as WAV and as sound documents that hold it stored and deflated.
Files makeFiles(const support::TempDir& folder, const Format& format, std::int64_t frames) {
  const std::string stem = (folder / (format.file + std::to_string(frames))).string();
  support::python(
      R"(
import array, math, random, struct, sys, zipfile
stem, bits, channels, frames = sys.argv[1], *map(int, sys.argv[2:5])
random.seed(1)
count = 12000 * channels
values = [0.4 * math.sin(i * 0.01) + 0.3 * math.sin(i * 0.0137) + random.gauss(0, 0.003)
          for i in range(count)]
if bits == 32:
    quarter = array.array('f', values).tobytes()
elif bits == 8:
    quarter = bytes(int(128 + 127 * v) for v in values)
else:
    quarter = b''.join(int(v * (1 << bits - 1)).to_bytes(bits // 8, 'little', signed=True) for v in values)
frame = channels * bits // 8
data = quarter * (frames // 12000)
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
      {stem, std::to_string(format.bits), std::to_string(format.channels), std::to_string(frames)});
  return {stem + ".wav", stem + ".stored.qsnd", stem + ".deflated.qsnd"};
}

// The blocks that an import reads, and nothing done with them.
turns::Contender stdioAlone(const std::string& path, const Pattern& pattern,
                            std::size_t frameBytes) {
  constexpr std::int64_t kOddStart = 61;  // the importer's stream sits on odd offsets too
  const auto file = std::make_shared<StdioFile>(path);
  const auto blocks = std::make_shared<Blocks>(
      [=](std::int64_t offset, char* bytes, std::size_t size) {
        return file->read(kOddStart + offset, bytes, size);
      },
      frameBytes);
  return {"stdio alone", [=] {
            for (const std::int64_t position : pattern.positions) {
              for (std::int64_t at = position; at < position + pattern.frames;) {
                const std::size_t held = blocks->from(at).second;
                if (held == 0) return;
                at += static_cast<std::int64_t>(held);
              }
            }
          }};
}

Ways waysTo(const std::string& document, const Files& files) {
  return {{"importer", [=] { return openBundle(document); }},
          {"libsndfile", [=] { return openSndfile(files.wave); }},
          {"libav", [=] { return openLibav(files.wave); }}};
}

void addWholeRow(const char* name, const Format& format, const std::string& document,
                 const Files& files) {
  turns::add({std::string("open, import, close, ") + name + ", " + format.name,
              [=] {
                moveInMemory(files);
                const Ways ways = waysTo(document, files);
                requireSameAnswers(ways, frontToBack(4096), format.channels);
                return wholes(ways, frontToBack(4096), format.channels);
              },
              turns::Place::OwnProcess});
}

void addStoredRow(const std::string& name, const Format& format, const Ways& peers,
                  const Files& files, const Pattern& pattern) {
  Ways ways = peers;
  ways.push_back({"stdio and conversion",
                  [=] { return openStdio(files.stored, format.bits, format.channels); }, true});
  turns::Row row{name, [=] {
                   moveInMemory(files);
                   auto all = contenders(ways, pattern, format.channels);
                   all.push_back(stdioAlone(files.stored, pattern, format.frameBytes()));
                   return all;
                 }};
  row.whole = wholes(ways, pattern, format.channels);
  turns::add(std::move(row));
}

void addStoredRows(const Format& format, const Files& files) {
  const Ways all = waysTo(files.stored, files);
  const std::string stored = std::string(", stored, ") + format.name;
  for (const std::uint32_t frames : {1024u, 4096u, 65536u}) {
    addStoredRow("import front to back" + stored + ", " + std::to_string(frames) + " frames",
                 format, all, files, frontToBack(frames));
  }
  // libav reads on from where it stands.
  const Ways seeking(all.begin(), all.begin() + 2);
  addStoredRow("random stretches" + stored, format, seeking, files, randomStretches());
}

constexpr std::int64_t kFewFrames = 24000;

// What an import of kFrames takes beyond one of kFewFrames.
void addGrowthFacts(const Files& files, const Files& few) {
  const auto peak = [](const std::string& document, std::int64_t length) {
    const Pattern pattern = frontToBack(4096, length);
    return static_cast<double>(turns::peakOf([&] {
      const Channels buffers(2, pattern.frames);
      const std::unique_ptr<AudioSource> source = openBundle(document);
      for (const std::int64_t position : pattern.positions)
        source->read(position, pattern.frames, buffers.data());
    }));
  };
  const auto add = [&](const std::string& how, std::string Files::*document) {
    turns::add(turns::Fact{
        "peak memory of 40 s imported, " + how + ", above that of 0.5 s, KiB",
        [=] { return peak(files.*document, kFrames) - peak(few.*document, kFewFrames); },
        turns::kMostGrowth});
  };
  add("stored", &Files::stored);
  add("deflated", &Files::deflated);
}

}  // namespace

int main(int argc, char** argv) {
  const support::TempDir folder;
  // The copies of deflated audio go there.
  ::setenv("XDG_CACHE_HOME", folder.path().c_str(), 1);
  return turns::run(
      argc, argv,
      "Audio of sound documents through the importer, against libraries that read the same WAV.",
      [&](bool) {
        for (const Format& format : kFormats) {
          const Files files = makeFiles(folder, format, kFrames);
          addWholeRow("stored", format, files.stored, files);
          addStoredRows(format, files);
          if (format.bits != 16) continue;
          addGrowthFacts(files, makeFiles(folder, format, kFewFrames));
          addWholeRow("deflated", format, files.deflated, files);
          addDeflatedRows(files);
        }
      });
}
