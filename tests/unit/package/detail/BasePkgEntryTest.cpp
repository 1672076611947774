#include <string>

#include <gtest/gtest.h>

#include "package/detail/BasePkgEntry.h"
#include "package/detail/PkgPropertyMgr.h"

#include "support/Raised.h"
#include "unit/package/detail/FakeParser.h"
#include "unit/package/detail/TestPackage.h"

namespace {

using namespace pkg;
using support::misuse;
using support::raised;
using support::TestPackage;

static_assert(CompressionDefault == -1 && CompressionStored == 0 && CompressionDeflated == 8);
static_assert(PkgEntryNone == 0 && PkgEntryFile == 1 && PkgEntryDirectory == 2);
static_assert(sizeof(CompressionMethod) == 4 && sizeof(PkgEntryType) == 4);

// An entry that tells when it dies.
class MortalEntry : public BasePkgEntry<> {
public:
  MortalEntry(int& deaths, IPackage<>* package)
      : BasePkgEntry<>("name", PkgEntryFile, CompressionDeflated, package), fDeaths(deaths) {}
  ~MortalEntry() override { ++fDeaths; }
  void remove() override {}
  SPRefType<IPkgFile<>> toFile() override { return {}; }
  SPRefType<IPkgDirectory<>> toDirectory() override { return {}; }

private:
  int& fDeaths;
};

// An entry whose end releases it more often than it is held.
class OverReleasedEntry : public MortalEntry {
public:
  using MortalEntry::MortalEntry;
  ~OverReleasedEntry() override {
    BasePkgEntry<>::release();  // -1
    BasePkgEntry<>::release();  // -2
    BasePkgEntry<>::addRef();   // -1: not the last reference, which would end it once more
    BasePkgEntry<>::release();  // -2
  }
};

TEST(BasePkgEntry, IsBornWithOneReferenceAndDiesWithTheLast) {
  int deaths = 0;
  IPkgEntry<>* const entry = new MortalEntry(deaths, nullptr);
  entry->addRef();
  entry->addRef();
  entry->release();
  entry->release();
  EXPECT_EQ(deaths, 0);
  entry->release();
  EXPECT_EQ(deaths, 1);
}

TEST(BasePkgEntry, ACountBelowZeroGoesOnDownwardWithoutEffect) {
  int deaths = 0;
  IPkgEntry<>* const entry = new OverReleasedEntry(deaths, nullptr);
  entry->release();
  EXPECT_EQ(deaths, 1);
}

TEST(BasePkgEntry, LivesAsLongAsAnyControlBlock) {
  int deaths = 0;
  auto* const entry = new MortalEntry(deaths, nullptr);
  SPRefType<IPkgEntry<>> cache(entry);
  entry->addRef();
  SPRefType<IPkgEntry<>> client(entry);
  entry->addRef();
  SPRefType<IPkgEntry<>> other(entry);
  client.reset();
  other.reset();
  EXPECT_EQ(deaths, 0) << "the cache holds it";
  cache.reset();
  EXPECT_EQ(deaths, 1);
}

TEST(BasePkgEntry, ANewOneIsUnmodifiedUndeletedAndWithoutParent) {
  TestPackage package;
  int deaths = 0;
  const SPRefType<IPkgEntry<>> entry(new MortalEntry(deaths, &*package));
  EXPECT_EQ(entry->getName(), "name");
  EXPECT_EQ(entry->getEntryType(), PkgEntryFile);
  EXPECT_EQ(entry->getCompressionMethod(), CompressionDeflated);
  EXPECT_EQ(entry->getPackage(), &*package);
  EXPECT_EQ(entry->getParent(), nullptr);
  EXPECT_FALSE(entry->isModified());
  EXPECT_FALSE(entry->isDeleted());
}

TEST(BasePkgEntry, TakesStoredAndDeflatedAndRaises22ForAnyOtherMethod) {
  int deaths = 0;
  const SPRefType<IPkgEntry<>> entry(new MortalEntry(deaths, nullptr));
  entry->setCompressionMethod(CompressionStored);
  EXPECT_EQ(entry->getCompressionMethod(), CompressionStored);
  for (const int method : {12, -1, 1, 7, 9, 93, -8}) {
    EXPECT_EQ(raised([&] { entry->setCompressionMethod(static_cast<CompressionMethod>(method)); }),
              misuse(22))
        << method;
    EXPECT_EQ(entry->getCompressionMethod(), CompressionStored) << "left alone";
  }
  entry->setCompressionMethod(CompressionDeflated);
  EXPECT_EQ(entry->getCompressionMethod(), CompressionDeflated);
}

TEST(BasePkgEntry, ToFileGivesAControlBlockOfItsOwnEachTime) {
  TestPackage package;
  auto first = package->getFile("file", false);
  first->setExpectedSize(7);
  auto second = first->toFile();
  auto third = first->toFile();
  EXPECT_EQ(first, second);
  EXPECT_EQ(first.use_count(), 1);
  EXPECT_EQ(second.use_count(), 1);
  EXPECT_EQ(third.use_count(), 1);
  first.reset();
  second.reset();
  third.reset();
  EXPECT_EQ(package->getFile("file", false)->getSize(), 7u) << "the package still has it";
}

TEST(BasePkgEntry, AHandleThatIsHeldTooLongStillFreesItsEntry) {
  SPRefType<IPkgFile<>> file;
  {
    TestPackage package;
    file = package->getFile("file", false);
  }
  EXPECT_EQ(file.use_count(), 1);
  file.reset();  // a sanitizer objects to a leak, and to a second end
}

TEST(BasePkgEntry, AnEntryKnowsItsKind) {
  TestPackage package;
  const auto file = package->getFile("file", false);
  const auto directory = package->getDirectory("directory", false);
  EXPECT_EQ(file->getEntryType(), PkgEntryFile);
  EXPECT_EQ(directory->getEntryType(), PkgEntryDirectory);
  EXPECT_EQ(raised([&] { file->toDirectory(); }), misuse(23));
  EXPECT_EQ(raised([&] { directory->toFile(); }), misuse(23));
}

TEST(BasePkgFile, KeepsGenericPropertiesUnderTheEntrysName) {
  support::FakeParser parser;
  TestPackage package(&parser);
  package->beginUpdate();
  const auto file = package->getFile("folder/file", false);
  file->setProperty(QCFPropertyMacType, "TEXT");
  PkgPropertyMgr<>& properties = package.properties();
  EXPECT_EQ(properties.getGenericProperty("folder/file", QCFPropertyMacType, nullptr), "TEXT");
  properties.setGenericProperty("folder/file", QCFPropertyMacCreator, "ttxt", false);
  EXPECT_EQ(file->getProperty(QCFPropertyMacCreator), "ttxt");
  EXPECT_EQ(package->getFile("file", false)->getProperty(QCFPropertyMacType), "");
}

TEST(BasePkgFile, WithoutAParserItsGenericPropertiesRaise23) {
  TestPackage package;
  const auto file = package->getFile("file", false);
  EXPECT_EQ(raised([&] { file->getProperty(QCFPropertyMacType); }), misuse(23));
  EXPECT_EQ(raised([&] { file->setProperty(QCFPropertyMacType, "TEXT"); }), misuse(23));
}

}  // namespace
