// The dump in docs/package-format.md is what the library writes.

#include <ios>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"

#include "support/TempDir.h"

namespace {

// The bytes of the dump's lines: an offset of four digits, two blanks, up to eight bytes, a blank,
// words.
std::string documentedBytes() {
  std::istringstream page(
      support::readFile(std::string(QCF_SOURCE_DIR) + "/docs/package-format.md"));
  std::string bytes;
  for (std::string line; std::getline(page, line);) {
    if (line.size() < 8 || line.compare(4, 2, "  ") != 0) continue;
    if (line.find_first_not_of("0123456789abcdef") != 4) continue;
    EXPECT_EQ(bytes.size(), std::stoul(line.substr(0, 4), nullptr, 16)) << line;
    std::istringstream digits(line.substr(6, 23));
    for (std::string byte; digits >> byte;) {
      bytes += static_cast<char>(std::stoul(byte, nullptr, 16));
    }
  }
  return bytes;
}

void writeEntry(pkg::IPackage<>& package, const char* name, pkg::CompressionMethod method,
                const char* text) {
  const auto file = package.getFile(name, false);
  file->setCompressionMethod(method);
  file->setProperty(pkg::QCFPropertyZipDate, "225C");
  file->setProperty(pkg::QCFPropertyZipTime, "8318");
  const auto stream = file->open(std::ios::out, false);
  *stream << text;
  stream->close();
}

TEST(DocumentedPackage, IsWhatTheLibraryWritesByteForByte) {
  const support::TempDir folder;
  const std::string path = (folder.path() / "notes.pkg").string();
  pkg::QCFPackageFactory factory;
  const auto package =
      factory.openPackage(path, std::ios::out | std::ios::trunc, nullptr, nullptr, nullptr);
  package->beginUpdate();
  writeEntry(*package, "mimetype", pkg::CompressionStored, "application/x-notes");
  writeEntry(*package, "notes.txt", pkg::CompressionDeflated, "la la la la la la");
  package->setProperty(pkg::QCFPropertyPackageComment, "a comment");
  package->endUpdate();
  package->close();
  EXPECT_EQ(documentedBytes(), support::readFile(path));
}

}  // namespace
