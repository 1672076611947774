#pragma once

#include <istream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "package/QCFPackage.h"

#include "support/Raised.h"
#include "support/Run.h"

// What is in a package, by the library and by a reader that has nothing to do with it.
namespace interop {

struct Listed {
  std::string name;
  long long size = 0;
  unsigned long crc = 0;
  bool readable = false;
  std::string data;
};
using Listing = std::vector<Listed>;

inline std::string readAll(std::istream& in) {
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Every entry in the order of the directory, by the library's walk.
inline Listing listByWalking(pkg::IPackage<>& package) {
  Listing listing;
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> iterator;
  package.initIterator(iterator, {}, "");
  for (; iterator->isValid(); iterator->increment()) {
    const auto entry = iterator->dereference();
    Listed listed;
    listed.name = entry->getName();
    listed.readable = true;
    if (entry->getEntryType() == pkg::PkgEntryFile) {
      const auto file = entry->toFile();
      listed.size = file->getSize64();
      listed.crc = file->getCRC32();
      const auto stream = file->open(std::ios_base::in, false);
      stream->exceptions(std::ios_base::badbit);
      listed.readable =
          support::raised([&] { listed.data = readAll(*stream); }) == support::nothing();
    }
    listing.push_back(listed);
  }
  return listing;
}

inline std::string fromHex(const std::string& digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

// The same by python3's zipfile. Names are those of the file, byte for byte.
inline Listing listByPython(const std::string& path) {
  static const char* const kScript = R"(
import sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as package:
    for info in package.infolist():
        name = info.orig_filename.encode('utf-8' if info.flag_bits & 0x800 else 'cp437')
        try:
            with package.open(info) as stream:
                data = '=' + stream.read().hex()
        except Exception:
            data = '-'
        print(name.hex(), info.file_size, info.CRC, data)
)";
  std::istringstream lines(support::python(kScript, {path}));
  Listing listing;
  std::string name;
  std::string data;
  for (Listed listed; lines >> name >> listed.size >> listed.crc >> data;
       listing.push_back(listed)) {
    listed.name = fromHex(name);
    listed.readable = data.front() == '=';
    listed.data = fromHex(data.substr(1));
  }
  return listing;
}

}  // namespace interop
