#include <fstream>

#include "Program.h"
#include "support/Fixtures.h"

namespace {

class Check : public Qcfpkg {
protected:
  std::vector<std::string> findings(const std::string& path) const {
    const auto finished = run({"check", "--json", path});
    std::vector<std::string> ids;
    const auto json = nlohmann::json::parse(finished.out);
    for (const auto& finding : json[0]["findings"]) {
      ids.push_back(finding["id"]);
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

TEST_F(Check, FixturesHaveTheFindingsThatTheirRemarksSpeakOf) {
  // Beside these, most are plain archives, which have no type.
  const std::map<std::string, std::string> kExpected{
      {"epubcheck__src_test_resources_epub3_00-minimal_files_minimal.epub", ""},
      {"epubcheck__src_test_resources_epub3_04-ocf_files_ocf-mimetype-file-missing-error.epub",
       "mimetype-missing"},
      {"readium__Tests_SharedTests_Fixtures_Format_epub-lcp-without-license.unknown",
       "mimetype-not-first"},
      {"jszip__test_ref_complex_files_AntarcticaTemps.ods", ""},
      {"zip2__tests_data_mimetype.zip", ""},
      {"yauzl__test_success_zip64.zip", "zip64-needless"},
      {"klauspost-compress__zip_testdata_go-no-datadesc-sig.zip", "descriptor-unsigned"},
      {"RustPython__Lib_test_archivetestdata_zip_cp437_header.zip", "name-encoding"},
      {"dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_compat_backslashes_"
       "FromWindows.zip",
       "name-backslash"},
      {"jszip__test_ref_all_prepended_bytes.zip", "leading-bytes"},
      {"jszip__test_ref_all_appended_bytes.zip", "end-trailing-bytes"},
      {"epubcheck__src_test_resources_epub3_04-ocf_files_ocf-zip-unreadable-no-end-header-fatal."
       "epub",
       "end-missing"},
      {"jszip__test_ref_invalid_crc32.zip", "data-crc"},
      {"dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_badzipfiles_invalidDeflate."
       "zip",
       "data-damaged"},
      {"libzip__regress_data_incons-local-filename.zip", "local-name"},
      {"rubyzip__test_data_path_traversal_relative1.zip", "name-parent"},
      {"rubyzip__test_data_path_traversal_tuzovakaoff_symlink.zip", "symbolic-link"},
      {"dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_badzipfiles_nameDuplicates."
       "zip",
       "name-duplicate"},
      {"yauzl__test_success_traditional-encryption.zip", "encrypted"},
      {"jszip__test_ref_utf8_in_name.zip", "mimetype-missing"},
      {"jszip__test_ref_archive_comment.zip", "mimetype-missing"},
      {"libzip__regress_data_zip64.zip", "mimetype-missing"},
      {"klauspost-compress__zip_testdata_go-with-datadesc-sig.zip", "mimetype-missing"},
      {"jszip__test_ref_nested_data_descriptor.zip", "mimetype-missing"},
  };
  for (const auto& [name, id] : kExpected) {
    QCF_REQUIRE_FIXTURE("zip/" + name);
    const auto ids = findings(support::fixture("zip/" + name).string());
    if (id.empty()) {
      EXPECT_TRUE(ids.empty()) << name << " " << ids.front();
    } else {
      EXPECT_NE(std::find(ids.begin(), ids.end(), id), ids.end()) << name << " lacks " << id;
    }
  }
}

}  // namespace
