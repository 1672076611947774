#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;
using zipbytes::storedEntry;

namespace {

// A package of one file "a" whose local header stands at `offset` of `local`.
std::string packageAround(const std::string& local, std::uint32_t offset) {
  zipbytes::Entry central = storedEntry("a", "x");
  central.offset = offset;
  zipbytes::File file;
  return file.raw(local).list(central).bytes();
}

}  // namespace

TEST(Entry, AStoredFileIsBoundToItsRecord) {
  zipbytes::File file;
  addStored(file, "a", "12345");
  addDeflated(file, "b", std::string(1000, 'z'));
  const MemoryPackage package(file.bytes());
  const File a = package->getFile("a", true);
  EXPECT_EQ("a", a->getName());
  EXPECT_EQ(pkg::PkgEntryFile, a->getEntryType());
  EXPECT_EQ(pkg::CompressionStored, a->getCompressionMethod());
  EXPECT_EQ(5, a->getSize64());
  EXPECT_EQ(5, a->getCompressedSize64());
  EXPECT_EQ(zipbytes::crc32("12345"), a->getCRC32());
  EXPECT_EQ(nullptr, a->getParent());
  EXPECT_EQ(&*package, a->getPackage());
  EXPECT_FALSE(a->isDeleted());
  EXPECT_FALSE(a->isModified());

  const File b = package->getFile("b", true);
  EXPECT_EQ(pkg::CompressionDeflated, b->getCompressionMethod());
  EXPECT_EQ(1000, b->getSize64());
  EXPECT_EQ(static_cast<long long>(deflated(std::string(1000, 'z')).size()),
            b->getCompressedSize64());
}

TEST(Entry, ANewFileTakesThePackagesMethodOrElseDeflate) {
  const MemoryPackage package(packageOf({"a"}));
  EXPECT_EQ(pkg::CompressionDeflated, package->getFile("b", false)->getCompressionMethod());
  package->setDefaultCompressionMethod(pkg::CompressionStored);
  EXPECT_EQ(pkg::CompressionStored, package->getFile("c", false)->getCompressionMethod());
  package->setDefaultCompressionMethod(pkg::CompressionDefault);
  EXPECT_EQ(pkg::CompressionDeflated, package->getFile("d", false)->getCompressionMethod());
}

TEST(Entry, ANewDirectoryIsStored) {
  const MemoryPackage package(packageOf({"a"}));
  EXPECT_EQ(pkg::CompressionStored, package->getDirectory("d", false)->getCompressionMethod());
}

TEST(Entry, AnyMethodButStoredReadsAsDeflate) {
  for (const int method : {1, 8, 9, 12, 14, 99, 0xFFFF}) {
    zipbytes::Entry entry = storedEntry("a", "x");
    entry.method = static_cast<std::uint16_t>(method);
    zipbytes::File file;
    const MemoryPackage package(file.add(entry, "x").bytes());
    EXPECT_EQ(pkg::CompressionDeflated, package->getFile("a", true)->getCompressionMethod());
    Iterator iterator;
    package->initIterator(iterator, {}, "");
    EXPECT_EQ(pkg::CompressionDeflated, iterator->dereference()->getCompressionMethod());
  }
}

TEST(Entry, TheMethodIsThatOfTheCentralRecord) {
  zipbytes::Entry local = storedEntry("a", "x");
  local.method = 8;
  zipbytes::File file;
  const MemoryPackage package(file.addAs(local, storedEntry("a", "x"), "x").bytes());
  EXPECT_EQ(pkg::CompressionStored, package->getFile("a", true)->getCompressionMethod());
  EXPECT_EQ("x", contents(package, "a"));
}

TEST(Entry, OnlyStoredAndDeflateAreAcceptedAsMethods) {
  const MemoryPackage package(packageOf({"a"}));
  const File file = package->getFile("a", true);
  for (const int method : {-1, 1, 7, 9, 12, 256}) {
    const Raised raised =
        raisedBy([&] { file->setCompressionMethod(static_cast<pkg::CompressionMethod>(method)); });
    EXPECT_EQ(22, raised.code) << method;
    EXPECT_EQ(pkg::CompressionStored, file->getCompressionMethod());
  }
  file->setCompressionMethod(pkg::CompressionDeflated);
  EXPECT_EQ(pkg::CompressionDeflated, file->getCompressionMethod());
}

TEST(Entry, IsWhatItIsAndConvertsToNothingElse) {
  const MemoryPackage package(packageOf({"a", "d/"}));
  const File file = package->getFile("a", true);
  const Directory directory = package->getDirectory("d", true);
  EXPECT_EQ(file, file->toFile());
  EXPECT_EQ(directory, directory->toDirectory());
  for (const Raised& raised :
       {raisedBy([&] { file->toDirectory(); }), raisedBy([&] { directory->toFile(); })}) {
    EXPECT_EQ(23, raised.code);
    EXPECT_FALSE(raised.isIO);
  }
}

TEST(Entry, EachConversionIsAHandleOfItsOwn) {
  const MemoryPackage package(packageOf({"a"}));
  const File first = package->getFile("a", true);
  const File second = first->toFile();
  EXPECT_EQ(1, first.use_count());
  EXPECT_EQ(1, second.use_count());
  const File copy = first;
  EXPECT_EQ(2, first.use_count());
  EXPECT_EQ(1, second.use_count());
}

TEST(Entry, ALocalHeaderThatIsCutShortRaises2) {
  const std::string local = localHeader(storedEntry("a", "x")) + "x";
  const std::string bytes = packageAround(local, 0);
  // Into the last 29 bytes of the file.
  const Raised raised = raisedBy([&] {
    MemoryPackage(packageAround(local, static_cast<std::uint32_t>(bytes.size() - 29)))
        ->getFile("a", true);
  });
  EXPECT_EQ(2, raised.code);
  EXPECT_TRUE(raised.isIO);
}

TEST(Entry, ALocalHeaderBeyondTheFileRaises2) {
  EXPECT_RAISES(2, MemoryPackage(packageAround(localHeader(storedEntry("a", "x")), 0x7FFFFFFF))
                       ->getFile("a", true));
}

TEST(Entry, AWrongLocalSignatureRaises8) {
  zipbytes::Entry local = storedEntry("a", "x");
  local.localSignature ^= 1;
  const std::string good = localHeader(storedEntry("b", "x"));
  EXPECT_RAISES(8, MemoryPackage(packageAround(good + localHeader(local) + "x",
                                               static_cast<std::uint32_t>(good.size())))
                       ->getFile("a", true));
}

TEST(Entry, ALocalNameThatIsCutShortRaises4) {
  zipbytes::Entry local = storedEntry(std::string(60000, 'n'), "x");
  const std::string header = localHeader(local).substr(0, 31);
  const Raised raised =
      raisedBy([&] { MemoryPackage(packageAround(header, 0))->getFile("a", true); });
  EXPECT_EQ(4, raised.code);
  EXPECT_TRUE(raised.isIO);
}

TEST(Entry, TheLocalNameNeedNotBeTheCentralOne) {
  zipbytes::File file;
  const MemoryPackage package(
      file.addAs(storedEntry("local", "x"), storedEntry("a", "x"), "x").bytes());
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("local"));
  EXPECT_EQ("x", contents(package, "a"));
}

TEST(Entry, AFailedLookupLeavesNoObjectBehind) {
  zipbytes::Entry local = storedEntry("a", "x");
  local.localSignature = 0;
  zipbytes::File file;
  addStored(file, "first", "x");
  const MemoryPackage package(file.addAs(local, storedEntry("a", "x"), "x").bytes());
  for (int i = 0; i < 3; ++i)
    EXPECT_RAISES(8, package->getFile("a", true));
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("a"));
}

TEST(Entry, CreatingADirectoryTwiceRaises25) {
  const MemoryPackage package(packageOf({"a"}), nullptr, kIn | kOut);
  const Directory directory = package->getDirectory("d", false);
  EXPECT_NO_THROW(directory->create());
  EXPECT_TRUE(directory->isModified());
  EXPECT_TRUE(package->isModified());
  const Raised raised = raisedBy([&] { directory->create(); });
  EXPECT_EQ(25, raised.code);
  EXPECT_FALSE(raised.isIO);
  EXPECT_EQ("PKGLIB SAMPLE ERROR MESSAGE: Directory Already Exists", raised.text);
}

TEST(Entry, CreatingADirectoryThatIsStoredRaises25UnlessItWasDeleted) {
  const MemoryPackage package(packageOf({"d/"}), nullptr, kIn | kOut);
  const Directory directory = package->getDirectory("d", true);
  EXPECT_RAISES(25, directory->create());
  directory->remove();
  EXPECT_TRUE(directory->isDeleted());
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("d/"));
  EXPECT_NO_THROW(directory->create());
  EXPECT_FALSE(directory->isDeleted());
  EXPECT_EQ(pkg::PkgEntryDirectory, package->entryExists("d/"));
}
