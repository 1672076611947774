#include <fstream>
#include <set>

#include <nlohmann/json.hpp>

#include "Program.h"
#include "support/Fixtures.h"

namespace {

class Check : public Qcfpkg {
protected:
  std::set<std::string> findings(const std::string& path) const {
    const auto finished = run({"check", "--json", path});
    std::set<std::string> ids;
    const auto json = nlohmann::json::parse(finished.out);
    for (const auto& finding : json[0]["findings"]) {
      ids.insert(finding["id"].get<std::string>());
    }
    return ids;
  }
};

TEST_F(Check, AFindingIsOneLineWithPlaceSeverityAndAdvice) {
  auto entry = zipbytes::storedEntry("a", "x");
  entry.crc ^= 1;
  zipbytes::File file;
  file.add(zipbytes::storedEntry("mimetype", "a/b"), "a/b");
  file.add(entry, "x");
  folder.write("a.pkg", file.bytes());
  const auto finished = run({"check", "a.pkg"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out,
            "a.pkg: a at 72: error data-crc: the data's CRC is 8cdc1683, and 8cdc1682 is recorded; "
            "get another copy of the file\n");
  EXPECT_EQ(finished.err, "");
}

TEST_F(Check, AsJSONItSaysTheSame) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("a", "x"), "x");
  folder.write("a.pkg", file.bytes());
  const auto finished = run({"check", "--json", "a.pkg"});
  EXPECT_EQ(finished.status, 1);
  const auto json = nlohmann::json::parse(finished.out);
  EXPECT_EQ(json[0]["file"], "a.pkg");
  EXPECT_EQ(json[0]["findings"][0],
            nlohmann::json::parse(R"({"id": "mimetype-missing", "severity": "error", "entry": null,
                "offset": null, "text": "there is no entry mimetype",
                "advice": "set the type with: qcfpkg type PACKAGE TYPE"})"));
}

TEST_F(Check, OfALongNameAFindingQuotesTheBeginningInWholeCharacters) {
  const auto expectQuote = [&](const std::string& name, const std::string& quote) {
    zipbytes::File file;
    file.addAs(zipbytes::storedEntry(name, "x"), zipbytes::storedEntry("a", "x"), "x");
    folder.write("a.pkg", file.bytes());
    const std::string told = run({"check", "a.pkg"}).out;
    EXPECT_NE(told.find("its local header calls it " + quote + ";"), std::string::npos) << told;
  };
  const auto times = [](int count, const std::string& text) {
    std::string all;
    for (int i = 0; i < count; ++i)
      all += text;
    return all;
  };
  expectQuote("", "''");
  expectQuote(times(200, "n"), times(200, "n"));
  expectQuote(times(201, "n"), times(200, "n") + "...");
  expectQuote("n" + times(100, "\xc3\xa4"), "n" + times(99, "\xc3\xa4") + "...");
  expectQuote(times(51, "\xff"), times(50, "\\xff") + "...");
}

TEST_F(Check, NotesFailUnderStrictOnly) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("mimetype", "a/b"), "a/b");
  file.raw("dead");
  file.add(zipbytes::storedEntry("a", "x"), "x");
  folder.write("a.pkg", file.bytes());
  EXPECT_EQ(run({"check", "a.pkg"}).status, 0);
  EXPECT_NE(run({"check", "a.pkg"}).out.find("note dead-bytes"), std::string::npos);
  EXPECT_EQ(run({"check", "--strict", "a.pkg"}).status, 1);
}

TEST_F(Check, QuietTellsByTheStatusAlone) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("a", "x"), "x");
  folder.write("a.pkg", file.bytes());
  const auto finished = run({"--quiet", "check", "a.pkg"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out + finished.err, "");
}

TEST_F(Check, OneUnreadableFileDoesNotHideTheOthers) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("a", "x"), "x");
  folder.write("a.pkg", file.bytes());
  const auto finished = run({"check", "absent", "a.pkg"});
  EXPECT_EQ(finished.status, 3);
  EXPECT_NE(finished.out.find("a.pkg: error mimetype-missing"), std::string::npos);
  EXPECT_EQ(finished.err, "qcfpkg: cannot open absent: No such file or directory\n");
}

TEST_F(Check, ContainersOfTheSameMakeHaveNoFinding) {
  python(
      "import zipfile\n"
      "for name, kind in (('book.epub', 'application/epub+zip'),\n"
      "                   ('text.odt', 'application/vnd.oasis.opendocument.text')):\n"
      "    z = zipfile.ZipFile(name, 'w', zipfile.ZIP_DEFLATED)\n"
      "    z.writestr(zipfile.ZipInfo('mimetype'), kind)\n"
      "    z.writestr('META-INF/container.xml', '<container/>')\n"
      "    z.close()\n");
  expectNoFinding("book.epub");
  expectNoFinding("text.odt");
}

TEST_F(Check, WhatInfoZipWritesWithATypeFirstHasNoFinding) {
  folder.write("mimetype", "application/x-test");
  folder.write("a", "a");
  ASSERT_EQ(shell("zip -qX0 a.pkg mimetype && zip -q a.pkg a").status, 0);
  expectNoFinding("a.pkg");
}

// Most are plain archives, which have no type; beside that, what their remarks speak of and no
// more.
TEST_F(Check, FixturesHaveTheFindingsThatTheirRemarksSpeakOfAndNoOthers) {
  const std::map<std::string, std::string> kExpected{
      {"RustPython__Lib_test_archivetestdata_zip_cp437_header.zip",
       "mimetype-missing name-encoding"},
      {"ZIPFoundation__Tests_ZIPFoundationTests_Resources_"
       "testRemoveEntryWithZIP64ExtendedInformation.zip",
       "mimetype-missing zip64-needless"},
      {"dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_badzipfiles_invalidDeflate."
       "zip",
       "data-damaged mimetype-missing"},
      {"dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_badzipfiles_nameDuplicates."
       "zip",
       "mimetype-missing name-duplicate"},
      {"dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_compat_backslashes_"
       "FromWindows.zip",
       "mimetype-missing name-backslash"},
      {"epubcheck__src_test_resources_epub3_00-minimal_files_minimal.epub", ""},
      {"epubcheck__src_test_resources_epub3_04-ocf_files_ocf-mimetype-file-missing-error.epub",
       "mimetype-missing"},
      {"epubcheck__src_test_resources_epub3_04-ocf_files_ocf-zip-unreadable-no-end-header-fatal."
       "epub",
       "end-missing"},
      {"jszip__test_ref_all_appended_bytes.zip", "end-trailing-bytes mimetype-missing"},
      {"jszip__test_ref_all_prepended_bytes.zip", "leading-bytes mimetype-missing"},
      {"jszip__test_ref_archive_comment.zip", "mimetype-missing"},
      {"jszip__test_ref_complex_files_AntarcticaTemps.ods", ""},
      {"jszip__test_ref_invalid_crc32.zip", "data-crc mimetype-missing"},
      {"jszip__test_ref_nested_data_descriptor.zip", "mimetype-missing"},
      {"jszip__test_ref_utf8_in_name.zip", "mimetype-missing"},
      {"klauspost-compress__zip_testdata_go-no-datadesc-sig.zip",
       "descriptor-unsigned mimetype-missing"},
      {"klauspost-compress__zip_testdata_go-with-datadesc-sig.zip",
       "date-invalid mimetype-missing"},
      {"libzip__regress_data_incons-local-filename.zip", "local-name mimetype-missing"},
      {"libzip__regress_data_zip64.zip", "mimetype-missing"},
      {"readium__Tests_SharedTests_Fixtures_Format_epub-lcp-without-license.unknown",
       "mimetype-extra-field mimetype-not-first"},
      {"rubyzip__test_data_path_traversal_relative1.zip", "mimetype-missing name-parent"},
      {"rubyzip__test_data_path_traversal_tuzovakaoff_symlink.zip",
       "mimetype-missing name-file-and-folder symbolic-link"},
      {"yauzl__test_success_traditional-encryption.zip", "encrypted mimetype-missing"},
      {"yauzl__test_success_zip64.zip", "mimetype-missing zip64-needless"},
      {"zip2__tests_data_mimetype.zip", ""},
      {"zip2__tests_data_windows-7zip.zip", "mimetype-missing name-encoding"},
  };
  QCF_REQUIRE_FIXTURE("zip");
  std::size_t seen = 0;
  for (const auto& item : std::filesystem::directory_iterator(support::fixture("zip"))) {
    if (item.path().extension() == ".tsv") continue;
    const auto expected = kExpected.find(item.path().filename().string());
    ASSERT_NE(expected, kExpected.end()) << "nothing is known of " << item.path();
    ++seen;
    std::string ids;
    for (const std::string& id : findings(item.path().string()))
      ids += (ids.empty() ? "" : " ") + id;
    EXPECT_EQ(ids, expected->second) << item.path();
  }
  EXPECT_EQ(seen, kExpected.size());
}

class FaultsToldOnce : public Check {
protected:
  std::set<std::string> findingsIn(const zipbytes::Bytes& bytes) const {
    folder.write("a.pkg", bytes);
    return findings("a.pkg");
  }
  std::set<std::string> findingsIn(const zipbytes::File& file) const {
    return findingsIn(file.bytes());
  }
  static zipbytes::File healthy() {
    zipbytes::File file;
    file.add(zipbytes::storedEntry("mimetype", "a/b"), "a/b");
    return file;
  }
  static zipbytes::Entry misplaced(const std::string& name) {
    zipbytes::Entry entry = zipbytes::storedEntry(name, "x");
    entry.offset = 5;
    return entry;
  }
};

TEST_F(FaultsToldOnce, AnEntryThatTheDirectoryLooksForElsewhereIsNotDead) {
  const auto lost = [](const std::string& name) {
    return zipbytes::localHeader(zipbytes::storedEntry(name, "x")) + "x";
  };
  zipbytes::File file = healthy();
  file.raw(lost("e") + lost("f")).list(misplaced("e")).list(misplaced("f"));
  EXPECT_EQ(findingsIn(file), std::set<std::string>{"local-missing"});
  file = healthy();
  file.raw(lost("e") + "dead").list(misplaced("e"));
  EXPECT_EQ(findingsIn(file), (std::set<std::string>{"local-missing", "dead-bytes"}));
  file = healthy();
  file.raw(lost("e") + lost("hidden")).list(misplaced("e"));
  EXPECT_EQ(findingsIn(file),
            (std::set<std::string>{"local-missing", "dead-bytes", "hidden-entry"}));
}

TEST_F(FaultsToldOnce, ATypeThatTheDirectoryLooksForElsewhere) {
  zipbytes::File file;
  file.raw(zipbytes::localHeader(zipbytes::storedEntry("mimetype", "x")) + "x");
  file.list(misplaced("mimetype"));
  EXPECT_EQ(findingsIn(file), std::set<std::string>{"local-missing"});
}

TEST_F(FaultsToldOnce, ADescriptorThatDisagreesIsNotDead) {
  zipbytes::Entry entry = zipbytes::storedEntry("e", "x");
  entry.flags = 8;
  const std::string wrong = zipbytes::dataDescriptor(1, 2, 3);
  zipbytes::File file = healthy();
  file.add(entry, "x", wrong).add(zipbytes::storedEntry("f", "x"), "x");
  EXPECT_EQ(findingsIn(file), std::set<std::string>{"descriptor-missing"});
  file = healthy();
  file.add(entry, "x", wrong + std::string(20, 'd'));
  EXPECT_EQ(findingsIn(file), (std::set<std::string>{"descriptor-missing", "dead-bytes"}));
}

TEST_F(FaultsToldOnce, ADirectoryThatIsNowhereIsToldByWhatTheEndRecordSaysOfIt) {
  const zipbytes::File file = healthy();
  const auto ended = [&](const auto& change) {
    zipbytes::End end = file.end();
    end.directoryOffset -= 1 << 4;
    end.directorySize -= 1 << 4;
    change(end);
    return findingsIn(file.bytes(end));
  };
  EXPECT_EQ(ended([](auto&) {}), std::set<std::string>{"directory-missing"});
  EXPECT_EQ(ended([](auto& end) { end.disk = end.directoryDisk = 1; }),
            std::set<std::string>{"split"});
  EXPECT_EQ(ended([](auto& end) { end.directoryOffset = 0xFFFFFFFF; }),
            std::set<std::string>{"zip64-end-missing"});
}

TEST_F(FaultsToldOnce, AnEndRecordThatSendsToZip64InVainRecordsNoSize) {
  const zipbytes::File file = healthy();
  zipbytes::End end = file.end();
  end.directorySize = 0xFFFFFFFF;
  EXPECT_EQ(findingsIn(file.bytes(end)), std::set<std::string>{"zip64-end-missing"});
}

TEST_F(FaultsToldOnce, BytesInFrontMoveTheRecordsOfZip64) {
  const zipbytes::File file = healthy();
  const std::uint64_t place = file.offset() + file.directory().size();
  zipbytes::Zip64End zip64;
  zip64.entries = 1;
  zip64.directorySize = file.directory().size();
  zip64.directoryOffset = file.offset();
  const zipbytes::Bytes plain = file.bytes();
  const zipbytes::Bytes whole = plain.substr(0, place) + zipbytes::zip64EndRecord(zip64) +
                                zipbytes::zip64Locator(place) + plain.substr(place);
  EXPECT_EQ(findingsIn(whole), std::set<std::string>());
  EXPECT_EQ(findingsIn("head" + whole), std::set<std::string>{"leading-bytes"});
}

// Data that cannot be read is told by its entry, and what would be judged by it is not judged.
TEST_F(FaultsToldOnce, ATypeAndPropertiesThatCannotBeRead) {
  auto type = zipbytes::storedEntry("mimetype", "a/b");
  type.crc ^= 1;
  EXPECT_EQ(findingsIn(zipbytes::File().add(type, "a/b")),
            (std::set<std::string>{"data-crc", "mimetype-text"}));
  EXPECT_NE(run({"check", "a.pkg"}).out.find("the type cannot be read: the data's CRC is "),
            std::string::npos);
  const std::string document = "<no properties>";
  auto properties = zipbytes::storedEntry("META-INF/pkgproperties.xml", document);
  properties.crc ^= 1;
  EXPECT_EQ(findingsIn(healthy().add(properties, document)), std::set<std::string>{"data-crc"});
}

TEST_F(FaultsToldOnce, ATypeBeyondAllMeasureIsNotRead) {
  const std::string text = "a/" + std::string(2000, 'b');
  EXPECT_EQ(findingsIn(zipbytes::File().add(zipbytes::storedEntry("mimetype", text), text)),
            std::set<std::string>{"mimetype-text"});
  EXPECT_NE(run({"check", "a.pkg"}).out.find("it has 2002 bytes, and 1024 are the most"),
            std::string::npos);
}

TEST_F(FaultsToldOnce, AnExtraFieldOfTheLocalHeaderThatDoesNotEndWithABlock) {
  auto entry = zipbytes::storedEntry("e", "x");
  entry.localExtra = "odd";
  EXPECT_EQ(findingsIn(healthy().add(entry, "x")), std::set<std::string>{"extra-field"});
  EXPECT_NE(run({"check", "a.pkg"}).out.find("in the local header does not end with a block"),
            std::string::npos);
}

TEST_F(FaultsToldOnce, BytesBehindTheEndOfDeflatedData) {
  const std::string packed = zipbytes::storedDeflate("x") + "tail";
  EXPECT_EQ(findingsIn(healthy().add(zipbytes::deflatedEntry("e", "x", packed), packed)),
            std::set<std::string>{"data-damaged"});
  EXPECT_NE(run({"check", "a.pkg"}).out.find("4 bytes follow the end of the deflated data"),
            std::string::npos);
}

class CheckedNames : public Check {
protected:
  // What is found in a package of entries of these names, each with the entry.
  std::multimap<std::string, std::string> named(const std::vector<std::string>& names) const {
    zipbytes::File file;
    file.add(zipbytes::storedEntry("mimetype", "a/b"), "a/b");
    for (const std::string& name : names) {
      const std::string data = name.back() == '/' ? "" : "x";
      auto entry = zipbytes::storedEntry(name, data);
      entry.flags = 0x0800;
      file.add(entry, data);
    }
    folder.write("a.pkg", file.bytes());
    std::multimap<std::string, std::string> found;
    const auto json = nlohmann::json::parse(run({"check", "--json", "a.pkg"}).out);
    for (const auto& finding : json[0]["findings"])
      found.emplace(finding["id"], finding["entry"]);
    return found;
  }
  using Found = std::multimap<std::string, std::string>;
};

TEST_F(CheckedNames, CaseAloneTellsFoldersApart) {
  EXPECT_EQ(named({"A/x", "a/y"}), (Found{{"name-case", "a/y"}}));
  EXPECT_EQ(named({"A/x", "a/x", "a/z"}), (Found{{"name-case", "a/x"}}));
  EXPECT_EQ(named({"d/A/x", "d/a/", "e/a/"}), (Found{{"name-case", "d/a/"}}));
  EXPECT_EQ(named({"A/", "a"}), (Found{{"name-case", "a"}}));
  EXPECT_EQ(named({"a/", "a/x", "a/y", "b/X"}), Found());
}

TEST_F(CheckedNames, ControlsBeyondASCIIAndWhatTurnsTheWriting) {
  for (const std::string& name : {std::string("a\xc2\x85"), std::string("a\xe2\x80\xae"),
                                  std::string("a\xe2\x81\xa6"), std::string("a\xd8\x9c")}) {
    EXPECT_EQ(named({name}), (Found{{"name-control", name}}));
  }
  EXPECT_EQ(named({"caf\xc3\xa9", "\xe2\x80\x93"}), Found());
}

TEST_F(CheckedNames, WhatWindowsDoesNotTake) {
  for (const char* const name :
       {"CON", "nul.txt", "d/aux", "prn/x", "com1", "Lpt9.a.b", "dot.", "blank ", "d./x", "a<b",
        "a>b", "abc:d", "a\"b", "a|b", "a?b", "a*b"}) {
    EXPECT_EQ(named({name}), (Found{{"name-windows", name}})) << name;
  }
  EXPECT_EQ(named({"console", "com", "com0", "com10", "null.txt", ".hidden", "a b", "nul_"}),
            Found());
}

TEST_F(Check, KindsAsJSONAreTheSame) {
  const auto json = nlohmann::json::parse(must({"check", "--kinds", "--json"}));
  const std::string text = must({"check", "--kinds"});
  EXPECT_EQ(json.size(), static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
  EXPECT_EQ(json[0], nlohmann::json::parse(R"({"id": "mimetype-missing", "severity": "error",
      "advice": "set the type with: qcfpkg type PACKAGE TYPE"})"));
}

}  // namespace
