#include <string>

#include <gtest/gtest.h>

#include "package/detail/PkgPropertyMgr.h"

#include "support/Raised.h"
#include "unit/package/detail/FakeParser.h"
#include "unit/package/detail/TestPackage.h"

namespace {

using namespace pkg;
using std::ios;
using support::FakeParser;
using support::misuse;
using support::nothing;
using support::raised;
using support::TestPackage;

static_assert(QCFPropertyZipDate == 0 && QCFPropertyZipTime == 1 && QCFPropertyZipTypeCreator == 2);
static_assert(QCFPropertyPackageComment == 1000);
static_assert(QCFPropertyDateTime == 2000 && QCFPropertyMacType == 2001 &&
              QCFPropertyMacCreator == 2002);
static_assert(sizeof(QCFPropertyName) == 4);

QCFPropertyName named(int number) {
  return static_cast<QCFPropertyName>(number);
}

constexpr int kNoProperty[] = {999, -1, 3, 1001, 1999, 2003};

TEST(PkgPropertyMgr, KnowsTheTwoPathsOfItsOwn) {
  EXPECT_EQ(PkgPropertyMgr<>::fPkgPath, "/");
  EXPECT_EQ(PkgPropertyMgr<>::fPropertiesXMLFilePath, "/META-INF/pkgproperties.xml");
}

TEST(PkgPropertyMgr, WithoutAParserGenericPropertiesRaise23AndZipPropertiesWork) {
  TestPackage package;
  PkgPropertyMgr<>& properties = package.properties();
  for (const int name : {2000, 2001, 2002, 0, 999}) {
    EXPECT_EQ(raised([&] { properties.getGenericProperty("a", named(name), nullptr); }),
              misuse(23));
    for (const bool fromDocument : {false, true}) {
      EXPECT_EQ(raised([&] { properties.setGenericProperty("a", named(name), "x", fromDocument); }),
                misuse(23));
    }
  }
  package->beginUpdate();
  EXPECT_EQ(raised([&] { properties.setGenericProperty("/", QCFPropertyMacType, "x", false); }),
            misuse(23))
      << "before anything else";
  properties.setZipProperty("a", QCFPropertyZipDate, "2100", false);
  EXPECT_EQ(properties.getZipProperty("a", QCFPropertyZipDate, nullptr), "2100");
}

TEST(PkgPropertyMgr, OutsideAnUpdateAGenericPropertyCanBeReadButSettingRaises28) {
  FakeParser parser;
  TestPackage package(&parser);
  EXPECT_EQ(raised([&] {
              package.properties().setGenericProperty("a", QCFPropertyDateTime, "now", false);
            }),
            misuse(28));
  EXPECT_EQ(raised([&] { package.properties().setGenericProperty("/", named(5), "x", false); }),
            misuse(28))
      << "before name and path are looked at";
  EXPECT_EQ(package.properties().getGenericProperty("a", QCFPropertyDateTime, nullptr), "");
  const auto file = package->getFile("file", false);
  EXPECT_EQ(raised([&] { file->setProperty(QCFPropertyDateTime, "now"); }), misuse(28));
  EXPECT_EQ(file->getProperty(QCFPropertyDateTime), "");
}

TEST(PkgPropertyMgr, InAnUpdateAGenericPropertyIsKept) {
  FakeParser parser;
  TestPackage package(&parser);
  package->beginUpdate();
  const auto file = package->getFile("file", false);
  file->setProperty(QCFPropertyMacType, "TEXT");
  EXPECT_EQ(file->getProperty(QCFPropertyMacType), "TEXT");
  bool modified = false;
  EXPECT_EQ(package.properties().getGenericProperty("file", QCFPropertyMacType, &modified), "TEXT");
  EXPECT_TRUE(modified);
}

TEST(PkgPropertyMgr, APropertyFromTheDocumentNeedsNoUpdateAndCountsAsModified) {
  FakeParser parser;
  TestPackage package(&parser);
  package.properties().setGenericProperty("a", QCFPropertyMacCreator, "ttxt", true);
  bool modified = false;
  EXPECT_EQ(package.properties().getGenericProperty("a", QCFPropertyMacCreator, &modified), "ttxt");
  EXPECT_TRUE(modified);
}

TEST(PkgPropertyMgr, NamesOutsideTheFamilyRaise22) {
  FakeParser parser;
  TestPackage package(&parser);
  PkgPropertyMgr<>& properties = package.properties();
  package->beginUpdate();
  for (const int name : kNoProperty) {
    EXPECT_EQ(raised([&] { properties.setGenericProperty("a", named(name), "x", false); }),
              misuse(22));
    EXPECT_EQ(raised([&] { properties.getGenericProperty("a", named(name), nullptr); }),
              misuse(22));
    EXPECT_EQ(raised([&] { properties.setZipProperty("a", named(name), "x", false); }), misuse(22));
    EXPECT_EQ(raised([&] { properties.getZipProperty("a", named(name), nullptr); }), misuse(22));
  }
  for (const int name : {0, 1, 2, 1000}) {
    EXPECT_EQ(raised([&] { properties.getGenericProperty("a", named(name), nullptr); }),
              misuse(22));
  }
  for (const int name : {2000, 2001, 2002}) {
    EXPECT_EQ(raised([&] { properties.getZipProperty("a", named(name), nullptr); }), misuse(22));
  }
}

TEST(PkgPropertyMgr, ThePackageItselfHasNoGenericProperties) {
  FakeParser parser;
  TestPackage package(&parser);
  package->beginUpdate();
  for (const int name : {2000, 2001, 2002}) {
    EXPECT_EQ(
        raised([&] { package.properties().setGenericProperty("/", named(name), "x", false); }),
        misuse(22));
    EXPECT_EQ(raised([&] { package->setProperty(named(name), "x"); }), misuse(22));
    EXPECT_EQ(raised([&] { package->getProperty(named(name)); }), misuse(22));
  }
  EXPECT_EQ(raised([&] { package->getProperty(QCFPropertyZipDate); }), misuse(22));
}

TEST(PkgPropertyMgr, ThePackageHasNoPropertiesOfAnEntry) {
  TestPackage package;
  for (const int name : {0, 1, 2}) {
    EXPECT_EQ(raised([&] { package.properties().setZipProperty("/", named(name), "x", false); }),
              misuse(22));
    EXPECT_EQ(raised([&] { package.properties().getZipProperty("/", named(name), nullptr); }),
              misuse(22));
  }
}

TEST(PkgPropertyMgr, TheCommentGoesWithAnyPath) {
  TestPackage package;
  package.properties().setZipProperty("/", QCFPropertyPackageComment, "of the package", false);
  package.properties().setZipProperty("a", QCFPropertyPackageComment, "of an entry", false);
  EXPECT_EQ(package->getProperty(QCFPropertyPackageComment), "of the package");
  EXPECT_EQ(package.properties().getZipProperty("a", QCFPropertyPackageComment, nullptr),
            "of an entry");
}

TEST(PkgPropertyMgr, WhatAClientSetsIsModifiedAndWhatARecordSaysIsNot) {
  TestPackage package;
  bool modified = false;
  package.properties().setZipProperty("a", QCFPropertyZipTime, "0000", false);
  package.properties().getZipProperty("a", QCFPropertyZipTime, &modified);
  EXPECT_TRUE(modified);
  package.properties().setZipProperty("a", QCFPropertyZipTime, "0000", true);
  package.properties().getZipProperty("a", QCFPropertyZipTime, &modified);
  EXPECT_FALSE(modified);
}

TEST(PkgPropertyMgr, AMissingPropertyIsEmptyAndLeavesTheFlagAlone) {
  FakeParser parser;
  TestPackage package(&parser);
  package.properties().setZipProperty("a", QCFPropertyZipTime, "0000", true);
  for (bool modified : {false, true}) {
    const bool before = modified;
    EXPECT_EQ(package.properties().getZipProperty("b", QCFPropertyZipTime, &modified), "");
    EXPECT_EQ(package.properties().getZipProperty("a", QCFPropertyZipDate, &modified), "");
    EXPECT_EQ(package.properties().getGenericProperty("a", QCFPropertyMacType, &modified), "");
    EXPECT_EQ(modified, before);
  }
}

TEST(PkgPropertyMgr, AnEmptyPropertyLooksMissing) {
  TestPackage package;
  package.properties().setZipProperty("a", QCFPropertyZipDate, "", false);
  EXPECT_EQ(package.properties().getZipProperty("a", QCFPropertyZipDate, nullptr), "");
}

TEST(PkgPropertyMgr, PathsAreComparedByteByByteOverTheirWholeLength) {
  TestPackage package;
  PkgPropertyMgr<>& properties = package.properties();
  properties.setZipProperty("a", QCFPropertyZipDate, "1", true);
  properties.setZipProperty("A", QCFPropertyZipDate, "2", true);
  properties.setZipProperty("ab", QCFPropertyZipDate, "3", true);
  properties.setZipProperty(std::string("a\0b", 3), QCFPropertyZipDate, "4", true);
  EXPECT_EQ(properties.getZipProperty("a", QCFPropertyZipDate, nullptr), "1");
  EXPECT_EQ(properties.getZipProperty("A", QCFPropertyZipDate, nullptr), "2");
  EXPECT_EQ(properties.getZipProperty("ab", QCFPropertyZipDate, nullptr), "3");
  EXPECT_EQ(properties.getZipProperty(std::string("a\0b", 3), QCFPropertyZipDate, nullptr), "4");
  EXPECT_EQ(properties.getZipProperty(std::string("a\0", 2), QCFPropertyZipDate, nullptr), "");
  EXPECT_EQ(properties.getZipProperty("/a", QCFPropertyZipDate, nullptr), "");
}

TEST(PkgPropertyMgr, DateAndTimeOfARecordHoldUntilTheClientSetsOthers) {
  TestPackage package;
  PkgPropertyMgr<>& properties = package.properties();
  boost::shared_array<char> name(new char[2]{'a', '\0'});
  properties.addRecordDateTime(name, {0x5A21, 0x63});
  bool modified = true;
  EXPECT_EQ(properties.getZipProperty("a", QCFPropertyZipDate, &modified), "215A");
  EXPECT_FALSE(modified);
  EXPECT_EQ(properties.getZipProperty("a", QCFPropertyZipTime, nullptr), "6300");
  EXPECT_EQ(properties.getZipProperty(std::string("a\0b", 3), QCFPropertyZipDate, nullptr), "");
  EXPECT_EQ(properties.getZipProperty("a", QCFPropertyZipTypeCreator, nullptr), "");

  properties.beginUpdate();
  properties.setZipProperty("a", QCFPropertyZipDate, "", false);
  EXPECT_EQ(properties.getZipProperty("a", QCFPropertyZipDate, &modified), "");
  EXPECT_TRUE(modified);
  EXPECT_EQ(properties.getZipProperty("a", QCFPropertyZipTime, &modified), "6300");
  EXPECT_FALSE(modified);
  properties.cancelUpdate();
  EXPECT_EQ(properties.getZipProperty("a", QCFPropertyZipDate, nullptr), "215A");
}

TEST(PkgPropertyMgr, ARecordNamedAsThePackageHasNoDate) {
  TestPackage package;
  boost::shared_array<char> name(new char[2]{'/', '\0'});
  EXPECT_EQ(raised([&] { package.properties().addRecordDateTime(name, {1, 2}); }), misuse(22));
}

TEST(PkgPropertyMgr, AFailedSetChangesNothing) {
  FakeParser parser;
  TestPackage package(&parser);
  package.properties().setGenericProperty("a", QCFPropertyMacType, "old", true);
  EXPECT_EQ(raised([&] {
              package.properties().setGenericProperty("a", QCFPropertyMacType, "new", false);
            }),
            misuse(28));
  EXPECT_EQ(package.properties().getGenericProperty("a", QCFPropertyMacType, nullptr), "old");
}

TEST(PkgPropertyMgr, ACommentOf65534BytesIsTakenAndOneMoreRaises22) {
  TestPackage package;
  const std::string longest(65534, 'c');
  package->setProperty(QCFPropertyPackageComment, longest);
  EXPECT_EQ(package->getProperty(QCFPropertyPackageComment), longest);
  EXPECT_EQ(raised([&] { package->setProperty(QCFPropertyPackageComment, longest + "c"); }),
            misuse(22));
  EXPECT_EQ(package->getProperty(QCFPropertyPackageComment), longest) << "the old one stays";
}

TEST(PkgPropertyMgr, WithoutAParserThePackageRefusesEveryNameButTheComment) {
  TestPackage package;
  EXPECT_EQ(raised([&] { package->getProperty(QCFPropertyMacType); }), misuse(23));
  EXPECT_EQ(raised([&] { package->setProperty(QCFPropertyMacType, "x"); }), misuse(23));
  EXPECT_EQ(package->getProperty(QCFPropertyPackageComment), "");
}

TEST(PkgPropertyMgr, CancellingAnUpdateBringsTheOldPropertiesBack) {
  FakeParser parser;
  TestPackage package(&parser);
  PkgPropertyMgr<>& properties = package.properties();
  properties.setZipProperty("a", QCFPropertyZipDate, "old", false);
  package->beginUpdate();
  properties.setZipProperty("a", QCFPropertyZipDate, "new", false);
  properties.setZipProperty("b", QCFPropertyZipDate, "new", false);
  properties.setGenericProperty("a", QCFPropertyMacType, "new", false);
  package->cancelUpdate();
  EXPECT_EQ(properties.getZipProperty("a", QCFPropertyZipDate, nullptr), "old");
  EXPECT_EQ(properties.getZipProperty("b", QCFPropertyZipDate, nullptr), "");
  EXPECT_EQ(properties.getGenericProperty("a", QCFPropertyMacType, nullptr), "");
  EXPECT_EQ(raised([&] { properties.setGenericProperty("a", QCFPropertyMacType, "new", false); }),
            misuse(28));
}

TEST(PkgPropertyMgr, EndingAnUpdateKeepsThemAndAsksForAnotherUpdate) {
  FakeParser parser;
  TestPackage package(&parser);
  package->beginUpdate();
  package.properties().setGenericProperty("a", QCFPropertyMacType, "TEXT", false);
  package->endUpdate();
  EXPECT_EQ(package.properties().getGenericProperty("a", QCFPropertyMacType, nullptr), "TEXT");
  EXPECT_EQ(package->entryExists("META-INF/pkgproperties.xml"), PkgEntryFile);
  EXPECT_EQ(
      raised([&] { package.properties().setGenericProperty("a", QCFPropertyMacType, "x", false); }),
      misuse(28));
}

TEST(PkgPropertyMgr, AnUpdateThatWasSavedIsNotTakenBackByCancellingTheNext) {
  TestPackage package;
  PkgPropertyMgr<>& properties = package.properties();
  package->beginUpdate();
  properties.setZipProperty("a", QCFPropertyZipDate, "kept", false);
  package->endUpdate();
  package->beginUpdate();
  package->cancelUpdate();
  EXPECT_EQ(properties.getZipProperty("a", QCFPropertyZipDate, nullptr), "kept");
}

// The document is there from an earlier update.
class PkgPropertyMgrWithDocument : public testing::Test {
protected:
  PkgPropertyMgrWithDocument() {
    const auto package = factory.openPackage(std::string("p"), ios::in | ios::out | ios::trunc,
                                             &files, nullptr, nullptr);
    package->beginUpdate();
    const auto document = package->getFile("META-INF/pkgproperties.xml", false);
    document->open(ios::out, false)->write("<any/>", 6);
    package->endUpdate();
    package->close();
    parser.tellOf("a", "mac_type", "TEXT");
  }
  boost::shared_ptr<IPackage<>> open(ios::openmode mode) {
    return factory.openPackage(std::string("p"), mode, &files, nullptr, &parser);
  }

  QCFPackageFactory factory;
  support::MemoryFileSystem files;
  FakeParser parser;
};

TEST_F(PkgPropertyMgrWithDocument, IsReadOnceAtTheFirstAccess) {
  const auto package = open(ios::in);
  EXPECT_EQ(parser.parses, 0);
  const auto file = package->getFile("a", false);
  EXPECT_EQ(file->getProperty(QCFPropertyZipDate), "");
  EXPECT_EQ(parser.parses, 0) << "a ZIP property does not ask for it";
  EXPECT_EQ(file->getProperty(QCFPropertyMacType), "TEXT");
  EXPECT_EQ(file->getProperty(QCFPropertyMacCreator), "");
  EXPECT_EQ(parser.parses, 1);
}

TEST_F(PkgPropertyMgrWithDocument, IsReadBeforeTheFirstPropertyIsSet) {
  const auto package = open(ios::in | ios::out);
  package->beginUpdate(std::string("q"), ios::in | ios::out | ios::trunc);
  const auto file = package->getFile("a", false);
  file->setProperty(QCFPropertyMacCreator, "ttxt");
  EXPECT_EQ(parser.parses, 1);
  EXPECT_EQ(file->getProperty(QCFPropertyMacType), "TEXT") << "beside the new one";
  file->setProperty(QCFPropertyMacType, "PICT");
  EXPECT_EQ(file->getProperty(QCFPropertyMacType), "PICT");
  package->cancelUpdate();
}

// What was read belongs to the update that goes; that it was read is remembered all the same.
TEST_F(PkgPropertyMgrWithDocument, FirstReadInAnUpdateThatIsCancelledIsLostAndNotReadAgain) {
  const auto package = open(ios::in | ios::out);
  package->beginUpdate(std::string("q"), ios::in | ios::out | ios::trunc);
  const auto file = package->getFile("a", false);
  EXPECT_EQ(file->getProperty(QCFPropertyMacType), "TEXT");
  package->cancelUpdate();
  EXPECT_EQ(file->getProperty(QCFPropertyMacType), "");
  EXPECT_EQ(parser.parses, 1);
  EXPECT_EQ(package->entryExists("META-INF/pkgproperties.xml"), PkgEntryFile);
}

TEST_F(PkgPropertyMgrWithDocument, ReadBeforeAnUpdateOutlivesItsCancelling) {
  const auto package = open(ios::in | ios::out);
  const auto file = package->getFile("a", false);
  EXPECT_EQ(file->getProperty(QCFPropertyMacType), "TEXT");
  package->beginUpdate(std::string("q"), ios::in | ios::out | ios::trunc);
  file->setProperty(QCFPropertyMacType, "PICT");
  package->cancelUpdate();
  EXPECT_EQ(file->getProperty(QCFPropertyMacType), "TEXT");
  EXPECT_EQ(parser.parses, 1);
}

}  // namespace
