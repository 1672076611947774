#include <sys/stat.h>

#include "Program.h"

namespace {

class Extract : public Qcfpkg {
protected:
  // A package of one stored entry of that name.
  void makeNamed(const std::string& package, const std::string& name) const {
    zipbytes::File file;
    file.add(zipbytes::storedEntry("harmless", "ok"), "ok");
    file.add(zipbytes::storedEntry(name, "evil"), "evil");
    folder.write(package, file.bytes());
  }
  // Extracting is refused before anything was written.
  void expectRefused(const std::string& package, const std::string& words) const {
    expectFailure({"extract", package, "-C", "out"}, 3, words);
    EXPECT_FALSE(std::filesystem::exists(folder / "out")) << package;
    expectFailure({"extract", "--list-only", package, "-C", "out"}, 3, words);
  }
};

TEST_F(Extract, EveryFileComesOutAsItWas) {
  const auto expected = makePackage("a.pkg");
  must({"extract", "a.pkg", "-C", "deep/out"});
  for (const auto& [name, data] : expected)
    EXPECT_EQ(folder.read("deep/out/" + name), data);
  EXPECT_EQ(support::run({{"unzip", "-q", "a.pkg", "-d", "other"}, {}, folder.path(), {}}).status,
            0);
  EXPECT_EQ(support::run({{"diff", "-r", "other", "deep/out"}, {}, folder.path(), {}}).status, 0);
}

// Down, up and anywhere, with fewer descriptors than there are folders on the way.
TEST_F(Extract, FilesInFoldersFarWithinEachOtherComeOutInWhateverOrder) {
  python(
      "import random, zipfile\n"
      "depths = [*range(200), *reversed(range(200)), *random.Random(1).sample(range(200), 200)]\n"
      "z = zipfile.ZipFile('a.pkg', 'w')\n"
      "for i, depth in enumerate(depths):\n"
      "    z.writestr('a/' * depth + str(i), str(depth))\n"
      "    if i % 3 == 0: z.writestr('a/' * depth + 'b%d/' % i, '')\n"
      "z.close()\n"
      "zipfile.ZipFile('a.pkg').extractall('expected')\n");
  const auto finished = shell("ulimit -n 20; exec \"$0\" extract a.pkg -C out");
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_EQ(support::run({{"diff", "-r", "expected", "out"}, {}, folder.path(), {}}).status, 0);
}

TEST_F(Extract, OnlyWhatIsNamedComesOut) {
  makePackage("a.pkg");
  must({"extract", "a.pkg", "sub", "-C", "out"});
  EXPECT_EQ(folder.read("out/sub/two.txt"), std::string(5000, '2'));
  EXPECT_FALSE(std::filesystem::exists(folder / "out/one.txt"));
  expectFailure({"extract", "a.pkg", "absent", "-C", "other"}, 3, "no such entry");
  EXPECT_FALSE(std::filesystem::exists(folder / "other"));
}

TEST_F(Extract, ListOnlyWritesNothing) {
  makePackage("a.pkg");
  EXPECT_EQ(must({"extract", "--list-only", "a.pkg", "-C", "out"}),
            "mimetype\none.txt\nsub/two.txt\n");
  EXPECT_FALSE(std::filesystem::exists(folder / "out"));
}

TEST_F(Extract, DatesComeBack) {
  zipbytes::File file;
  auto entry = zipbytes::storedEntry("x", "x");
  entry.date = 0x5C22;
  entry.time = 0x1883;
  file.add(entry, "x");
  folder.write("a.pkg", file.bytes());
  environment = {{"TZ", "UTC"}};
  must({"extract", "a.pkg"});
  EXPECT_EQ(shell("TZ=UTC date -r x '+%F %T'").out, "2026-01-02 03:04:06\n");
}

TEST_F(Extract, FilesThatExistAreReplacedOnRequestOnly) {
  makePackage("a.pkg");
  std::filesystem::create_directories(folder / "out");
  folder.write("out/one.txt", "mine");
  const auto refused = run({"extract", "a.pkg", "one.txt", "-C", "out"});
  EXPECT_EQ(refused.status, 3);
  EXPECT_NE(refused.err.find("it exists; --overwrite replaces it"), std::string::npos);
  EXPECT_EQ(folder.read("out/one.txt"), "mine");
  must({"extract", "--overwrite", "a.pkg", "one.txt", "-C", "out"});
  EXPECT_EQ(folder.read("out/one.txt"), "one");
}

TEST_F(Extract, NamesThatLeadOutAreRefusedBeforeAnythingIsWritten) {
  const std::vector<std::pair<std::string, std::string>> kAttacks{
      {"../evil", "leads out of the folder"},
      {"a/../../evil", "leads out of the folder"},
      {"a/..", "leads out of the folder"},
      {"..", "leads out of the folder"},
      {"../", "leads out of the folder"},
      {"/tmp/qcfpkg-evil", "absolute"},
      {"//evil", "absolute"},
      {"/", "absolute"},
      {"..\\evil", "backslash"},
      {"C:\\evil", "backslash"},
      {"C:evil", "drive"},
      {"a//b", "empty segment"},
      {"./evil", "empty segment"},
      {std::string("evil\0.txt", 9), "control characters"},
      {"evil\nname", "control characters"},
  };
  for (std::size_t i = 0; i < kAttacks.size(); ++i) {
    const std::string package = "attack" + std::to_string(i);
    makeNamed(package, kAttacks[i].first);
    expectRefused(package, kAttacks[i].second);
  }
  EXPECT_FALSE(std::filesystem::exists("/tmp/qcfpkg-evil"));
}

TEST_F(Extract, EntriesThatAreSymbolicLinksAreRefused) {
  zipbytes::File file;
  auto link = zipbytes::storedEntry("door", "/etc");
  link.versionMadeBy = 0x0314;
  link.externalAttributes = 0120777u << 16;
  file.add(link, "/etc");
  file.add(zipbytes::storedEntry("door/passwd", "evil"), "evil");
  folder.write("a.pkg", file.bytes());
  expectRefused("a.pkg", "it is a symbolic link");
}

TEST_F(Extract, BombsAreRefusedByRatioAndByTotalSize) {
  python(
      "import zipfile\n"
      "z = zipfile.ZipFile('bomb.zip', 'w', zipfile.ZIP_DEFLATED)\n"
      "z.writestr('zeros', bytes(10000000))\n");
  expectFailure({"extract", "--max-ratio", "100", "bomb.zip", "-C", "out"}, 3,
                "it would grow more than 100 times");
  expectFailure({"extract", "--max-size", "9999999", "bomb.zip", "-C", "out"}, 3,
                "all would have more than 9999999 bytes");
  EXPECT_FALSE(std::filesystem::exists(folder / "out"));
  must({"extract", "--max-size", "10000000", "bomb.zip", "-C", "out"});
}

TEST_F(Extract, DataThatIsLongerThanRecordedStopsAtTheRecordedSize) {
  auto entry = zipbytes::deflatedEntry("x", "12345", zipbytes::storedDeflate("123456789"));
  zipbytes::File file;
  file.add(entry, zipbytes::storedDeflate("123456789"));
  folder.write("a.pkg", file.bytes());
  const auto finished = run({"extract", "a.pkg", "-C", "out"});
  EXPECT_EQ(finished.status, 3);
  EXPECT_NE(finished.err.find("the data is longer than the 5 bytes recorded"), std::string::npos);
  EXPECT_TRUE(std::filesystem::is_empty(folder / "out"));
}

TEST_F(Extract, AFileWithAWrongCRCDoesNotAppear) {
  auto entry = zipbytes::storedEntry("x", "12345");
  entry.crc ^= 1;
  zipbytes::File file;
  file.add(entry, "12345");
  folder.write("a.pkg", file.bytes());
  EXPECT_EQ(run({"extract", "a.pkg", "-C", "out"}).status, 3);
  EXPECT_TRUE(std::filesystem::is_empty(folder / "out"));
}

TEST_F(Extract, TheSameNameTwiceIsRefused) {
  makeNamed("a.pkg", "harmless");
  expectRefused("a.pkg", "the name comes twice");
}

}  // namespace
