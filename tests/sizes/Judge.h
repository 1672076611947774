#pragma once

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "support/Run.h"
#include "support/ZipBytes.h"

// What python3 says of a package: its end records, and of each entry both headers.
namespace sizes {

// Prints
//   end COUNT SIZE OFFSET [zip64 COUNT OFFSET], with the fields of the end record as they stand;
//   short N, where the directory is N bytes longer than the end records say. Its own reader trusts
//     them, so it is told of that;
//   NAME METHOD VERSION CRC COMPRESSED SIZE OFFSET EXTRA | CRC COMPRESSED SIZE EXTRA
//     for each entry: the true numbers and the extra field of the record, then the fields of the
//     local header as they stand;
//   the text of each entry that is named.
inline const char kJudge[] = R"python(
import struct, sys, zipfile
path = sys.argv[1]
with open(path, 'rb') as f:
    at = f.seek(-22, 2)
    end = struct.unpack('<IHHHHIIH', f.read(22))
    assert end[0] == 0x06054b50 and end[3] == end[4]
    text = 'end %d %s %x' % (end[4], 'x' if end[5] == 0xffffffff else 's', end[6])
    size, offset = end[5], end[6]
    f.seek(at - 20)
    locator = struct.unpack('<IIQI', f.read(20))
    if locator[0] == 0x07064b50:
        at = locator[2]
        f.seek(at)
        zip64 = struct.unpack('<IQHHIIQQQQ', f.read(56))
        assert zip64[0] == 0x06064b50 and zip64[1] == 44 and zip64[6] == zip64[7]
        size, offset = zip64[8], zip64[9]
        text += ' zip64 %d %x' % (zip64[7], offset)
print(text)
short = at - offset - size
print('short', short)
has_zip64 = locator[0] == 0x07064b50
read_end = zipfile._EndRecData
def numbers_of_zip64(f, end_offset, record):
    if has_zip64:
        record[zipfile._ECD_ENTRIES_THIS_DISK] = record[zipfile._ECD_ENTRIES_TOTAL] = zip64[7]
        record[zipfile._ECD_SIZE], record[zipfile._ECD_OFFSET] = size, offset
        record[zipfile._ECD_LOCATION] = at
    return record
def corrected(f):
    record = read_end(f)
    record[zipfile._ECD_SIZE] += short
    return record
zipfile._EndRecData64 = numbers_of_zip64
zipfile._EndRecData = corrected
with zipfile.ZipFile(path) as package:
    for i in package.infolist()[:20]:
        package.fp.seek(i.header_offset)
        local = struct.unpack('<IHHHHHIIIHH', package.fp.read(30))
        assert local[0] == 0x04034b50 and package.fp.read(local[9]).decode() == i.filename
        extra = package.fp.read(local[10])
        print(i.filename, i.compress_type, i.extract_version, '%08x' % i.CRC, i.compress_size,
              i.file_size, i.header_offset, i.extra.hex() or '-', '|', '%08x' % local[6],
              '%x' % local[7], '%x' % local[8], extra.hex() or '-')
    for name in sys.argv[2:]:
        print(package.read(name).decode())
)python";

inline std::vector<std::string> judged(const std::string& path,
                                       const std::vector<std::string>& read = {}) {
  std::vector<std::string> arguments = {path};
  arguments.insert(arguments.end(), read.begin(), read.end());
  std::istringstream out(support::python(kJudge, arguments));
  std::vector<std::string> lines;
  for (std::string line; std::getline(out, line);)
    lines.push_back(line);
  return lines;
}

inline std::string hex(const zipbytes::Bytes& bytes) {
  std::string text;
  for (const char byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
    text += digits;
  }
  return text.empty() ? "-" : text;
}
inline std::string hex(std::uint64_t number) {
  char digits[20];
  std::snprintf(digits, sizeof digits, "%llx", static_cast<unsigned long long>(number));
  return digits;
}
// The Zip64 block of these numbers, in hexadecimal digits.
inline std::string block(const std::vector<std::uint64_t>& numbers) {
  return hex(zipbytes::zip64Block(numbers));
}

}  // namespace sizes
