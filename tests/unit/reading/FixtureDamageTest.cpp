#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/Fixtures.h"
#include "support/TempDir.h"
#include "unit/reading/Damage.h"

// Packages of many writers, each damaged in a thousand ways: opened or refused, read and sought
// through, without a crash, a hang or a leak.

using namespace reading;

namespace {

namespace fs = std::filesystem;

// The names of the shared packages; one that is empty where there are none.
std::vector<std::string> fixtureNames() {
  std::vector<std::string> names;
  if (fs::exists(support::fixture("zip"))) {
    for (const auto& file : fs::directory_iterator(support::fixture("zip")))
      names.push_back(file.path().filename().string());
  }
  names.erase(std::remove(names.begin(), names.end(), "FIXTURES.tsv"), names.end());
  std::sort(names.begin(), names.end());
  return names.empty() ? std::vector<std::string>{""} : names;
}

std::ptrdiff_t filesIn(const fs::path& folder) {
  return fs::exists(folder) ? std::distance(fs::directory_iterator(folder), {}) : 0;
}
std::ptrdiff_t openDescriptors() {
  return filesIn("/proc/self/fd");
}
std::ptrdiff_t temporaryFiles() {
  return filesIn(fs::path(std::getenv("XDG_CACHE_HOME")) / "TemporaryItems");
}

class FixtureMutations : public testing::TestWithParam<std::string> {
protected:
  void SetUp() override {
    if (GetParam().empty()) GTEST_SKIP() << "no fixtures " << support::fixture("zip");
    fBytes = support::readFile(support::fixture("zip/" + GetParam()));
  }

  bool onDisk(const std::string& bytes, int policyValue) {
    return exploreAt(fFolder.write("variant", bytes), bytes.size(), nullptr, policyValue);
  }

  // One in twenty lies on the disk, the others in memory. Whether it was opened.
  bool exploreVariant(long number) {
    std::mt19937 random(static_cast<unsigned>(number));
    const std::string bytes = mutated(fBytes, random);
    const int policy = static_cast<int>(random() % 4);
    return number % 20 == 0 ? onDisk(bytes, policy) : exploreBytes(bytes, policy);
  }

  std::string fBytes;
  support::TempDir fFolder;
};

// QCF_FIXTURE_VARIANTS sets how many of each, QCF_MUTATION_FIRST the number of the first.
TEST_P(FixtureMutations, AreOpenedOrRefusedAndReadWithoutHangOrLeak) {
  const long first = numberFrom("QCF_MUTATION_FIRST", 0);
  const long count = numberFrom("QCF_FIXTURE_VARIANTS", 1000);
  const std::ptrdiff_t descriptors = openDescriptors();
  exploreVariant(first);  // makes what is made once in a process
  long opened = 0;
  for (long i = first; i < first + count && !HasFailure(); ++i) {
    SCOPED_TRACE(i);
    const long blocks = allocations::liveBlocks();
    const auto start = std::chrono::steady_clock::now();
    opened += exploreVariant(i) ? 1 : 0;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(blocks, allocations::liveBlocks());
    if (i % 20 != 0) continue;
    EXPECT_EQ(descriptors, openDescriptors());
    EXPECT_EQ(0, temporaryFiles());
  }
  std::cout << "damaged variants of a real package: " << count << ", opened " << opened << "\n";
}

INSTANTIATE_TEST_SUITE_P(All, FixtureMutations, testing::ValuesIn(fixtureNames()),
                         [](const auto& suite) {
                           std::string name = suite.param.empty() ? "none" : suite.param;
                           for (char& c : name)
                             c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
                           return name;
                         });

}  // namespace
