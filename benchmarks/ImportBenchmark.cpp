// Audio of a sound document through the importer's bundle, as one buffer of floats a channel,
// against libraries that read the same WAV file, and against the floor of inflate alone.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "AudioSources.h"
#include "ImportRows.h"
#include "Turns.h"
#include "support/Run.h"
#include "support/TempDir.h"

namespace {

struct Format {
  const char* name;
  const char* file;
  int bits;
  std::size_t channels;
};
constexpr Format kFormats[] = {{"8 bit", "u8", 8, 2},
                               {"16 bit", "s16", 16, 2},
                               {"24 bit", "s24", 24, 2},
                               {"float", "f32", 32, 2},
                               {"24 bit, 8 channels", "s24x8", 24, 8}};

// Tones with a little noise, as WAV and as sound documents that hold it stored and deflated.
Files makeFiles(const support::TempDir& folder, const Format& format) {
  const std::string stem = (folder / format.file).string();
  support::python(R"(
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
                  {stem, std::to_string(format.bits), std::to_string(format.channels),
                   std::to_string(kFrames)});
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

// Opens, reads front to back and closes.
turns::Contender wholeImport(const char* who,
                             std::unique_ptr<AudioSource> (*open)(const std::string&),
                             const std::string& path, std::size_t channels) {
  return {who, [=] {
            const Pattern pattern = frontToBack(4096);
            const Channels buffers(channels, pattern.frames);
            const std::unique_ptr<AudioSource> source = open(path);
            for (const std::int64_t position : pattern.positions)
              source->read(position, pattern.frames, buffers.data());
          }};
}

void addWholeRow(const char* name, const Format& format, const std::string& document,
                 const std::string& wave) {
  turns::add({std::string("open, import, close, ") + name + ", " + format.name,
              [=] {
                return std::vector<turns::Contender>{
                    wholeImport("importer", openBundle, document, format.channels),
                    wholeImport("libsndfile", openSndfile, wave, format.channels),
                    wholeImport("libav", openLibav, wave, format.channels)};
              },
              turns::Place::OwnProcess});
}

void addStoredRows(const Format& format, const Files& files) {
  const std::size_t frameBytes = format.channels * static_cast<std::size_t>(format.bits / 8);
  for (const std::uint32_t frames : {1024u, 4096u, 65536u}) {
    turns::add({std::string("import front to back, stored, ") + format.name + ", " +
                    std::to_string(frames) + " frames",
                [=] {
                  auto all = contenders({{"importer", openBundle(files.stored)},
                                         {"libsndfile", openSndfile(files.wave)},
                                         {"libav", openLibav(files.wave)},
                                         {"stdio and conversion",
                                          openStdio(files.stored, format.bits, format.channels)}},
                                        frontToBack(frames), format.channels);
                  all.push_back(stdioAlone(files.stored, frontToBack(frames), frameBytes));
                  return all;
                }});
  }
  turns::add({std::string("random stretches, stored, ") + format.name, [=] {
                auto all = contenders({{"importer", openBundle(files.stored)},
                                       {"libsndfile", openSndfile(files.wave)},
                                       {"stdio and conversion",
                                        openStdio(files.stored, format.bits, format.channels)}},
                                      randomStretches(), format.channels);
                all.push_back(stdioAlone(files.stored, randomStretches(), frameBytes));
                return all;
              }});
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
          const Files files = makeFiles(folder, format);
          addWholeRow("stored", format, files.stored, files.wave);
          addStoredRows(format, files);
          if (format.bits != 16) continue;
          addWholeRow("deflated", format, files.deflated, files.wave);
          addDeflatedRows(files);
        }
      });
}
