#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"

#include "Documents.h"
#include "Plugin.h"
#include "UnguardedFaults.h"
#include "support/TempDir.h"

// Damaged documents: whatever the damage, the plug-in answers with one of its numbers and goes on.

namespace {

class Mutation : public testing::Test {
protected:
  Mutation() {
    Wave wave;
    wave.channels = 2;
    wave.beforeData = chunk("LIST", std::string(10, 'l'));
    for (int i = 0; i < 150; ++i)
      wave.data += little(static_cast<std::uint64_t>(i * 77), 2);
    stored = storedDocument(wave.bytes());
    makeDeflatedDocument(folder / "deflated.qsnd", wave.bytes());
    deflated = folder.read("deflated.qsnd");
  }

  // Everything that a host does with a file; only numbers may come back.
  void use(const std::string& bytes) {
    const std::string path = folder.write("mutant.qsnd", bytes);
    const Import expected = importOf(path);
    if (expected == Import::FaultsInOpen || expected == Import::FaultsInLayout) {
      ++leftOut;
      return;
    }
    HostFile file(plugin);
    ASSERT_EQ(file.open(path), expected == Import::Opened ? 0 : 31);
    if (expected == Import::Refused) return;
    ++opens;
    ASSERT_EQ(file.getInfo(), 0);
    ChannelBuffers out(6, 64);
    const std::int64_t frames = file.info.frameCount;
    for (const std::int64_t position :
         {std::int64_t{-1}, std::int64_t{0}, frames / 2, frames - 1, frames, std::int64_t{3}}) {
      const auto result = file.read(position, 64, out);
      ASSERT_TRUE(results.count(result)) << result;
    }
    ASSERT_EQ(file.quiet(), 0);
    ASSERT_EQ(file.open(path), 0);
    const auto again = file.read(0, 64, out);
    ASSERT_TRUE(results.count(again)) << again;
  }

  std::string mutate(std::string bytes) {
    const auto any = [&](std::size_t below) { return static_cast<std::size_t>(random() % below); };
    for (auto times = 1 + any(4); times > 0 && !bytes.empty(); --times) {
      const std::size_t at = any(bytes.size());
      const std::size_t size = std::min<std::size_t>(1 + any(8), bytes.size() - at);
      switch (any(6)) {
        case 0:
          bytes[at] = static_cast<char>(bytes[at] ^ (1 << any(8)));
          break;
        case 1:
          bytes[at] = static_cast<char>(random());
          break;
        case 2:
          bytes.replace(at, size, std::string(size, any(2) != 0 ? '\xFF' : '\0'));
          break;
        case 3:
          bytes.erase(at, size);
          break;
        case 4:
          bytes.insert(at, bytes, any(bytes.size()), size);
          break;
        default:
          bytes.replace(at, size, bytes, any(bytes.size()), size);
      }
    }
    return bytes;
  }

  const std::set<std::int32_t> results{0, 1, 38, -1};
  support::TempDir folder;
  Plugin plugin;
  std::string stored, deflated;
  std::mt19937 random{20};
  int opens = 0;
  int leftOut = 0;
};

TEST_F(Mutation, EveryTruncationGivesANumber) {
  for (const std::string& document : {stored, deflated}) {
    for (std::size_t size = 0; size < document.size(); ++size) {
      ASSERT_NO_FATAL_FAILURE(use(document.substr(0, size))) << size;
    }
    ASSERT_NO_FATAL_FAILURE(use(document));
  }
  EXPECT_EQ(opens, 2);
}

// QSND_MUTATIONS sets how many.
TEST_F(Mutation, EveryDamagedDocumentGivesANumber) {
  const char* const wish = std::getenv("QSND_MUTATIONS");
  const int count = wish != nullptr ? std::atoi(wish) : 5000;
  for (int i = 0; i < count; ++i) {
    const std::string mutant = mutate(i % 2 == 0 ? stored : deflated);
    ASSERT_NO_FATAL_FAILURE(use(mutant)) << "mutant " << i;
  }
  std::cout << "mutated documents: " << count << ", opened " << opens << ", left out " << leftOut
            << "\n";
  // Most damages hit what matters, but not all; few run into the divisions.
  EXPECT_GT(opens, count / 20);
  EXPECT_LT(leftOut, count / 5);
}

}  // namespace
