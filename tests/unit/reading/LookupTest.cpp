#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;

TEST(Lookup, FindsMimetypeWithAndWithoutALeadingSeparator) {
  const MemoryPackage package(packageOf({"mimetype", "a"}));
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("mimetype"));
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("/mimetype"));
}

TEST(Lookup, TellsFilesFromDirectoriesByThePathAlone) {
  const MemoryPackage package(packageOf({"a", "b/", "c/d"}));
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("a"));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("a/"));
  EXPECT_EQ(pkg::PkgEntryDirectory, package->entryExists("b/"));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("b"));
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("c/d"));
}

TEST(Lookup, ADirectoryThatIsOnlyImpliedDoesNotExistUntilItIsAskedFor) {
  const MemoryPackage package(packageOf({"c/d"}));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("c/"));
  EXPECT_RAISES(21, package->getDirectory("c", true));
  EXPECT_EQ("c/", package->getDirectory("c", false)->getName());
  EXPECT_EQ(pkg::PkgEntryDirectory, package->entryExists("c/"));
}

TEST(Lookup, AnAbsentEntryRaisesNothingWhereItIsOnlyAskedFor) {
  const MemoryPackage package(packageOf({"a"}));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("b"));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("a/b/c"));
}

TEST(Lookup, PathsAreReducedFirst) {
  const MemoryPackage package(packageOf({"a/b", "c/"}));
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("/a//./x/../b"));
  EXPECT_EQ("a/b", package->getFile("./a/b", true)->getName());
  EXPECT_EQ("c/", package->getDirectory("/c", true)->getName());
}

TEST(Lookup, APathAlwaysGivesTheSameObject) {
  const MemoryPackage package(packageOf({"a", "b/"}));
  EXPECT_EQ(package->getFile("a", true), package->getFile("/a", false));
  EXPECT_EQ(package->getDirectory("b", true), package->getDirectory("/b/", false));
  Iterator iterator;
  package->initIterator(iterator, {}, "");
  EXPECT_EQ(package->getFile("a", true), iterator->dereference()->toFile());
}

TEST(Lookup, TheLocalHeaderIsReadAtTheFirstTouchOnly) {
  const MemoryPackage package(packageOf({"a"}));
  package.files.forget();
  package->getFile("a", true);
  EXPECT_EQ(1, package.files.count(support::FileCall::Seek));
  EXPECT_EQ(2, package.files.count(support::FileCall::Read));  // header and name
  package->getFile("a", true);
  EXPECT_EQ(2, package.files.count(support::FileCall::Read));
}

TEST(Lookup, AFileThatNeedNotExistIsANewObject) {
  const MemoryPackage package(packageOf({"a"}));
  const File file = package->getFile("new", false);
  EXPECT_EQ("new", file->getName());
  EXPECT_EQ(pkg::PkgEntryFile, file->getEntryType());
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("new"));
  EXPECT_FALSE(package->isModified());
  EXPECT_FALSE(file->isModified());
  EXPECT_EQ(Strings{"a"}, walk(*package));
}

TEST(Lookup, AFileThatMustExistAndDoesNotRaises21) {
  const MemoryPackage package(packageOf({"a"}));
  EXPECT_RAISES(21, package->getFile("b", true));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("b"));
}

TEST(Lookup, ADirectoryThatMustExistAndDoesNotRaises21) {
  const MemoryPackage package(packageOf({"a"}));
  EXPECT_RAISES(21, package->getDirectory("b", true));
  EXPECT_RAISES(21, package->getDirectory("a", true));
}

TEST(Lookup, ADirectorysPathIsNoFiles) {
  const MemoryPackage package(packageOf({"a", "d/"}));
  EXPECT_RAISES(22, package->getFile("b/", false));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("b/"));
  EXPECT_RAISES(21, package->getFile("b/", true));  // what is missing is told first
  EXPECT_RAISES(22, package->getFile("d/", true));
  EXPECT_RAISES(22, package->getFile("", false));
  EXPECT_RAISES(22, package->getFile("", true));
}

TEST(Lookup, ADirectoryThatIsKnownIsNoFile) {
  const MemoryPackage package(packageOf({"d/"}));
  package->getDirectory("d", true);
  EXPECT_RAISES(23, package->getFile("d/", false));
  EXPECT_RAISES(23, package->getFile("d/", true));
  EXPECT_RAISES(23, package->getFile("/", false));
}

TEST(Lookup, AFileOfTheSameNameDoesNotHinderADirectory) {
  const MemoryPackage package(packageOf({"a"}));
  const File file = package->getFile("a", true);
  const Directory directory = package->getDirectory("a", false);
  EXPECT_EQ("a/", directory->getName());
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("a"));
  EXPECT_EQ(pkg::PkgEntryDirectory, package->entryExists("a/"));
  EXPECT_EQ(Strings{"a"}, walk(*package));
}

TEST(Lookup, OfTheDotIsTheRootAndOfNothingRaises22) {
  const MemoryPackage package(packageOf({"a"}));
  EXPECT_EQ(package->getRootDirectory(), package->getDirectory(".", false));
  EXPECT_EQ(package->getRootDirectory(), package->getDirectory("/", true));
  EXPECT_RAISES(22, package->getDirectory("", false));
  EXPECT_RAISES(22, package->entryExists(""));
}

TEST(Lookup, GoesOnFromADirectory) {
  const MemoryPackage package(packageOf({"a/b/c", "c"}));
  const Directory a = package->getDirectory("a", false);
  EXPECT_EQ("a/b/c", package->getFile("b/c", a, true)->getName());
  EXPECT_EQ("a/b/", package->getDirectory("b", a, false)->getName());
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("b/c", a));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("c", a));
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("../c", a));
  EXPECT_EQ("c", package->getFile("c", package->getRootDirectory(), true)->getName());
}

TEST(Lookup, APathThatBeginsWithTheSeparatorIgnoresTheDirectory) {
  const MemoryPackage package(packageOf({"a/b", "b"}));
  const Directory a = package->getDirectory("a", false);
  EXPECT_EQ("b", package->getFile("/b", a, true)->getName());
  EXPECT_EQ("b/", package->getDirectory("/b", a, false)->getName());
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("/b", a));
}

TEST(Lookup, OfTwoRecordsOfOneNameFindsTheFirst) {
  zipbytes::File file;
  addStored(file, "a", "first");
  addStored(file, "a", "second");
  EXPECT_EQ("first", contents(MemoryPackage(file.bytes()), "a"));
}

TEST(Lookup, ARecordWhoseNameEndsInTheSeparatorIsADirectoryEvenWithData) {
  zipbytes::File file;
  const MemoryPackage package(addStored(file, "d/", "data").bytes());
  Iterator iterator;
  package->initIterator(iterator, {}, "");
  EXPECT_EQ(pkg::PkgEntryDirectory, iterator->dereference()->getEntryType());
  EXPECT_EQ(pkg::PkgEntryDirectory, package->entryExists("d/"));
}

TEST(Lookup, ANameOfOddFormIsAKeyOfItsOwn) {
  const MemoryPackage package(packageOf({"./a", "b//c"}));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("a"));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("./a"));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("b//c"));
  Iterator iterator;
  package->initIterator(iterator, {}, "");
  EXPECT_EQ("./a", iterator->dereference()->getName());
  EXPECT_EQ("x", readAll(*iterator->dereference()->toFile()));
}

TEST(Lookup, NamesAreComparedByteByByte) {
  const MemoryPackage package(packageOf({"A", "\xC3\xA4"}));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("a"));
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("\xC3\xA4"));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("a\xCC\x88"));
}

TEST(Lookup, ANameEndsAtItsFirstNul) {
  zipbytes::File file;
  addStored(file, std::string("a\0/", 3), "x");
  const MemoryPackage package(file.bytes());
  EXPECT_EQ(pkg::PkgEntryFile, package->entryExists("a"));
}
