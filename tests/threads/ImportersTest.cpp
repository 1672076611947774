#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "plugin/Documents.h"
#include "plugin/Plugin.h"
#include "support/TempDir.h"
#include "threads/AtOnce.h"

// Threads of a host that keeps to the rule of one call at a time into a loaded module: either each
// thread has a module of its own, a copy of the file, or they take turns in one.

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

// How a thread makes its calls into the module.
struct Freely {
  template <class Call>
  auto operator()(Call&& call) const {
    return call();
  }
};
struct InTurn {
  template <class Call>
  auto operator()(Call&& call) const {
    const std::lock_guard lock(mutex);
    return call();
  }
  std::mutex& mutex;
};

// Opens a document, asks for its format, reads forward, backward, and over its end.
template <class Manner>
void import(const Plugin& plugin, const std::string& path, const Manner& call) {
  std::optional<HostFile> file(std::in_place, plugin);
  require(call([&] { return file->open(path); }) == 0, "a document does not open");
  require(call([&] { return file->getInfo(); }) == 0, "a document has no format");
  require(file->info.frameCount == kFrames, "a document has another length");
  ChannelBuffers out(1, 500);
  for (const std::int64_t position : {0, 500, 5000, 100, 5500}) {
    require(call([&] { return file->read(position, 500, out); }) == 0, "a document cannot be read");
    for (const float sample : out[0])
      require(sample == 0.5f, "a sample is another");
  }
  call([&] { return file->quiet(); });
  require(call([&] { return file->open(path); }) == 0, "a document does not open again");
  call([&] { file.reset(); });
}

constexpr int kThreads = 8;

class Threads : public testing::Test {
protected:
  Threads() {
    folder.write("stored.qsnd", storedDocument(steadyWave()));
    makeDeflatedDocument(folder / "deflated.qsnd", steadyWave());
  }

  template <class Manner>
  void importMany(int thread, const Plugin& plugin, const Manner& manner) const {
    const auto path = folder / (thread % 2 == 0 ? "stored.qsnd" : "deflated.qsnd");
    for (int round = 0; round < 20; ++round)
      import(plugin, path.string(), manner);
  }

  support::TempDir folder;
};

TEST_F(Threads, EightImportAtOnceThroughModulesOfTheirOwn) {
  std::deque<Plugin> plugins;
  for (int i = 0; i < kThreads; ++i) {
    const auto copy = folder / ("importer" + std::to_string(i) + ".so");
    std::filesystem::copy_file(Plugin::builtModule(), copy);
    plugins.emplace_back(copy.string());
    ASSERT_TRUE(i == 0 || plugins[0].entry() != plugins.back().entry());
  }
  EXPECT_THAT(
      threads::atOnce(
          kThreads, [&](int i) { importMany(i, plugins[static_cast<std::size_t>(i)], Freely{}); }),
      IsEmpty());
}

TEST_F(Threads, EightImportDocumentsOfTheirOwnInTurnThroughOneModule) {
  const Plugin plugin;
  std::mutex mutex;
  EXPECT_THAT(threads::atOnce(kThreads, [&](int i) { importMany(i, plugin, InTurn{mutex}); }),
              IsEmpty());
}

}  // namespace
