#include "PlainZip.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include <malloc.h>
#include <sys/types.h>
#include <unistd.h>
#include <zlib.h>

#include <boost/shared_array.hpp>

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

constexpr std::size_t kPiece = 4096;

File openFile(const std::string& path, const char* mode) {
  File file(std::fopen(path.c_str(), mode), std::fclose);
  require(file != nullptr, "cannot open " + path);
  return file;
}

void write(std::FILE* file, const void* bytes, std::size_t count) {
  require(std::fwrite(bytes, 1, count, file) == count, "cannot write");
}

void read(std::FILE* file, void* bytes, std::size_t count) {
  require(std::fread(bytes, 1, count, file) == count, "cannot read");
}

#pragma pack(push, 1)

// What a local header and a record of the directory have in common.
struct Fields {
  std::uint16_t versionNeeded = 20;
  std::uint16_t flags = 0;
  std::uint16_t method = 0;
  std::uint16_t time = 0;  // MS-DOS
  std::uint16_t date = 0;
  std::uint32_t crc = 0;
  std::uint32_t storedSize = 0;
  std::uint32_t size = 0;
  std::uint16_t nameSize = 0;
  std::uint16_t extraSize = 0;
};

struct LocalHeader {
  std::uint32_t signature = 0x04034B50;
  Fields fields;
};

struct CentralHeader {
  std::uint32_t signature = 0x02014B50;
  std::uint16_t versionMadeBy = 20;
  Fields fields;
  std::uint16_t commentSize = 0;
  std::uint16_t disk = 0;
  std::uint16_t internalAttributes = 0;
  std::uint32_t externalAttributes = 0;
  std::uint32_t offset = 0;
};

struct EndRecord {
  std::uint32_t signature = 0x06054B50;
  std::uint16_t disk = 0;
  std::uint16_t directoryDisk = 0;
  std::uint16_t entriesHere = 0;
  std::uint16_t entries = 0;
  std::uint32_t directorySize = 0;
  std::uint32_t directoryOffset = 0;
  std::uint16_t commentSize = 0;
};

#pragma pack(pop)

static_assert(sizeof(LocalHeader) == 30 && sizeof(CentralHeader) == 46 && sizeof(EndRecord) == 22);

using Text = boost::shared_array<char>;  // ends with a NUL; null where it is empty

// With its numbers at full width. Its texts are shared with its copies.
struct Record {
  std::string_view nameView() const { return {name.get(), header.fields.nameSize}; }

  CentralHeader header;
  Text name;
  Text extra;
  Text comment;
  std::uint64_t size = 0;
  std::uint64_t storedSize = 0;
  std::uint64_t offset = 0;
};

using Records = std::vector<std::shared_ptr<Record>>;

void setToNow(Fields& fields) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  tzset();
  require(localtime_r(&now, &local) != nullptr, "no local time");
  fields.time =
      static_cast<std::uint16_t>(local.tm_hour << 11 | local.tm_min << 5 | local.tm_sec / 2);
  fields.date = static_cast<std::uint16_t>((local.tm_year - 80) << 9 | (local.tm_mon + 1) << 5 |
                                           local.tm_mday);
}

// An entry that is being written where the file stands: behind the stream that a client is given.
class Entry : public std::streambuf {
public:
  Entry(std::FILE* file, const std::string& name, bool deflate) : fFile(file), fDeflate(deflate) {
    fRecord.name.reset(new char[name.size() + 1]);
    std::memcpy(fRecord.name.get(), name.c_str(), name.size() + 1);
    fRecord.header.offset = static_cast<std::uint32_t>(ftello(file));
    fFields.nameSize = static_cast<std::uint16_t>(name.size());
    fFields.method = deflate ? Z_DEFLATED : 0;
    setToNow(fFields);
    writeHeader();
    write(fFile, name.data(), name.size());
    if (!deflate) return;
    require(deflateInit2(&fDeflater, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, MAX_MEM_LEVEL,
                         Z_DEFAULT_STRATEGY) == Z_OK,
            "deflate cannot begin");
  }

  // Puts sizes and checksum into the header, and returns the record for the directory.
  std::shared_ptr<Record> finish() {
    if (fDeflate) {
      deflateAs(Z_FINISH);
      deflateEnd(&fDeflater);
    }
    const off_t end = ftello(fFile);
    fseeko(fFile, static_cast<off_t>(fRecord.header.offset), SEEK_SET);
    writeHeader();
    fseeko(fFile, end, SEEK_SET);
    fRecord.header.fields = fFields;
    return std::make_shared<Record>(std::move(fRecord));
  }

protected:
  std::streamsize xsputn(const char* bytes, std::streamsize size) override {
    const auto* const in = reinterpret_cast<const Bytef*>(bytes);
    const auto count = static_cast<uInt>(size);
    fFields.crc = static_cast<std::uint32_t>(crc32(fFields.crc, in, count));
    fFields.size += count;
    if (!fDeflate) {
      write(fFile, bytes, count);
      fFields.storedSize += count;
      return size;
    }
    fDeflater.next_in = const_cast<Bytef*>(in);
    fDeflater.avail_in = count;
    deflateAs(Z_NO_FLUSH);
    return size;
  }

private:
  void writeHeader() {
    const LocalHeader header{LocalHeader{}.signature, fFields};
    write(fFile, &header, sizeof header);
  }

  void deflateAs(int flush) {
    do {
      fDeflater.next_out = fOut;
      fDeflater.avail_out = kPiece;
      deflate(&fDeflater, flush);
      const std::size_t count = kPiece - fDeflater.avail_out;
      write(fFile, fOut, count);
      fFields.storedSize += static_cast<std::uint32_t>(count);
    } while (fDeflater.avail_out == 0);
  }

  std::FILE* fFile;
  bool fDeflate;
  Record fRecord;
  Fields fFields;
  z_stream fDeflater{};
  Bytef fOut[kPiece];
};

// Of the user's cache; the benchmark sets it.
std::string temporaryFolder() {
  const std::filesystem::path cache(std::getenv("XDG_CACHE_HOME"));
  require(std::filesystem::is_directory(cache), "no folder for temporary files");
  const std::filesystem::path folder = cache / "TemporaryItems";
  if (!std::filesystem::is_directory(folder)) std::filesystem::create_directory(folder);
  return folder.string() + "/";
}

void writeDirectory(std::FILE* file, const Records& records) {
  EndRecord end;
  end.directoryOffset = static_cast<std::uint32_t>(ftello(file));
  for (const auto& record : records) {
    const CentralHeader& header = record->header;
    write(file, &header, sizeof header);
    write(file, record->name.get(), header.fields.nameSize);
    if (record->extra) write(file, record->extra.get(), header.fields.extraSize);
    if (record->comment) write(file, record->comment.get(), header.commentSize);
  }
  end.directorySize = static_cast<std::uint32_t>(ftello(file)) - end.directoryOffset;
  end.entriesHere = end.entries = static_cast<std::uint16_t>(records.size());
  write(file, &end, sizeof end);
}

Text readText(std::FILE* file, std::size_t count) {
  if (count == 0) return {};
  Text text(new char[count + 1]);
  read(file, text.get(), count);
  text.get()[count] = '\0';
  return text;
}

// Leaves the file where the directory begins.
Records readDirectory(std::FILE* file) {
  EndRecord end;
  fseeko(file, -static_cast<off_t>(sizeof end), SEEK_END);
  read(file, &end, sizeof end);
  require(end.signature == EndRecord{}.signature, "no end record where one was written");
  fseeko(file, static_cast<off_t>(end.directoryOffset), SEEK_SET);
  Records records;
  for (std::size_t number = 0; number < end.entries; ++number) {
    const auto record = std::make_shared<Record>();
    read(file, &record->header, sizeof record->header);
    const Fields& fields = record->header.fields;
    record->name = readText(file, fields.nameSize);
    record->extra = readText(file, fields.extraSize);
    record->comment = readText(file, record->header.commentSize);
    record->size = fields.size;
    record->storedSize = fields.storedSize;
    record->offset = record->header.offset;
    records.push_back(record);
  }
  fseeko(file, static_cast<off_t>(end.directoryOffset), SEEK_SET);
  return records;
}

// What a client is given of an entry, and keeps beyond the package if it likes.
class PlainEntry {
public:
  PlainEntry(std::FILE* file, const std::shared_ptr<Record>& record)
      : fName(record->name.get()), fOld(record) {
    const auto start = static_cast<off_t>(record->offset);
    LocalHeader header;
    fseeko(file, start, SEEK_SET);
    read(file, &header, sizeof header);
    fDataStart = start + static_cast<off_t>(sizeof header) + header.fields.nameSize +
                 header.fields.extraSize;
    fSize = record->size;
    fCRC = record->header.fields.crc;
  }
  virtual ~PlainEntry() = default;
  virtual const std::string& name() const { return fName; }
  virtual std::uint32_t size() const { return static_cast<std::uint32_t>(fSize); }

private:
  std::string fName;
  std::shared_ptr<Record> fOld;
  std::shared_ptr<Record> fNew;  // in an update
  std::unique_ptr<LocalHeader> fNewHeader;
  std::unique_ptr<std::string> fTemporaryFile;
  std::unique_ptr<std::vector<void*>> fStreams;
  off_t fDataStart;
  std::uint64_t fSize;
  std::uint32_t fCRC;
};

// The records for the new directory, with the time that goes by an entry's name.
Records copiesOf(const Records& records) {
  std::unordered_map<std::string_view, std::pair<std::uint16_t, std::uint16_t>> times;
  for (const auto& record : records)
    times[record->nameView()] = {record->header.fields.date, record->header.fields.time};
  Records copies;
  for (const auto& record : records) {
    copies.push_back(std::make_shared<Record>(*record));
    Fields& fields = copies.back()->header.fields;
    std::tie(fields.date, fields.time) = times.at(record->nameView());
  }
  return copies;
}

}  // namespace

void keepHeap() {
  constexpr int kEnough = 1 << 23;
  ::mallopt(M_MMAP_THRESHOLD, kEnough);
  ::mallopt(M_TRIM_THRESHOLD, kEnough);
}

void createPlainZip(const std::string& path, const Shape& shape) {
  keepHeap();
  const File file = openFile(path, "w+b");
  Records records;
  std::map<std::string_view, const Record*> byName;
  for (std::size_t number = 0; number < shape.entries; ++number) {
    const auto entry = std::make_unique<Entry>(file.get(), shape.name(number), shape.deflate);
    std::ostream stream(entry.get());
    for (std::size_t block = 0; block < shape.blocks; ++block)
      stream.write(content(number + block), static_cast<std::streamsize>(shape.blockSize));
    records.push_back(entry->finish());
    const Record* const record = records.back().get();
    require(byName.emplace(record->nameView(), record).second, "the name is taken");
  }
  writeDirectory(file.get(), records);
}

void appendPlainZip(const std::string& path, const std::string& name) {
  keepHeap();
  const File file = openFile(path, "r+b");
  const Records old = readDirectory(file.get());
  require(std::none_of(old.begin(), old.end(),
                       [&](const auto& one) { return one->nameView() == name; }),
          "the name is taken");

  const std::string spool = temporaryFolder() + name;
  write(openFile(spool, "w+bx").get(), content(1), 1024);

  Records records = copiesOf(old);
  require(ftruncate(fileno(file.get()), ftello(file.get())) == 0, "cannot cut off the directory");
  Entry entry(file.get(), name, true);
  {
    const File data = openFile(spool, "r+b");
    fseeko(data.get(), 0, SEEK_END);
    off_t left = ftello(data.get());
    fseeko(data.get(), 0, SEEK_SET);
    for (char piece[kPiece]; left > 0;) {
      const off_t count = std::min<off_t>(left, kPiece);
      read(data.get(), piece, static_cast<std::size_t>(count));
      entry.sputn(piece, count);
      left -= count;
    }
  }
  std::remove(spool.c_str());
  records.push_back(entry.finish());
  writeDirectory(file.get(), records);
}

void walkPlainZip(const std::string& path, const Found& found) {
  const File file = openFile(path, "rb");
  const Records records = readDirectory(file.get());
  std::map<std::string, std::shared_ptr<PlainEntry>> entries;
  for (const auto& record : records) {
    std::shared_ptr<PlainEntry>& entry = entries[record->name.get()];
    entry = std::make_shared<PlainEntry>(file.get(), record);
    found(entry->name(), entry->size());
  }
}
