#include <nlohmann/json.hpp>

#include "Program.h"

namespace {

class Prop : public Qcfpkg {
protected:
  // a.pkg, with this as the document that holds the properties.
  void makePackageWith(const std::string& document) const {
    makePackage("a.pkg");
    folder.write("document", document);
    python(
        "import zipfile\n"
        "zipfile.ZipFile('a.pkg', 'a').write('document', 'META-INF/pkgproperties.xml')\n");
    std::filesystem::remove(folder / "document");
  }

  // A change of a.pkg is refused, and leaves it as it is.
  void expectNoChange(const std::string& reason) const {
    const std::string before = folder.read("a.pkg");
    expectFailure({"prop", "set", "a.pkg", "one.txt", "mac-type", "x"}, 3, reason);
    EXPECT_EQ(folder.read("a.pkg"), before);
  }
};

TEST_F(Prop, GenericPropertiesAreKeptInTheirDocument) {
  auto expected = makePackage("a.pkg");
  must({"prop", "set", "a.pkg", "one.txt", "mac-type", "TEXT"});
  must({"prop", "set", "a.pkg", "sub/two.txt", "datetime", "2026-01-02"});
  EXPECT_EQ(must({"prop", "get", "a.pkg", "one.txt", "mac-type"}), "TEXT\n");
  EXPECT_EQ(must({"prop", "get", "a.pkg", "sub/two.txt", "datetime"}), "2026-01-02\n");
  auto after = contents("a.pkg");
  const std::string document = after["META-INF/pkgproperties.xml"];
  EXPECT_NE(document.find("<entry path=\"one.txt\">\n<prop key=\"mac_type\">TEXT</prop>"),
            std::string::npos);
  after.erase("META-INF/pkgproperties.xml");
  EXPECT_EQ(after, expected);
  expectSound("a.pkg");
  expectNoFinding("a.pkg");
}

TEST_F(Prop, ValuesMayHoldWhatMeansSomethingInXML) {
  makePackage("a.pkg");
  const std::string value = "<a & \"b\"> ]]> 'c'";
  must({"prop", "set", "a.pkg", "one.txt", "mac-type", value});
  must({"prop", "set", "a.pkg", "sub/two.txt", "mac-type", "other"});
  EXPECT_EQ(must({"prop", "get", "a.pkg", "one.txt", "mac-type"}), value + "\n");
  EXPECT_EQ(support::python("import sys, zipfile, xml.etree.ElementTree as t\n"
                            "print(t.fromstring(zipfile.ZipFile('a.pkg').read("
                            "'META-INF/pkgproperties.xml'))[1][0][0].text)",
                            {}, folder.path()),
            value + "\n");
}

TEST_F(Prop, TheDocumentSurvivesEveryOtherChange) {
  makePackage("a.pkg");
  must({"prop", "set", "a.pkg", "one.txt", "mac-type", "TEXT"});
  folder.write("x", "x");
  must({"add", "a.pkg", "x"});
  must({"add", "--in-place", "a.pkg", "y=x"});
  must({"remove", "a.pkg", "sub/two.txt"});
  must({"comment", "a.pkg", "c"});
  must({"type", "a.pkg", "application/x-new"});
  must({"--quiet", "compact", "a.pkg"});
  EXPECT_EQ(must({"prop", "get", "a.pkg", "one.txt", "mac-type"}), "TEXT\n");
  expectNoFinding("a.pkg");
}

TEST_F(Prop, TypeAndCreatorGoIntoBothHeadersAndTheDirectoryIsCounted) {
  auto expected = makePackage("a.pkg");
  must({"prop", "set", "a.pkg", "one.txt", "type-creator", "5445585474747874"});
  EXPECT_EQ(must({"prop", "get", "a.pkg", "one.txt", "type-creator"}), "5445585474747874\n");
  EXPECT_EQ(contents("a.pkg"), expected);
  EXPECT_EQ(read("a.pkg")[1].at("extra"), "05270c005a5049545445585474747874");
  expectSound("a.pkg");
  expectNoFinding("a.pkg");
}

TEST_F(Prop, TheDateOfAnEntryCanBeSet) {
  auto expected = makePackage("a.pkg");
  must({"prop", "set", "a.pkg", "one.txt", "modified", "2001-02-03 04:05:06"});
  EXPECT_EQ(read("a.pkg")[1].at("date"), "2001-02-03 04:05:06");
  EXPECT_EQ(must({"prop", "get", "a.pkg", "one.txt", "modified"}), "2001-02-03 04:05:06\n");
  EXPECT_EQ(contents("a.pkg"), expected);
  expectNoFinding("a.pkg");
}

TEST_F(Prop, OneThatIsNotSetIsAnEmptyLine) {
  makePackage("a.pkg");
  for (const char* const name : {"type-creator", "datetime", "mac-type", "mac-creator"})
    EXPECT_EQ(must({"prop", "get", "a.pkg", "one.txt", name}), "\n");
}

TEST_F(Prop, ThoseOfAFolderCanBePrintedButNotSet) {
  environment = {{"TZ", "UTC"}};
  std::filesystem::create_directory(folder / "d");
  ASSERT_EQ(shell("TZ=UTC touch -d '2020-02-03 04:05:07' d").status, 0);
  must({"create", "--type", "a/b", "a.pkg", "d"});
  EXPECT_EQ(must({"prop", "get", "a.pkg", "d/", "modified"}), "2020-02-03 04:05:06\n");
  expectFailure({"prop", "set", "a.pkg", "d/", "modified", "2026-01-02 03:04:06"}, 3,
                "a folder has no properties");
}

TEST_F(Prop, ListNamesEveryPropertyOfEveryEntry) {
  makePackage("a.pkg");
  must({"prop", "set", "a.pkg", "one.txt", "mac-creator", "ttxt"});
  must({"prop", "set", "a.pkg", "one.txt", "modified", "2001-02-03 04:05:06"});
  EXPECT_EQ(must({"prop", "list", "a.pkg", "one.txt"}),
            "one.txt\tmodified\t2001-02-03 04:05:06\none.txt\tmac-creator\tttxt\n");
  const auto json = nlohmann::json::parse(must({"prop", "list", "--json", "a.pkg"}));
  EXPECT_EQ(json["one.txt"]["mac-creator"], "ttxt");
  EXPECT_EQ(json.size(), 4u);
}

TEST_F(Prop, WrongNamesAndValuesAreRefused) {
  makePackage("a.pkg");
  const std::string before = folder.read("a.pkg");
  expectFailure({"prop", "set", "a.pkg", "absent", "mac-type", "x"}, 3, "no entry absent");
  expectFailure({"prop", "get", "a.pkg", "absent", "mac-type"}, 3, "no entry absent");
  expectFailure({"prop", "set", "a.pkg", "one.txt", "colour", "x"}, 2, "colour");
  expectFailure({"prop", "set", "a.pkg", "one.txt", "type-creator", "xyz"}, 2, "16 hexadecimal");
  expectFailure({"prop", "set", "a.pkg", "one.txt", "modified", "yesterday"}, 2,
                "modified is like");
  expectFailure({"prop", "set", "a.pkg", "one.txt", "modified", "2001-02-30 00:00:00"}, 2,
                "no such day");
  expectFailure({"prop", "set", "a.pkg", "one.txt", "mac-type", "\x01"}, 2, "control characters");
  EXPECT_EQ(folder.read("a.pkg"), before);
}

TEST_F(Prop, ADocumentThatAChangeWouldRobIsNotChanged) {
  makePackageWith(
      "<pkgProperties><package/><entries><entry path='one.txt'><prop "
      "key='colour'>red</prop></entry>"
      "</entries></pkgProperties>");
  expectNoChange("holds what a change would lose");
}

// What is wrong with a document that is XML all the same.
TEST_F(Prop, ADocumentOfAnotherShapeIsToldAndLeftAsItIs) {
  const std::pair<const char*, const char*> documents[] = {
      {"<html/>", "it is no properties document"},
      {"<pkgProperties><colour/></pkgProperties>", "an element colour is not known there"},
      {"<pkgProperties><entries><entry/></entries></pkgProperties>", "an entry has no path"},
      {"<pkgProperties><entries><entry "
       "path='one.txt'><prop>x</prop></entry></entries></pkgProperties>",
       "a property has no key"},
      {"<pkgProperties><entries><entry path='one.txt'><prop key='k'>1</prop><prop key='k'>2</prop>"
       "</entry></entries></pkgProperties>",
       "a property comes twice"}};
  for (const auto& [document, fault] : documents) {
    makePackageWith(document);
    const std::string before = folder.read("a.pkg");
    expectFailure({"prop", "list", "a.pkg"}, 3, fault);
    expectFailure({"prop", "set", "a.pkg", "one.txt", "mac-type", "x"}, 3, fault);
    EXPECT_EQ(folder.read("a.pkg"), before);
    std::filesystem::remove(folder / "a.pkg");
  }
}

TEST_F(Prop, CommentsOfADocumentAreNotLostByAChange) {
  for (const char* const extra : {"<!-- by hand -->", "<?by hand?>"}) {
    makePackageWith("<pkgProperties>" + std::string(extra) + "</pkgProperties>");
    const std::string before = folder.read("a.pkg");
    expectFailure({"prop", "set", "a.pkg", "one.txt", "mac-type", "x"}, 3,
                  "holds what a change would lose");
    EXPECT_NE(run({"check", "a.pkg"}).out.find("note properties-foreign"), std::string::npos);
    EXPECT_EQ(folder.read("a.pkg"), before);
    std::filesystem::remove(folder / "a.pkg");
  }
}

TEST_F(Prop, ANameThatCannotStandInTheDocumentIsRefused) {
  folder.write("x", "x");
  must({"create", "--type", "a/b", "a.pkg", "salt & pepper=x"});
  const std::string before = folder.read("a.pkg");
  expectFailure({"prop", "set", "a.pkg", "salt & pepper", "mac-type", "x"}, 3,
                "cannot stand in the properties document");
  EXPECT_EQ(folder.read("a.pkg"), before);
}

TEST_F(Prop, ADamagedDocumentIsToldAndOtherChangesKeepItsBytes) {
  makePackageWith("<broken");
  expectFailure({"prop", "list", "a.pkg"}, 3, "the properties document is damaged");
  expectFailure({"prop", "set", "a.pkg", "one.txt", "mac-type", "x"}, 3, "is damaged");
  folder.write("x", "x");
  must({"add", "a.pkg", "x"});
  EXPECT_EQ(contents("a.pkg").at("META-INF/pkgproperties.xml"), "<broken");
}

TEST_F(Prop, ADocumentThatCannotBeReadIsToldAndOtherChangesKeepItsBytes) {
  const std::string document = "<pkgProperties/>";
  auto damaged = zipbytes::storedEntry("META-INF/pkgproperties.xml", document);
  damaged.crc ^= 1;
  zipbytes::File file;
  file.add(zipbytes::storedEntry("mimetype", "a/b"), "a/b")
      .add(zipbytes::storedEntry("e", "x"), "x");
  file.add(zipbytes::storedEntry("f", "x"), "x").add(damaged, document);
  folder.write("a.pkg", file.bytes());
  const std::string reason = "the properties document cannot be read: the data's CRC is ";
  expectFailure({"prop", "list", "a.pkg"}, 3, "cannot tell properties of a.pkg: " + reason);
  expectFailure({"prop", "set", "a.pkg", "e", "mac-type", "x"}, 3,
                "cannot set properties of a.pkg: " + reason);
  EXPECT_EQ(folder.read("a.pkg"), file.bytes());
  must({"remove", "a.pkg", "f"});
  EXPECT_NE(folder.read("a.pkg").find("META-INF/pkgproperties.xml" + document), std::string::npos);
}

TEST_F(Prop, ValuesOfOthersKeepTheirCarriageReturns) {
  makePackageWith(
      "<pkgProperties><package/><entries><entry path='one.txt'><prop key='mac_type'>a&#13;b</prop>"
      "</entry></entries></pkgProperties>");
  must({"prop", "set", "a.pkg", "one.txt", "mac-creator", "c"});
  EXPECT_EQ(must({"prop", "get", "a.pkg", "one.txt", "mac-type"}), "a\rb\n");
}

TEST_F(Prop, ANameOfOthersThatCannotStandInTheDocumentIsNotLostByAChange) {
  makePackageWith(
      "<pkgProperties><package/><entries><entry path='salt &amp; pepper'><prop key='mac_type'>a"
      "</prop></entry></entries></pkgProperties>");
  expectNoChange("cannot write a.pkg: its properties cannot be kept as they are");
}

TEST_F(Prop, ARemovedEntryTakesItsPropertiesAlong) {
  makePackage("a.pkg");
  must({"prop", "set", "a.pkg", "one.txt", "mac-type", "TEXT"});
  must({"prop", "set", "a.pkg", "sub/two.txt", "datetime", "2026"});
  must({"remove", "a.pkg", "sub/"});
  EXPECT_EQ(must({"prop", "get", "a.pkg", "one.txt", "mac-type"}), "TEXT\n");
  EXPECT_EQ(contents("a.pkg").at("META-INF/pkgproperties.xml").find("two.txt"), std::string::npos);
  expectNoFinding("a.pkg");
  expectSound("a.pkg");
}

TEST_F(Prop, TheDocumentGoesWithTheLastProperty) {
  auto expected = makePackage("a.pkg");
  expected.erase("one.txt");
  must({"prop", "set", "a.pkg", "one.txt", "mac-type", "TEXT"});
  std::filesystem::copy_file(folder / "a.pkg", folder / "b.pkg");
  must({"remove", "a.pkg", "one.txt"});
  EXPECT_EQ(contents("a.pkg"), expected);
  expectNoFinding("a.pkg");
  must({"remove", "--in-place", "b.pkg", "one.txt"});
  EXPECT_EQ(contents("b.pkg"), expected);
  EXPECT_EQ(run({"check", "b.pkg"}).status, 0);
}

TEST_F(Prop, InPlaceTheOthersPropertiesCannotBeWritten) {
  makePackage("a.pkg");
  must({"prop", "set", "a.pkg", "one.txt", "mac-type", "TEXT"});
  must({"prop", "set", "a.pkg", "sub/two.txt", "datetime", "2026"});
  const std::string before = folder.read("a.pkg");
  expectFailure({"remove", "--in-place", "a.pkg", "one.txt"}, 3, "without --in-place they can");
  EXPECT_EQ(folder.read("a.pkg"), before);
}

TEST_F(Prop, PropertiesOfAnEntryThatIsGoneAreRemovedByItsName) {
  makePackage("a.pkg");
  python(
      "import zipfile\n"
      "z = zipfile.ZipFile('a.pkg', 'a')\n"
      "z.writestr('META-INF/pkgproperties.xml', '<pkgProperties><package/><entries>'\n"
      "  '<entry path=\"gone\"><prop key=\"mac_type\">a</prop></entry>'\n"
      "  '<entry path=\"one.txt\"><prop key=\"mac_type\">b</prop></entry></entries>'\n"
      "  '</pkgProperties>')\n");
  EXPECT_NE(run({"check", "a.pkg"}).out.find("qcfpkg remove PACKAGE ENTRY"), std::string::npos);
  must({"remove", "a.pkg", "gone"});
  EXPECT_EQ(must({"prop", "get", "a.pkg", "one.txt", "mac-type"}), "b\n");
  expectNoFinding("a.pkg");
  expectFailure({"remove", "a.pkg", "gone"}, 3, "no such entry");
}

TEST_F(Prop, ADocumentThatARewritingWouldRobStaysWhenAnEntryIsRemoved) {
  makePackage("a.pkg");
  python(
      "import zipfile\n"
      "zipfile.ZipFile('a.pkg', 'a').writestr('META-INF/pkgproperties.xml', '<pkgProperties>'\n"
      "  '<package/><entries><entry path=\"one.txt\"><prop key=\"colour\">red</prop></entry>'\n"
      "  '</entries></pkgProperties>')\n");
  const std::string before = contents("a.pkg").at("META-INF/pkgproperties.xml");
  must({"remove", "a.pkg", "one.txt"});
  EXPECT_EQ(contents("a.pkg").at("META-INF/pkgproperties.xml"), before);
}

}  // namespace
