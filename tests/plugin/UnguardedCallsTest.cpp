#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>

#include <dlfcn.h>

#include <gtest/gtest.h>

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

}  // namespace
