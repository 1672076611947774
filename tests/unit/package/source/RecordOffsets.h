#pragma once

#include <cstddef>

#include "package/source/ZipImpl.h"

// Where each field of a ZIP record stands, from the tables of APPNOTE.TXT, in bytes. Compiling this
// is the test, for every word size and platform.

namespace pkg::zip {

static_assert(offsetof(LocalFileHeader, signature) == 0);
static_assert(offsetof(LocalFileHeader, versionNeeded) == 4);
static_assert(offsetof(LocalFileHeader, flags) == 6);
static_assert(offsetof(LocalFileHeader, method) == 8);
static_assert(offsetof(LocalFileHeader, time) == 10);
static_assert(offsetof(LocalFileHeader, date) == 12);
static_assert(offsetof(LocalFileHeader, crc32Low) == 14);
static_assert(offsetof(LocalFileHeader, crc32High) == 16);
static_assert(offsetof(LocalFileHeader, compressedSizeLow) == 18);
static_assert(offsetof(LocalFileHeader, compressedSizeHigh) == 20);
static_assert(offsetof(LocalFileHeader, uncompressedSizeLow) == 22);
static_assert(offsetof(LocalFileHeader, uncompressedSizeHigh) == 24);
static_assert(offsetof(LocalFileHeader, nameLength) == 26);
static_assert(offsetof(LocalFileHeader, extraLength) == 28);

static_assert(offsetof(CentralDirHeader, signature) == 0);
static_assert(offsetof(CentralDirHeader, versionMadeBy) == 4);
static_assert(offsetof(CentralDirHeader, hostMadeBy) == 5);
static_assert(offsetof(CentralDirHeader, versionNeeded) == 6);
static_assert(offsetof(CentralDirHeader, flags) == 8);
static_assert(offsetof(CentralDirHeader, method) == 10);
static_assert(offsetof(CentralDirHeader, time) == 12);
static_assert(offsetof(CentralDirHeader, date) == 14);
static_assert(offsetof(CentralDirHeader, crc32) == 16);
static_assert(offsetof(CentralDirHeader, compressedSize) == 20);
static_assert(offsetof(CentralDirHeader, uncompressedSize) == 24);
static_assert(offsetof(CentralDirHeader, nameLength) == 28);
static_assert(offsetof(CentralDirHeader, extraLength) == 30);
static_assert(offsetof(CentralDirHeader, commentLength) == 32);
static_assert(offsetof(CentralDirHeader, diskStart) == 34);
static_assert(offsetof(CentralDirHeader, internalAttributes) == 36);
static_assert(offsetof(CentralDirHeader, externalAttributes) == 38);
static_assert(offsetof(CentralDirHeader, localOffsetLow) == 42);
static_assert(offsetof(CentralDirHeader, localOffsetHigh) == 44);

static_assert(offsetof(EndCentralDirectory, signature) == 0);
static_assert(offsetof(EndCentralDirectory, disk) == 4);
static_assert(offsetof(EndCentralDirectory, directoryDisk) == 6);
static_assert(offsetof(EndCentralDirectory, entriesOnDisk) == 8);
static_assert(offsetof(EndCentralDirectory, totalEntries) == 10);
static_assert(offsetof(EndCentralDirectory, directorySize) == 12);
static_assert(offsetof(EndCentralDirectory, directoryOffset) == 16);
static_assert(offsetof(EndCentralDirectory, commentLength) == 20);

static_assert(offsetof(Zip64EndCentralDirectory, signature) == 0);
static_assert(offsetof(Zip64EndCentralDirectory, recordSize) == 4);
static_assert(offsetof(Zip64EndCentralDirectory, versionMadeBy) == 12);
static_assert(offsetof(Zip64EndCentralDirectory, versionNeeded) == 14);
static_assert(offsetof(Zip64EndCentralDirectory, disk) == 16);
static_assert(offsetof(Zip64EndCentralDirectory, directoryDisk) == 20);
static_assert(offsetof(Zip64EndCentralDirectory, entriesOnDisk) == 24);
static_assert(offsetof(Zip64EndCentralDirectory, totalEntries) == 32);
static_assert(offsetof(Zip64EndCentralDirectory, directorySize) == 40);
static_assert(offsetof(Zip64EndCentralDirectory, directoryOffset) == 48);

static_assert(offsetof(Zip64EndCentralDirectoryLocator, signature) == 0);
static_assert(offsetof(Zip64EndCentralDirectoryLocator, disk) == 4);
static_assert(offsetof(Zip64EndCentralDirectoryLocator, recordOffset) == 8);
static_assert(offsetof(Zip64EndCentralDirectoryLocator, totalDisks) == 16);

static_assert(offsetof(ExtraDataHeader, id) == 0);
static_assert(offsetof(ExtraDataHeader, size) == 2);

static_assert(offsetof(Zip64LocalExtendedInfo, id) == 0);
static_assert(offsetof(Zip64LocalExtendedInfo, size) == 2);
static_assert(offsetof(Zip64LocalExtendedInfo, uncompressedSize) == 4);
static_assert(offsetof(Zip64LocalExtendedInfo, compressedSize) == 12);

static_assert(offsetof(Zip64ExtendedInfo, id) == 0);
static_assert(offsetof(Zip64ExtendedInfo, size) == 2);
static_assert(offsetof(Zip64ExtendedInfo, uncompressedSize) == 4);
static_assert(offsetof(Zip64ExtendedInfo, compressedSize) == 12);
static_assert(offsetof(Zip64ExtendedInfo, localOffset) == 20);
static_assert(offsetof(Zip64ExtendedInfo, diskStart) == 28);

static_assert(offsetof(FileTypeAndCreator_2705, fileType) == 0);
static_assert(offsetof(FileTypeAndCreator_2705, creator) == 4);

static_assert(offsetof(ExtraData_2705, id) == 0);
static_assert(offsetof(ExtraData_2705, size) == 2);
static_assert(offsetof(ExtraData_2705, mark) == 4);
static_assert(offsetof(ExtraData_2705, typeAndCreator) == 8);

static_assert(offsetof(DataDescriptor, signature) == 0);
static_assert(offsetof(DataDescriptor, crc32) == 4);
static_assert(offsetof(DataDescriptor, sizes32) == 8);
static_assert(offsetof(DataDescriptor, sizes64) == 8);

static_assert(offsetof(DataDescriptor::Sizes<std::uint32_t>, uncompressed) == 4);
static_assert(offsetof(DataDescriptor::Sizes<std::uint64_t>, uncompressed) == 8);

}  // namespace pkg::zip
