#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <dlfcn.h>

#include <gtest/gtest.h>

#include "Documents.h"
#include "Plugin.h"
#include "qvacore/Localizer.h"
#include "support/Allocations.h"
#include "support/TempDir.h"

// What the plug-in does not guard against: each of these is told in docs/limits.md.

namespace {

namespace fs = std::filesystem;

// The plug-in's names are as long as the host's texts.
class LongNames : public testing::Test {
protected:
  LongNames() {
    qvacore::config::Localizer::Get().SetLookup([this](const std::string& key) {
      return key.find("/ShortName=") == std::string::npos ? std::u16string(nameLength, u'n')
                                                          : std::u16string(40, u's');
    });
  }
  ~LongNames() override { qvacore::config::Localizer::Get().SetLookup({}); }

  // The record, and what lies behind it.
  std::string describe() {
    std::string bytes(1000, '\xAA');
    EXPECT_EQ(plugin(14, nullptr, bytes.data()), 0);
    return bytes;
  }

  Plugin plugin;
  std::size_t nameLength = 0;
};

#if defined(_FORTIFY_SOURCE) && _FORTIFY_SOURCE > 0
// A build with the C library's own checks ends there.
TEST_F(LongNames, EndTheProcessInAFortifiedBuild) {
  nameLength = 300;
  EXPECT_DEATH(describe(), "buffer overflow");
}
#else
TEST_F(LongNames, RunOnIntoTheFieldsBehindTheirOwn) {
  nameLength = 300;
  const std::string bytes = describe();
  // The short name comes behind the name, and the extensions behind both.
  EXPECT_EQ(bytes.substr(12, 256), std::string(256, 'n'));
  EXPECT_EQ(bytes.substr(268, 32), std::string(32, 's'));
  EXPECT_EQ(bytes.substr(300, 9), std::string("qsnd\0\0ss\0", 9));
  EXPECT_EQ(bytes.substr(309, 4), std::string("nnn\0", 4));
  EXPECT_EQ(bytes.substr(313), std::string(1000 - 313, '\xAA'));
}

TEST_F(LongNames, RunOnBehindTheRecord) {
  nameLength = 700;
  const std::string bytes = describe();
  EXPECT_EQ(bytes.substr(556, 712 - 556), std::string(712 - 556, 'n'));
  EXPECT_EQ(bytes.substr(712), '\0' + std::string(1000 - 713, '\xAA'));
}
#endif

std::string copyOfBundle(const support::TempDir& scratch, const std::string& name) {
  const fs::path bundle = scratch / name;
  fs::copy(QSND_BUNDLE, bundle, fs::copy_options::recursive);
  return (bundle / "Contents/Linux/ImporterQSND.so").string();
}

TEST(PluginLoadingDeathTest, WithoutMemoryForWhatTheModuleBuildsEndsTheProcess) {
  const support::TempDir scratch;
  const std::string counted = copyOfBundle(scratch, "Counted.bundle");
  allocations::fail(0);
  void* const library = dlopen(counted.c_str(), RTLD_NOW | RTLD_LOCAL);
  const long count = allocations::endShortage();
  ASSERT_NE(library, nullptr) << dlerror();
  dlclose(library);
  EXPECT_GT(count, 0);
  const std::string starved = copyOfBundle(scratch, "Starved.bundle");
  for (long n = 1; n <= count; ++n) {
    EXPECT_DEATH(
        {
          allocations::fail(n);
          dlopen(starved.c_str(), RTLD_NOW | RTLD_LOCAL);
        },
        "")
        << n;
  }
}

// A document of 60 kB that holds 60 MB: twelve minutes of silence.
class InflatedAudio : public testing::Test {
protected:
  InflatedAudio() {
    Wave wave;
    wave.data = std::string(2 * kFrames, '\0');
    plainSize = wave.bytes().size();
    makeDeflatedDocument(document, wave.bytes());
  }
  ~InflatedAudio() override { fs::remove_all(items()); }

  // The first block stands where the layout ends; the second is the first that has to be sought.
  void import(HostFile& file, std::int64_t position) {
    ASSERT_EQ(file.open(document.string()), 0);
    ASSERT_EQ(file.getInfo(), 0);
    ChannelBuffers out(1, 1);
    ASSERT_EQ(file.read(position, 1, out), 0);
  }

  static fs::path items() { return fs::path(std::getenv("XDG_CACHE_HOME")) / "TemporaryItems"; }
  static std::vector<std::uintmax_t> copies() {
    std::vector<std::uintmax_t> sizes;
    if (!fs::exists(items())) return sizes;
    for (const auto& item : fs::directory_iterator(items()))
      sizes.push_back(item.file_size());
    return sizes;
  }

  static constexpr std::int64_t kFrames = 30 << 20;

  support::TempDir folder;
  const fs::path document = folder / "silence.qsnd";
  std::uintmax_t plainSize = 0;
  Plugin plugin;
};

TEST_F(InflatedAudio, IsCopiedWholeToATemporaryFileWhateverItsSize) {
  EXPECT_LT(1000 * fs::file_size(document), plainSize);
  HostFile file(plugin);
  import(file, 0);
  EXPECT_EQ(copies(), std::vector<std::uintmax_t>());
  import(file, kFrames / 2);
  EXPECT_EQ(copies(), std::vector<std::uintmax_t>{plainSize});
  file.close();
  EXPECT_EQ(copies(), std::vector<std::uintmax_t>());
}

using InflatedAudioDeathTest = InflatedAudio;

TEST_F(InflatedAudioDeathTest, OfAProcessThatIsKilledStays) {
  EXPECT_EXIT(
      {
        HostFile file(plugin);
        import(file, kFrames / 2);
        std::raise(SIGKILL);
      },
      testing::KilledBySignal(SIGKILL), "");
  EXPECT_EQ(copies(), std::vector<std::uintmax_t>{plainSize});
}

}  // namespace
