#pragma once

#include <algorithm>
#include <vector>

#include "unit/reading/Reading.h"

namespace reading {

// What is explored of a package, however large it is: a walk looks at every record, once more for
// each directory that it finds implied, and a deflated byte stands for up to a thousand, which the
// first seek copies to a file.
struct Share {
  int entries = 2048;
  int children = 512;                     // of all directories
  long walked = 32 << 20;                 // bytes of names, and 256 for each record
  std::streamsize bytes = 96 << 20;       // read
  std::streamsize bytesSought = 8 << 20;  // in entries that are no longer than that together
};

// Reads a stream to its end, where it fails, or as far as the limit. Returns how many bytes came.
inline std::streamsize readThrough(std::istream& in, std::streamsize limit) {
  char block[8192];
  std::streamsize count = 0;
  while (in && count < limit) {
    in.read(block, sizeof block);
    count += in.gcount();
  }
  return count;
}

// Reads at most 64 KiB of a stream, and at a few places.
inline void seekAround(std::istream& in, long long size) {
  char block[100];
  readThrough(in, 1 << 16);
  for (const long long position : {size / 2, size - 1, 0LL, size, size + 1000}) {
    in.clear();
    in.seekg(position);
    in.get();
    in.unget();
    in.read(block, sizeof block);
  }
  in.clear();
  in.seekg(-1, std::ios_base::end);
  in.get();
}

inline void exploreFile(pkg::IPkgFile<>& file, Share& left) {
  file.getSize();
  file.getCRC32();
  for (const auto name :
       {pkg::QCFPropertyZipDate, pkg::QCFPropertyZipTime, pkg::QCFPropertyZipTypeCreator}) {
    file.getProperty(name);
  }
  file.resolvePath("../x#y");
  const Stream raw = file.open(kIn, true);
  take(*raw, 10000);
  raw->close();
  const Stream stream = file.open(kIn, false);
  const std::streamsize count = readThrough(*stream, left.bytes);
  const bool isWhole = !*stream;
  stream->close();
  left.bytes -= count;
  if (!isWhole || count > left.bytesSought) return;
  left.bytesSought -= count;
  const Stream sought = file.open(kIn, false);
  seekAround(*sought, std::min<long long>(file.getSize64(), 1 << 20));
  sought->close();
}

inline void exploreDirectory(pkg::IPackage<>& package, const Directory& directory, Share& left) {
  Iterator iterator;
  package.initIterator(iterator, directory, "");
  for (; iterator->isValid() && left.children-- > 0; iterator->increment())
    iterator->dereference()->getName();
}

// Everything that a client can ask of a package that it reads, as far as the share goes. Each step
// may raise; the next one is taken all the same.
inline void explore(pkg::IPackage<>& package) {
  Share left;
  raisedBy([&] { package.getMIMEType(); });
  raisedBy([&] { package.getProperty(pkg::QCFPropertyPackageComment); });
  std::vector<Directory> directories{package.getRootDirectory()};
  long ofOneWalk = 0;
  raisedBy([&] {
    Iterator iterator;
    package.initIterator(iterator, {}, "");
    for (; iterator->isValid(); iterator->increment()) {
      const auto entry = iterator->dereference();
      ofOneWalk += 256 + static_cast<long>(entry->getName().size());
      const bool isDirectory = entry->getEntryType() == pkg::PkgEntryDirectory;
      if (isDirectory) directories.push_back(entry->toDirectory());
      if (left.entries-- <= 0) continue;
      if (!isDirectory) raisedBy([&] { exploreFile(*entry->toFile(), left); });
      raisedBy([&] { package.entryExists(entry->getName()); });
    }
  });
  for (const Directory& directory : directories) {
    raisedBy([&] { exploreDirectory(package, directory, left); });
    left.walked -= ofOneWalk;
    if (left.walked < 0) break;
  }
  package.close();
}

}  // namespace reading
