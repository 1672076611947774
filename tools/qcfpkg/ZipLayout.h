#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "InputFile.h"

// Where everything lies in a ZIP file and what its records say: a reader of the published format
// with Zip64, which stands on nothing of the package library, so that it can judge what that wrote.
// Units are bytes, offsets count from the start of the file. Nothing here changes a file.
namespace ziplayout {

constexpr std::uint16_t kFlagEncrypted = 0x0001;
constexpr std::uint16_t kFlagDescriptor = 0x0008;
constexpr std::uint16_t kFlagUTF8 = 0x0800;
constexpr std::uint16_t kFlagMasked = 0x2000;
constexpr std::uint16_t kExtraZip64 = 0x0001;
constexpr std::uint16_t kExtraTypeCreator = 0x2705;
constexpr std::uint16_t kMethodStored = 0;
constexpr std::uint16_t kMethodDeflated = 8;
constexpr std::uint32_t kLocalSignature = 0x04034b50;
constexpr std::uint32_t kCentralSignature = 0x02014b50;
constexpr std::uint32_t kEndSignature = 0x06054b50;

// One block of an extra field.
struct ExtraBlock {
  std::uint16_t id = 0;
  std::string body;
};

struct ExtraField {
  std::vector<ExtraBlock> blocks;
  bool whole = true;  // the blocks end where the field ends
  const ExtraBlock* find(std::uint16_t id) const;
};

ExtraField parseExtra(const std::string& bytes);

// The numbers that local and central header share.
struct Numbers {
  std::uint16_t needed = 0;
  std::uint16_t flags = 0;
  std::uint16_t method = 0;
  std::uint16_t time = 0;
  std::uint16_t date = 0;
  std::uint32_t crc = 0;
  std::uint64_t compressedSize = 0;  // of the Zip64 block where the field sends there
  std::uint64_t size = 0;
  bool zip64Missing = false;  // a field of all ones, and no number in a block
};

// A central header.
struct Header : Numbers {
  std::string name;
  std::string extra;
};

// A local header. Any number of records may lead to one, and to some that lie over each other: what
// is kept must not grow with name and extra field.
struct LocalHeader : Numbers {
  bool hasCentralName = false;
  bool hasExtra = false;
  bool extraIsWhole = true;  // its blocks end where it ends
};

struct Descriptor {
  std::uint64_t length = 0;  // 0: none that matches the central header
  bool hasSignature = false;
};

struct Entry {
  Header central;
  std::uint64_t recordOffset = 0;  // of the central header
  std::uint64_t recordLength = 0;
  std::uint16_t madeBy = 0;
  std::uint16_t disk = 0;
  std::uint32_t externalAttributes = 0;
  std::string comment;
  std::uint64_t offset = 0;          // of the local header
  std::optional<LocalHeader> local;  // none where no local header stands
  std::uint64_t dataOffset = 0;
  Descriptor descriptor;

  bool isFolder() const { return !central.name.empty() && central.name.back() == '/'; }
  bool isEncrypted() const { return (central.flags & kFlagEncrypted) != 0; }
  bool isSymbolicLink() const;
  // None that agrees with the central header follows the data, and one should.
  bool lacksDescriptor() const;
  // Behind data and descriptor; never behind the end of the file.
  std::uint64_t end(std::uint64_t fileSize) const;
};

// The end record and, where there are any, those of Zip64.
struct End {
  std::uint64_t offset = 0;
  std::uint64_t entries = 0;
  std::uint64_t directorySize = 0;
  std::uint64_t directoryOffset = 0;  // as recorded
  bool isSplit = false;
  std::string comment;
  std::uint64_t commentLength = 0;  // as recorded: more than there is when the file is cut
  std::uint64_t trailing = 0;       // bytes of the file behind the comment
  bool hasZip64 = false;
  std::uint64_t zip64Offset = 0;
  bool zip64Wanted = false;       // a field of all ones, and no usable Zip64 record
  bool zip64Differs = false;      // a field that is not all ones says something else
  bool hasLateSignature = false;  // an end signature inside the comment
};

// A stretch of the file.
struct Extent {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  std::string what;
};

// What kept the directory from being read to its end.
struct Defect {
  std::string id;
  std::uint64_t offset = 0;
  std::string text;
};

class Layout {
public:
  explicit Layout(const std::string& path);

  const InputFile& file() const noexcept { return *fFile; }
  const End& end() const noexcept { return fEnd; }
  const std::vector<Entry>& entries() const noexcept { return fEntries; }
  const std::optional<Defect>& defect() const noexcept { return fDefect; }
  // How far the true offsets lie behind the recorded ones: bytes stand in front of the package.
  std::uint64_t shift() const noexcept { return fShift; }
  std::uint64_t directoryOffset() const noexcept { return fEnd.directoryOffset + fShift; }
  std::uint64_t directoryLength() const noexcept { return fDirectoryLength; }

  // The first entry of that name; null for none.
  const Entry* find(const std::string& name) const;
  // The type: the text of the stored entry "mimetype" up to its first white space. Empty for none.
  std::string mimeType() const;
  // All that a record accounts for, by its begin.
  std::vector<Extent> extents() const;
  // What no record accounts for.
  std::vector<Extent> gaps() const;
  // Looks for what belongs to a record at its `offset`: local header, data, descriptor.
  void readLocal(Entry& entry) const;
  // The name in the local header, which the entry has.
  std::string localName(const Entry& entry) const;
  // Raises tools::Failure for a file whose directory could not be read.
  void requireWhole() const;

private:
  bool findEnd();
  void readEnd(std::uint64_t offset);
  void readZip64End(const std::string& record);
  bool placeDirectory();
  void readDirectory();
  bool readRecord(std::uint64_t offset, std::uint64_t limit, Entry& entry);
  void readDescriptor(Entry& entry) const;
  void fail(const std::string& id, std::uint64_t offset, const std::string& text);

  std::shared_ptr<InputFile> fFile;
  End fEnd;
  std::vector<Entry> fEntries;
  std::optional<Defect> fDefect;
  std::uint64_t fShift = 0;
  std::uint64_t fDirectoryLength = 0;
};

// Numbers as they stand in a file. `bytes` holds the whole number.
std::uint16_t number16(std::string_view bytes, std::size_t at);
std::uint32_t number32(std::string_view bytes, std::size_t at);
std::uint64_t number64(std::string_view bytes, std::size_t at);

}  // namespace ziplayout
