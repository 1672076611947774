#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <random>

#include <gtest/gtest.h>

#include "support/Allocations.h"
#include "unit/reading/Exploration.h"
#include "unit/reading/Reading.h"

using namespace reading;
using zipbytes::storedEntry;

namespace {

// The most that reading may hold: a multiple of the file, since an entry with a short name costs
// more than its record, and room for the largest directory that an end record of 16 bits counts.
constexpr std::size_t kPerByte = 64;
constexpr std::size_t kConstant = 3u << 20;

// Opens and explores bytes under a policy. Whatever is not an exception of the library leaves;
// memory beyond what the file accounts for is a failure.
void explore(const std::string& bytes, int policyValue) {
  const Policy policy(policyValue);
  support::MemoryFileSystem files;
  files.put("x", bytes);
  const std::size_t before = allocations::bytesHeld();
  allocations::resetPeak();
  raisedBy([&] {
    reading::explore(*pkg::QCFPackageFactory().openPackage("x", kIn, &files, &policy, nullptr));
  });
  EXPECT_LT(allocations::bytesAtPeak() - before, kPerByte * bytes.size() + kConstant);
  EXPECT_EQ(0, files.temporaryFiles());
}

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

std::string mutated(std::string bytes, std::mt19937& random) {
  const auto below = [&](std::size_t most) { return most == 0 ? 0 : random() % most; };
  static const std::vector<std::string> kNumbers = {std::string(1, '\0'),
                                                    "\xFF",
                                                    "\x7F",
                                                    "\x80",
                                                    std::string(2, '\0'),
                                                    "\xFF\xFF",
                                                    std::string(4, '\0'),
                                                    "\xFF\xFF\xFF\xFF",
                                                    "\xFF\xFF\xFF\x7F",
                                                    std::string("\x01\x00", 2),
                                                    "PK\x01\x02",
                                                    "PK\x03\x04",
                                                    "PK\x05\x06",
                                                    "/"};
  for (std::size_t edits = 1 + below(4); edits > 0; --edits) {
    const std::size_t at = below(bytes.size());
    const std::size_t length = below(std::min<std::size_t>(bytes.size() - at, 60));
    switch (below(7)) {
      case 0:
        bytes[at] = static_cast<char>(random());
        break;
      case 1:
        bytes[at] = static_cast<char>(bytes[at] ^ (1 << below(8)));
        break;
      case 2:
      case 3: {
        const std::string& number = kNumbers[below(kNumbers.size())];
        bytes.replace(at, number.size(), number);
        break;
      }
      case 4:
        bytes.erase(at, length);
        break;
      case 5:
        bytes.insert(below(bytes.size()), bytes.substr(at, length));
        break;
      default:
        if (below(4) == 0) bytes.resize(at);
    }
    if (bytes.empty()) bytes = "PK";
  }
  return bytes;
}

long numberFrom(const char* variable, long standard) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? standard : std::atol(text);
}

}  // namespace

TEST(Robustness, APackageCutAtAnyByteRaisesTheLibrarysExceptionsOnly) {
  for (const std::string& bytes : models()) {
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
      SCOPED_TRACE(length);
      EXPECT_NO_THROW(explore(bytes.substr(0, length), static_cast<int>(length % 4)));
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
        EXPECT_NO_THROW(explore(bytes, static_cast<int>(at % 4)));
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
  auto slowest = std::chrono::steady_clock::duration::zero();
  for (long i = first; i < first + count && !testing::Test::HasFailure(); ++i) {
    SCOPED_TRACE(i);
    std::mt19937 random(static_cast<unsigned>(i));
    const std::string bytes = mutated(originals[random() % originals.size()], random);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_NO_THROW(explore(bytes, static_cast<int>(random() % 4)));
    slowest = std::max(slowest, std::chrono::steady_clock::now() - start);
  }
  EXPECT_LT(slowest, std::chrono::seconds(5));
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
  EXPECT_LT(allocations::bytesAtPeak() - before, kPerByte * bytes.size() + kConstant);
}

TEST(Robustness, ARecordThatClaimsAnEnormousSizeAllocatesNothingForIt) {
  zipbytes::Entry central = storedEntry("a", "x");
  central.size = central.compressedSize = 0xFFFFFFFF;
  central.centralExtra = zipbytes::zip64Block({~std::uint64_t{0}, ~std::uint64_t{0} >> 1});
  for (const std::uint16_t method : {std::uint16_t{0}, std::uint16_t{8}}) {
    central.method = method;
    zipbytes::File file;
    EXPECT_NO_THROW(explore(file.addAs(storedEntry("a", "x"), central, "x").bytes(), 0));
  }
}

TEST(Robustness, AnEndRecordThatClaimsManyEntriesFailsAtTheFirstThatIsMissing) {
  zipbytes::File file;
  addStored(file, "a", "x");
  zipbytes::End end = file.end();
  end.entries = 0xFFFF;
  EXPECT_RAISES(2, MemoryPackage(file.bytes(end)));
  EXPECT_NO_THROW(explore(file.bytes(end), 0));
}
