#include "package/source/ZipImpl.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <boost/endian/conversion.hpp>

namespace pkg::zip {

static_assert(offsetof(CentralDirHeader, crc32) == 16);
static_assert(offsetof(CentralDirHeader, externalAttributes) == 38);
static_assert(offsetof(CentralDirHeader, localOffsetLow) == 42);
static_assert(offsetof(LocalFileHeader, crc32Low) == 14);
static_assert(offsetof(LocalFileHeader, extraLength) == 28);
static_assert(offsetof(EndCentralDirectory, directoryOffset) == 16);
static_assert(offsetof(EndCentralDirectory, commentLength) == 20);
static_assert(offsetof(Zip64EndCentralDirectory, versionMadeBy) == 12);
static_assert(offsetof(Zip64EndCentralDirectory, directoryOffset) == 48);
static_assert(offsetof(Zip64EndCentralDirectoryLocator, recordOffset) == 8);
static_assert(offsetof(Zip64LocalExtendedInfo, compressedSize) == 12);
static_assert(offsetof(Zip64ExtendedInfo, localOffset) == 20);
static_assert(offsetof(ExtraData_2705, typeAndCreator) == 8);
static_assert(offsetof(DataDescriptor, sizes32.uncompressed) == 12);
static_assert(offsetof(DataDescriptor, sizes64.uncompressed) == 16);

namespace {

constexpr char kTypeCreatorMark[4] = {'Z', 'P', 'I', 'T'};

template <class Number>
Number swapped(Number value) {
  return boost::endian::native_to_little(value);
}

}  // namespace

CentralDirHeader::CentralDirHeader(int) {
  std::memset(static_cast<void*>(this), 0, sizeof *this);
  signature = kCentralDirHeaderSignature;
}

CentralDirHeader CentralDirHeader::byteswap() const {
  CentralDirHeader result(*this);
  result.signature = swapped(signature);
  result.flags = swapped(flags);
  result.method = swapped(method);
  result.time = swapped(time);
  result.date = swapped(date);
  result.crc32 = swapped(crc32);
  result.compressedSize = swapped(compressedSize);
  result.uncompressedSize = swapped(uncompressedSize);
  result.nameLength = swapped(nameLength);
  result.extraLength = swapped(extraLength);
  result.commentLength = swapped(commentLength);
  result.diskStart = swapped(diskStart);
  result.internalAttributes = swapped(internalAttributes);
  result.externalAttributes = swapped(externalAttributes);
  result.localOffsetLow = swapped(localOffsetLow);
  result.localOffsetHigh = swapped(localOffsetHigh);
  return result;
}

void CentralDirHeader::setDateTime(DOSTime when) {
  time = lowHalf(when);
  date = highHalf(when);
}

LocalFileHeader::LocalFileHeader(const CentralDirHeader& central)
    : signature(kLocalFileHeaderSignature),
      versionNeeded(central.versionNeeded),
      hostNeeded(central.hostNeeded),
      flags(central.flags),
      method(central.method),
      time(central.time),
      date(central.date),
      crc32Low(lowHalf(central.crc32)),
      crc32High(highHalf(central.crc32)),
      compressedSizeLow(lowHalf(central.compressedSize)),
      compressedSizeHigh(highHalf(central.compressedSize)),
      uncompressedSizeLow(lowHalf(central.uncompressedSize)),
      uncompressedSizeHigh(highHalf(central.uncompressedSize)),
      nameLength(central.nameLength),
      extraLength(0) {}

LocalFileHeader LocalFileHeader::byteswap() const {
  LocalFileHeader result(*this);
  result.signature = swapped(signature);
  result.flags = swapped(flags);
  result.method = swapped(method);
  result.time = swapped(time);
  result.date = swapped(date);
  result.crc32Low = swapped(crc32Low);
  result.crc32High = swapped(crc32High);
  result.compressedSizeLow = swapped(compressedSizeLow);
  result.compressedSizeHigh = swapped(compressedSizeHigh);
  result.uncompressedSizeLow = swapped(uncompressedSizeLow);
  result.uncompressedSizeHigh = swapped(uncompressedSizeHigh);
  result.nameLength = swapped(nameLength);
  result.extraLength = swapped(extraLength);
  return result;
}

void LocalFileHeader::setDateTime(DOSTime when) {
  time = lowHalf(when);
  date = highHalf(when);
}

void LocalFileHeader::setCRC32(std::uint32_t crc) {
  crc32Low = lowHalf(crc);
  crc32High = highHalf(crc);
}

void LocalFileHeader::setSizes(std::uint32_t compressed, std::uint32_t uncompressed) {
  compressedSizeLow = lowHalf(compressed);
  compressedSizeHigh = highHalf(compressed);
  uncompressedSizeLow = lowHalf(uncompressed);
  uncompressedSizeHigh = highHalf(uncompressed);
}

bool LocalFileHeader::isSwappedSignature(unsigned int firstBytes) {
  return firstBytes == swapped(kLocalFileHeaderSignature);
}

EndCentralDirectory::EndCentralDirectory(int) {
  std::memset(static_cast<void*>(this), 0, sizeof *this);
  signature = kEndCentralDirectorySignature;
}

EndCentralDirectory EndCentralDirectory::byteswap() const {
  EndCentralDirectory result(*this);
  result.signature = swapped(signature);
  result.disk = swapped(disk);
  result.directoryDisk = swapped(directoryDisk);
  result.entriesOnDisk = swapped(entriesOnDisk);
  result.totalEntries = swapped(totalEntries);
  result.directorySize = swapped(directorySize);
  result.directoryOffset = swapped(directoryOffset);
  result.commentLength = swapped(commentLength);
  return result;
}

Zip64EndCentralDirectory Zip64EndCentralDirectory::byteswap() const {
  Zip64EndCentralDirectory result(*this);
  result.signature = swapped(signature);
  result.recordSize = swapped(recordSize);
  result.disk = swapped(disk);
  result.directoryDisk = swapped(directoryDisk);
  result.entriesOnDisk = swapped(entriesOnDisk);
  result.totalEntries = swapped(totalEntries);
  result.directorySize = swapped(directorySize);
  result.directoryOffset = swapped(directoryOffset);
  return result;
}

void Zip64EndCentralDirectory::updateFromECD(const EndCentralDirectory& end) {
  recordSize = sizeof *this - offsetof(Zip64EndCentralDirectory, versionMadeBy);
  versionMadeBy = ZIP64_VERSION;
  hostMadeBy = 0;
  versionNeeded = 0;
  disk = 0;
  directoryDisk = 0;
  entriesOnDisk = end.entriesOnDisk;
  totalEntries = end.totalEntries;
  directorySize = end.directorySize;
  directoryOffset = end.directoryOffset;
}

Zip64EndCentralDirectoryLocator Zip64EndCentralDirectoryLocator::byteswap() const {
  Zip64EndCentralDirectoryLocator result(*this);
  result.signature = swapped(signature);
  result.disk = swapped(disk);
  result.recordOffset = swapped(recordOffset);
  result.totalDisks = swapped(totalDisks);
  return result;
}

ExtraDataHeader::ExtraDataHeader(const ExtraDataHeader& other) : id(other.id), size(other.size) {}

ExtraDataHeader ExtraDataHeader::byteswap() const {
  ExtraDataHeader result;
  result.id = swapped(id);
  result.size = swapped(size);
  return result;
}

Zip64LocalExtendedInfo Zip64LocalExtendedInfo::byteswap() const {
  Zip64LocalExtendedInfo result;
  result.id = swapped(id);
  result.size = swapped(size);
  result.uncompressedSize = swapped(uncompressedSize);
  result.compressedSize = swapped(compressedSize);
  return result;
}

ExtraData_2705::ExtraData_2705() : id(kTypeCreatorExtraId), size(12), mark{} {}

ExtraData_2705::ExtraData_2705(const FileTypeAndCreator_2705& value) : ExtraData_2705() {
  std::memcpy(mark, kTypeCreatorMark, sizeof mark);
  typeAndCreator = value;
}

ExtraData_2705::ExtraData_2705(const ExtraData_2705& other) : typeAndCreator() {
  if (this == &other) return;
  id = other.id;
  size = other.size;
  std::memcpy(mark, other.mark, sizeof mark);
  typeAndCreator = other.typeAndCreator;
}

ExtraData_2705 ExtraData_2705::byteswap() const {
  ExtraData_2705 result(*this);
  result.id = swapped(id);
  result.size = swapped(size);
  return result;
}

bool ExtraData_2705::hasMark() const {
  return std::memcmp(mark, kTypeCreatorMark, sizeof mark) == 0;
}

DOSTime dostime(int year, int month, int day, int hour, int minute, int second) {
  if (year < 1980) return _dosTimeMin;
  const auto yearsSince1980 = static_cast<std::uint32_t>(static_cast<std::uint16_t>(year)) - 1980u;
  const std::uint32_t date = yearsSince1980 << 9 | static_cast<std::uint32_t>(month) << 5 |
                             static_cast<std::uint32_t>(day);
  const std::uint32_t halfSeconds = static_cast<std::uint16_t>(second) >> 1;
  const std::uint32_t time = static_cast<std::uint32_t>(hour) << 11 |
                             static_cast<std::uint32_t>(minute) << 5 | halfSeconds;
  return date << 16 | static_cast<std::uint16_t>(time);
}

namespace {

// The last moment in the system's own zone: half the seconds since 1970, which 32 bits hold for 272
// years, and in the lower half what they came to, which is never 0.
std::atomic<std::uint64_t> gLastConverted{0};

DOSTime inLocalTime(std::time_t when) {
  // What localtime() does, but for its result, which all threads share.
  std::tm local{};
  tzset();
  if (localtime_r(&when, &local) == nullptr) return _dosTimeMin;
  return dostime(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                 local.tm_sec);
}

}  // namespace

// Each conversion looks at the file of the system's zone: one is enough for two seconds. A zone
// that TZ names holds at once.
DOSTime getDOSTime() {
  const std::time_t rounded = (std::time(nullptr) + 1) & ~static_cast<std::time_t>(1);
  if (std::getenv("TZ") != nullptr) return inLocalTime(rounded);

  const auto moment = static_cast<std::uint32_t>(rounded / 2);
  const std::uint64_t last = gLastConverted.load(std::memory_order_relaxed);
  if (last >> 32 == moment && static_cast<DOSTime>(last) != 0) return static_cast<DOSTime>(last);
  const DOSTime time = inLocalTime(rounded);
  gLastConverted.store(static_cast<std::uint64_t>(moment) << 32 | time, std::memory_order_relaxed);
  return time;
}

}  // namespace pkg::zip
