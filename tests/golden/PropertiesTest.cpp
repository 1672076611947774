#include "golden/Golden.h"
#include "golden/Readers.h"

// The properties document, as it lies in a package.

namespace {

using namespace golden;
using pkg::CompressionStored;
using pkg::QCFPropertyDateTime;
using pkg::QCFPropertyMacCreator;
using pkg::QCFPropertyMacType;

constexpr char kDocument[] = "META-INF/pkgproperties.xml";

// Writing needs a parser to be there, and nothing of it.
class NoParser : public pkg::IXMLParser {
public:
  void setEventHandler(pkg::IXMLParser_EventHandler*) override {}
  void parse(std::istream&) override {}
  void parseChunk(const char*, int, bool) override {}
  const char* getErrorText() override { return ""; }
  void finish() override {}
};

Bytes documentOf(const Bytes& entries) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<pkgProperties xmlns=\"http://ns.quillon.example/qcf/1.0/\">\n"
         "<package/>\n"
         "<entries>\n" +
         entries +
         "</entries>\n"
         "</pkgProperties>\n";
}

class Properties : public Golden {
protected:
  Properties() { fParser = &fNoParser; }

  // An entry and a document without properties.
  static Bytes oldPackage() {
    zipbytes::File old;
    old.add(storedEntry("a.txt", "alpha"), "alpha");
    old.add(storedEntry(kDocument, documentOf("")), documentOf(""));
    return old.bytes();
  }
  static Bytes ofTextType() {
    return documentOf("<entry path=\"a.txt\">\n<prop key=\"mac_type\">TEXT</prop>\n</entry>\n");
  }

private:
  NoParser fNoParser;
};

TEST_F(Properties, TheDocumentIsTheLastEntryWithPathsAndKeysInOrder) {
  const Package package = create();
  write(package, "b.txt", "beta", CompressionStored);
  write(package, "a.txt", "alpha", CompressionStored);
  const auto a = package->getFile("a.txt", true);
  const auto b = package->getFile("b.txt", true);
  b->setProperty(QCFPropertyMacCreator, "ttxt");
  b->setProperty(QCFPropertyDateTime, "2001-02-03");
  b->setProperty(QCFPropertyMacType, "TEXT");
  a->setProperty(QCFPropertyMacType, "DATA");
  package->endUpdate();

  const Bytes document = documentOf(
      "<entry path=\"a.txt\">\n"
      "<prop key=\"mac_type\">DATA</prop>\n"
      "</entry>\n"
      "<entry path=\"b.txt\">\n"
      "<prop key=\"datetime\">2001-02-03</prop>\n"
      "<prop key=\"mac_type\">TEXT</prop>\n"
      "<prop key=\"mac_creator\">ttxt</prop>\n"
      "</entry>\n");
  zipbytes::File expected;
  expected.add(storedEntry("b.txt", "beta"), "beta");
  expected.add(storedEntry("a.txt", "alpha"), "alpha");
  expected.add(deflatedEntry(kDocument, document), deflated(document));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

TEST_F(Properties, NothingIsEscapedAndAValueEndsAtItsFirstNUL) {
  const Package package = create();
  const auto file = package->getFile("a\"b&.txt", false);
  file->setProperty(QCFPropertyDateTime, Bytes("<&\">\0unseen", 11));
  package->endUpdate();

  const Bytes document = documentOf(
      "<entry path=\"a\"b&.txt\">\n"
      "<prop key=\"datetime\"><&\"></prop>\n"
      "</entry>\n");
  zipbytes::File expected;
  expected.add(deflatedEntry(kDocument, document), deflated(document));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

TEST_F(Properties, WhileAnotherEntryIsBeingWrittenTheDocumentWaitsInTheQueue) {
  const Package package = create();
  const auto file = package->getFile("a.txt", false);
  file->setCompressionMethod(CompressionStored);
  const Stream open = file->open(kOut, false);
  *open << "alpha";
  write(package, "queued.txt", "queued", CompressionStored);
  file->setProperty(QCFPropertyMacType, "TEXT");
  package->endUpdate();

  const Bytes document = documentOf(
      "<entry path=\"a.txt\">\n"
      "<prop key=\"mac_type\">TEXT</prop>\n"
      "</entry>\n");
  zipbytes::File expected;
  expected.add(storedEntry("a.txt", "alpha"), "alpha");
  expected.add(storedEntry("queued.txt", "queued"), "queued");
  expected.add(deflatedEntry(kDocument, document), deflated(document));
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

TEST_F(Properties, WithoutAParserThereIsNoDocument) {
  fParser = nullptr;
  const Package package = create();
  write(package, "a.txt", "alpha", CompressionStored);
  package->endUpdate();

  zipbytes::File expected;
  expected.add(storedEntry("a.txt", "alpha"), "alpha");
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
}

// The old document is copied with the other entries, and left behind when the new one comes.
TEST_F(Properties, ADocumentThatIsWrittenAnewLeavesItsCopyBehind) {
  const Package package = open(oldPackage());
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  package->getFile("a.txt", true)->setProperty(QCFPropertyMacType, "TEXT");
  package->endUpdate();

  zipbytes::File expected;
  expected.add(storedEntry("a.txt", "alpha"), "alpha");
  expected.raw(zipbytes::localHeader(storedEntry(kDocument, documentOf("")))).raw(documentOf(""));
  // Its method was the old document's.
  expected.add(storedEntry(kDocument, ofTextType()), ofTextType());
  zipbytes::End end = expected.end();
  end.directorySize += static_cast<std::uint32_t>(46 + Bytes(kDocument).size());
  EXPECT_TRUE(sameBytes(expected.bytes(end), bytes()));
  EXPECT_EQ(objections(bytes()),
            "unzip refuses, zipinfo refuses, zipfile refuses, 7z refuses, ziptool refuses");
}

// The way around that: read the properties, remove the document, and only then begin.
TEST_F(Properties, ADocumentThatIsRemovedBeforeTheUpdateIsWrittenAnewWithoutATrace) {
  const Package package = open(oldPackage());
  package->getFile("a.txt", true)->getProperty(QCFPropertyMacType);
  package->getFile(kDocument, true)->remove();
  package->beginUpdate("new.pkg", kIn | kOut | kTrunc);
  package->getFile("a.txt", true)->setProperty(QCFPropertyMacType, "TEXT");
  package->endUpdate();

  zipbytes::File expected;
  expected.add(storedEntry("a.txt", "alpha"), "alpha");
  expected.add(storedEntry(kDocument, ofTextType()), ofTextType());
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "");
}

// A document that nobody has read has no properties in memory: it is taken for one whose last
// property went.
TEST_F(Properties, ADocumentThatWasNotReadGoesWithAnUpdateThatTouchesNoProperty) {
  const Bytes document = documentOf("");
  zipbytes::File old;
  old.add(storedEntry("a.txt", "alpha"), "alpha");
  old.add(storedEntry(kDocument, document), document);
  const Package package = open(old.bytes());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  zipbytes::File expected;
  expected.add(storedEntry("a.txt", "alpha"), "alpha");
  expected.raw(zipbytes::localHeader(storedEntry(kDocument, document))).raw(document);
  zipbytes::End end = expected.end();
  end.directorySize += static_cast<std::uint32_t>(46 + Bytes(kDocument).size());
  EXPECT_TRUE(sameBytes(expected.bytes(end), bytes()));
}

// A package that is open for reading only cannot take the record out again: it stays, with a size
// of 0 that its data and its local header contradict.
TEST_F(Properties, SavedFromAPackageOpenForReadingTheUnreadDocumentStays) {
  const Bytes document = documentOf("");
  zipbytes::File old;
  old.add(storedEntry("a.txt", "alpha"), "alpha");
  old.add(storedEntry(kDocument, document), document);
  const Package package = open(old.bytes(), kIn);
  package->saveAs("new.pkg", kIn | kOut | kTrunc);

  Entry removed = storedEntry(kDocument, document);
  removed.crc = 0;
  removed.size = 0;
  zipbytes::File expected;
  expected.add(storedEntry("a.txt", "alpha"), "alpha");
  expected.addAs(storedEntry(kDocument, document), removed, document);
  EXPECT_TRUE(sameBytes(expected.bytes(), bytes()));
  EXPECT_EQ(objections(bytes()), "bsdtar refuses, 7z refuses, ziptool refuses");
}

}  // namespace
