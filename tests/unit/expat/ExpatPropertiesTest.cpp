#include <ios>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"
#include "package/expat/ExpatXMLParser.h"

#include "support/MemoryFileSystem.h"
#include "support/ZipBytes.h"

// The adapter where it is meant to be used: under the generic properties of a package.

namespace {

using pkg::QCFPropertyDateTime;
using pkg::QCFPropertyMacType;

constexpr char kDocument[] = "META-INF/pkgproperties.xml";

// A package with an entry "a.txt" and the given properties document.
class ExpatProperties : public testing::Test {
protected:
  boost::shared_ptr<pkg::IPackage<>> openWith(const std::string& document) {
    zipbytes::File file;
    file.add(zipbytes::storedEntry("a.txt", "data"), "data");
    file.add(zipbytes::storedEntry(kDocument, document), document);
    fFileSystem.put("p.pkg", file.bytes());
    return pkg::QCFPackageFactory().openPackage("p.pkg", std::ios::in, &fFileSystem, nullptr,
                                                &fParser);
  }
  std::string valueIn(const std::string& document, pkg::QCFPropertyName name) {
    return openWith(document)->getFile("a.txt", true)->getProperty(name);
  }

  support::MemoryFileSystem fFileSystem;
  pkg::ExpatXMLParser fParser;
};

std::string withValue(const std::string& value) {
  return "<pkgProperties><package/><entries><entry path=\"a.txt\"><prop key=\"datetime\">" + value +
         "</prop></entry></entries></pkgProperties>";
}

TEST_F(ExpatProperties, AValueIsReadWholeWhateverIsInsideIt) {
  EXPECT_EQ(valueIn(withValue("2001 &amp; <!--x-->later<![CDATA[!]]>"), QCFPropertyDateTime),
            "2001 & later!");
  EXPECT_STREQ(fParser.getErrorText(), "");
}

TEST_F(ExpatProperties, AValueLongerThanAnyBlockIsReadWhole) {
  const std::string value(50000, 'v');
  EXPECT_EQ(valueIn(withValue(value), QCFPropertyDateTime), value);
}

TEST_F(ExpatProperties, ADocumentThatBreaksKeepsWhatCameBeforeAndTheParserTellsWhere) {
  const std::string document =
      "<pkgProperties><package/><entries>\n"
      "<entry path=\"a.txt\"><prop key=\"datetime\">now</prop></entry>\n"
      "<entry path=\"b\"c\"/></entries></pkgProperties>";
  EXPECT_EQ(valueIn(document, QCFPropertyDateTime), "now");
  EXPECT_STREQ(fParser.getErrorText(), "line 3, column 16: not well-formed (invalid token)");
}

TEST_F(ExpatProperties, ADocumentOfAnotherStructureChangesNothing) {
  const std::string document =
      "<pkgProperties><entries><entry path=\"a.txt\"><prop key=\"datetime\">now</prop></entry>"
      "</entries><entries/></pkgProperties>";
  EXPECT_EQ(valueIn(document, QCFPropertyDateTime), "");
  EXPECT_NE(std::string(fParser.getErrorText()).find("refused by the handler"), std::string::npos);
}

TEST_F(ExpatProperties, APropertyOfThePackageItselfRaises22ThroughTheParserWhichStaysUsable) {
  const auto package = openWith(
      "<pkgProperties><package><prop key=\"mac_type\">TEXT</prop></package></pkgProperties>");
  const auto file = package->getFile("a.txt", true);
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      file->getProperty(QCFPropertyMacType);
      ADD_FAILURE() << "nothing was raised";
    } catch (pkg::PackageException<>& e) {
      EXPECT_EQ(e.getErrorCode(), pkg::PkgLib_Err_BadArgument);
    }
  }
  EXPECT_EQ(valueIn(withValue("fine"), QCFPropertyDateTime), "fine");
}

// Paths are written as they are: what stands before the quote is all that comes back.
TEST_F(ExpatProperties, APathWithADoubleQuoteIsWrittenRawAndEndsTheDocumentWhenItIsReadBack) {
  constexpr auto kInOutTrunc = std::ios::in | std::ios::out | std::ios::trunc;
  pkg::QCFPackageFactory factory;
  {
    const auto package =
        factory.openPackage("new.pkg", kInOutTrunc, &fFileSystem, nullptr, &fParser);
    package->beginUpdate();
    for (const char* const path : {"a", "m\"n", "z"})
      package->getFile(path, false)->setProperty(QCFPropertyMacType, "TEXT");
    package->endUpdate();
    EXPECT_EQ(package->getFile("m\"n", false)->getProperty(QCFPropertyMacType), "TEXT");
    package->close();
  }
  const auto package =
      factory.openPackage("new.pkg", std::ios::in, &fFileSystem, nullptr, &fParser);
  const auto stream = package->getFile(kDocument, true)->open(std::ios::in, false);
  const std::string document{std::istreambuf_iterator<char>(*stream), {}};
  EXPECT_NE(document.find("<entry path=\"m\"n\">\n"), std::string::npos) << document;

  EXPECT_EQ(package->getFile("a", false)->getProperty(QCFPropertyMacType), "TEXT");
  EXPECT_NE(std::string(fParser.getErrorText()).find("not well-formed"), std::string::npos);
  EXPECT_EQ(package->getFile("m\"n", false)->getProperty(QCFPropertyMacType), "");
  EXPECT_EQ(package->getFile("z", false)->getProperty(QCFPropertyMacType), "");
}

TEST_F(ExpatProperties, ABombInAPackageIsRefused) {
  EXPECT_EQ(valueIn("<!DOCTYPE a [<!ENTITY e \"now\">]>" + withValue("&e;"), QCFPropertyDateTime),
            "");
  EXPECT_NE(std::string(fParser.getErrorText()).find("document type declaration"),
            std::string::npos);
}

}  // namespace
