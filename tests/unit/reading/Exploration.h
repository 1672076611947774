#pragma once

#include <algorithm>
#include <vector>

#include "unit/reading/Reading.h"

namespace reading {

// Reads at most 64 KiB of a stream, at a few places.
inline void readSomewhere(std::istream& in, long long size) {
  char block[8192];
  for (int i = 0; i < 8 && in.read(block, sizeof block); ++i) {
  }
  for (const long long position : {size / 2, size - 1, 0LL, size, size + 1000}) {
    in.clear();
    in.seekg(position);
    in.get();
    in.unget();
    in.read(block, 100);
  }
  in.clear();
  in.seekg(-1, std::ios_base::end);
  in.get();
}

inline void exploreFile(pkg::IPkgFile<>& file) {
  file.getSize();
  file.getCRC32();
  for (const auto name :
       {pkg::QCFPropertyZipDate, pkg::QCFPropertyZipTime, pkg::QCFPropertyZipTypeCreator}) {
    file.getProperty(name);
  }
  file.resolvePath("../x#y");
  for (const bool raw : {true, false}) {
    const Stream stream = file.open(kIn, raw);
    if (raw) {
      take(*stream, 10000);
    } else {
      readSomewhere(*stream, std::min<long long>(file.getSize64(), 1 << 20));
    }
    stream->close();
  }
}

// Everything that a client can ask of a package that it reads. Each step may raise; the next one is
// taken all the same.
inline void explore(pkg::IPackage<>& package) {
  raisedBy([&] { package.getMIMEType(); });
  raisedBy([&] { package.getProperty(pkg::QCFPropertyPackageComment); });
  std::vector<Directory> directories;
  raisedBy([&] {
    Iterator iterator;
    package.initIterator(iterator, {}, "");
    for (; iterator->isValid(); iterator->increment()) {
      const auto entry = iterator->dereference();
      if (entry->getEntryType() == pkg::PkgEntryDirectory) {
        directories.push_back(entry->toDirectory());
      } else {
        raisedBy([&] { exploreFile(*entry->toFile()); });
      }
      raisedBy([&] { package.entryExists(entry->getName()); });
    }
  });
  directories.push_back(package.getRootDirectory());
  for (const Directory& directory : directories)
    raisedBy([&] { walk(package, directory); });
  package.close();
}

}  // namespace reading
