#pragma once

#include <cstdint>

#include "package/detail/Visibility.h"

// The records of a ZIP file, byte for byte as they stand in it: APPNOTE.TXT of PKWARE, one disk,
// with Zip64. All numbers are little-endian in the file; byteswap() converts a record between file
// order and host order and is its own inverse. calcStructSize() is the size on disk in bytes.

namespace pkg::zip {

// Version made by and version needed of an ordinary entry and of one that uses Zip64 fields.
constexpr std::uint8_t FLATE_VERSION = 20;
constexpr std::uint8_t ZIP64_VERSION = 45;

// A moment: the DOS date in the high half, the DOS time in the low half.
using DOSTime = std::uint32_t;

// The DOSTime of every moment before 1980.
constexpr DOSTime _dosTimeMin = 0x00150000;

constexpr std::uint32_t kLocalFileHeaderSignature = 0x04034b50;
constexpr std::uint32_t kCentralDirHeaderSignature = 0x02014b50;
constexpr std::uint32_t kEndCentralDirectorySignature = 0x06054b50;
constexpr std::uint32_t kZip64EndCentralDirectorySignature = 0x06064b50;
constexpr std::uint32_t kZip64LocatorSignature = 0x07064b50;
constexpr std::uint32_t kDataDescriptorSignature = 0x08074b50;

constexpr std::uint16_t kZip64ExtraId = 0x0001;
constexpr std::uint16_t kTypeCreatorExtraId = 0x2705;

// General-purpose flags.
constexpr std::uint16_t kFlagMaximumDeflate = 0x0002;
constexpr std::uint16_t kFlagDataDescriptor = 0x0008;
constexpr std::uint16_t kFlagUTF8Name = 0x0800;

// A number of this kind that is larger goes into a Zip64 field; the next value up is the marker for
// that.
constexpr std::uint64_t kLargestSize = 0xFFFFFFFE;
constexpr std::uint64_t kLargestEntryCount = 0xFFFE;

constexpr bool isLarge(std::uint64_t sizeOrOffset) {
  return sizeOrOffset > kLargestSize;
}

// A 32-bit number kept as two halves, low half first.
constexpr std::uint32_t joinHalves(std::uint16_t low, std::uint16_t high) {
  return static_cast<std::uint32_t>(high) << 16 | low;
}
constexpr std::uint16_t lowHalf(std::uint32_t value) {
  return static_cast<std::uint16_t>(value);
}
constexpr std::uint16_t highHalf(std::uint32_t value) {
  return static_cast<std::uint16_t>(value >> 16);
}

#pragma pack(push, 1)

struct QCF_API CentralDirHeader {
  std::uint32_t signature;
  std::uint8_t versionMadeBy;
  std::uint8_t hostMadeBy;
  std::uint8_t versionNeeded;
  std::uint8_t hostNeeded;
  std::uint16_t flags;
  std::uint16_t method;
  std::uint16_t time;
  std::uint16_t date;
  std::uint32_t crc32;
  std::uint32_t compressedSize;    // all ones: in the Zip64 block
  std::uint32_t uncompressedSize;  // all ones: in the Zip64 block
  std::uint16_t nameLength;
  std::uint16_t extraLength;
  std::uint16_t commentLength;
  std::uint16_t diskStart;
  std::uint16_t internalAttributes;
  std::uint32_t externalAttributes;
  std::uint16_t localOffsetLow;  // both halves all ones: in the Zip64 block
  std::uint16_t localOffsetHigh;

  // All zero but the signature. The argument is ignored.
  explicit CentralDirHeader(int);
  CentralDirHeader byteswap() const;
  std::uint16_t calcStructSize() const { return sizeof *this; }
  void setDateTime(DOSTime when);
};

struct QCF_API LocalFileHeader {
  std::uint32_t signature;
  std::uint8_t versionNeeded;
  std::uint8_t hostNeeded;
  std::uint16_t flags;
  std::uint16_t method;
  std::uint16_t time;
  std::uint16_t date;
  std::uint16_t crc32Low;  // of the uncompressed data
  std::uint16_t crc32High;
  std::uint16_t compressedSizeLow;
  std::uint16_t compressedSizeHigh;
  std::uint16_t uncompressedSizeLow;
  std::uint16_t uncompressedSizeHigh;
  std::uint16_t nameLength;
  std::uint16_t extraLength;

  LocalFileHeader() = default;
  // Takes over what a central header shares with a local one; the extra length is 0.
  explicit LocalFileHeader(const CentralDirHeader& central);
  LocalFileHeader byteswap() const;
  std::uint16_t calcStructSize() const { return sizeof *this; }
  void setDateTime(DOSTime when);

  std::uint32_t crc32() const { return joinHalves(crc32Low, crc32High); }
  std::uint32_t compressedSize() const { return joinHalves(compressedSizeLow, compressedSizeHigh); }
  std::uint32_t uncompressedSize() const {
    return joinHalves(uncompressedSizeLow, uncompressedSizeHigh);
  }
  void setCRC32(std::uint32_t crc);
  void setSizes(std::uint32_t compressed, std::uint32_t uncompressed);

  // Whether the first four bytes of a file, read into a host integer as they stand, begin a local
  // header.
  static bool isSwappedSignature(unsigned int firstBytes);
};

struct QCF_API EndCentralDirectory {
  std::uint32_t signature;
  std::uint16_t disk;
  std::uint16_t directoryDisk;
  std::uint16_t entriesOnDisk;
  std::uint16_t totalEntries;
  std::uint32_t directorySize;
  std::uint32_t directoryOffset;
  std::uint16_t commentLength;

  // All zero but the signature. The argument is ignored.
  explicit EndCentralDirectory(int);
  EndCentralDirectory byteswap() const;
  std::uint16_t calcStructSize() const { return sizeof *this; }
};

struct QCF_API Zip64EndCentralDirectory {
  std::uint32_t signature;
  std::uint64_t recordSize;  // of what follows this field: 44
  std::uint8_t versionMadeBy;
  std::uint8_t hostMadeBy;
  std::uint8_t versionNeeded;
  std::uint8_t hostNeeded;
  std::uint32_t disk;
  std::uint32_t directoryDisk;
  std::uint64_t entriesOnDisk;
  std::uint64_t totalEntries;
  std::uint64_t directorySize;
  std::uint64_t directoryOffset;

  Zip64EndCentralDirectory byteswap() const;
  std::uint16_t calcStructSize() const { return sizeof *this; }
  // Takes the numbers of an end record, widened. The host byte of the version needed stays as it
  // is.
  void updateFromECD(const EndCentralDirectory& end);
};

struct QCF_API Zip64EndCentralDirectoryLocator {
  std::uint32_t signature;
  std::uint32_t disk;
  std::uint64_t recordOffset;
  std::uint32_t totalDisks;

  Zip64EndCentralDirectoryLocator byteswap() const;
  std::uint16_t calcStructSize() const { return sizeof *this; }
};

// Begins every block of an extra field.
struct QCF_API ExtraDataHeader {
  std::uint16_t id;
  std::uint16_t size;  // of the body: these four bytes not counted

  ExtraDataHeader() : id(0), size(0) {}
  ExtraDataHeader(const ExtraDataHeader& other);
  ExtraDataHeader& operator=(const ExtraDataHeader&) = default;
  ExtraDataHeader byteswap() const;
  std::uint16_t calcStructSize() const { return sizeof *this; }
};

// The Zip64 block of a local header, which always holds both sizes.
struct QCF_API Zip64LocalExtendedInfo {
  std::uint16_t id;
  std::uint16_t size;
  std::uint64_t uncompressedSize;
  std::uint64_t compressedSize;

  Zip64LocalExtendedInfo() : id(kZip64ExtraId), size(16), uncompressedSize(0), compressedSize(0) {}
  Zip64LocalExtendedInfo byteswap() const;
  std::uint16_t calcStructSize() const { return sizeof *this; }
};

// The Zip64 block of a central header at its largest. In a file the body holds only the fields
// whose 32-bit counterpart is all ones, in this order and without a gap.
struct QCF_API Zip64ExtendedInfo {
  std::uint16_t id;
  std::uint16_t size;  // 8 for each field present
  std::uint64_t uncompressedSize;
  std::uint64_t compressedSize;
  std::uint64_t localOffset;
  std::uint32_t diskStart;

  std::uint16_t calcStructSize() const { return sizeof *this; }
};

// File type and creator: opaque bytes in file order.
struct QCF_API FileTypeAndCreator_2705 {
  std::uint32_t fileType;
  std::uint32_t creator;

  FileTypeAndCreator_2705() : fileType(0), creator(0) {}
  std::uint16_t calcStructSize() const { return sizeof *this; }
};

// The block that records an entry's file type and creator.
struct QCF_API ExtraData_2705 {
  std::uint16_t id;
  std::uint16_t size;
  char mark[4];  // "ZPIT"
  FileTypeAndCreator_2705 typeAndCreator;

  // Without the mark, so no valid block yet.
  ExtraData_2705();
  explicit ExtraData_2705(const FileTypeAndCreator_2705& typeAndCreator);
  ExtraData_2705(const ExtraData_2705& other);
  ExtraData_2705& operator=(const ExtraData_2705&) = default;
  ExtraData_2705 byteswap() const;
  std::uint16_t calcStructSize() const { return sizeof *this; }
  bool hasMark() const;
};

// The data descriptor behind an entry's data. A 32-bit one is the first 16 bytes, its sizes in 32
// bits each.
struct QCF_API DataDescriptor {
  template <class Size>
  struct Sizes {
    Size compressed;
    Size uncompressed;
  };

  std::uint32_t signature;
  std::uint32_t crc32;
  union {
    Sizes<std::uint32_t> sizes32;
    Sizes<std::uint64_t> sizes64;
  };

  static constexpr int kSize32 = 16;
  static constexpr int kSize64 = 24;
};

#pragma pack(pop)

static_assert(sizeof(LocalFileHeader) == 30);
static_assert(sizeof(CentralDirHeader) == 46);
static_assert(sizeof(EndCentralDirectory) == 22);
static_assert(sizeof(Zip64EndCentralDirectory) == 56);
static_assert(sizeof(Zip64EndCentralDirectoryLocator) == 20);
static_assert(sizeof(ExtraDataHeader) == 4);
static_assert(sizeof(Zip64LocalExtendedInfo) == 20);
static_assert(sizeof(Zip64ExtendedInfo) == 32);
static_assert(sizeof(FileTypeAndCreator_2705) == 8);
static_assert(sizeof(ExtraData_2705) == 16);
static_assert(sizeof(DataDescriptor) == DataDescriptor::kSize64);

// A calendar moment packed as DOSTime, years before 1980 as _dosTimeMin. Odd seconds are rounded
// down. Nothing is validated: a number out of range runs over into its neighbour.
QCF_API DOSTime dostime(int year, int month, int day, int hour, int minute, int second);

// The system clock in the local time zone, rounded up to an even second.
QCF_API DOSTime getDOSTime();

}  // namespace pkg::zip
