#pragma once

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/Allocations.h"
#include "unit/reading/Exploration.h"

// Damaged packages, and what reading them may cost.
namespace reading {

// The most that reading may hold: a multiple of the file, since an entry with a short name costs
// more than its record, and room for the largest directory that an end record of 16 bits counts.
constexpr std::size_t kHeldPerByte = 64;
constexpr std::size_t kHeldAtLeast = 3u << 20;
// And of a large file in any case.
constexpr std::size_t kPromisedPerByte = 4;
constexpr std::size_t kPromisedAtLeast = 64u << 20;

// Opens and explores a package under a policy; returns whether it opens. Whatever is not an
// exception of the library leaves; memory beyond what the `size` of the file accounts for is a
// failure.
inline bool exploreAt(const std::string& name, std::size_t size, pkg::IPkgFileSystem<>* files,
                      int policyValue) {
  const Policy policy(policyValue);
  const std::size_t before = allocations::bytesHeld();
  allocations::resetPeak();
  bool isOpen = false;
  raisedBy([&] {
    const Package package =
        pkg::QCFPackageFactory().openPackage(name, kIn, files, &policy, nullptr);
    isOpen = true;
    explore(*package);
  });
  EXPECT_LT(
      allocations::bytesAtPeak() - before,
      std::min(kHeldPerByte * size + kHeldAtLeast, kPromisedPerByte * size + kPromisedAtLeast));
  return isOpen;
}

// The same in memory, where no file may stay behind.
inline bool exploreBytes(const std::string& bytes, int policyValue) {
  support::MemoryFileSystem memory;
  support::RecordingFileSystem files(memory);
  memory.put("x", bytes);
  const bool isOpen = exploreAt("x", bytes.size(), &files, policyValue);
  EXPECT_EQ(0, files.filesAlive());
  EXPECT_EQ(0, memory.temporaryFiles());
  return isOpen;
}

// The bytes with one to four edits, each anywhere or in a record.
inline std::string mutated(std::string bytes, std::mt19937& random) {
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
  const auto place = [&] {
    const std::size_t any = below(bytes.size());
    const std::size_t record = bytes.find("PK", any);
    if (below(2) == 0 || record == std::string::npos) return any;
    return std::min<std::size_t>(record + below(60), bytes.size() - 1);
  };
  for (std::size_t edits = 1 + below(4); edits > 0; --edits) {
    const std::size_t at = place();
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

// A number of the environment, or `standard`.
inline long numberFrom(const char* variable, long standard) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? standard : std::atol(text);
}

}  // namespace reading
