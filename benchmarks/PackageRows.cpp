#include "PackageRows.h"

#include <cstdint>
#include <map>
#include <stdexcept>
#include <tuple>

#include <zip.h>
#include <zlib.h>

#include <benchmark/benchmark.h>

#include "package/QCFPackage.h"

#include "support/Run.h"

namespace {

using Entries = std::map<std::string, std::tuple<std::uint64_t, std::uint32_t>>;

Entries entriesOf(const std::string& path) {
  zip_t* const archive = zip_open(path.c_str(), ZIP_RDONLY, nullptr);
  require(archive != nullptr, "libzip cannot open " + path);
  Entries entries;
  const auto count = static_cast<zip_uint64_t>(zip_get_num_entries(archive, 0));
  for (zip_uint64_t i = 0; i < count; ++i) {
    zip_stat_t status;
    require(zip_stat_index(archive, i, 0, &status) == 0, "libzip cannot tell of an entry");
    entries[status.name] = {status.size, status.crc};
  }
  zip_discard(archive);
  require(entries.size() == count, "two entries of " + path + " share a name");
  return entries;
}

}  // namespace

const char* content(std::size_t block) {
  static const std::vector<char> bytes = [] {
    std::vector<char> all(4 * kContentBlock);
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < all.size(); ++i) {
      state = state * 1664525 + 1013904223;
      all[i] = static_cast<char>(i / 512 % 2 ? state >> 24 : 'a' + (state >> 28));
    }
    return all;
  }();
  return bytes.data() + block * 4099 % (3 * kContentBlock);
}

boost::shared_ptr<pkg::IPackage<>> openPackage(const std::string& path, std::ios::openmode mode) {
  return pkg::QCFPackageFactory().openPackage(path, mode, nullptr, nullptr, nullptr);
}

void createPackage(const std::string& path, const Shape& shape) {
  const auto package = openPackage(path, kNewPackage);
  package->beginUpdate();
  for (std::size_t entry = 0; entry < shape.entries; ++entry) {
    const auto file = package->getFile(shape.name(entry), false);
    file->setCompressionMethod(shape.deflate ? pkg::CompressionDeflated : pkg::CompressionStored);
    const auto stream = file->open(std::ios::out, false);
    for (std::size_t block = 0; block < shape.blocks; ++block)
      stream->write(content(entry + block), static_cast<std::streamsize>(shape.blockSize));
    stream->close();
  }
  package->endUpdate();
  package->close();
}

void savePackage(const std::string& from, const std::string& to) {
  const auto package = openPackage(from, std::ios::in);
  package->saveAs(to, kNewPackage);
  package->close();
}

void appendToPackage(const std::string& path, const std::string& name) {
  const auto package = openPackage(path, std::ios::in | std::ios::out);
  const auto stream = package->getFile(name, false)->open(std::ios::out, false);
  stream->write(content(1), 1024);
  stream->close();
  package->doUNSAFEUpdateInPlace();
  package->close();
}

void readPackage(const std::string& path,
                 const std::function<void(const char* bytes, std::size_t size)>& take) {
  const auto package = openPackage(path, std::ios::in);
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> iterator;
  package->initIterator(iterator, {}, "");
  std::vector<char> block(32768);
  for (; iterator->isValid(); iterator->increment()) {
    const auto stream = iterator->dereference()->toFile()->open(std::ios::in, false);
    while (stream->read(block.data(), static_cast<std::streamsize>(block.size())),
           stream->gcount() > 0) {
      take(block.data(), static_cast<std::size_t>(stream->gcount()));
    }
  }
  package->close();
}

void deflateAlone(const Shape& shape, std::size_t entry) {
  z_stream z{};
  require(deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, MAX_MEM_LEVEL,
                       Z_DEFAULT_STRATEGY) == Z_OK,
          "deflate cannot begin");
  Bytef out[4096];
  uLong crc = crc32(0, nullptr, 0);
  for (std::size_t block = 0; block <= shape.blocks; ++block) {
    const bool last = block == shape.blocks;
    const auto* const in = reinterpret_cast<const Bytef*>(content(entry + block));
    z.next_in = const_cast<Bytef*>(in);
    z.avail_in = last ? 0 : static_cast<uInt>(shape.blockSize);
    if (!last) crc = crc32(crc, in, z.avail_in);
    do {
      z.next_out = out;
      z.avail_out = sizeof out;
      deflate(&z, last ? Z_FINISH : Z_NO_FLUSH);
    } while (z.avail_out == 0);
  }
  benchmark::DoNotOptimize(crc);
  deflateEnd(&z);
}

void require(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error(what);
}

void requireSameEntries(const std::string& expected, const std::string& path) {
  support::mustRun({{"7z", "t", path}});
  require(entriesOf(path) == entriesOf(expected), "the entries of " + path + " differ");
}
