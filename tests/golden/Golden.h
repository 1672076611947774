#pragma once

#include <cstdint>
#include <cstdio>
#include <ios>
#include <string>
#include <string_view>
#include <utility>

#include <zlib.h>

#include <boost/shared_ptr.hpp>
#include <gtest/gtest.h>

#include "package/QCFPackage.h"

#include "support/FileSystems.h"
#include "support/ZipBytes.h"

// What the golden tests share: a short way to write packages, and the other way to write them.
namespace golden {

using Package = boost::shared_ptr<pkg::IPackage<>>;
using Stream = boost::shared_ptr<pkg::IPkgStream<>>;
using zipbytes::Bytes;
using zipbytes::Entry;

constexpr auto kIn = std::ios_base::in;
constexpr auto kOut = std::ios_base::out;
constexpr auto kTrunc = std::ios_base::trunc;

// 3 February 2001, 04:05:06, as DOS writes it: the time of FixedClock.cpp.
constexpr std::uint16_t kDate = (2001 - 1980) << 9 | 2 << 5 | 3;
constexpr std::uint16_t kTime = 4 << 11 | 5 << 5 | 6 / 2;

// Flags: a UTF-8 name; maximum compression, which a new deflated entry claims; a data descriptor.
constexpr std::uint16_t kUTF8 = 0x800;
constexpr std::uint16_t kMaximum = 0x002;
constexpr std::uint16_t kDescriptor = 0x008;

// What zlib makes of `data` at its default level with the most memory, raw.
inline Bytes deflated(std::string_view data) {
  z_stream z{};
  deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
  Bytes out(deflateBound(&z, static_cast<uLong>(data.size())), '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  z.avail_in = static_cast<uInt>(data.size());
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  deflate(&z, Z_FINISH);
  out.resize(z.total_out);
  deflateEnd(&z);
  return out;
}

// Text that deflates well, of any length.
inline Bytes prose(std::size_t length) {
  Bytes text;
  for (int line = 1; text.size() < length; ++line)
    text += "line " + std::to_string(line) + " of a text that goes on and on\n";
  text.resize(length);
  return text;
}

// The headers of an entry as the library writes a new one.
inline Entry written(Entry entry) {
  entry.time = kTime;
  entry.date = kDate;
  entry.flags = static_cast<std::uint16_t>(kUTF8 | (entry.method == 8 ? kMaximum : 0));
  return entry;
}
inline Entry storedEntry(Bytes name, std::string_view data) {
  return written(zipbytes::storedEntry(std::move(name), data));
}
inline Entry deflatedEntry(Bytes name, std::string_view data) {
  return written(zipbytes::deflatedEntry(std::move(name), data, deflated(data)));
}
// Deflate was chosen and had nothing to do: the flags tell of the choice.
inline Entry emptyEntry(Bytes name) {
  Entry entry = storedEntry(std::move(name), "");
  entry.flags |= kMaximum;
  return entry;
}
inline Entry directoryEntry(Bytes name) {
  Entry entry = storedEntry(std::move(name), "");
  entry.externalAttributes = 0x10;
  return entry;
}

// `entry` with flags of a data descriptor, and without what the descriptor then tells, for the
// local header of a file that is written forward.
inline Entry described(Entry entry) {
  entry.flags |= kDescriptor;
  return entry;
}
inline Entry withoutNumbers(Entry entry) {
  entry.crc = 0;
  entry.compressedSize = 0;
  entry.size = 0;
  return entry;
}
inline Bytes descriptorOf(const Entry& entry) {
  return zipbytes::dataDescriptor(entry.crc, entry.compressedSize, entry.size);
}

// Whether two files are the same; tells the place where they part.
inline testing::AssertionResult sameBytes(const Bytes& expected, const Bytes& actual) {
  if (expected == actual) return testing::AssertionSuccess();
  std::size_t at = 0;
  while (at < expected.size() && at < actual.size() && expected[at] == actual[at])
    ++at;
  const auto dump = [at](const Bytes& bytes) {
    std::string text;
    const std::size_t first = at < 16 ? 0 : at - 16;
    for (std::size_t i = first; i < bytes.size() && i < at + 32; ++i) {
      char hex[8];
      std::snprintf(hex, sizeof hex, i == at ? " [%02x]" : " %02x",
                    static_cast<unsigned>(static_cast<unsigned char>(bytes[i])));
      text += hex;
    }
    return text + " (" + std::to_string(bytes.size()) + " bytes)";
  };
  return testing::AssertionFailure() << "the files part at byte " << at << "\n  expected "
                                     << dump(expected) << "\n  actual   " << dump(actual);
}

class PolicyAnswers : public pkg::IPkgPolicies {
public:
  std::int32_t descriptor = 0;
  std::int32_t crc = 0;
  std::int32_t conformance = 0;

  std::int32_t getPolicy(Policies policy) const override {
    if (policy == PolicyDataDescriptor) return descriptor;
    return policy == PolicyCRC ? crc : conformance;
  }
};

// Writes the whole of an entry.
inline void write(const Package& package, const Bytes& name, std::string_view data,
                  pkg::CompressionMethod method = pkg::CompressionDeflated) {
  const auto file = package->getFile(name, false);
  file->setCompressionMethod(method);
  const Stream stream = file->open(kOut, false);
  stream->exceptions(std::ios_base::badbit | std::ios_base::failbit);
  stream->write(data.data(), static_cast<std::streamsize>(data.size()));
  stream->close();
}

// The room of a test: a file system in memory.
class Golden : public testing::Test {
protected:
  // A new package, in an update.
  Package create(const Bytes& name = "new.pkg") {
    const Package package = fFactory.openPackage(name, kOut | kTrunc, fFiles, &fPolicies, fParser);
    package->beginUpdate();
    return package;
  }
  // A package of given bytes.
  Package open(const Bytes& bytes, std::ios_base::openmode mode = kIn | kOut,
               const Bytes& name = "old.pkg") {
    fMemory.put(name, bytes);
    return fFactory.openPackage(name, mode, fFiles, &fPolicies, fParser);
  }
  const Bytes& bytes(const Bytes& name = "new.pkg") const { return fMemory.bytes(name); }

  support::MemoryFileSystem fMemory;
  pkg::IPkgFileSystem<>* fFiles = &fMemory;
  PolicyAnswers fPolicies;
  pkg::IXMLParser* fParser = nullptr;
  pkg::QCFPackageFactory fFactory;
};

}  // namespace golden
