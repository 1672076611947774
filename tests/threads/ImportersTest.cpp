#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "plugin/Documents.h"
#include "plugin/Plugin.h"
#include "support/TempDir.h"
#include "threads/AtOnce.h"

// Threads that share one loaded importer, each with instances and documents of its own.

namespace {

using testing::IsEmpty;

void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

constexpr std::uint32_t kFrames = 6000;

// Samples of 8 bits that are 64 in every frame: half of the range.
std::string steadyWave() {
  Wave wave;
  wave.bits = 8;
  wave.data = std::string(kFrames, static_cast<char>(128 + 64));
  return wave.bytes();
}

// Opens a document, asks for its format, reads forward, backward, and over its end.
void import(const Plugin& plugin, const std::string& path) {
  HostFile file(plugin);
  require(file.open(path) == 0, "a document does not open");
  require(file.getInfo() == 0, "a document has no format");
  require(file.info.frameCount == kFrames, "a document has another length");
  ChannelBuffers out(1, 500);
  for (const std::int64_t position : {0, 500, 5000, 100, 5500}) {
    require(file.read(position, 500, out) == 0, "a document cannot be read");
    for (const float sample : out[0])
      require(sample == 0.5f, "a sample is another");
  }
  file.quiet();
  require(file.open(path) == 0, "a document does not open again");
}

TEST(Threads, EightImportDocumentsOfTheirOwn) {
  const support::TempDir folder;
  const Plugin plugin;
  folder.write("stored.qsnd", storedDocument(steadyWave()));
  makeDeflatedDocument(folder / "deflated.qsnd", steadyWave());
  EXPECT_THAT(threads::atOnce(8,
                              [&](int i) {
                                const bool stored = i % 2 == 0;
                                const auto path =
                                    folder / (stored ? "stored.qsnd" : "deflated.qsnd");
                                for (int round = 0; round < 20; ++round)
                                  import(plugin, path.string());
                              }),
              IsEmpty());
}

}  // namespace
