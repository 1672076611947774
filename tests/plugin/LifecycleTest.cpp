#include <cstdlib>
#include <filesystem>
#include <string>

#include <malloc.h>

#include <gtest/gtest.h>

#include "Documents.h"
#include "HostKit/Bundle.h"
#include "HostKit/Document.h"
#include "Plugin.h"
#include "support/TempDir.h"

// What many openings and closings leave behind: nothing.

namespace {

namespace fs = std::filesystem;

std::size_t countOf(const fs::path& folder) {
  std::size_t count = 0;
  for (const auto& item : fs::recursive_directory_iterator(folder)) {
    if (!item.is_directory() || item.is_symlink()) ++count;
  }
  return count;
}

std::size_t openFiles() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& item : fs::directory_iterator("/proc/self/fd"))
    ++count;
  return count;
}

// Temporary files go to a folder that only this test uses. Set before the library asks for it,
// once.
const support::TempDir& cacheFolder() {
  static const support::TempDir folder;
  static const bool set = setenv("XDG_CACHE_HOME", folder.path().c_str(), 1) == 0;
  EXPECT_TRUE(set);
  return folder;
}

class Lifecycle : public testing::Test {
protected:
  Lifecycle() : cache(cacheFolder().path()) {
    Wave wave;
    wave.data = noise(80000, 2);
    for (std::size_t i = 0; i < wave.data.size(); i += 2)
      wave.data[i] = '\0';
    folder.write("stored.qsnd", storedDocument(wave.bytes()));
    makeDeflatedDocument(folder / "deflated.qsnd", wave.bytes());
    folder.write("damaged.qsnd", storedDocument(wave.bytes()).substr(0, 50000));
  }

  std::string path(const char* name) const { return (folder / name).string(); }

  // Both kinds of storage, a move in each, every way to end, and a file that does not open.
  void useOnce() {
    ChannelBuffers out(1, 10);
    for (const char* const name : {"stored.qsnd", "deflated.qsnd"}) {
      HostFile file(plugin);
      ASSERT_EQ(file.open(path(name)), 0);
      ASSERT_EQ(file.getInfo(), 0);
      ASSERT_EQ(file.read(0, 10, out), 0);
      ASSERT_EQ(file.read(25000, 10, out), 0);
      ASSERT_EQ(file.quiet(), 0);
      ASSERT_EQ(file.open(path(name)), 0);
      ASSERT_EQ(file.read(20, 10, out), 0);
    }
    HostFile damaged(plugin);
    ASSERT_EQ(damaged.open(path("damaged.qsnd")), 31);
  }

  fs::path cache;
  support::TempDir folder;
  Plugin plugin;
};

TEST_F(Lifecycle, ADeflatedDocumentHasATemporaryFileOnlyWhileItIsOpen) {
  ChannelBuffers out(1, 10);
  HostFile file(plugin);
  ASSERT_EQ(file.open(path("deflated.qsnd")), 0);
  ASSERT_EQ(file.getInfo(), 0);
  ASSERT_EQ(file.read(0, 10, out), 0);
  EXPECT_EQ(countOf(cache), 0u);
  ASSERT_EQ(file.read(25000, 10, out), 0);
  EXPECT_EQ(countOf(cache), 1u);
  file.quiet();
  EXPECT_EQ(countOf(cache), 0u);
  ASSERT_EQ(file.open(path("deflated.qsnd")), 0);
  ASSERT_EQ(file.read(5000, 10, out), 0);
  EXPECT_EQ(countOf(cache), 1u);
  file.close();
  EXPECT_EQ(countOf(cache), 0u);
}

TEST_F(Lifecycle, TenThousandOpensLeaveNoMemoryNoFilesAndNoTemporaryFiles) {
  for (int i = 0; i < 50; ++i)
    ASSERT_NO_FATAL_FAILURE(useOnce());
  const std::size_t files = openFiles();
  const std::size_t memory = mallinfo2().uordblks;
  for (int i = 0; i < 2000; ++i)
    ASSERT_NO_FATAL_FAILURE(useOnce());  // five opens each
  EXPECT_EQ(openFiles(), files);
  EXPECT_LE(mallinfo2().uordblks, memory + 4096);
  EXPECT_EQ(countOf(cache), 0u);
}

TEST_F(Lifecycle, AHostThatUnloadsThePluginCanLoadItAgain) {
  for (int i = 0; i < 20; ++i) {
    const hostkit::Bundle bundle{QSND_BUNDLE};
    const hostkit::Document document(bundle, path("deflated.qsnd"));
    EXPECT_EQ(document.info().frames, 40000);
  }
}

}  // namespace
