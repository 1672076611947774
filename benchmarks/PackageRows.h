#pragma once

#include <cstddef>
#include <functional>
#include <ios>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "package/Package.h"

#include "support/TempDir.h"

// What the rows of the package road have in common. The package of a row that reads stands in
// `folder`, made by main; a row that writes has a folder of its own and leaves nothing in it.

constexpr auto kNewPackage = std::ios::in | std::ios::out | std::ios::trunc;
constexpr std::size_t kContentBlock = 1 << 16;

// Entries of one size each.
struct Shape {
  std::size_t entries;
  std::size_t blocks;     // in each entry
  std::size_t blockSize;  // bytes, at most kContentBlock
  bool deflate;

  std::string name(std::size_t entry) const { return "entry" + std::to_string(entry); }
  std::size_t entrySize() const { return blocks * blockSize; }
};

// kContentBlock bytes, half text, half noise, different for each `block`. Valid for ever.
const char* content(std::size_t block);

boost::shared_ptr<pkg::IPackage<>> openPackage(const std::string& path, std::ios::openmode mode);

// Makes a package with the library under test.
void createPackage(const std::string& path, const Shape& shape);

// Makes another package of what an unchanged one holds.
void savePackage(const std::string& from, const std::string& to);

// Appends content(1), 1,024 bytes of it, deflated, with the library under test.
void appendToPackage(const std::string& path, const std::string& name);

// What deflating an entry from memory takes at least: with the level, the memory level and the
// 4,096 bytes of output of the library, and the checksum; nothing is written.
inline constexpr const char* kDeflateAlone = "deflate and crc32 alone";
void deflateAlone(const Shape& shape, std::size_t entry);

// Reads every entry from its start to its end with the library under test, 32,768 bytes at a time,
// and hands what comes to `take`.
void readPackage(const std::string& path,
                 const std::function<void(const char* bytes, std::size_t size)>& take);

// Raises std::runtime_error with `what` unless it holds.
void require(bool holds, const std::string& what);

// Raises std::runtime_error unless 7z finds the archive sound and libzip finds the same names,
// sizes and checksums in it as in `expected`.
void requireSameEntries(const std::string& expected, const std::string& path);

// Divides the sizes of rows that would be long.
constexpr std::size_t kQuickPart = 50;

void addGrowthFacts(const support::TempDir& folder, std::size_t part);
void addOpenRows(const support::TempDir& folder, std::size_t part);
void addReadRows(const support::TempDir& folder, std::size_t part);
void addCreateRows(std::size_t part);
void addCopyRows(std::size_t part);
