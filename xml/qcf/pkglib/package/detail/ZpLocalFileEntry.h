#pragma once

#include <cstdint>
#include <memory>

#include <boost/shared_array.hpp>

#include "package/Package.h"
#include "package/detail/ZpCentralDir.h"

namespace pkg::zip {

// An entry's local header, with its data descriptor where it has one.
template <class Context = AppContext>
class ZpLocalFileEntry {
public:
  using String = typename Context::String;
  template <class T>
  struct MyArrayDeleter {
    void operator()(T* array) const noexcept { delete[] array; }
  };

  // A header to be read by readLFH.
  ZpLocalFileEntry() = default;
  // The header of an entry to be written. Zip64 where a size of the record is large: its room is
  // settled here.
  ZpLocalFileEntry(const ZpCentralDirEntry<Context>& record, ZipPackage<Context>* package);
  ZpLocalFileEntry(const ZpLocalFileEntry&) = delete;
  ZpLocalFileEntry& operator=(const ZpLocalFileEntry&) = delete;

  // Reads header and name at the file's position, not the bytes of the extra field. Raises
  // PackageIOException 2, 8 and 4.
  void readLFH(IPkgFSFileCommon* file);
  // Writes header, name and extra field at the file's position, with date, time, type and creator
  // from the package's properties. Not for a header that was read: its name was not kept.
  void writeLFH(IPkgFSFileCommon* file, ZipPackage<Context>* package);
  // Brings CRC and sizes up to the record's; returns whether the header on disk is out of date.
  // Raises 7 for a size above 32 bits without Zip64, 17 when `sizesAreFinal` and the sizes differ.
  bool updateFromCDEntry(bool sizesAreFinal, const ZpCentralDirEntry<Context>& record);

  // Writes the data descriptor at the file's position.
  void writeDescriptor(IPkgFSFileCommon* file) const;
  // Puts CRC and sizes into the header that was written at `offset`.
  void patch(IPkgFSFileCommon* file, std::uint64_t offset);

  bool hasDescriptor() const { return (fHeader.flags & kFlagDataDescriptor) != 0; }
  // Bytes from the start of the header to the entry's data.
  std::uint64_t dataOffset() const;

  LocalFileHeader fHeader;

private:
  using Deleter = MyArrayDeleter<char>;

  std::string composeExtraField(const String& typeAndCreator);
  char* findZip64Block() const;
  bool updateZip64Block(const ZpCentralDirEntry<Context>& record);

  boost::shared_array<char> fName;
  boost::shared_array<char> fExtra;
  std::unique_ptr<DataDescriptor> fDescriptor;
  bool fIsZip64 = false;
  std::uint32_t fZip64Place = 0;  // in the extra field as it was last written
};

extern template class ZpLocalFileEntry<AppContext>;

}  // namespace pkg::zip
