#include <nlohmann/json.hpp>

#include "Program.h"

namespace {

using ReadingCommands = Qcfpkg;

std::string sample() {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("mimetype", "application/x-hand"), "application/x-hand");
  auto text = zipbytes::deflatedEntry("a.txt", "hello", zipbytes::storedDeflate("hello"));
  text.date = 0x5C22;
  text.time = 0x1883;
  text.flags = 0x0800;
  text.comment = "remark";
  file.add(text, zipbytes::storedDeflate("hello"));
  file.add(zipbytes::storedEntry("sub/", ""), "");
  return file.bytes(file.end("of the whole"));
}

TEST_F(ReadingCommands, ListIsATableWithATotal) {
  folder.write("a.pkg", sample());
  EXPECT_EQ(
      must({"list", "a.pkg"}),
      "        size   compressed saved  method    modified             CRC       flags  name\n"
      "          18           18    0%  stored    1980-01-01 00:00:00  359f84c7  -      "
      "mimetype\n"
      "           5           10    0%  deflate   2026-01-02 03:04:06  3610a686  uc     "
      "a.txt\n"
      "           0            0        stored    1980-01-01 00:00:00  00000000  -      sub/\n"
      "          23           28    0%                                                  3 "
      "entries\n");
}

TEST_F(ReadingCommands, ListAsJSONSaysTheSame) {
  folder.write("a.pkg", sample());
  const auto json = nlohmann::json::parse(must({"list", "--json", "a.pkg"}));
  ASSERT_EQ(json.size(), 3u);
  EXPECT_EQ(json[1], nlohmann::json::parse(R"({"name": "a.txt", "size": 5, "compressedSize": 10,
      "method": "deflate", "modified": "2026-01-02 03:04:06", "crc32": "3610a686", "flags": "uc",
      "encrypted": false, "folder": false, "offset": 56, "comment": "remark"})"));
  EXPECT_EQ(json[2]["folder"], true);
}

TEST_F(ReadingCommands, InfoTellsTypeCommentAndDeadBytes) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("mimetype", "application/x-hand"), "application/x-hand");
  file.raw("dead bytes");
  file.add(zipbytes::storedEntry("a.txt", "hello"), "hello");
  folder.write("a.pkg", file.bytes(file.end("a remark")));
  const auto json = nlohmann::json::parse(must({"info", "--json", "a.pkg"}));
  EXPECT_EQ(json["type"], "application/x-hand");
  EXPECT_EQ(json["comment"], "a remark");
  EXPECT_EQ(json["conforming"], true);
  EXPECT_EQ(json["zip64End"], false);
  EXPECT_EQ(json["deadBytes"], 10);
  EXPECT_EQ(json["gaps"], nlohmann::json::parse(R"([{"offset": 56, "size": 10}])"));
  const std::string text = must({"info", "a.pkg"});
  EXPECT_NE(text.find("type        application/x-hand\n"), std::string::npos);
  EXPECT_NE(text.find("10 at offset 56\n"), std::string::npos);
}

TEST_F(ReadingCommands, InfoTellsWhyAPackageDoesNotConform) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("a.txt", "hello"), "hello");
  folder.write("a.pkg", file.bytes());
  const auto json = nlohmann::json::parse(must({"info", "--json", "a.pkg"}));
  EXPECT_EQ(json["conforming"], false);
  EXPECT_EQ(json["faults"][0], "mimetype-missing");
  EXPECT_NE(must({"info", "a.pkg"}).find("no: there is no entry mimetype"), std::string::npos);
}

TEST_F(ReadingCommands, Zip64PackagesAreReadWhole) {
  python(
      "import zipfile\n"
      "z = zipfile.ZipFile('many.zip', 'w')\n"
      "for i in range(66000): z.writestr('e%d' % i, b'x')\n"
      "z.close()\n");
  const auto json = nlohmann::json::parse(must({"info", "--json", "many.zip"}));
  EXPECT_EQ(json["entries"], 66000);
  EXPECT_EQ(json["zip64End"], true);
  EXPECT_EQ(json["deadBytes"], 0);
  EXPECT_EQ(must({"cat", "many.zip", "e65999"}), "x");
}

TEST_F(ReadingCommands, CatGivesTheContentOfEachEntryInTheOrderAskedFor) {
  makePackage("a.pkg");
  EXPECT_EQ(must({"cat", "a.pkg", "one.txt", "mimetype"}), "oneapplication/x-test");
  EXPECT_EQ(must({"cat", "a.pkg", "sub/two.txt"}), std::string(5000, '2'));
}

TEST_F(ReadingCommands, CatPrintsNothingWhenOneOfTheNamesIsMissing) {
  makePackage("a.pkg");
  expectFailure({"cat", "a.pkg", "one.txt", "three.txt"}, 3,
                "cannot read three.txt of a.pkg: no such entry");
}

TEST_F(ReadingCommands, CatTellsOfDamagedData) {
  auto entry = zipbytes::storedEntry("a.txt", "hello");
  entry.crc ^= 1;
  zipbytes::File file;
  file.add(entry, "hello");
  folder.write("a.pkg", file.bytes());
  const auto finished = run({"cat", "a.pkg", "a.txt"});
  EXPECT_EQ(finished.status, 3);
  EXPECT_NE(finished.err.find("the data's CRC is 3610a686"), std::string::npos);
}

// Zlib has read the last byte where it can give no more than a part of what that stands for.
TEST_F(ReadingCommands, CatGivesAllThatTheLastByteOfDeflatedDataStandsFor) {
  python(
      "import zipfile, zlib\n"
      "block = 65536\n"
      "def is_left(size):\n"
      "    packer = zlib.compressobj(9, zlib.DEFLATED, -15)\n"
      "    packed = packer.compress(bytes(size)) + packer.flush()\n"
      "    reader = zlib.decompressobj(-15)\n"
      "    reader.decompress(packed, block)\n"
      "    return not reader.unconsumed_tail and not reader.eof\n"
      "size = next(size for size in range(block + 1, 2 * block) if is_left(size))\n"
      "z = zipfile.ZipFile('a.zip', 'w', zipfile.ZIP_DEFLATED, compresslevel=9)\n"
      "z.writestr('zeros', bytes(size)); z.close(); open('size', 'w').write(str(size))\n");
  EXPECT_EQ(must({"cat", "a.zip", "zeros"}), std::string(std::stoul(folder.read("size")), '\0'));
}

TEST_F(ReadingCommands, AMethodIsNamedOrNumberedAndItsDataNotTakenForContent) {
  zipbytes::File file;
  for (const std::uint16_t method : {std::uint16_t{12}, std::uint16_t{55}}) {
    auto entry = zipbytes::storedEntry("m" + std::to_string(method), "x");
    entry.method = method;
    file.add(entry, "x");
  }
  folder.write("a.zip", file.bytes());
  const auto json = nlohmann::json::parse(must({"list", "--json", "a.zip"}));
  EXPECT_EQ(json[0]["method"], "bzip2");
  EXPECT_EQ(json[1]["method"], "method 55");
  expectFailure({"cat", "a.zip", "m12"}, 3, "cannot read m12 of a.zip: it is stored by method 12");
}

TEST_F(ReadingCommands, ATypeThatCannotBeReadIsNone) {
  auto type = zipbytes::storedEntry("mimetype", "a/b");
  type.crc ^= 1;
  folder.write("a.pkg", zipbytes::File().add(type, "a/b").bytes());
  EXPECT_NE(must({"info", "a.pkg"}).find("  type        none\n"), std::string::npos);
  expectFailure({"type", "a.pkg"}, 3, "a.pkg tells no type");
}

TEST_F(ReadingCommands, EncryptedDataIsNeverTakenForContent) {
  auto entry = zipbytes::storedEntry("a.txt", "hello");
  entry.flags = 1;
  zipbytes::File file;
  file.add(entry, "hello");
  folder.write("a.pkg", file.bytes());
  expectFailure({"cat", "a.pkg", "a.txt"}, 3, "it is encrypted");
  EXPECT_EQ(nlohmann::json::parse(must({"list", "--json", "a.pkg"}))[0]["encrypted"], true);
}

TEST_F(ReadingCommands, FilesThatAreNoPackagesAreRefused) {
  folder.write("text", "not a package");
  folder.write("empty", "");
  for (const char* const command : {"list", "info", "type", "comment"}) {
    expectFailure({command, "text"}, 3, "cannot read text: there is no end record");
    expectFailure({command, "empty"}, 3, "cannot read empty: there is no end record");
    expectFailure({command, "absent"}, 3, "cannot open absent: No such file or directory");
    expectFailure({command, "."}, 3, "cannot open .: it is a folder");
  }
}

TEST_F(ReadingCommands, NamesThatCouldSteerATerminalAreShownEscaped) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("a\x1b[2J\nb", "x"), "x");
  folder.write("a.pkg", file.bytes());
  const std::string out = must({"list", "a.pkg"});
  EXPECT_NE(out.find("a\\x1b[2J\\x0ab\n"), std::string::npos);
  EXPECT_EQ(out.find('\x1b'), std::string::npos);
}

// U+009B begins a command like ESC [ does, and a stray byte may be taken for it.
TEST_F(ReadingCommands, ControlsOutsideASCIIAndStrayBytesAreShownEscaped) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("a\xc2\x9b"
                                 "2J",
                                 "x"),
           "x");
  file.add(zipbytes::storedEntry("b\x9b\xff", "x"), "x");
  file.add(zipbytes::storedEntry("c\xc2\xa0\xe2\x82\xac\xf0\x9f\x8e\xb5", "x"), "x");
  folder.write("a.pkg", file.bytes());
  const std::string out = must({"list", "a.pkg"});
  EXPECT_NE(out.find(" a\\xc2\\x9b2J\n"), std::string::npos) << out;
  EXPECT_NE(out.find(" b\\x9b\\xff\n"), std::string::npos) << out;
  EXPECT_NE(out.find(" c\xc2\xa0\xe2\x82\xac\xf0\x9f\x8e\xb5\n"), std::string::npos) << out;
}

TEST_F(ReadingCommands, JSONHoldsNamesThatAreNoUTF8) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("caf\xe9", "x"), "x");
  folder.write("a.pkg", file.bytes());
  EXPECT_EQ(nlohmann::json::parse(must({"list", "--json", "a.pkg"}))[0]["name"], "caf\xc3\xa9");
}

TEST_F(ReadingCommands, ListNeverSaysThatAllWasSavedWhereSomethingIsLeft) {
  auto entry = zipbytes::storedEntry("e", "x");
  entry.size = 100000;
  folder.write("a.pkg", zipbytes::File().add(entry, "x").bytes());
  const std::string text = must({"list", "a.pkg"});
  EXPECT_NE(text.find("   99%  "), std::string::npos) << text;
  EXPECT_EQ(text.find("100%"), std::string::npos) << text;
}

TEST_F(ReadingCommands, WhatTurnsTheDirectionOfWritingIsShownEscaped) {
  folder.write(
      "a.pkg",
      zipbytes::File().add(zipbytes::storedEntry("a\xe2\x80\xaegpj.exe", "x"), "x").bytes());
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"list", "a.pkg"}, {"check", "a.pkg"}, {"prop", "list", "a.pkg"}}) {
    const std::string text = run(arguments).out;
    EXPECT_NE(text.find("a\\xe2\\x80\\xaegpj.exe"), std::string::npos) << text;
    EXPECT_EQ(text.find("\xe2\x80\xae"), std::string::npos) << text;
  }
}

TEST_F(ReadingCommands, CatOfANameThatComesTwiceTellsSo) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("e", "1"), "1").add(zipbytes::storedEntry("e", "2"), "2");
  folder.write("a.zip", file.bytes());
  const auto finished = run({"cat", "a.zip", "e"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "1");
  EXPECT_EQ(finished.err, "qcfpkg: a.zip has 2 entries named e; this is the first\n");
}

}  // namespace
