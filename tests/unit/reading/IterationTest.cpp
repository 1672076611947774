#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;

namespace {

const Strings kTree = {"a/b/c", "a/b/d", "a/e", "f"};

void writeFile(const MemoryPackage& package, const std::string& path, const std::string& text) {
  const Stream stream = package->getFile(path, false)->open(kOut, false);
  *stream << text;
  stream->close();
}

}  // namespace

TEST(Iteration, OfAPackageWithoutEntriesIsOverAtOnce) {
  const MemoryPackage package("", nullptr, kOut | kTrunc);
  Iterator iterator;
  package->initIterator(iterator, {}, "");
  EXPECT_FALSE(iterator->isValid());
  package->initIterator(iterator, package->getRootDirectory(), "");
  EXPECT_FALSE(iterator->isValid());
}

TEST(Iteration, OfADirectoryShowsFilesAndImpliedDirectoriesOnce) {
  const MemoryPackage package(packageOf(kTree));
  EXPECT_EQ((Strings{"a/", "f"}), walk(*package, package->getRootDirectory()));
  EXPECT_EQ((Strings{"a/b/", "a/e"}), walk(*package, package->getDirectory("a", false)));
  EXPECT_EQ((Strings{"a/b/c", "a/b/d"}), walk(*package, package->getDirectory("a/b", false)));
}

TEST(Iteration, OfEverythingShowsTheRecordsInTheirOrderAndImpliesNothing) {
  EXPECT_EQ(kTree, walk(*MemoryPackage(packageOf(kTree))));
  EXPECT_EQ((Strings{"z", "a/", "m"}), walk(*MemoryPackage(packageOf({"z", "a/", "m"}))));
}

TEST(Iteration, OfADirectoryDoesNotShowTheDirectoryItself) {
  const MemoryPackage package(packageOf({"a/", "a/b"}));
  EXPECT_EQ(Strings{"a/b"}, walk(*package, package->getDirectory("a", true)));
}

TEST(Iteration, ANameThatBeginsAlikeIsNoChild) {
  const MemoryPackage package(packageOf({"ab/c", "a/d", "ab"}));
  EXPECT_EQ(Strings{"a/d"}, walk(*package, package->getDirectory("a", false)));
}

TEST(Iteration, AnExplicitAndAnImpliedDirectoryLookTheSame) {
  for (const Strings& names : {Strings{"a/", "a/b"}, Strings{"a/b", "a/"}, Strings{"a/b"}}) {
    const MemoryPackage package(packageOf(names));
    Iterator iterator;
    package->initIterator(iterator, package->getRootDirectory(), "");
    ASSERT_TRUE(iterator->isValid());
    EXPECT_EQ("a/", iterator->dereference()->getName());
    EXPECT_EQ(pkg::PkgEntryDirectory, iterator->dereference()->getEntryType());
    iterator->increment();
    EXPECT_FALSE(iterator->isValid());
  }
}

TEST(Iteration, ListingADirectoryMakesTheObjectsOfImpliedOnes) {
  const MemoryPackage package(packageOf({"a/b"}));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("a/"));
  walk(*package, package->getRootDirectory());
  EXPECT_EQ(pkg::PkgEntryDirectory, package->entryExists("a/"));
}

TEST(Iteration, ADeletedFileIsLeftOut) {
  const MemoryPackage package(packageOf(kTree));
  package->getFile("f", true)->remove();
  package->getFile("a/e", true)->remove();
  EXPECT_EQ((Strings{"a/b/c", "a/b/d"}), walk(*package));
  EXPECT_EQ(Strings{"a/"}, walk(*package, package->getRootDirectory()));
  EXPECT_EQ(Strings{"a/b/"}, walk(*package, package->getDirectory("a", false)));
}

TEST(Iteration, ADeletedOnlyChildNoLongerImpliesItsDirectory) {
  const MemoryPackage package(packageOf({"a/b", "c"}));
  package->getFile("a/b", true)->remove();
  EXPECT_EQ(Strings{"c"}, walk(*package, package->getRootDirectory()));
}

TEST(Iteration, AnEntryRemovedBeforeItIsReachedIsSkipped) {
  const MemoryPackage package(packageOf({"a", "b", "c"}));
  Iterator iterator;
  package->initIterator(iterator, {}, "");
  package->getFile("a", true)->remove();
  package->getFile("b", true)->remove();
  EXPECT_EQ("a", iterator->dereference()->getName());  // what it stands on stays
  iterator->increment();
  EXPECT_EQ("c", iterator->dereference()->getName());
}

TEST(Iteration, APatternRaises19AndLeavesAnUnfilteredIterator) {
  const MemoryPackage package(packageOf({"a", "b"}));
  Iterator iterator;
  const Raised raised = raisedBy([&] { package->initIterator(iterator, {}, "*"); });
  EXPECT_EQ(19, raised.code);
  EXPECT_FALSE(raised.isIO);
  ASSERT_TRUE(iterator);
  ASSERT_TRUE(iterator->isValid());
  EXPECT_EQ("a", iterator->dereference()->getName());
  iterator->increment();
  EXPECT_EQ("b", iterator->dereference()->getName());
}

TEST(Iteration, ANewFileShowsBehindAllRecords) {
  const MemoryPackage package(packageOf({"z", "y/x"}), nullptr, kIn | kOut);
  writeFile(package, "a/new", "text");
  EXPECT_EQ((Strings{"z", "y/x", "a/new"}), walk(*package));
  EXPECT_EQ((Strings{"z", "y/", "a/"}), walk(*package, package->getRootDirectory()));
}

TEST(Iteration, AFileAddedDuringTheWalkIsReached) {
  const MemoryPackage package(packageOf({"a"}), nullptr, kIn | kOut);
  Iterator iterator;
  package->initIterator(iterator, {}, "");
  writeFile(package, "b", "text");
  iterator->increment();
  ASSERT_TRUE(iterator->isValid());
  EXPECT_EQ("b", iterator->dereference()->getName());
  iterator->increment();
  EXPECT_FALSE(iterator->isValid());
}

TEST(Iteration, AFileAddedDuringAnUpdateIsNotWalkedBeforeItsEnd) {
  const MemoryPackage package(packageOf({"a"}), nullptr, kIn | kOut);
  package->beginUpdate("b.pkg", kIn | kOut | kTrunc);
  writeFile(package, "new", "text");
  EXPECT_EQ(Strings{"a"}, walk(*package));
  package->endUpdate();
  EXPECT_EQ((Strings{"a", "new"}), walk(*package));
}

TEST(Iteration, TwoRecordsOfOneNameShowTheSameEntryTwice) {
  zipbytes::File file;
  addStored(file, "a", "first");
  addStored(file, "a", "second");
  const MemoryPackage package(file.bytes());
  Iterator iterator;
  package->initIterator(iterator, {}, "");
  const auto first = iterator->dereference();
  iterator->increment();
  EXPECT_EQ(first, iterator->dereference());
  EXPECT_EQ("first", readAll(*iterator->dereference()->toFile()));
}

TEST(Iteration, ADamagedLocalHeaderFailsWhereItIsReached) {
  zipbytes::Entry damaged = zipbytes::storedEntry("b", "x");
  damaged.localSignature = 0;
  zipbytes::File file;
  addStored(file, "a", "x");
  file.add(damaged, "x");
  const MemoryPackage package(file.bytes());
  Iterator iterator;
  package->initIterator(iterator, {}, "");
  EXPECT_RAISES(8, iterator->increment());
}

TEST(Iteration, ADamagedFirstLocalHeaderLeavesTheClientsIteratorAlone) {
  zipbytes::Entry damaged = zipbytes::storedEntry("b", "x");
  zipbytes::File file;
  addStored(file, "a", "x");
  zipbytes::Entry central = zipbytes::storedEntry("b", "x");
  central.offset = 1;  // no header stands there
  zipbytes::File odd;
  odd.raw(localHeader(damaged) + "x").list(central);
  const MemoryPackage package(odd.bytes());
  const MemoryPackage other(file.bytes());
  Iterator iterator;
  other->initIterator(iterator, {}, "");
  const Iterator before = iterator;
  EXPECT_RAISES(8, package->initIterator(iterator, {}, ""));
  EXPECT_EQ(before, iterator);
}

TEST(Iteration, OutlivesEverythingButThePackage) {
  const MemoryPackage package(packageOf(kTree));
  Iterator iterator;
  {
    const Directory root = package->getRootDirectory();
    package->initIterator(iterator, root, "");
  }
  iterator->increment();
  EXPECT_EQ("f", iterator->dereference()->getName());
}

TEST(Iteration, AStepBeyondTheEndGoesRoundToTheFirstChangedEntry) {
  const MemoryPackage package(packageOf({"a"}), nullptr, kIn | kOut);
  Iterator iterator;
  package->initIterator(iterator, {}, "");
  iterator->increment();
  EXPECT_FALSE(iterator->isValid());
  iterator->increment();
  EXPECT_FALSE(iterator->isValid());  // nothing is there to go round to
  writeFile(package, "b", "text");
  writeFile(package, "c", "text");
  iterator->increment();
  EXPECT_EQ("b", iterator->dereference()->getName());
  iterator->increment();
  iterator->increment();
  EXPECT_FALSE(iterator->isValid());
  iterator->increment();
  EXPECT_EQ("b", iterator->dereference()->getName());
}
