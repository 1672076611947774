#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iterator>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"

#include "interop/Listing.h"
#include "support/Fixtures.h"
#include "support/Raised.h"
#include "support/Run.h"

using interop::Listing;

namespace {

constexpr auto kIn = std::ios_base::in;

struct Fixture {
  const char* file;
  const char* why;
  int refusal;      // the number that opening raises; -1: it opens
  int conformance;  // of one that opens

  friend std::ostream& operator<<(std::ostream& out, const Fixture& fixture) {
    return out << fixture.why;
  }
};

constexpr int kOpens = -1;
constexpr int kConforming = 0;
constexpr int kInvalid = 46;
constexpr int kMissing = 47;

const std::vector<Fixture> kFixtures = {
    {"RustPython__Lib_test_archivetestdata_zip_cp437_header.zip", "names are bytes", kOpens,
     kMissing},
    {"ZIPFoundation__Tests_ZIPFoundationTests_Resources_"
     "testRemoveEntryWithZIP64ExtendedInformation.zip",
     "the directory's offset is in Zip64 records only", 2, 0},
    {"dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_badzipfiles_invalidDeflate.zip",
     "only reading shows broken data", kOpens, kMissing},
    {"dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_badzipfiles_"
     "nameDuplicates.zip",
     "both records stay", kOpens, kMissing},
    {"dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_compat_"
     "backslashes_FromWindows.zip",
     "a backslash is a character", kOpens, kMissing},
    {"epubcheck__src_test_resources_epub3_00-minimal_files_minimal.epub", "type first, stored",
     kOpens, kConforming},
    {"epubcheck__src_test_resources_epub3_04-ocf_files_ocf-mimetype-file-missing-error.epub",
     "no type", kOpens, kMissing},
    {"epubcheck__src_test_resources_epub3_04-ocf_files_ocf-zip-unreadable-no-end-header-fatal.epub",
     "no end record", 11, 0},
    {"jszip__test_ref_all_appended_bytes.zip", "the scan finds the record", kOpens, kMissing},
    {"jszip__test_ref_all_prepended_bytes.zip", "does not begin with a local header", 20, 0},
    {"jszip__test_ref_archive_comment.zip", "the scan finds the record", kOpens, kMissing},
    {"jszip__test_ref_complex_files_AntarcticaTemps.ods", "type first, stored", kOpens,
     kConforming},
    {"jszip__test_ref_invalid_crc32.zip", "no CRC is checked", kOpens, kMissing},
    {"jszip__test_ref_nested_data_descriptor.zip", "the last end record counts", kOpens, kMissing},
    {"jszip__test_ref_utf8_in_name.zip", "names are bytes", kOpens, kMissing},
    {"klauspost-compress__zip_testdata_go-no-datadesc-sig.zip", "descriptors are not read", kOpens,
     kMissing},
    {"klauspost-compress__zip_testdata_go-with-datadesc-sig.zip", "descriptors are not read",
     kOpens, kMissing},
    {"libzip__regress_data_incons-local-filename.zip", "the central name counts", kOpens, kMissing},
    {"libzip__regress_data_zip64.zip", "the end record says it all", kOpens, kMissing},
    {"readium__Tests_SharedTests_Fixtures_Format_epub-lcp-without-license.unknown",
     "type not first", kOpens, kInvalid},
    {"rubyzip__test_data_path_traversal_relative1.zip", "a name is a key as it stands", kOpens,
     kMissing},
    {"rubyzip__test_data_path_traversal_tuzovakaoff_symlink.zip", "attributes are not looked at",
     kOpens, kMissing},
    {"yauzl__test_success_traditional-encryption.zip", "flags are not looked at", kOpens, kMissing},
    {"yauzl__test_success_zip64.zip", "the directory's offset is in Zip64 records only", 2, 0},
    {"zip2__tests_data_mimetype.zip", "type first, stored", kOpens, kConforming},
    {"zip2__tests_data_windows-7zip.zip", "names are bytes", kOpens, kMissing},
};

// Entries that other programs refuse, and what the library gives instead of their data.
struct Exception {
  const char* why;
  std::string bytes;
};
const std::map<std::pair<std::string, std::string>, Exception> kExceptions = {
    {{"jszip__test_ref_invalid_crc32.zip", "Hello.txt"}, {"no CRC is checked", "Hello World\n"}},
    {{"libzip__regress_data_incons-local-filename.zip", "a"}, {"the central name counts", "a"}},
};

boost::shared_ptr<pkg::IPackage<>> open(const std::string& file,
                                        const pkg::IPkgPolicies* policies = nullptr) {
  return pkg::QCFPackageFactory().openPackage(support::fixture("zip/" + file).string(), kIn,
                                              nullptr, policies, nullptr);
}

class Refusing : public pkg::IPkgPolicies {
public:
  std::int32_t getPolicy(Policies policy) const override {
    return policy == PolicyConformance ? 2 : 0;
  }
};

class Fixtures : public testing::TestWithParam<Fixture> {
protected:
  void SetUp() override {
    QCF_REQUIRE_FIXTURE("zip");
    ASSERT_TRUE(std::filesystem::exists(support::fixture(path()))) << path();
  }
  std::string path() const { return std::string("zip/") + GetParam().file; }
};

// Those that open.
class OpenFixtures : public Fixtures {};

std::vector<Fixture> openFixtures() {
  std::vector<Fixture> open;
  std::copy_if(kFixtures.begin(), kFixtures.end(), std::back_inserter(open),
               [](const Fixture& fixture) { return fixture.refusal == kOpens; });
  return open;
}

std::string fixtureName(const testing::TestParamInfo<Fixture>& info) {
  std::string name = info.param.file;
  for (char& c : name)
    c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  return name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(All, Fixtures, testing::ValuesIn(kFixtures), fixtureName);
INSTANTIATE_TEST_SUITE_P(All, OpenFixtures, testing::ValuesIn(openFixtures()), fixtureName);

TEST_P(Fixtures, OpenOrAreRefusedWithTheirNumber) {
  EXPECT_EQ(GetParam().refusal, support::raised([&] { open(GetParam().file); }).code)
      << GetParam().why;
}

TEST_P(OpenFixtures, TellHowTheyConform) {
  EXPECT_EQ(GetParam().conformance, open(GetParam().file)->checkConformance()) << GetParam().why;
  const Refusing refuse;
  const int code = support::raised([&] { open(GetParam().file, &refuse); }).code;
  EXPECT_EQ(GetParam().conformance == kConforming ? -1 : GetParam().conformance, code);
}

TEST_P(OpenFixtures, HoldWhatAnIndependentReaderFinds) {
  const auto package = open(GetParam().file);
  const Listing ours = interop::listByWalking(*package);
  const Listing theirs = interop::listByPython(support::fixture(path()).string());
  ASSERT_EQ(theirs.size(), ours.size());
  for (std::size_t i = 0; i < theirs.size(); ++i) {
    SCOPED_TRACE(theirs[i].name);
    EXPECT_EQ(theirs[i].name, ours[i].name);
    EXPECT_EQ(theirs[i].size, ours[i].size);
    EXPECT_EQ(theirs[i].crc, ours[i].crc);
    if (theirs[i].readable) {
      EXPECT_TRUE(ours[i].readable);
      // Of two records of one name, the first is the entry.
      const auto first = std::find_if(theirs.begin(), theirs.end(), [&](const auto& entry) {
        return entry.name == theirs[i].name;
      });
      EXPECT_EQ(first->data, ours[i].data);
      continue;
    }
    const auto exception = kExceptions.find({GetParam().file, theirs[i].name});
    if (exception == kExceptions.end()) continue;  // has a test of its own below
    EXPECT_TRUE(ours[i].readable) << exception->second.why;
    EXPECT_EQ(exception->second.bytes, ours[i].data) << exception->second.why;
  }
}

TEST_P(OpenFixtures, GiveTheSameBytesByPathAndInPieces) {
  const auto package = open(GetParam().file);
  for (const auto& entry : interop::listByWalking(*package)) {
    if (!entry.readable || entry.name.back() == '/' ||
        package->entryExists(entry.name) != pkg::PkgEntryFile) {
      continue;
    }
    const auto stream = package->getFile(entry.name, true)->open(kIn, false);
    std::string pieces;
    char piece[7];
    for (;;) {
      stream->read(piece, sizeof piece);
      if (stream->gcount() == 0) break;
      pieces.append(piece, static_cast<std::size_t>(stream->gcount()));
    }
    EXPECT_EQ(entry.data, pieces) << entry.name;
  }
}

TEST(FixtureFolder, HoldsNoFileWithoutAnExpectation) {
  QCF_REQUIRE_FIXTURE("zip");
  std::set<std::string> expected;
  for (const Fixture& fixture : kFixtures)
    expected.insert(fixture.file);
  for (const auto& entry : std::filesystem::directory_iterator(support::fixture("zip"))) {
    if (entry.path().extension() == ".tsv") continue;
    EXPECT_EQ(1u, expected.count(entry.path().filename().string())) << entry.path();
  }
}

TEST(SingleFixture, BrokenDeflatedDataRaises31) {
  const std::string file =
      "dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_badzipfiles_"
      "invalidDeflate.zip";
  QCF_REQUIRE_FIXTURE("zip/" + file);
  const auto package = open(file);
  const auto stream = package->getFile("text.txt", true)->open(kIn, false);
  stream->exceptions(std::ios_base::badbit);
  EXPECT_EQ(support::misuse(31), support::raised([&] { interop::readAll(*stream); }));
}

TEST(SingleFixture, AnEncryptedEntryIsReadAsItIsStored) {
  const std::string file = "yauzl__test_success_traditional-encryption.zip";
  QCF_REQUIRE_FIXTURE("zip/" + file);
  const auto package = open(file);
  const auto entry = package->getFile("a.txt", true);
  EXPECT_EQ(6, entry->getSize64());
  const std::string bytes = support::readFile(support::fixture("zip/" + file));
  const std::size_t start =
      30u + static_cast<unsigned char>(bytes[26]) + static_cast<unsigned char>(bytes[28]);
  EXPECT_EQ(bytes.substr(start, 18), interop::readAll(*entry->open(kIn, false)));
}

TEST(SingleFixture, CommentsAreFound) {
  const std::string file = "jszip__test_ref_archive_comment.zip";
  QCF_REQUIRE_FIXTURE("zip/" + file);
  EXPECT_EQ("file comment", open(file)->getProperty(pkg::QCFPropertyPackageComment));
}

TEST(SingleFixture, ANameThatLeadsOutsideIsNotReachedByAPath) {
  const std::string file = "rubyzip__test_data_path_traversal_relative1.zip";
  QCF_REQUIRE_FIXTURE("zip/" + file);
  const auto package = open(file);
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("tmp/../../moo"));
  EXPECT_EQ(pkg::PkgEntryNone, package->entryExists("moo"));
  EXPECT_EQ("tmp/../../moo", interop::listByWalking(*package).at(1).name);
}

TEST(SingleFixture, TypesAreRead) {
  QCF_REQUIRE_FIXTURE("zip");
  EXPECT_EQ(
      "application/epub+zip",
      open("epubcheck__src_test_resources_epub3_00-minimal_files_minimal.epub")->getMIMEType());
  EXPECT_EQ("application/vnd.oasis.opendocument.spreadsheet",
            open("jszip__test_ref_complex_files_AntarcticaTemps.ods")->getMIMEType());
  EXPECT_EQ("application/epub+zip",
            open("readium__Tests_SharedTests_Fixtures_Format_epub-lcp-without-license.unknown")
                ->getMIMEType());
}
