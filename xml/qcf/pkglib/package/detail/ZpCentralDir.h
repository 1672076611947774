#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/shared_array.hpp>
#include <boost/shared_ptr.hpp>

#include "package/Package.h"
#include "package/detail/ZipImpl.h"
#include "package/source/NameTable.h"

namespace pkg::zip {

template <class Context = AppContext>
class ZipPackage;

// One central directory record: the header as in the file, its variable parts, and the true 64-bit
// numbers. A 32-bit field of the header holds all ones where the number is in the Zip64 block.
template <class Context = AppContext>
class ZpCentralDirEntry {
public:
  using String = typename Context::String;
  template <class T>
  struct MyArrayDeleter {
    void operator()(T* array) const noexcept { delete[] array; }
  };

  ZpCentralDirEntry() : fHeader(0) {}
  virtual ~ZpCentralDirEntry() = default;
  // Shares the buffers, whose bytes never change.
  ZpCentralDirEntry(const ZpCentralDirEntry& other) = default;
  ZpCentralDirEntry& operator=(const ZpCentralDirEntry&) = delete;

  // Reads the record at the file's position and leaves the position behind its comment. Sets the
  // entry's type and creator in the package's properties where there is a block of them. Raises
  // PackageIOException 2 to 6.
  void readCDH(IPkgFSFileCommon* file, ZipPackage<Context>* package);
  // Writes the record at the file's position, date, time, type and creator taken from the package's
  // properties. Changes the extra field in memory to what was written.
  void writeCDH(IPkgFSFileCommon* file, ZipPackage<Context>* package);

  // The name as the record has it, and the path that it is. Both raise 4 for a record without a
  // name, which no package can hold.
  const boost::shared_array<char>& name() const;
  String getPath() const;
  // Takes a name of fewer than 65536 bytes.
  void setName(const String& name);
  // Bytes of the record on disk, as its header has them.
  std::uint64_t sizeOnDisk() const;
  // Stores the final numbers, in the header with all ones where they are large, and settles
  // versions and Zip64 block.
  void setFinalNumbers(std::uint64_t uncompressedSize, std::uint64_t compressedSize);

  CentralDirHeader fHeader;
  boost::shared_array<char> fName;     // NUL-terminated; null for a length of 0, as the next two
  boost::shared_array<char> fExtra;    // not terminated
  boost::shared_array<char> fComment;  // NUL-terminated
  std::uint64_t fUncompressedSize = 0;
  std::uint64_t fCompressedSize = 0;
  std::uint64_t fLocalOffset = 0;

private:
  using Deleter = MyArrayDeleter<char>;

  void readExtraField(ZipPackage<Context>* package);
  void readZip64Numbers(const char* body, std::size_t bodySize, const char* end);
  std::size_t typeCreatorBlockSize() const;
  void appendZip64Block(std::string& out, const char* block) const;
  std::string composeExtraField(const String& typeAndCreator) const;
  void replaceExtra(const char* bytes, std::size_t count);

  std::uint32_t fExtraBytes = 0;  // what fExtra holds; the header may count more
};

// A central directory with its end records, as the file says it or as it is being built. Records
// stay in the order of the file.
template <class Context = AppContext>
class ZpCentralDir {
public:
  using Entry = ZpCentralDirEntry<Context>;
  using EntryPtr = boost::shared_ptr<Entry>;
  using Entries = std::vector<EntryPtr, ZipAllocator<EntryPtr, typename Context::AllocPolicy>>;
  template <class T>
  struct MyArrayDeleter {
    void operator()(T* array) const noexcept { delete[] array; }
  };
  // Whether a record has this name, up to the first NUL.
  struct CompareEntryName {
    const char* name;
    bool operator()(const EntryPtr& entry) const;
  };

  // An empty directory with room for `spare` records.
  explicit ZpCentralDir(std::size_t spare = 0);
  ZpCentralDir(const ZpCentralDir&) = delete;
  ZpCentralDir& operator=(const ZpCentralDir&) = delete;

  // The three steps of reading, in this order. The end record that stands nearest to the end of the
  // file is taken, unchecked. The comment becomes a property of the package, dates and times become
  // properties of the entries. Raises PackageIOException 10, 6 and PackageException 11; 12 to 15; 9
  // and what readCDH raises.
  void readECD(IPkgFSFileCommon* file, ZipPackage<Context>* package);
  void readZip64Data(IPkgFSFileCommon* file);
  void readCDEntries(IPkgFSFileCommon* file, ZipPackage<Context>* package);

  // Writes the Zip64 end records where a number is large, the end record and the package's comment.
  void writeECD(IPkgFSFileCommon* file, ZipPackage<Context>* package);

  // The first record of a name; null where there is none. A linear search: no index is kept.
  EntryPtr find(const char* name) const;
  // Where the records stand that have no record of the same name before them.
  std::vector<std::size_t> firstOfEachName() const;
  // Takes a record over and counts it.
  void append(const EntryPtr& entry);
  // The same with a copy of another directory's record. What it returns is valid until the next.
  const EntryPtr& appendCopy(const ZpCentralDir& other, std::size_t at);
  // Takes the first record of a name out and counts it off; its size stays counted.
  void erase(const char* name);

  EndCentralDirectory fEnd;
  Zip64EndCentralDirectory fZip64End;
  Zip64EndCentralDirectoryLocator fZip64Locator;
  boost::shared_array<char> fComment;  // NUL-terminated; null where there is none
  std::uint64_t fEntryCount = 0;
  std::uint64_t fDirectorySize = 0;
  std::uint64_t fDirectoryOffset = 0;
  Entries fEntries;

private:
  void add(EntryPtr entry, std::uint32_t nameHash);
  void count(const Entry& entry);
  std::size_t indexOf(const char* name) const;
  long long findEndRecord(IPkgFSFileCommon* file, long long position);
  void readComment(IPkgFSFileCommon* file, ZipPackage<Context>* package, long long position);
  void takeNumbersOfEnd();
  void writeZip64End(IPkgFSFileCommon* file);

  // One for each record, in their order: a search passes over most records without a look at them.
  std::vector<std::uint32_t> fNameHashes;
};

extern template class ZpCentralDirEntry<AppContext>;
extern template class ZpCentralDir<AppContext>;

}  // namespace pkg::zip
