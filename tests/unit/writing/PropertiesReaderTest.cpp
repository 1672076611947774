#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "unit/package/detail/FakeParser.h"
#include "unit/writing/Writing.h"

// The properties document as a parser tells it, event by event.

namespace {

using namespace writing;
using pkg::QCFPropertyDateTime;
using pkg::QCFPropertyMacCreator;
using pkg::QCFPropertyMacType;

constexpr char kDocument[] = "META-INF/pkgproperties.xml";

// Events in a short form: "<name", "<name key=value", ">name", and anything else is text.
using Events = std::vector<std::string>;

class PropertiesReader : public Writing {
protected:
  PropertiesReader() { fParser = &fFake; }

  // Opens a package whose document consists of these events. What the handler answers is noted; as
  // a parser does, the telling ends at -1.
  Package tell(const Events& events) {
    fFake.script = [this, events](pkg::IXMLParser_EventHandler& handler) {
      fAnswers.clear();
      for (const std::string& event : events) {
        fAnswers.push_back(tellOne(handler, event));
        if (fAnswers.back() == -1) return;
      }
    };
    zipbytes::File old;
    old.add(storedEntry("a", "alpha"), "alpha");
    old.add(storedEntry(kDocument, "<told/>"), "<told/>");
    return open(old.bytes());
  }
  static int tellOne(pkg::IXMLParser_EventHandler& handler, const std::string& event) {
    if (event[0] == '>') return handler.endElement(event.c_str() + 1);
    if (event[0] != '<') return handler.characterData(event.data(), static_cast<int>(event.size()));
    const std::size_t space = event.find(' ');
    const std::string name = event.substr(1, space - 1);
    if (space == std::string::npos) {
      const char* none[] = {nullptr};
      return handler.startElement(name.c_str(), none);
    }
    const std::size_t equals = event.find('=');
    const std::string key = event.substr(space + 1, equals - space - 1);
    const std::string value = event.substr(equals + 1);
    const char* one[] = {key.c_str(), value.c_str(), nullptr};
    return handler.startElement(name.c_str(), one);
  }
  static std::string value(const Package& package,
                           pkg::QCFPropertyName name = QCFPropertyDateTime) {
    return package->getFile("a", true)->getProperty(name);
  }
  // A whole document with these events inside "entries".
  static Events inEntries(const Events& inside) {
    Events all = {"<pkgProperties", "<package", ">package", "<entries"};
    all.insert(all.end(), inside.begin(), inside.end());
    all.insert(all.end(), {">entries", ">pkgProperties"});
    return all;
  }
  static Events property(const std::string& key, const std::string& text) {
    return {"<entry path=a", "<prop key=" + key, text, ">prop", ">entry"};
  }
  bool refused() const { return !fAnswers.empty() && fAnswers.back() == -1; }

  support::FakeParser fFake;
  std::vector<int> fAnswers;
};

TEST_F(PropertiesReader, EachKeyIsReadIntoItsProperty) {
  const Package package =
      tell(inEntries({"<entry path=a", "<prop key=datetime", "now", ">prop", "<prop key=mac_type",
                      "TEXT", ">prop", "<prop key=mac_creator", "ttxt", ">prop", ">entry"}));
  EXPECT_EQ(value(package), "now");
  EXPECT_EQ(value(package, QCFPropertyMacType), "TEXT");
  EXPECT_EQ(value(package, QCFPropertyMacCreator), "ttxt");
  EXPECT_EQ(fFake.parses, 1);
}

TEST_F(PropertiesReader, WhiteSpaceBetweenElementsIsDropped) {
  const Package package =
      tell({"<pkgProperties", "\n", "<entries", "\n", "<entry path=a", "\n", "<prop key=datetime",
            "now", ">prop", "\n", ">entry", "\n", ">entries", "\n", ">pkgProperties"});
  EXPECT_EQ(value(package), "now");
}

TEST_F(PropertiesReader, OfATextInSeveralPiecesTheLastStays) {
  const Package package =
      tell(inEntries({"<entry path=a", "<prop key=datetime", "first", "last", ">prop", ">entry"}));
  EXPECT_EQ(value(package), "last");
}

TEST_F(PropertiesReader, AnUnknownKeyLoadsAndHasNoValue) {
  const Package package = tell(inEntries(property("color", "red")));
  EXPECT_EQ(value(package), "");
  EXPECT_FALSE(refused());
  EXPECT_EQ(value(package), "");
  EXPECT_EQ(fFake.parses, 1);  // it counts as read
}

TEST_F(PropertiesReader, AnUnknownKeyIsLostAtTheNextWriteAndItsNeighbourStays) {
  const Package package = tell(inEntries(
      {"<entry path=a", "<prop key=color", "red", ">prop", "<prop key=datetime", "now", ">prop",
       ">entry", "<entry path=b", "<prop key=size", "large", ">prop", ">entry"}));
  EXPECT_EQ(value(package), "now");
  EXPECT_FALSE(refused());
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(contents(package, kDocument),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<pkgProperties xmlns=\"http://ns.quillon.example/qcf/1.0/\">\n"
            "<package/>\n"
            "<entries>\n"
            "<entry path=\"a\">\n<prop key=\"datetime\">now</prop>\n</entry>\n"
            "</entries>\n"
            "</pkgProperties>\n");
}

TEST_F(PropertiesReader, AnUnknownElementIsAcceptedAnywhere) {
  const Package package = tell({"<pkgProperties", "<other", ">other", "<entries", "<entry path=a",
                                "<other x=y", "text", ">other", "<prop key=datetime", "now", "<b",
                                ">b", ">prop", ">entry", ">entries", ">pkgProperties"});
  EXPECT_EQ(value(package), "now");
}

TEST_F(PropertiesReader, ValuesOfUnknownElementsInAPropertyAreItsText) {
  const Package package = tell(inEntries(
      {"<entry path=a", "<prop key=datetime", "now", "<b", "bold", ">b", ">prop", ">entry"}));
  EXPECT_EQ(value(package), "bold");
}

TEST_F(PropertiesReader, ADocumentWithoutKnownElementsHasNothing) {
  const Package package = tell({"<html", "<body", "text", ">body", ">html"});
  EXPECT_EQ(value(package), "");
  EXPECT_FALSE(refused());
}

struct Violation {
  std::string name;
  Events events;
};

void PrintTo(const Violation& violation, std::ostream* out) {
  *out << violation.name;
}

class PropertiesReaderRefuses : public PropertiesReader,
                                public testing::WithParamInterface<Violation> {};

// The parser is told to stop, the map goes back to what it was, and the next access tries again.
TEST_P(PropertiesReaderRefuses, AndNothingOfTheDocumentStays) {
  const Package package = tell(GetParam().events);
  EXPECT_EQ(value(package), "");
  EXPECT_TRUE(refused());
  EXPECT_EQ(fAnswers.size(), GetParam().events.size());
  EXPECT_EQ(value(package), "");
  EXPECT_EQ(fFake.parses, 2);

  fFake.tellOf("a", "datetime", "corrected");
  EXPECT_EQ(value(package), "corrected");
}

Events behind(Events events, const Events& more) {
  events.insert(events.end(), more.begin(), more.end());
  return events;
}

// A property that has been read when the violation comes.
const Events kRead = {"<pkgProperties",     "<entries", "<entry path=a",
                      "<prop key=datetime", "now",      ">prop"};

INSTANTIATE_TEST_SUITE_P(
    Documents, PropertiesReaderRefuses,
    testing::Values(
        Violation{"ASecondEntries", behind(kRead, {">entry", ">entries", "<entries"})},
        Violation{"ASecondPackage", {"<pkgProperties", "<package", ">package", "<package"}},
        Violation{"AnInnerPkgProperties", {"<pkgProperties", "<pkgProperties"}},
        Violation{"PkgPropertiesInsideAnother", {"<other", "<pkgProperties"}},
        Violation{"ASecondPkgProperties", {"<pkgProperties", ">pkgProperties", "<pkgProperties"}},
        Violation{"PackageAsTheRoot", {"<package"}}, Violation{"EntriesAsTheRoot", {"<entries"}},
        Violation{"EntriesInAnotherRoot", {"<other", "<entries"}},
        Violation{"PackageTooDeep", {"<pkgProperties", "<other", "<package"}},
        Violation{"AnEntryOutsideEntries", {"<pkgProperties", "<entry path=a"}},
        Violation{"AnEntryInPackage", {"<pkgProperties", "<package", "<entry path=a"}},
        Violation{"AnEntryInAnEntry", behind(kRead, {"<entry path=b"})},
        Violation{"AnEntryWithoutPath", {"<pkgProperties", "<entries", "<entry"}},
        Violation{"AnEntryWithAnEmptyPath", {"<pkgProperties", "<entries", "<entry path="}},
        Violation{"AnEntryWithAnotherAttribute", {"<pkgProperties", "<entries", "<entry name=a"}},
        Violation{"APropWithoutKey", behind(kRead, {"<prop"})},
        Violation{"APropWithAnEmptyKey", behind(kRead, {"<prop key="})},
        Violation{"APropInPkgProperties", {"<pkgProperties", "<prop key=datetime"}},
        Violation{"APropInEntries", {"<pkgProperties", "<entries", "<prop key=datetime"}},
        Violation{"APropInAnUnknownElementOfAnEntry",
                  behind(kRead, {"<other", "<prop key=datetime"})},
        Violation{"AnEndOfPkgPropertiesThatNeverBegan", {"<other", ">pkgProperties"}},
        Violation{"AnEndOfEntriesThatNeverBegan", {"<pkgProperties", "<other", ">entries"}},
        Violation{"AnEndOfPackageThatNeverBegan", {"<pkgProperties", "<other", ">package"}},
        Violation{"AnEndOfAnEntryThatNeverBegan",
                  {"<pkgProperties", "<entries", "<other", ">entry"}},
        Violation{"AnEndOfAPropThatNeverBegan", behind(kRead, {"<other", ">prop"})},
        Violation{"AnEndWithoutABeginning", {">other"}}),
    [](const auto& suite) { return suite.param.name; });

TEST_F(PropertiesReader, AfterAViolationEveryEventIsRefused) {
  fFake.script = [](pkg::IXMLParser_EventHandler& handler) {
    EXPECT_EQ(tellOne(handler, "<package"), -1);
    EXPECT_EQ(tellOne(handler, "<pkgProperties"), -1);
    EXPECT_EQ(tellOne(handler, ">pkgProperties"), -1);
    EXPECT_EQ(tellOne(handler, "text"), -1);
    EXPECT_EQ(handler.comment("c", 1), 0);
    EXPECT_EQ(handler.processingInstruction("t", "d", 1), 0);
  };
  zipbytes::File old;
  old.add(storedEntry("a", "alpha"), "alpha");
  old.add(storedEntry(kDocument, "<told/>"), "<told/>");
  EXPECT_EQ(value(open(old.bytes())), "");
}

TEST_F(PropertiesReader, APropertyOfThePackageItselfRaises22ThroughTheParser) {
  for (const char* const key : {"datetime", "mac_type", "mac_creator"}) {
    const Package package =
        tell({"<pkgProperties", "<package", std::string("<prop key=") + key, "value"});
    EXPECT_RAISED("22", value(package));
  }
}

// The exception passes the place that would put the map back or count the document as read.
TEST_F(PropertiesReader, WhatWasReadBeforeSuchAPropertyStaysAndTheNextAccessParsesAgain) {
  Events events = {"<pkgProperties", "<entries"};
  events = behind(behind(events, property("datetime", "now")),
                  {">entries", "<package", "<prop key=mac_type", "TEXT"});
  const Package package = tell(events);
  EXPECT_RAISED("22", value(package));
  EXPECT_EQ(fFake.parses, 1);
  EXPECT_RAISED("22", value(package));
  EXPECT_EQ(fFake.parses, 2);
  fFake.script = {};  // a document that tells nothing shows what is in the map
  EXPECT_EQ(value(package), "now");
  EXPECT_EQ(value(package, QCFPropertyMacType), "");
  EXPECT_EQ(fFake.parses, 3);
}

TEST_F(PropertiesReader, WhatParsingRaisesIsToldWhereFinishingRaisesToo) {
  struct Parsing {};
  struct Finishing {};
  struct Troubled final : support::FakeParser {
    void parse(std::istream&) override { throw Parsing(); }
    void finish() override { throw Finishing(); }
  } troubled;
  fParser = &troubled;
  zipbytes::File old;
  old.add(storedEntry("a", "alpha"), "alpha").add(storedEntry(kDocument, "<told/>"), "<told/>");
  const Package package = open(old.bytes());
  EXPECT_THROW(value(package), Parsing);
}

TEST_F(PropertiesReader, AnUnknownPropertyOfThePackageItselfIsSkipped) {
  const Package package = tell({"<pkgProperties", "<package", "<prop key=color", "red", ">prop",
                                ">package", ">pkgProperties"});
  EXPECT_EQ(value(package), "");
  EXPECT_FALSE(refused());
}

TEST_F(PropertiesReader, ADocumentThatWasRefusedGoesWithTheNextSave) {
  const Package package = tell({"<entries"});
  EXPECT_EQ(value(package), "");
  package->saveAs("new.pkg", kIn | kOut | kTrunc);
  EXPECT_EQ(package->entryExists(kDocument), pkg::PkgEntryNone);
}

// The map goes back as a whole to what it was when the document began, ZIP properties included.
TEST_F(PropertiesReader, ARefusedDocumentLeavesZipPropertiesAlone) {
  const Package package = tell({"<entries"});
  package->setProperty(pkg::QCFPropertyPackageComment, "kept");
  EXPECT_EQ(value(package), "");
  EXPECT_EQ(package->getProperty(pkg::QCFPropertyPackageComment), "kept");
}

TEST_F(PropertiesReader, WithoutADocumentEveryAccessLooksAgain) {
  zipbytes::File old;
  old.add(storedEntry("a", "alpha"), "alpha");
  const Package package = open(old.bytes());
  fFake.tellOf("a", "datetime", "now");
  EXPECT_EQ(value(package), "");
  EXPECT_EQ(fFake.parses, 0);
  write(package, kDocument, "told");
  EXPECT_EQ(value(package), "now");
  EXPECT_EQ(fFake.parses, 1);
}

TEST_F(PropertiesReader, ADocumentIsReadOnce) {
  const Package package = tell(inEntries(property("datetime", "now")));
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(value(package), "now");
  EXPECT_EQ(fFake.parses, 1);
}

}  // namespace
