#include <ios>
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

TEST_F(ExpatProperties, ABombInAPackageIsRefused) {
  EXPECT_EQ(valueIn("<!DOCTYPE a [<!ENTITY e \"now\">]>" + withValue("&e;"), QCFPropertyDateTime),
            "");
  EXPECT_NE(std::string(fParser.getErrorText()).find("document type declaration"),
            std::string::npos);
}

}  // namespace
