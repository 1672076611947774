#pragma once

#include <cstdint>
#include <istream>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <zlib.h>

#include <boost/shared_ptr.hpp>

#include "package/QCFPackage.h"

#include "support/FileSystems.h"
#include "support/ZipBytes.h"

// What the tests of the reading side share.
namespace reading {

using Package = boost::shared_ptr<pkg::IPackage<>>;
using File = pkg::SPRefType<pkg::IPkgFile<>>;
using Directory = pkg::SPRefType<pkg::IPkgDirectory<>>;
using Stream = boost::shared_ptr<pkg::IPkgStream<>>;
using Iterator = boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>>;
using Strings = std::vector<std::string>;

constexpr auto kIn = std::ios_base::in;
constexpr auto kOut = std::ios_base::out;
constexpr auto kTrunc = std::ios_base::trunc;

// A failure of the library as a client sees it. Code -1: there was none.
struct Raised {
  int code = -1;
  bool isIO = false;
  std::string text;
};

template <class Action>
Raised raisedBy(Action&& action) {
  try {
    action();
  } catch (pkg::PackageIOException<>& e) {
    return {e.getErrorCode(), true, e.what()};
  } catch (pkg::PackageException<>& e) {
    return {e.getErrorCode(), false, e.what()};
  }
  return {};
}

// Expects the statement to raise the library's exception of that number.
#define EXPECT_RAISES(number, ...) \
  EXPECT_EQ(number, reading::raisedBy([&] { __VA_ARGS__; }).code) << #__VA_ARGS__

class Policy : public pkg::IPkgPolicies {
public:
  explicit Policy(std::int32_t value) : fValue(value) {}
  std::int32_t getPolicy(Policies policy) const override {
    return policy == PolicyConformance ? fValue : 0;
  }

private:
  std::int32_t fValue;
};

// A package in memory, and what it did to its files.
class MemoryPackage {
public:
  explicit MemoryPackage(const std::string& bytes, const pkg::IPkgPolicies* policies = nullptr,
                         std::ios_base::openmode mode = kIn, pkg::IXMLParser* parser = nullptr) {
    memory.put("a.pkg", bytes);
    fPackage = pkg::QCFPackageFactory().openPackage("a.pkg", mode, &files, policies, parser);
  }

  pkg::IPackage<>* operator->() const { return fPackage.get(); }
  pkg::IPackage<>& operator*() const { return *fPackage; }
  Stream stream(const std::string& path, bool raw = false) const {
    return fPackage->getFile(path, true)->open(kIn, raw);
  }

  // Of the world, not of the package: a test looks at them and changes them as it likes.
  mutable support::MemoryFileSystem memory;
  mutable support::RecordingFileSystem files{memory};

private:
  Package fPackage;  // goes before the files that it is in
};

// What opening such a package raises.
inline Raised opening(const std::string& bytes, const pkg::IPkgPolicies* policies = nullptr) {
  return raisedBy([&] { MemoryPackage(bytes, policies); });
}

// The rest of a stream, byte by byte.
inline std::string readAll(std::istream& in) {
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
inline std::string readAll(pkg::IPkgFile<>& file, bool raw = false) {
  return readAll(*file.open(kIn, raw));
}
inline std::string contents(const MemoryPackage& package, const std::string& path) {
  return readAll(*package->getFile(path, true));
}

// At most `count` bytes, in one transfer.
inline std::string take(std::istream& in, std::size_t count) {
  std::string bytes(count, '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(count));
  bytes.resize(static_cast<std::size_t>(in.gcount()));
  return bytes;
}

// The names that a walk shows: of all entries or, with a directory, of its children.
inline Strings walk(pkg::IPackage<>& package, const Directory& directory = {}) {
  Iterator iterator;
  package.initIterator(iterator, directory, "");
  Strings names;
  for (; iterator->isValid(); iterator->increment())
    names.push_back(iterator->dereference()->getName());
  return names;
}

// Raw deflate data.
inline std::string deflated(std::string_view data) {
  z_stream z{};
  deflateInit2(&z, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&z, data.size()), '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  z.avail_in = static_cast<uInt>(data.size());
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  ::deflate(&z, Z_FINISH);
  out.resize(z.total_out);
  deflateEnd(&z);
  return out;
}

// Bytes in which no stretch repeats soon, so that a read from the wrong place shows.
inline std::string pattern(std::size_t size) {
  std::string bytes;
  bytes.reserve(size);
  std::uint32_t state = 12345;
  while (bytes.size() < size) {
    state = state * 1664525 + 1013904223;
    bytes += static_cast<char>(state >> 24);
  }
  return bytes;
}

inline zipbytes::File& addStored(zipbytes::File& file, const std::string& name,
                                 std::string_view data) {
  return file.add(zipbytes::storedEntry(name, data), data);
}
inline zipbytes::File& addDeflated(zipbytes::File& file, const std::string& name,
                                   std::string_view data) {
  const std::string bytes = deflated(data);
  return file.add(zipbytes::deflatedEntry(name, data, bytes), bytes);
}

// A package of stored, one-letter files with these names.
inline std::string packageOf(const Strings& names) {
  zipbytes::File file;
  for (const std::string& name : names)
    addStored(file, name, name.back() == '/' ? "" : "x");
  return file.bytes();
}

// A package of one entry "a" with this data, and of another behind it.
inline std::string storedPackage(const std::string& data) {
  zipbytes::File file;
  addStored(file, "a", data);
  return addStored(file, "behind", "another entry").bytes();
}

inline std::string deflatedPackage(const std::string& data) {
  zipbytes::File file;
  addDeflated(file, "a", data);
  return addStored(file, "behind", "another entry").bytes();
}

// An entry "a" that claims to hold `size` bytes deflated as `bytes`.
inline std::string packageOfDeflated(const std::string& bytes, std::uint32_t size) {
  zipbytes::Entry entry = zipbytes::storedEntry("a", bytes);
  entry.method = 8;
  entry.size = size;
  zipbytes::File file;
  return file.add(entry, bytes).bytes();
}

}  // namespace reading
