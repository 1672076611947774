#include "Program.h"
#include "support/Fixtures.h"

// Packages of other programs are changed without loss, or not at all.

namespace {

class ForeignPackages : public Qcfpkg {
protected:
  // Adds an entry and compares what was there before and after.
  void expectKept(const std::string& package) const {
    const auto before = read(package);
    folder.write("new", "new");
    must({"add", package, "zz-new=new"});
    auto after = read(package);
    EXPECT_EQ(after.back()["name"], "zz-new");
    after.pop_back();
    ASSERT_EQ(after.size(), before.size()) << package;
    for (std::size_t i = 0; i < after.size(); ++i) {
      for (const char* const key : {"name", "data", "date", "system", "attributes", "comment"}) {
        EXPECT_EQ(after[i].at(key), before[i].at(key)) << package << " " << key;
      }
    }
    expectSound(package);
  }

  // By name, what python3 reads in each record, without Zip64, and the data as it is stored.
  Contents records(const std::string& package) const {
    static const char* const kScript = R"(
import struct, sys, zipfile
data = open(sys.argv[1], 'rb').read()
def blocks(extra):
    while len(extra) >= 4:
        kind, size = struct.unpack('<HH', extra[:4])
        if kind != 1: yield extra[:4 + size].hex()
        extra = extra[4 + size:]
for i in zipfile.ZipFile(sys.argv[1]).infolist():
    n, m = struct.unpack('<HH', data[i.header_offset + 26:i.header_offset + 30])
    start = i.header_offset + 30 + n + m
    record = str((i.comment, i.CRC, i.file_size, i.date_time, i.create_system,
        i.external_attr, list(blocks(i.extra)), i.flag_bits & 1,
        (i.compress_type, data[start:start + i.compress_size]) if i.file_size else None))
    print('name %s. record %s.' % (i.filename.encode().hex(), record.encode().hex()))
)";
    Contents records;
    for (Fields& entry : entriesOf(support::python(kScript, {package}, folder.path())))
      records[entry["name"]] = entry["record"];
    return records;
  }
};

TEST_F(ForeignPackages, UnixAttributesAndCommentsStay) {
  python(
      "import zipfile\n"
      "z = zipfile.ZipFile('a.zip', 'w', zipfile.ZIP_DEFLATED)\n"
      "i = zipfile.ZipInfo('script', (2001, 2, 3, 4, 5, 6)); i.external_attr = 0o100755 << 16\n"
      "i.comment = b'a remark'; i.extra = b'\\x55\\x54\\x05\\x00\\x01abcd'\n"
      "z.writestr(i, 'data' * 100)\n"
      "l = zipfile.ZipInfo('link'); l.external_attr = 0o120777 << 16; z.writestr(l, 'script')\n"
      "z.close()\n");
  expectKept("a.zip");
  EXPECT_EQ(read("a.zip")[0].at("extra"),
            "5554050001"
            "61626364");
  EXPECT_NE(support::run({{"zipinfo", "a.zip"}, {}, folder.path(), {}}).out.find("-rwxr-xr-x"),
            std::string::npos);
}

TEST_F(ForeignPackages, NamesThatAreNoUTF8Stay) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("caf\x82", "x"), "x");  // in the code page of old
  folder.write("a.zip", file.bytes());
  expectKept("a.zip");
  EXPECT_EQ(read("a.zip")[0].at("name"), "caf\xc3\xa9");
}

TEST_F(ForeignPackages, Zip64BlocksBesideSmallNumbersAreNoHindrance) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("mimetype", "a/b"), "a/b");
  auto entry = zipbytes::storedEntry("e", "12345");
  entry.centralExtra = zipbytes::zip64Block({5, 5});
  entry.localExtra = zipbytes::zip64Block({5, 5});
  entry.versionMadeBy = 0x031e;
  entry.externalAttributes = 0100640u << 16;
  file.add(entry, "12345");
  folder.write("a.zip", file.bytes());
  expectKept("a.zip");
  expectNoFinding("a.zip");
}

TEST_F(ForeignPackages, Zip64OfOtherProgramsIsNoHindrance) {
  for (const char* const name :
       {"yauzl__test_success_zip64.zip", "libzip__regress_data_zip64.zip",
        "ZIPFoundation__Tests_ZIPFoundationTests_Resources_testRemoveEntryWithZIP64Extended"
        "Information.zip"}) {
    QCF_REQUIRE_FIXTURE(std::string("zip/") + name);
    std::filesystem::copy_file(support::fixture(std::string("zip/") + name), folder / name);
    expectKept(name);
  }
}

TEST_F(ForeignPackages, EmptyEntriesThatWereDeflatedLeaveNoDeadBytes) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("mimetype", "a/b"), "a/b");
  file.add(zipbytes::deflatedEntry("empty", "", "\3" + std::string(1, '\0')),
           "\3" + std::string(1, '\0'));
  folder.write("a.zip", file.bytes());
  expectKept("a.zip");
  expectNoFinding("a.zip");
}

// Comments, attributes, extra fields, other methods and encryption of entries whose records have to
// be written anew, and of those beside them.
TEST_F(ForeignPackages, WritingRecordsAnewLosesNothing) {
  const std::string deflatedNothing("\3\0", 2);
  zipbytes::File file;
  auto type = zipbytes::storedEntry("mimetype", "a/b");
  type.comment = "first";
  file.add(type, "a/b");
  auto empty = zipbytes::deflatedEntry("empty", "", deflatedNothing);
  empty.flags = 8;  // and a descriptor
  empty.comment = "a remark";
  empty.versionMadeBy = 0x031e;
  empty.externalAttributes = 0100640u << 16;
  empty.centralExtra = zipbytes::extraBlock(0x7875, "\1\1\0\1\0") + zipbytes::zip64Block({2}) +
                       zipbytes::extraBlock(0x9999, "what is it?");
  empty.compressedSize = 0xFFFFFFFF;
  file.add(empty, deflatedNothing + "PK\7\10" + std::string(4, '\0') + zipbytes::u32(2) +
                      zipbytes::u32(0));
  auto folder64 = zipbytes::deflatedEntry("folder/", "", deflatedNothing);
  folder64.comment = "of a folder";
  file.add(folder64, deflatedNothing);
  auto locked = zipbytes::storedEntry("locked", "twelve bytes and more");
  locked.flags = 1;
  locked.comment = "of what is locked";
  file.add(locked, "twelve bytes and more");
  auto strange = zipbytes::storedEntry("strange", "12345");
  strange.method = 97;
  strange.centralExtra = zipbytes::zip64Block({5, 5});
  strange.comment = "of a strange one";
  file.add(strange, "12345");
  file.add(zipbytes::storedEntry("gone", "x"), "x").raw("dead bytes");
  folder.write("a.zip", file.bytes());
  folder.write("new", "new");
  const auto before = records("a.zip");
  const std::vector<std::vector<std::string>> kChanges{{"add", "a.zip", "zz-new=new"},
                                                       {"remove", "a.zip", "gone"},
                                                       {"comment", "a.zip", "c"},
                                                       {"type", "a.zip", "x/y"},
                                                       {"--quiet", "compact", "a.zip"}};
  for (const auto& change : kChanges) {
    folder.write("a.zip", file.bytes());
    must(change);
    auto after = records("a.zip");
    auto expected = before;
    const std::string touched = change[0] == "add"      ? "zz-new"
                                : change[0] == "remove" ? "gone"
                                : change[0] == "type"   ? "mimetype"
                                                        : "";
    expected.erase(touched);
    after.erase(touched);
    EXPECT_EQ(after, expected) << change[0];
    EXPECT_EQ(folder.read("a.zip").find(deflatedNothing + "PK\7\10"), std::string::npos)
        << change[0];
  }
}

TEST_F(ForeignPackages, StreamedEntriesKeepTheirData) {
  ASSERT_EQ(
      shell("printf abc | zip -q a.zip - && printf '@ -\\n@=piped\\n' | zipnote -w a.zip").status,
      0);
  expectKept("a.zip");
}

TEST_F(ForeignPackages, EncryptedAndStrangelyPackedEntriesAreCarriedAlong) {
  python(
      "import zipfile\n"
      "z = zipfile.ZipFile('a.zip', 'w')\n"
      "z.writestr('b', 'data' * 1000, zipfile.ZIP_BZIP2)\n"
      "z.close()\n");
  expectKept("a.zip");
  folder.write("s", "secret");
  ASSERT_EQ(shell("zip -q -P key e.zip s").status, 0);
  must({"comment", "e.zip", "c"});
  const auto unzip = support::run({{"unzip", "-pP", "key", "e.zip"}, {}, folder.path(), {}});
  EXPECT_EQ(unzip.out, "secret") << unzip.err;
}

TEST_F(ForeignPackages, WhatCannotBeKeptIsRefusedAndLeftAsItIs) {
  const auto entry = [](const std::string& name) { return zipbytes::storedEntry(name, "x"); };
  std::map<std::string, std::string> refused;
  refused["it has no entries; make it anew with: qcfpkg create --overwrite"] =
      zipbytes::File().bytes();
  refused["two entries are named e"] =
      zipbytes::File().add(entry("e"), "x").add(entry("e"), "x").bytes();
  refused["bytes stand in front"] = "#!" + zipbytes::File().add(entry("e"), "x").bytes();
  auto locked = zipbytes::deflatedEntry("e", "", "twelve bytes");
  locked.flags = 1;
  refused["e would lose its encryption"] = zipbytes::File().add(locked, "twelve bytes").bytes();
  auto odd = entry("e");
  odd.centralExtra = "odd";
  refused["e would lose its extra field"] = zipbytes::File().add(odd, "x").bytes();
  auto cut = entry("e");
  cut.size = cut.compressedSize = 1000;
  refused["the data of e is cut off"] = zipbytes::File().add(cut, "x").bytes();
  refused["the folder f/ holds data"] = zipbytes::File().add(entry("f/"), "x").bytes();
  auto far = entry("far");
  far.offset = 7;
  refused["the local header of far is missing"] =
      zipbytes::File().add(entry("e"), "x").list(far).bytes();
  zipbytes::File file;
  file.add(entry("e"), "x");
  refused["its comment cannot be kept"] = file.bytes(file.end("PK\5\6" + std::string(30, 'x')));
  for (const auto& [words, bytes] : refused) {
    folder.write("a.zip", bytes);
    folder.write("new", "new");
    expectFailure({"add", "a.zip", "new"}, 3, words);
    EXPECT_EQ(folder.read("a.zip"), bytes) << words;
  }
  EXPECT_EQ(files(), (std::vector<std::string>{"a.zip", "new"}));
}

TEST_F(ForeignPackages, OneOfMoreEntriesThanCanBeWrittenIsRefused) {
  const auto entry = zipbytes::storedEntry("e", "x");
  zipbytes::File file;
  file.add(entry, "x");
  for (int i = 1; i < 0xFFFF; ++i)
    file.list(entry);
  folder.write("a.zip", file.bytes());
  expectFailure({"comment", "a.zip", "c"}, 3, "65,534 entries and 4 GiB are the most");
  EXPECT_EQ(folder.read("a.zip"), file.bytes());
}

// The entry claims gigabytes: such a record is copied, not written anew.
TEST_F(ForeignPackages, BytesInFrontOfWhatNeedsZip64AreNotDropped) {
  auto entry = zipbytes::deflatedEntry("e", "x", zipbytes::storedDeflate("x"));
  entry.size = 0xFFFFFFFF;
  entry.centralExtra = entry.localExtra = zipbytes::zip64Block({5000000000});
  zipbytes::File file;
  file.add(entry, zipbytes::storedDeflate("x"));
  folder.write("a.zip", "#!" + file.bytes());
  expectFailure({"--quiet", "compact", "a.zip"}, 3,
                "bytes stand in front of it, and e needs Zip64");
  EXPECT_EQ(folder.read("a.zip"), "#!" + file.bytes());
  EXPECT_EQ(files(), std::vector<std::string>{"a.zip"});
}

TEST_F(ForeignPackages, EntriesBehindTheDirectoryAreNotChangedInPlace) {
  const auto entry = zipbytes::storedEntry("e", "x");
  auto behind = zipbytes::storedEntry("behind", "y");
  zipbytes::File file;
  file.add(entry, "x");
  behind.offset = static_cast<std::uint32_t>(file.offset() + file.directory().size() +
                                             zipbytes::centralHeader(behind).size());
  file.list(behind);
  const zipbytes::Bytes plain = file.bytes();
  const zipbytes::Bytes bytes = plain.substr(0, behind.offset) + zipbytes::localHeader(behind) +
                                "y" + plain.substr(behind.offset);
  folder.write("a.zip", bytes);
  expectFailure({"comment", "--in-place", "a.zip", "c"}, 3, "entries lie behind its directory");
  EXPECT_EQ(folder.read("a.zip"), bytes);
  must({"comment", "a.zip", "c"});
  EXPECT_EQ(contents("a.zip"), (Contents{{"e", "x"}, {"behind", "y"}}));
}

TEST_F(ForeignPackages, ARecordThatCannotBeKeptInPlaceIsToldWithWhatCanBeDone) {
  const auto refused = [this](const std::string& extra, const std::string& words) {
    auto entry = zipbytes::storedEntry("e", "x");
    entry.centralExtra = extra;
    const zipbytes::Bytes bytes = zipbytes::File().add(entry, "x").bytes();
    folder.write("a.zip", bytes);
    expectFailure({"comment", "--in-place", "a.zip", "c"}, 3, words);
    EXPECT_EQ(folder.read("a.zip"), bytes);
  };
  refused("odd", "e would lose its extra field");
  refused(zipbytes::zip64Block({1, 1}),
          "the record of e cannot be kept in place; without --in-place it can");
  must({"comment", "a.zip", "c"});
}

// Four bytes whose CRC is that of none.
TEST_F(ForeignPackages, AnEntryThatIsReplacedLeavesNothingOfItsRecord) {
  const std::string data = "\x9d\x0a\xd9\x6d";
  ASSERT_EQ(zipbytes::crc32(data), zipbytes::crc32(""));
  auto entry = zipbytes::storedEntry("e", data);
  entry.versionMadeBy = 0x031e;
  entry.externalAttributes = 0100640u << 16;
  folder.write("a.zip", zipbytes::File().add(entry, data).bytes());
  folder.write("e", "");
  must({"add", "a.zip", "e"});
  EXPECT_EQ(read("a.zip")[0].at("data"), "");
  EXPECT_EQ(read("a.zip")[0].at("attributes"), "0");
}

TEST_F(ForeignPackages, FixturesAreChangedWithoutLossOrLeftAsTheyAre) {
  QCF_REQUIRE_FIXTURE("zip");
  int changed = 0;
  for (const auto& item : std::filesystem::directory_iterator(support::fixture("zip"))) {
    if (item.path().extension() == ".tsv") continue;
    std::filesystem::copy_file(item.path(), folder / "a.zip",
                               std::filesystem::copy_options::overwrite_existing);
    const std::string before = folder.read("a.zip");
    folder.write("new", "new");
    const auto finished = run({"add", "a.zip", "zz-new=new"});
    if (finished.status != 0) {
      EXPECT_EQ(finished.status, 3) << item.path();
      EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
      EXPECT_EQ(folder.read("a.zip"), before) << item.path();
      continue;
    }
    ++changed;
    // By stored bytes, so that encrypted and damaged data is compared as well.
    static const char* const kRaw = R"(
import sys, zipfile, struct
def raw(path):
    out = []
    data = open(path, 'rb').read()
    for i in zipfile.ZipFile(path).infolist():
        n, m = struct.unpack('<HH', data[i.header_offset + 26:i.header_offset + 30])
        start = i.header_offset + 30 + n + m
        stored = data[start:start + i.compress_size] if i.file_size else b''
        out.append((i.filename, stored, i.CRC, i.file_size, i.comment))
    return out
before, after = raw(sys.argv[1]), raw(sys.argv[2])
sys.exit(before != [e for e in after if e[0] != 'zz-new'])
)";
    const auto compared = support::run(
        {{"python3", "-c", kRaw, item.path().string(), "a.zip"}, {}, folder.path(), {}});
    EXPECT_EQ(compared.status, 0) << item.path() << compared.err;
  }
  EXPECT_GE(changed, 18);
}

}  // namespace
