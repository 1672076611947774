#include <algorithm>
#include <filesystem>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "package/QCFPackage.h"

#include "golden/Readers.h"
#include "interop/Listing.h"
#include "support/Fixtures.h"
#include "support/Run.h"
#include "support/TempDir.h"
#include "support/ZipBytes.h"

// Packages of other programs, changed and saved by the library, and read by other programs again.

using interop::Listed;
using interop::Listing;
using support::TempDir;

namespace {

using Package = boost::shared_ptr<pkg::IPackage<>>;

constexpr auto kIn = std::ios_base::in;
constexpr auto kOut = std::ios_base::out;
constexpr auto kNew = kIn | kOut | std::ios_base::trunc;

// Who can list what saveAs makes of a fixture.
enum class Reader {
  Zipfile,
  ZipfileForBytes,  // zipfile refuses, until it is told that names are not UTF-8
  Libarchive,       // zipfile refuses; libarchive goes by the local headers
};

// What readers object to in a saved fixture, and why. They accept all others.
struct Departure {
  const char* why;
  std::string objections;
  Reader reader = Reader::Zipfile;
  void (*alter)(Listed& entry) = [](Listed&) {};  // what zipfile then finds of an entry
};
const std::map<std::string, Departure> kDepartures = {
    {"RustPython__Lib_test_archivetestdata_zip_cp437_header.zip",
     {"every name is said to be UTF-8", "zipfile refuses, bsdtar refuses, ziptool refuses",
      Reader::ZipfileForBytes}},
    {"zip2__tests_data_windows-7zip.zip",
     {"every name is said to be UTF-8",
      "unzip warns, zipfile refuses, bsdtar refuses, ziptool refuses", Reader::ZipfileForBytes}},
    {"dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_badzipfiles_"
     "nameDuplicates.zip",
     {"the first of two entries of one name is written twice, and the directory's size counts a "
      "record that was replaced",
      "unzip refuses, zipinfo refuses, zipfile refuses, 7z refuses, ziptool refuses",
      Reader::Libarchive}},
    {"jszip__test_ref_complex_files_AntarcticaTemps.ods",
     {"an empty deflated entry has a second local header behind its two bytes",
      "unzip refuses, bsdtar refuses, 7z refuses, ziptool refuses"}},
    {"libzip__regress_data_zip64.zip",
     {"the local header needs version 45 as before, the central one 20", "ziptool refuses"}},
    {"yauzl__test_success_traditional-encryption.zip",
     {"the central size of an encrypted stored entry counts the key's twelve bytes, the local one "
      "does not",
      "unzip refuses, zipfile refuses, bsdtar refuses, 7z refuses, ziptool refuses",
      Reader::Zipfile, [](Listed& entry) { entry.size += 12; }}},
    {"libzip__regress_data_incons-local-filename.zip",
     {"the local header gets the name of the central one", "", Reader::Zipfile,
      [](Listed& entry) {
        entry.readable = true;
        entry.data = "a";
      }}},
    {"dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_badzipfiles_invalidDeflate."
     "zip",
     {"nothing: the data was broken before", "unzip refuses, zipfile refuses, 7z refuses"}},
    {"jszip__test_ref_invalid_crc32.zip",
     {"nothing: the CRC was wrong before", "unzip refuses, zipfile warns, 7z refuses"}},
};

const Departure& departureOf(const std::string& file) {
  static const Departure none = {"", ""};
  const auto found = kDepartures.find(file);
  return found == kDepartures.end() ? none : found->second;
}

// Takes the mark of UTF-8 names out of every header of a package.
void unmarkNames(const std::string& path) {
  support::python(R"(
import struct, sys
with open(sys.argv[1], 'r+b') as file:
    package = bytearray(file.read())
    end = package.rindex(b'PK\5\6')
    count, _, at = struct.unpack_from('<HII', package, end + 10)
    for _ in range(count):
        lengths = struct.unpack_from('<HHH', package, at + 28)
        local, = struct.unpack_from('<I', package, at + 42)
        package[at + 9] &= ~8
        package[local + 7] &= ~8
        at += 46 + sum(lengths)
    file.seek(0)
    file.write(package)
)",
                  {path});
}

// What libarchive finds, by way of a tar file.
Listing listByLibarchive(const std::string& path) {
  const std::string tar =
      support::mustRun({{"bsdtar", "--format=pax", "-cf", "-", "@" + path}, {}, {}, {}});
  const TempDir folder;
  std::istringstream lines(support::python(R"(
import sys, tarfile, zlib
with tarfile.open(sys.argv[1]) as package:
    for member in package:
        data = package.extractfile(member).read()
        print(member.name, member.size, zlib.crc32(data), data.hex())
)",
                                           {folder.write("a.tar", tar)}));
  Listing listing;
  std::string data;
  for (Listed listed; lines >> listed.name >> listed.size >> listed.crc >> data;
       listing.push_back(listed)) {
    listed.readable = true;
    listed.data = interop::fromHex(data);
  }
  return listing;
}

Listing list(const std::string& path, Reader reader) {
  if (reader == Reader::Libarchive) return listByLibarchive(path);
  if (reader == Reader::ZipfileForBytes) unmarkNames(path);
  return interop::listByPython(path);
}

// The data of every entry as it lies in the file, found through the directory.
std::vector<std::string> storedBytes(const std::string& path) {
  std::istringstream lines(support::python(R"(
import struct, sys
package = open(sys.argv[1], 'rb').read()
end = package.rindex(b'PK\5\6')
count, _, at = struct.unpack_from('<HII', package, end + 10)
for _ in range(count):
    size, = struct.unpack_from('<I', package, at + 20)
    local, = struct.unpack_from('<I', package, at + 42)
    data = local + 30 + sum(struct.unpack_from('<HH', package, local + 26))
    print('=' + package[data:data + size].hex())
    at += 46 + sum(struct.unpack_from('<HHH', package, at + 28))
)",
                                           {path}));
  std::vector<std::string> all;
  for (std::string data; lines >> data;)
    all.push_back(interop::fromHex(data.substr(1)));
  return all;
}

void expectSame(const Listing& expected, const Listing& actual) {
  ASSERT_EQ(expected.size(), actual.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    SCOPED_TRACE(expected[i].name);
    EXPECT_EQ(expected[i].name, actual[i].name);
    EXPECT_EQ(expected[i].size, actual[i].size);
    EXPECT_EQ(expected[i].crc, actual[i].crc);
    EXPECT_EQ(expected[i].readable, actual[i].readable);
    EXPECT_EQ(expected[i].data, actual[i].data);
  }
}

// The first of several entries of one name stands for all of them.
void takeTheFirstForAll(Listing& listing) {
  for (Listed& entry : listing) {
    entry = *std::find_if(listing.begin(), listing.end(),
                          [&](const Listed& other) { return other.name == entry.name; });
  }
}

void dropEntry(Listing& listing, const std::string& name) {
  listing.erase(std::remove_if(listing.begin(), listing.end(),
                               [&](const Listed& entry) { return entry.name == name; }),
                listing.end());
}

enum class Way { IntoAnotherFile, InPlace, OnItself };

enum class Change { AddAndReplace, AddAndRemove };

struct NewEntry {
  std::string name;
  std::string data;
  pkg::CompressionMethod method;
};

void write(pkg::IPackage<>& package, const NewEntry& entry) {
  const auto file = package.getFile(entry.name, false);
  file->setCompressionMethod(entry.method);
  const auto stream = file->open(kOut, false);
  stream->exceptions(std::ios_base::badbit);
  stream->write(entry.data.data(), static_cast<std::streamsize>(entry.data.size()));
  stream->close();
}

Listed listed(const NewEntry& entry) {
  return {entry.name, static_cast<long long>(entry.data.size()), zipbytes::crc32(entry.data), true,
          entry.data};
}

std::string prose() {
  std::string text;
  for (int line = 0; line < 500; ++line)
    text += "line " + std::to_string(line * 7919 % 1009) + " of a text\n";
  return text;
}

class RoundTrips : public testing::TestWithParam<std::string> {
protected:
  void SetUp() override {
    QCF_REQUIRE_FIXTURE("zip/" + GetParam());
    std::filesystem::copy_file(support::fixture("zip/" + GetParam()), fCopy);
    fBefore = before();
  }
  Package open() const {
    return pkg::QCFPackageFactory().openPackage(fCopy, kIn | kOut, nullptr, nullptr, nullptr);
  }
  // What zipfile finds in the fixture.
  const Listing& before() const {
    static std::map<std::string, Listing> known;
    const auto found = known.find(GetParam());
    if (found != known.end()) return found->second;
    return known[GetParam()] = interop::listByPython(fCopy);
  }
  // A file that a path leads to, the first or the last; empty where no path does.
  std::string someFile(pkg::IPackage<>& package, bool first) const {
    std::string found;
    for (const Listed& entry : fBefore) {
      auto kind = pkg::PkgEntryNone;
      const auto leadsOutside = support::raised([&] { kind = package.entryExists(entry.name); });
      if (leadsOutside == support::misuse(22) || kind != pkg::PkgEntryFile) continue;
      found = entry.name;
      if (first) break;
    }
    return found;
  }
  // What zipfile finds in it after saveAs, of what was there.
  Listing saved(Listing entries) const {
    takeTheFirstForAll(entries);
    std::for_each(entries.begin(), entries.end(), departureOf(GetParam()).alter);
    return entries;
  }
  void changeAndCheck(Way way, Change change);

  TempDir fFolder;
  std::string fCopy = (fFolder / "copy.zip").string();
  std::string fNew = (fFolder / "new.zip").string();
  Listing fBefore;
};

// The fixtures that open.
const std::vector<std::string> kFixtures = {
    "RustPython__Lib_test_archivetestdata_zip_cp437_header.zip",
    "dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_badzipfiles_invalidDeflate.zip",
    "dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_badzipfiles_nameDuplicates.zip",
    "dotnet-assets__src_System.IO.Compression.TestData_ZipTestData_compat_"
    "backslashes_FromWindows.zip",
    "epubcheck__src_test_resources_epub3_00-minimal_files_minimal.epub",
    "epubcheck__src_test_resources_epub3_04-ocf_files_ocf-mimetype-file-missing-error.epub",
    "jszip__test_ref_all_appended_bytes.zip",
    "jszip__test_ref_archive_comment.zip",
    "jszip__test_ref_complex_files_AntarcticaTemps.ods",
    "jszip__test_ref_invalid_crc32.zip",
    "jszip__test_ref_nested_data_descriptor.zip",
    "jszip__test_ref_utf8_in_name.zip",
    "klauspost-compress__zip_testdata_go-no-datadesc-sig.zip",
    "klauspost-compress__zip_testdata_go-with-datadesc-sig.zip",
    "libzip__regress_data_incons-local-filename.zip",
    "libzip__regress_data_zip64.zip",
    "readium__Tests_SharedTests_Fixtures_Format_epub-lcp-without-license.unknown",
    "rubyzip__test_data_path_traversal_relative1.zip",
    "rubyzip__test_data_path_traversal_tuzovakaoff_symlink.zip",
    "yauzl__test_success_traditional-encryption.zip",
    "zip2__tests_data_mimetype.zip",
    "zip2__tests_data_windows-7zip.zip",
};

void RoundTrips::changeAndCheck(Way way, Change change) {
  const NewEntry added = {"added/new.txt", "an entry that was not there", pkg::CompressionStored};
  Package package = open();
  const bool replaces = change == Change::AddAndReplace;
  const std::string name = someFile(*package, replaces);
  const NewEntry replaced = {name, prose(), pkg::CompressionDeflated};
  // In place, an entry is changed beforehand; otherwise inside the update, which must not find it.
  const bool found = !name.empty();
  if (found && (!replaces || way != Way::InPlace)) package->getFile(name, true)->remove();

  if (way == Way::IntoAnotherFile && replaces) package->beginUpdate(fNew, kNew);
  if (way == Way::OnItself) package->beginUpdate();
  if (found && replaces) write(*package, replaced);
  write(*package, added);
  if (way == Way::InPlace) {
    package->doUNSAFEUpdateInPlace();
  } else if (way == Way::IntoAnotherFile && !replaces) {
    package->saveAs(fNew, kNew);
  } else {
    package->endUpdate();
  }
  package.reset();

  Listing expected;
  if (way != Way::OnItself) expected = fBefore;
  dropEntry(expected, name);
  if (way == Way::IntoAnotherFile) expected = saved(expected);
  if (found && replaces) expected.push_back(listed(replaced));
  expected.push_back(listed(added));
  const std::string& path = way == Way::IntoAnotherFile ? fNew : fCopy;
  // Libarchive is only for the two entries of one name, of which none is left.
  const Reader reader = departureOf(GetParam()).reader;
  expectSame(expected, list(path, reader == Reader::Libarchive ? Reader::Zipfile : reader));
}

std::string testName(const testing::TestParamInfo<std::string>& info) {
  std::string name = info.param;
  std::replace_if(
      name.begin(), name.end(),
      [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
  return name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(All, RoundTrips, testing::ValuesIn(kFixtures), testName);

TEST_P(RoundTrips, ASavedPackageHoldsTheSameEntriesAndTheSameBytes) {
  open()->saveAs(fNew, kNew);

  const Departure& departure = departureOf(GetParam());
  EXPECT_EQ(departure.objections, golden::objections(support::readFile(fNew))) << departure.why;
  if (departure.reader != Reader::Libarchive) {
    std::vector<std::string> stored = storedBytes(fCopy);
    // An empty entry is recorded without the two bytes that deflate needs to say so.
    std::replace(stored.begin(), stored.end(), std::string("\x03\0", 2), std::string());
    EXPECT_TRUE(stored == storedBytes(fNew));
  }
  expectSame(saved(fBefore), list(fNew, departure.reader));
}

TEST_P(RoundTrips, AnEntryAddedAndAnotherReplacedAreSavedIntoAnotherFile) {
  changeAndCheck(Way::IntoAnotherFile, Change::AddAndReplace);
}
TEST_P(RoundTrips, AnEntryAddedAndAnotherRemovedAreSavedIntoAnotherFile) {
  changeAndCheck(Way::IntoAnotherFile, Change::AddAndRemove);
}
TEST_P(RoundTrips, AnEntryAddedAndAnotherReplacedAreSavedInPlace) {
  changeAndCheck(Way::InPlace, Change::AddAndReplace);
}
TEST_P(RoundTrips, AnEntryAddedAndAnotherRemovedAreSavedInPlace) {
  changeAndCheck(Way::InPlace, Change::AddAndRemove);
}
TEST_P(RoundTrips, OfAnUpdateOnTheFileItselfOnlyWhatIsWrittenIsListed) {
  changeAndCheck(Way::OnItself, Change::AddAndReplace);
}

TEST(RoundTripsOf, EveryFixtureThatOpensAreMade) {
  QCF_REQUIRE_FIXTURE("zip");
  std::vector<std::string> open;
  for (const auto& entry : std::filesystem::directory_iterator(support::fixture("zip"))) {
    const auto failure = support::raised([&] {
      pkg::QCFPackageFactory().openPackage(entry.path().string(), kIn, nullptr, nullptr, nullptr);
    });
    if (failure == support::nothing()) open.push_back(entry.path().filename().string());
  }
  std::vector<std::string> tried = kFixtures;
  std::sort(open.begin(), open.end());
  std::sort(tried.begin(), tried.end());
  EXPECT_EQ(open, tried);
}
