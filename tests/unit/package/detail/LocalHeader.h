#pragma once

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "package/detail/ZpLocalFileEntry.h"

#include "support/Raised.h"
#include "support/ZipBytes.h"
#include "unit/package/detail/TestPackage.h"

namespace support {

// A central record named "name" in a package, and what becomes of its local header.
class LocalHeader : public testing::Test {
protected:
  LocalHeader() { record.setName("name"); }

  Raised read(pkg::zip::ZpLocalFileEntry<>& local, const std::string& bytes) {
    file = package.file(bytes);
    return raised([&] { local.readLFH(file.get()); });
  }
  void setProperty(pkg::QCFPropertyName name, const std::string& value) {
    package.properties().setZipProperty("name", name, value, false);
  }
  // Sizes as a record has them before its data is written.
  void expect(std::uint64_t uncompressed, std::uint64_t compressed) {
    record.fUncompressedSize = uncompressed;
    record.fCompressedSize = compressed;
  }
  std::string written(pkg::zip::ZpLocalFileEntry<>& local) {
    const auto out = package.file("");
    local.writeLFH(out.get(), package.zip());
    return package.files().bytes("bytes");
  }
  std::string built() {
    pkg::zip::ZpLocalFileEntry<> local(record, package.zip());
    return written(local);
  }
  std::string descriptorOf(const pkg::zip::ZpLocalFileEntry<>& local) {
    const auto out = package.file("");
    local.writeDescriptor(out.get());
    return package.files().bytes("bytes");
  }
  // A header of the record as it is.
  zipbytes::Entry plain() const {
    zipbytes::Entry entry;
    entry.name = "name";
    entry.versionNeeded = 0;
    entry.date = 0;
    return entry;
  }

  TestPackage package;
  pkg::zip::ZpCentralDirEntry<> record;
  boost::shared_ptr<pkg::IPkgFSFile<>> file;
};

}  // namespace support
