#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "failures/Ways.h"
#include "support/FileSystems.h"
#include "unit/package/detail/FakeParser.h"

// What the library does not guard against: each of these is told in docs/limits.md.

namespace failures {

namespace {

class Unguarded : public testing::Test {
protected:
  Package open(const Bytes& bytes, std::ios_base::openmode mode = kIn | kOut) {
    fMemory.put("old", bytes);
    return pkg::QCFPackageFactory().openPackage("old", mode, &fMemory, nullptr, nullptr);
  }
  static Bytes packageOfTwo() {
    zipbytes::File file;
    for (const char* name : {"a", "b"})
      file.add(golden::storedEntry(name, "text"), "text");
    return file.bytes();
  }

  support::MemoryFileSystem fMemory;
};

// Its directory is not looked at where it is said to have no entries.
TEST_F(Unguarded, ADamagedPackageSavedInPlaceGrowsToWhereItsDirectoryIsSaidToBegin) {
  zipbytes::File file;
  file.add(golden::storedEntry("a", "text"), "text");
  zipbytes::End end = file.end();
  end.entries = 0;
  end.directoryOffset = 1000000;
  const Package package = open(file.bytes(end));
  package->doUNSAFEUpdateInPlace();
  EXPECT_EQ(fMemory.bytes("old").size(), 1000000u + 22u);
}

TEST_F(Unguarded, ASaveIntoThePackagesOwnFileEmptiesIt) {
  const Package package = open(packageOfTwo());
  try {
    package->saveAs("old", kIn | kOut | kTrunc);
  } catch (pkg::PackageException<>&) {
  }
  EXPECT_EQ(fMemory.bytes("old").find("text"), Bytes::npos);
}

TEST_F(Unguarded, AnUpdateInPlaceOfAClosedPackageRaises24AndLeavesTheFile) {
  const Package package = open(packageOfTwo());
  package->close();
  int code = 0;
  try {
    package->doUNSAFEUpdateInPlace();
  } catch (pkg::PackageException<>& e) {
    code = e.getErrorCode();
  }
  EXPECT_EQ(code, 24);
  EXPECT_EQ(fMemory.bytes("old"), packageOfTwo());
}

// The records behind it have moved down.
TEST_F(Unguarded, AnIteratorSkipsAnEntryBehindTheRemovalOfOneThatItHasSeen) {
  const Package package = open(packageOfTwo());
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> iterator;
  package->initIterator(iterator, {}, "");
  package->getFile("a", true)->remove();
  iterator->increment();
  EXPECT_FALSE(iterator->isValid());
  EXPECT_EQ(package->entryExists("b"), pkg::PkgEntryFile);
}

#ifdef __SANITIZE_ADDRESS__  // else nobody tells
using UnguardedDeathTest = Unguarded;

TEST_F(UnguardedDeathTest, AnIteratorLeadsIntoFreedMemoryBehindTheEndOfAnUpdate) {
  const Package package = open(packageOfTwo());
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> iterator;
  package->initIterator(iterator, {}, "");
  package->saveAs("new", kIn | kOut | kTrunc);
  EXPECT_DEATH(iterator->increment(), "heap-use-after-free");
}

TEST_F(UnguardedDeathTest, AnIteratorOnTheLastEntryLeadsBehindTheRecordsWhenOneIsRemoved) {
  const Package package = open(packageOfTwo());
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> iterator;
  package->initIterator(iterator, {}, "");
  iterator->increment();
  package->getFile("a", true)->remove();
  EXPECT_DEATH(iterator->increment(), "0xbebebebe|AddressSanitizer");  // nobody has written there
}

TEST_F(UnguardedDeathTest, AnEntryFollowsItsPackageIntoFreedMemory) {
  Package package = open(packageOfTwo());
  const auto entry = package->getFile("a", true);
  package.reset();
  EXPECT_DEATH(entry->open(kIn, false), "heap-use-after-free");
}

TEST_F(UnguardedDeathTest, AnIteratorFollowsItsPackageIntoFreedMemory) {
  Package package = open(packageOfTwo());
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> iterator;
  package->initIterator(iterator, {}, "");
  package.reset();
  EXPECT_DEATH(iterator->increment(), "heap-use-after-free");
}

TEST_F(UnguardedDeathTest, APackageFollowsWhatItsClientGaveItIntoFreedMemory) {
  struct Given {
    support::MemoryFileSystem files;
    golden::PolicyAnswers policies;
    support::FakeParser parser;
  };
  auto given = std::make_unique<Given>();
  zipbytes::File file;
  for (const char* name : {"a", "META-INF/pkgproperties.xml"})
    file.add(golden::storedEntry(name, "text"), "text");
  given->files.put("old", file.bytes());
  const Package package = pkg::QCFPackageFactory().openPackage("old", kIn, &given->files,
                                                               &given->policies, &given->parser);
  const auto entry = package->getFile("a", true);
  given.reset();
  EXPECT_DEATH(package->getPolicy(pkg::IPkgPolicies::PolicyCRC), "heap-use-after-free");
  EXPECT_DEATH(package->saveAs("new", kIn | kOut | kTrunc), "heap-use-after-free");
  EXPECT_DEATH(entry->getProperty(pkg::QCFPropertyMacType), "heap-use-after-free");
}
#endif

}  // namespace

}  // namespace failures
