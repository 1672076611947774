#include <algorithm>
#include <chrono>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "unit/reading/Damage.h"

using namespace reading;
using zipbytes::storedEntry;

namespace {

// Packages with every record that a reader looks at.
std::vector<std::string> models() {
  std::vector<std::string> all;
  {
    zipbytes::File file;
    addStored(file, "mimetype", "application/x-test");
    addDeflated(file, "dir/deflated", pattern(300) + std::string(3000, 'z'));
    zipbytes::Entry rich = storedEntry("dir/rich", "data");
    rich.comment = "comment";
    rich.localExtra = zipbytes::extraBlock(0x5455, "12345");
    rich.centralExtra =
        zipbytes::typeCreatorBlock("TEXTttxt") + zipbytes::extraBlock(0x9999, "abc");
    file.add(rich, "data");
    addStored(file, "dir/", "");
    all.push_back(file.bytes(file.end("the comment of the package")));
  }
  {
    zipbytes::File file;
    zipbytes::Entry local = storedEntry("large", "0123456789");
    zipbytes::Entry central = local;
    central.size = central.compressedSize = 0xFFFFFFFF;
    central.centralExtra = zipbytes::zip64Block({10, 10});
    file.addAs(local, central, "0123456789");
    zipbytes::Entry described =
        zipbytes::deflatedEntry("d", "text", zipbytes::storedDeflate("text"));
    described.flags = 8;
    file.add(described, zipbytes::storedDeflate("text"), zipbytes::dataDescriptor(1, 2, 3));
    addDeflated(file, "mimetype", "application/x-test more");
    all.push_back(file.bytes());
  }
  all.push_back(packageOf({"a", "a/b", "./c", "../d", "a//e", "/f", "a/", "a", "#", "mimetype/"}));
  return all;
}

}  // namespace

TEST(Robustness, APackageCutAtAnyByteRaisesTheLibrarysExceptionsOnly) {
  for (const std::string& bytes : models()) {
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
      SCOPED_TRACE(length);
      EXPECT_NO_THROW(exploreBytes(bytes.substr(0, length), static_cast<int>(length % 4)));
    }
  }
}

TEST(Robustness, APackageWithAnyByteChangedRaisesTheLibrarysExceptionsOnly) {
  for (std::string bytes : models()) {
    for (std::size_t at = 0; at < bytes.size(); ++at) {
      const char right = bytes[at];
      for (const char wrong : {'\0', '\xFF', static_cast<char>(right ^ 1)}) {
        SCOPED_TRACE(at);
        bytes[at] = wrong;
        EXPECT_NO_THROW(exploreBytes(bytes, static_cast<int>(at % 4)));
      }
      bytes[at] = right;
    }
  }
}

// QCF_MUTATIONS sets how many, QCF_MUTATION_FIRST the number of the first, to go back to one.
TEST(Robustness, DamagedPackagesRaiseTheLibrarysExceptionsOnlyAndHoldNoMoreThanTheFileAccountsFor) {
  const std::vector<std::string> originals = models();
  const long first = numberFrom("QCF_MUTATION_FIRST", 0);
  const long count = numberFrom("QCF_MUTATIONS", 3000);
  long opened = 0;
  auto slowest = std::chrono::steady_clock::duration::zero();
  for (long i = first; i < first + count && !testing::Test::HasFailure(); ++i) {
    SCOPED_TRACE(i);
    std::mt19937 random(static_cast<unsigned>(i));
    const std::string bytes = mutated(originals[random() % originals.size()], random);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_NO_THROW(opened += exploreBytes(bytes, static_cast<int>(random() % 4)) ? 1 : 0);
    slowest = std::max(slowest, std::chrono::steady_clock::now() - start);
  }
  EXPECT_LT(slowest, std::chrono::seconds(5));
  std::cout << "mutated packages: " << count << ", opened " << opened << "\n";
}

TEST(Robustness, EntriesHoldNoMoreThanTheFileAccountsForWhateverTheirHeadersClaim) {
  // Many records lead to one local header that claims, and in part has, long variable fields.
  zipbytes::Entry local = storedEntry(std::string(65535, 'n'), "x");
  local.localExtraLength = 65535;
  zipbytes::File file;
  file.raw(localHeader(local));
  for (int i = 0; i < 2000; ++i)
    file.list(storedEntry(std::to_string(i), "x"));
  const std::string bytes = file.bytes();

  support::MemoryFileSystem files;
  files.put("x", bytes);
  const std::size_t before = allocations::bytesHeld();
  allocations::resetPeak();
  const Package package = pkg::QCFPackageFactory().openPackage("x", kIn, &files, nullptr, nullptr);
  EXPECT_EQ(2000u, walk(*package).size());
  EXPECT_LT(allocations::bytesAtPeak() - before, kHeldPerByte * bytes.size() + kHeldAtLeast);
}

TEST(Robustness, ARecordThatClaimsAnEnormousSizeAllocatesNothingForIt) {
  zipbytes::Entry central = storedEntry("a", "x");
  central.size = central.compressedSize = 0xFFFFFFFF;
  central.centralExtra = zipbytes::zip64Block({~std::uint64_t{0}, ~std::uint64_t{0} >> 1});
  for (const std::uint16_t method : {std::uint16_t{0}, std::uint16_t{8}}) {
    central.method = method;
    zipbytes::File file;
    EXPECT_NO_THROW(exploreBytes(file.addAs(storedEntry("a", "x"), central, "x").bytes(), 0));
  }
}

TEST(Robustness, AnEndRecordThatClaimsManyEntriesFailsAtTheFirstThatIsMissing) {
  zipbytes::File file;
  addStored(file, "a", "x");
  zipbytes::End end = file.end();
  end.entries = 0xFFFF;
  EXPECT_RAISES(2, MemoryPackage(file.bytes(end)));
  EXPECT_NO_THROW(exploreBytes(file.bytes(end), 0));
}
