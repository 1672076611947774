#include <ostream>

#include "unit/writing/Writing.h"

// Entries that an update has dropped, in the hands of a client who kept them.

namespace {

using namespace writing;

// A package in which "a.txt" was removed and an update has ended since.
struct Road {
  const char* name;
  Package (*open)(pkg::QCFPackageFactory& factory, support::MemoryFileSystem& files);
  void (*drop)(const Package& package);

  friend std::ostream& operator<<(std::ostream& out, const Road& road) { return out << road.name; }
};

Bytes twoEntries() {
  zipbytes::File old;
  old.add(storedEntry("a.txt", "alpha"), "alpha");
  old.add(storedEntry("b.txt", "beta"), "beta");
  return old.bytes();
}

Package openNew(pkg::QCFPackageFactory& factory, support::MemoryFileSystem& files) {
  const Package package = factory.openPackage("the.pkg", kOut | kTrunc, &files, nullptr, nullptr);
  package->beginUpdate();
  write(package, "a.txt", "alpha", CompressionStored);
  write(package, "b.txt", "beta", CompressionStored);
  package->endUpdate();
  return package;
}
Package openToRead(pkg::QCFPackageFactory& factory, support::MemoryFileSystem& files) {
  files.put("old.pkg", twoEntries());
  return factory.openPackage("old.pkg", kIn, &files, nullptr, nullptr);
}
Package openToChange(pkg::QCFPackageFactory& factory, support::MemoryFileSystem& files) {
  files.put("the.pkg", twoEntries());
  return factory.openPackage("the.pkg", kIn | kOut, &files, nullptr, nullptr);
}

const Road kRoads[] = {
    {"NewPackage", openNew, [](const Package& package) { package->doUNSAFEUpdateInPlace(); }},
    {"ReadPackageSavedAs", openToRead,
     [](const Package& package) { package->saveAs("the.pkg", kIn | kOut | kTrunc); }},
    {"ReadPackageThroughAnUpdate", openToRead,
     [](const Package& package) {
       package->beginUpdate("the.pkg", kIn | kOut | kTrunc);
       package->endUpdate();
     }},
    {"ChangedPackageInPlace", openToChange,
     [](const Package& package) { package->doUNSAFEUpdateInPlace(); }},
};

class RemovedEntries : public testing::TestWithParam<Road> {
protected:
  RemovedEntries() {
    fEntry->remove();
    GetParam().drop(fPackage);
  }

  // What another package object finds.
  Package again() { return fFactory.openPackage("the.pkg", kIn, &fFiles, nullptr, nullptr); }
  // Writes through the handle.
  void rewrite(const Bytes& text) {
    const Stream stream = fEntry->open(kOut, false);
    stream->exceptions(std::ios_base::badbit);
    *stream << text;
    stream->close();
  }

  support::MemoryFileSystem fFiles;
  pkg::QCFPackageFactory fFactory;
  Package fPackage = GetParam().open(fFactory, fFiles);
  File fEntry = fPackage->getFile("a.txt", true);
};

TEST_P(RemovedEntries, HaveNoDataToRead) {
  // A package that was opened to write only says that first.
  const bool reads = (fPackage->getOpenMode(true) & kIn) != 0;
  EXPECT_RAISED(reads ? "21" : "26", fEntry->open(kIn, false));
  EXPECT_EQ(fEntry->getSize64(), 0);
  EXPECT_EQ(fEntry->getCompressedSize64(), 0);
  EXPECT_EQ(fEntry->getCRC32(), 0u);
  EXPECT_FALSE(fEntry->isModified());
  EXPECT_TRUE(fEntry->isDeleted());
  EXPECT_EQ(again()->entryExists("a.txt"), pkg::PkgEntryNone);
}

TEST_P(RemovedEntries, ThatAreWrittenAnewAreChangesThatTheNextSaveKeeps) {
  rewrite("anew");
  EXPECT_FALSE(fEntry->isDeleted());
  EXPECT_TRUE(fEntry->isModified());
  EXPECT_TRUE(fPackage->isModified());
  EXPECT_EQ(readAll(*fEntry->open(kIn, false)), "anew");
  fPackage->doUNSAFEUpdateInPlace();
  EXPECT_EQ(contents(again(), "a.txt"), "anew");
  EXPECT_EQ(contents(again(), "b.txt"), "beta");
}

TEST_P(RemovedEntries, ThatAreWrittenAnewInAnUpdateAreListedByIt) {
  fPackage->beginUpdate();
  rewrite("direct");
  fPackage->endUpdate();
  EXPECT_EQ(contents(again(), "a.txt"), "direct");
}

TEST_P(RemovedEntries, ThatAreWrittenAnewBehindAnotherWriterWaitInTheQueue) {
  fPackage->beginUpdate();
  const Stream direct = openForWriting(fPackage, "c.txt");
  *direct << "gamma";
  rewrite("queued");
  direct->close();
  fPackage->endUpdate();
  EXPECT_EQ(contents(again(), "a.txt"), "queued");
  EXPECT_EQ(contents(again(), "c.txt"), "gamma");
}

// The package makes another object of the name; the old one is nobody's.
TEST_P(RemovedEntries, MakeWayForANewEntryOfTheirName) {
  write(fPackage, "a.txt", "another", CompressionStored);
  fPackage->doUNSAFEUpdateInPlace();
  EXPECT_TRUE(fEntry->isDeleted());
  EXPECT_EQ(contents(again(), "a.txt"), "another");
}

INSTANTIATE_TEST_SUITE_P(Roads, RemovedEntries, testing::ValuesIn(kRoads),
                         [](const auto& suite) { return suite.param.name; });

}  // namespace
