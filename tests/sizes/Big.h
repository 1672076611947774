#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <sys/resource.h>
#include <zlib.h>

#include <boost/shared_ptr.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "package/QCFPackage.h"
#include "package/detail/PkgFileSys.h"

#include "support/FileSystemWrapper.h"
#include "support/TempDir.h"

// Large packages that take little time and little disk: what they hold is zeros, which the file
// system leaves out of the file.
namespace sizes {

using Package = boost::shared_ptr<pkg::IPackage<>>;
using Stream = boost::shared_ptr<pkg::IPkgStream<>>;
using pkg::CompressionDeflated;
using pkg::CompressionStored;

constexpr auto kIn = std::ios_base::in;
constexpr auto kOut = std::ios_base::out;
constexpr auto kTrunc = std::ios_base::trunc;

constexpr std::int64_t kFiveGB = 5000000000;

// The tests that take minutes run where QCF_LONG_TESTS is 1.
inline bool wantsLongTests() {
  const char* const wanted = std::getenv("QCF_LONG_TESTS");
  return wanted != nullptr && std::string_view(wanted) == "1";
}
#define QCF_LONG_TEST() \
  if (!sizes::wantsLongTests()) GTEST_SKIP() << "takes long: set QCF_LONG_TESTS=1"

// Zeros that nothing has written to, and that therefore take no memory.
class Zeros {
public:
  static constexpr std::size_t kCount = std::size_t{64} << 20;
  Zeros() : fBytes(static_cast<char*>(std::calloc(kCount, 1)), std::free) {}
  const char* data() const { return fBytes.get(); }

private:
  std::unique_ptr<char, void (*)(void*)> fBytes;
};

inline bool areZeros(const char* bytes, std::size_t count) {
  return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, count - 1) == 0;
}

// Real files, with a hole where a block of zeros is written behind the end.
class SparseFileSystem : public support::FileSystemWrapper {
public:
  using FileSystemWrapper::FileSystemWrapper;

protected:
  void write(InnerFile& file, const void* buffer, int size) override {
    constexpr int kLeastHole = 4096;
    if (size < kLeastHole ||
        !areZeros(static_cast<const char*>(buffer), static_cast<std::size_t>(size))) {
      file.write(buffer, size);
      return;
    }
    file.seek(size, SEEK_CUR);
    file.truncate(file.tell());
  }
};

inline std::uint32_t crcOf(std::string_view bytes) {
  return static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

// The CRC of zeros, put together from the halves of their number.
inline std::uint32_t crcOfZeros(std::int64_t count) {
  if (count < 2) return crcOf(std::string_view("\0", static_cast<std::size_t>(count)));
  const std::uint32_t half = crcOfZeros(count / 2);
  const auto whole = static_cast<std::uint32_t>(crc32_combine64(half, half, count / 2));
  return count % 2 == 0 ? whole
                        : static_cast<std::uint32_t>(crc32_combine64(whole, crcOfZeros(1), 1));
}

// Raw deflate data of as many zeros: blocks that do not know of each other, over and over.
inline std::string deflatedZeros(std::int64_t count) {
  constexpr std::size_t kBlock = std::size_t{16} << 20;
  const std::string zeros(kBlock, '\0');
  const auto deflated = [&](std::size_t length, int flush) {
    z_stream z{};
    deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&z, static_cast<uLong>(length)) + 16, '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(zeros.data()));
    z.avail_in = static_cast<uInt>(length);
    z.next_out = reinterpret_cast<Bytef*>(out.data());
    z.avail_out = static_cast<uInt>(out.size());
    deflate(&z, flush);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
  };
  const std::string block = deflated(kBlock, Z_FULL_FLUSH);
  std::string all;
  for (; count >= static_cast<std::int64_t>(kBlock); count -= static_cast<std::int64_t>(kBlock))
    all += block;
  return all + deflated(static_cast<std::size_t>(count), Z_FINISH);
}

// The most memory that this process has had, in bytes.
inline long peakMemory() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss * 1024;
}

// What to tell the library of an entry before it is written.
struct Announced {
  std::int64_t size = 0;
  std::uint32_t crc = 0;
};

// The room of a test: sparse files in a folder of their own.
class Big : public testing::Test {
protected:
  std::string path(const std::string& name = "big.pkg") const { return (fFolder / name).string(); }

  // A new package, in an update.
  Package create() {
    const Package package =
        fFactory.openPackage(path(), kIn | kOut | kTrunc, &fFiles, nullptr, nullptr);
    package->beginUpdate();
    return package;
  }
  Stream open(const Package& package, const std::string& name, pkg::CompressionMethod method,
              bool raw, const Announced& announced = {}) {
    const auto file = package->getFile(name, false);
    file->setCompressionMethod(method);
    file->setExpectedSize(announced.size);
    file->setExpectedCRC32(announced.crc);
    Stream stream = file->open(kOut, raw);
    stream->exceptions(std::ios_base::badbit);
    return stream;
  }
  void writeZeros(std::ostream& out, std::int64_t count) const {
    while (count > 0) {
      const auto now = std::min<std::int64_t>(count, Zeros::kCount);
      out.write(fZeros.data(), static_cast<std::streamsize>(now));
      count -= now;
    }
  }
  // As many zeros, stored. A raw stream does not look at them, which is fast.
  void writeStored(const Package& package, const std::string& name, std::int64_t count, bool raw,
                   bool announce = true) {
    const Announced announced{announce ? count : 0, raw ? crcOfZeros(count) : 0};
    const Stream stream = open(package, name, CompressionStored, raw, announced);
    writeZeros(*stream, count);
    stream->close();
  }
  void write(const Package& package, const std::string& name, const std::string& text,
             pkg::CompressionMethod method) {
    const Stream stream = open(package, name, method, false);
    *stream << text;
    stream->close();
  }

  support::TempDir fFolder;
  SparseFileSystem fFiles{*pkg::BasePkgFileSystem<>::getInstance()};
  Zeros fZeros;
  pkg::QCFPackageFactory fFactory;
};

}  // namespace sizes
