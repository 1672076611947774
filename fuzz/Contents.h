#pragma once

#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <zlib.h>

#include "unit/reading/Reading.h"

// What is in a package, as the library reads it.
namespace fuzz {

inline void require(bool holds) {
  if (!holds) std::abort();
}

// What a reader finds in an entry.
struct Content {
  Content() = default;
  explicit Content(std::string_view bytes) { append(bytes); }
  void append(std::string_view bytes) {
    size += bytes.size();
    crc = crc32_z(crc, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size());
  }
  bool operator==(const Content& other) const { return size == other.size && crc == other.crc; }

  std::size_t size = 0;
  uLong crc = 0;
  bool isReadable = true;
};

struct Contents {
  std::string comment;
  std::map<std::string, Content> entries;
};

// At most `limit` bytes of it: few bytes can stand for many.
inline Content readEntry(pkg::IPkgEntry<>& entry, std::size_t limit) {
  if (entry.getEntryType() == pkg::PkgEntryDirectory) return Content();
  Content content;
  content.isReadable = false;
  reading::raisedBy([&] {
    const auto file = entry.toFile();
    const auto stream = file->open(std::ios_base::in, false);
    stream->exceptions(std::ios_base::badbit);
    Content whole;
    while (whole.size < limit && *stream)
      whole.append(reading::take(*stream, 1 << 14));
    content = whole;
    // What is recorded as empty is copied as empty, whatever it holds.
    content.isReadable = content.size == 0 || file->getSize64() != 0;
  });
  return content;
}

using Handles = std::vector<pkg::SPRefType<pkg::IPkgEntry<>>>;

inline Handles handlesOf(pkg::IPackage<>& package) {
  Handles handles;
  reading::Iterator iterator;
  for (package.initIterator(iterator, {}, ""); iterator->isValid(); iterator->increment())
    handles.push_back(iterator->dereference());
  return handles;
}

inline Contents read(pkg::IPackage<>& package, std::size_t limit) {
  Contents contents{package.getProperty(pkg::QCFPropertyPackageComment), {}};
  for (const auto& entry : handlesOf(package))
    contents.entries[entry->getName()] = readEntry(*entry, limit);
  return contents;
}

// What could not be read before may be anything, but is still there. The package that wrote an
// entry without a byte as deflated cannot read it: see docs/updating.md.
enum class Reader { Writer, SomebodyElse };
inline void requireSame(const Contents& found, const Contents& expected, Reader reader) {
  require(found.comment == expected.comment);
  require(found.entries.size() == expected.entries.size());
  for (const auto& [name, content] : expected.entries) {
    const auto entry = found.entries.find(name);
    require(entry != found.entries.end());
    const bool mayFail = reader == Reader::Writer && content.size == 0;
    if (content.isReadable) require(entry->second == content);
    if (content.isReadable && !mayFail) require(entry->second.isReadable);
  }
}

}  // namespace fuzz
