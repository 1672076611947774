#include "unit/package/detail/FakeParser.h"
#include "unit/writing/Writing.h"

// When the properties document is written, and when it goes.

namespace {

using namespace writing;
using pkg::QCFPropertyDateTime;
using pkg::QCFPropertyMacType;

constexpr char kDocument[] = "META-INF/pkgproperties.xml";

class PropertiesWriter : public Writing {
protected:
  PropertiesWriter() { fParser = &fFake; }

  // A package with an entry and a document of one property, as the fake parser tells it.
  Package openWithDocument(std::ios_base::openmode mode = kIn | kOut) {
    fFake.tellOf("a.txt", "datetime", "then");
    zipbytes::File old;
    old.add(storedEntry("a.txt", "alpha"), "alpha");
    old.add(storedEntry(kDocument, "the parser knows"), "the parser knows");
    return open(old.bytes(), mode);
  }

  support::FakeParser fFake;
};

TEST_F(PropertiesWriter, AnUpdateThatNeverHadAPropertyCreatesNoDocument) {
  const Package package = create();
  write(package, "a.txt", "alpha");
  package->endUpdate();
  EXPECT_EQ(bytes().find(kDocument), Bytes::npos);
}

// A property that is read once is in memory, and is written again.
TEST_F(PropertiesWriter, ADocumentThatWasReadOutlivesAnUpdate) {
  const Package package = openWithDocument();
  EXPECT_EQ(package->getFile("a.txt", true)->getProperty(QCFPropertyDateTime), "then");
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_NE(contents(package, kDocument).find("<prop key=\"datetime\">then</prop>"), Bytes::npos);
}

TEST_F(PropertiesWriter, ADocumentThatNobodyReadGoes) {
  const Package package = openWithDocument();
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(package->entryExists(kDocument), pkg::PkgEntryNone);
  EXPECT_EQ(fFake.parses, 0);
}

TEST_F(PropertiesWriter, InPlaceADocumentThatNobodyReadGoesToo) {
  const Package package = openWithDocument();
  package->doUNSAFEUpdateInPlace();
  EXPECT_EQ(open(bytes("old.pkg"))->entryExists(kDocument), pkg::PkgEntryNone);
}

// What an update keeps is content, though nobody has asked for it: the document, which the end asks
// for, is not the first file.
TEST_F(PropertiesWriter, InPlaceItGoesFromAPackageThatOwesItsMimetypeToo) {
  fPolicies.conformance = 1;
  const Package package = openWithDocument();
  EXPECT_NO_THROW(package->doUNSAFEUpdateInPlace());
  EXPECT_EQ(open(bytes("old.pkg"))->entryExists(kDocument), pkg::PkgEntryNone);
}

TEST_F(PropertiesWriter, WithoutAParserADocumentIsAnEntryLikeAnyOther) {
  fParser = nullptr;
  const Package package = openWithDocument();
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(contents(package, kDocument), "the parser knows");
}

TEST_F(PropertiesWriter, InPlaceTheDocumentMovesToTheEnd) {
  const Package package = openWithDocument();
  package->getFile("a.txt", true)->getProperty(QCFPropertyDateTime);
  package->doUNSAFEUpdateInPlace();
  EXPECT_NE(contents(package, kDocument).find("then"), Bytes::npos);
  const Bytes& written = bytes("old.pkg");
  EXPECT_LT(written.find("the parser knows"), written.rfind("PK\x03\x04"));
}

TEST_F(PropertiesWriter, SettingReadsTheDocumentFirstAndKeepsTheOthers) {
  const Package package = openWithDocument();
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  package->getFile("b.txt", false)->setProperty(QCFPropertyMacType, "TEXT");
  package->endUpdate();
  EXPECT_EQ(contents(package, kDocument),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<pkgProperties xmlns=\"http://ns.quillon.example/qcf/1.0/\">\n"
            "<package/>\n"
            "<entries>\n"
            "<entry path=\"a.txt\">\n<prop key=\"datetime\">then</prop>\n</entry>\n"
            "<entry path=\"b.txt\">\n<prop key=\"mac_type\">TEXT</prop>\n</entry>\n"
            "</entries>\n"
            "</pkgProperties>\n");
}

TEST_F(PropertiesWriter, AnEmptyValueIsAPropertyToo) {
  const Package package = create();
  package->getFile("a.txt", false)->setProperty(QCFPropertyMacType, "");
  package->endUpdate();
  EXPECT_NE(contents(open(bytes()), kDocument).find("<prop key=\"mac_type\"></prop>"), Bytes::npos);
}

TEST_F(PropertiesWriter, ThePackagesOwnPropertiesAreNeverWritten) {
  const Package package = create();
  EXPECT_RAISED("22", package->setProperty(QCFPropertyMacType, "TEXT"));
  package->setProperty(pkg::QCFPropertyPackageComment, "a comment");
  package->getFile("a.txt", false)->setProperty(QCFPropertyMacType, "TEXT");
  package->endUpdate();
  const Bytes document = contents(open(bytes()), kDocument);
  EXPECT_NE(document.find("<package/>\n"), Bytes::npos);
  EXPECT_EQ(document.find("a comment"), Bytes::npos);
}

TEST_F(PropertiesWriter, ZipPropertiesOfAnEntryStayOutOfTheDocument) {
  const Package package = create();
  const File file = package->getFile("a.txt", false);
  file->setProperty(pkg::QCFPropertyZipTypeCreator, "5445585474747874");
  file->setProperty(QCFPropertyMacType, "TEXT");
  write(package, "b.txt", "has dates only");
  package->endUpdate();
  const Bytes document = contents(open(bytes()), kDocument);
  EXPECT_EQ(document.find("5445"), Bytes::npos);
  EXPECT_EQ(document.find("b.txt"), Bytes::npos);
}

TEST_F(PropertiesWriter, CancelBringsThePropertiesBack) {
  const Package package = openWithDocument();
  package->getFile("a.txt", true)->getProperty(QCFPropertyDateTime);
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  package->getFile("a.txt", true)->setProperty(QCFPropertyDateTime, "now");
  EXPECT_EQ(package->getFile("a.txt", true)->getProperty(QCFPropertyDateTime), "now");
  package->cancelUpdate();
  EXPECT_EQ(package->getFile("a.txt", true)->getProperty(QCFPropertyDateTime), "then");
  EXPECT_RAISED("28", package->getFile("a.txt", true)->setProperty(QCFPropertyDateTime, "now"));
}

// The snapshot is taken when the update has begun: what the update's first half changed is in it.
TEST_F(PropertiesWriter, APropertySetBeforeAnUpdateOutlivesItsCancelling) {
  const Package package = openWithDocument();
  package->getFile("c.txt", false)->setProperty(pkg::QCFPropertyZipDate, "2100");
  package->beginUpdate();
  package->getFile("d.txt", false)->setProperty(pkg::QCFPropertyZipDate, "2200");
  package->cancelUpdate();
  EXPECT_EQ(package->getFile("c.txt", false)->getProperty(pkg::QCFPropertyZipDate), "2100");
  EXPECT_EQ(package->getFile("d.txt", false)->getProperty(pkg::QCFPropertyZipDate), "");
}

TEST_F(PropertiesWriter, ADocumentThatCannotBeWrittenFailsTheUpdateWhichCanBeCancelled) {
  support::FailingFileSystem full(fMemory, 1, {support::Failure::Write},
                                  support::FailingFileSystem::Span::FromThereOn);
  fFiles = &full;
  const Package package = create();
  package->getFile("a.txt", false)->setProperty(QCFPropertyMacType, "TEXT");
  EXPECT_RAISED("IO 50", package->endUpdate());
  EXPECT_NO_THROW(package->cancelUpdate());
}

}  // namespace
