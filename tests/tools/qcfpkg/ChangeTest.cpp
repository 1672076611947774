#include <sys/stat.h>

#include "Program.h"

namespace {

using Change = Qcfpkg;

TEST_F(Change, AddKeepsTheOthersAndAddsOne) {
  auto expected = makePackage("a.pkg");
  folder.write("three", "333");
  must({"add", "a.pkg", "sub/three.txt=three"});
  expected["sub/three.txt"] = "333";
  EXPECT_EQ(contents("a.pkg"), expected);
  expectSound("a.pkg");
  expectNoFinding("a.pkg");
}

TEST_F(Change, AddReplacesAnEntryOfTheName) {
  auto expected = makePackage("a.pkg");
  folder.write("one.txt", "another one");
  must({"add", "a.pkg", "one.txt"});
  expected["one.txt"] = "another one";
  EXPECT_EQ(contents("a.pkg"), expected);
  EXPECT_EQ(read("a.pkg").size(), 3u);
  expectSound("a.pkg");
  expectNoFinding("a.pkg");
}

TEST_F(Change, AddTakesStandardInputAndFolders) {
  auto expected = makePackage("a.pkg");
  std::filesystem::create_directories(folder / "d/e");
  folder.write("d/e/f", "f");
  must({"add", "a.pkg", "d", "in=-"}, "input");
  expected["d/"] = expected["d/e/"] = "";
  expected["d/e/f"] = "f";
  expected["in"] = "input";
  EXPECT_EQ(contents("a.pkg"), expected);
  must({"add", "a.pkg", "d"});  // folders that are there already
  EXPECT_EQ(contents("a.pkg"), expected);
  expectSound("a.pkg");
  expectNoFinding("a.pkg");
}

TEST_F(Change, AddInPlaceAppends) {
  auto expected = makePackage("a.pkg");
  const std::string before = folder.read("a.pkg");
  folder.write("one.txt", std::string(100000, 'n'));
  must({"add", "--in-place", "a.pkg", "one.txt", "new=one.txt"});
  expected["one.txt"] = expected["new"] = std::string(100000, 'n');
  EXPECT_EQ(contents("a.pkg"), expected);
  EXPECT_EQ(folder.read("a.pkg").substr(0, 100), before.substr(0, 100));
  expectSound("a.pkg");
  EXPECT_EQ(run({"check", "a.pkg"}).status, 0);
  EXPECT_EQ(must({"info", "a.pkg"}).find("dead bytes  0\n"), std::string::npos);
}

TEST_F(Change, AddRefusesAFileWhereAFolderIs) {
  makePackage("a.pkg");
  folder.write("x", "x");
  expectFailure({"add", "a.pkg", "sub=x"}, 3, "sub/two.txt is there, and one is a folder");
  expectFailure({"add", "a.pkg", "one.txt/x=x"}, 3, "one.txt is there, and one is a folder");
}

TEST_F(Change, RemoveTakesEntriesAndFolders) {
  auto expected = makePackage("a.pkg");
  must({"remove", "a.pkg", "sub/"});
  expected.erase("sub/two.txt");
  EXPECT_EQ(contents("a.pkg"), expected);
  expectSound("a.pkg");
  expectNoFinding("a.pkg");
  must({"remove", "a.pkg", "one.txt"});
  expected.erase("one.txt");
  EXPECT_EQ(contents("a.pkg"), expected);
  expectNoFinding("a.pkg");
}

TEST_F(Change, RemoveInPlaceLeavesTheDataAndCompactFreesIt) {
  auto expected = makePackage("a.pkg");
  must({"remove", "--in-place", "a.pkg", "one.txt"});
  expected.erase("one.txt");
  EXPECT_EQ(contents("a.pkg"), expected);
  expectSound("a.pkg");
  const auto size = folder.read("a.pkg").size();
  const auto finished = run({"compact", "a.pkg"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_NE(finished.err.find("a.pkg went from"), std::string::npos);
  EXPECT_LT(folder.read("a.pkg").size(), size);
  EXPECT_EQ(contents("a.pkg"), expected);
  expectNoFinding("a.pkg");
  expectSound("a.pkg");
}

TEST_F(Change, CompactLeavesATidyPackageAsItIs) {
  makePackage("a.pkg");
  const std::string before = folder.read("a.pkg");
  EXPECT_EQ(run({"compact", "a.pkg"}).err, "qcfpkg: a.pkg has no dead bytes\n");
  EXPECT_EQ(must({"--quiet", "compact", "a.pkg"}), "");
  EXPECT_EQ(folder.read("a.pkg"), before);
}

TEST_F(Change, RemoveRefusesWhatIsNotThereAndWhatMustStay) {
  makePackage("a.pkg");
  const std::string before = folder.read("a.pkg");
  expectFailure({"remove", "a.pkg", "one.txt", "absent"}, 3,
                "cannot remove absent from a.pkg: no such entry");
  expectFailure({"remove", "a.pkg", "mimetype"}, 3, "it is the package's type");
  expectFailure({"remove", "absent.pkg", "x"}, 3, "No such file or directory");
  EXPECT_EQ(folder.read("a.pkg"), before);
  python("import zipfile; zipfile.ZipFile('b.zip', 'w').writestr('x', 'x')");
  expectFailure({"remove", "b.zip", "x"}, 3, "nothing would be left");
}

TEST_F(Change, TypeIsPrintedAndSet) {
  auto expected = makePackage("a.pkg");
  EXPECT_EQ(must({"type", "a.pkg"}), "application/x-test\n");
  must({"type", "a.pkg", "application/x-other+zip"});
  expected["mimetype"] = "application/x-other+zip";
  EXPECT_EQ(contents("a.pkg"), expected);
  EXPECT_EQ(read("a.pkg")[0].at("name"), "mimetype");
  expectSound("a.pkg");
  expectNoFinding("a.pkg");
}

TEST_F(Change, TypePutsAMissingMisplacedOrCompressedEntryRight) {
  python(
      "import zipfile\n"
      "z = zipfile.ZipFile('missing.zip', 'w'); z.writestr('x', 'x'); z.close()\n"
      "z = zipfile.ZipFile('late.zip', 'w'); z.writestr('x', 'x')\n"
      "z.writestr('mimetype', 'application/x-late'); z.close()\n"
      "z = zipfile.ZipFile('packed.zip', 'w', zipfile.ZIP_DEFLATED)\n"
      "z.writestr('mimetype', 'application/x-packed'); z.writestr('x', 'x'); z.close()\n");
  for (const char* const name : {"missing.zip", "late.zip", "packed.zip"}) {
    must({"type", name, "application/x-late"});
    EXPECT_EQ(contents(name), (Contents{{"mimetype", "application/x-late"}, {"x", "x"}}));
    EXPECT_EQ(folder.read(name).substr(30, 26), "mimetypeapplication/x-late") << name;
    expectSound(name);
    expectNoFinding(name);
  }
}

TEST_F(Change, TypeOfAPackageWithNothingElseCanBeSetToo) {
  must({"create", "--type", "application/x-test", "a.pkg"});
  must({"comment", "a.pkg", "kept"});
  must({"type", "a.pkg", "application/x-new"});
  EXPECT_EQ(contents("a.pkg"), (Contents{{"mimetype", "application/x-new"}}));
  EXPECT_EQ(must({"comment", "a.pkg"}), "kept\n");
  expectNoFinding("a.pkg");
}

TEST_F(Change, TypeRefusesNonsenseAndTellsOfNone) {
  makePackage("a.pkg");
  const std::string before = folder.read("a.pkg");
  expectFailure({"type", "a.pkg", "nonsense"}, 2, "a type is like application/x-notes");
  expectFailure({"type", "absent.pkg", "a/b"}, 3, "No such file or directory");
  python("import zipfile; zipfile.ZipFile('b.zip', 'w').writestr('x', 'x')");
  expectFailure({"type", "b.zip"}, 3, "b.zip tells no type");
  EXPECT_EQ(folder.read("a.pkg"), before);
}

TEST_F(Change, CommentIsPrintedSetAndTakenAway) {
  const auto expected = makePackage("a.pkg");
  EXPECT_EQ(must({"comment", "a.pkg"}), "");
  must({"comment", "a.pkg", "gr\xc3\xbc\xc3\x9f dich"});
  EXPECT_EQ(must({"comment", "a.pkg"}), "gr\xc3\xbc\xc3\x9f dich\n");
  EXPECT_EQ(contents("a.pkg"), expected);
  expectNoFinding("a.pkg");
  must({"comment", "--in-place", "a.pkg", "in place"});
  EXPECT_EQ(must({"comment", "a.pkg"}), "in place\n");
  must({"comment", "a.pkg", ""});
  EXPECT_EQ(must({"comment", "a.pkg"}), "");
  EXPECT_EQ(contents("a.pkg"), expected);
  expectSound("a.pkg");
  expectNoFinding("a.pkg");
}

TEST_F(Change, CommentThatNobodyCouldReadBackIsRefused) {
  makePackage("a.pkg");
  const std::string before = folder.read("a.pkg");
  expectFailure({"comment", "a.pkg", std::string(65535, 'c')}, 2, "at most 65,534 bytes");
  expectFailure({"comment", "a.pkg", "PK\5\6"}, 2, "looks like an end record");
  expectFailure({"comment", "a.pkg", "\xff"}, 2, "must be UTF-8");
  EXPECT_EQ(folder.read("a.pkg"), before);
}

TEST_F(Change, AChangeKeepsModeAndFollowsSymbolicLinks) {
  auto expected = makePackage("a.pkg");
  chmod((folder / "a.pkg").c_str(), 0604);
  std::filesystem::create_symlink("a.pkg", folder / "link.pkg");
  folder.write("x", "x");
  must({"add", "link.pkg", "x"});
  expected["x"] = "x";
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link.pkg"));
  EXPECT_EQ(contents("a.pkg"), expected);
  struct stat status {};
  stat((folder / "a.pkg").c_str(), &status);
  EXPECT_EQ(status.st_mode & 0777, 0604u);
  EXPECT_EQ(files(), (std::vector<std::string>{"a.pkg", "link.pkg", "x"}));
}

TEST_F(Change, AnEntryThatIsDamagedIsCarriedOverAsItWas) {
  makePackage("a.pkg");
  std::string damaged = folder.read("a.pkg");
  const auto at = damaged.find("two.txt") + std::string("two.txt").size() + 3;
  damaged[at] = static_cast<char>(damaged[at] ^ 0x40);
  folder.write("a.pkg", damaged);
  ASSERT_EQ(run({"check", "a.pkg"}).status, 1);
  folder.write("new", "new");
  for (const char* const option : {"--store", "--in-place"}) {
    must({"add", option, "a.pkg", "new"});
    EXPECT_NE(folder.read("a.pkg").find(damaged.substr(at - 3, 8)), std::string::npos);
    const auto checked = run({"check", "a.pkg"});
    EXPECT_EQ(checked.status, 1);
    EXPECT_NE(checked.out.find("sub/two.txt"), std::string::npos) << checked.out;
    expectFailure({"cat", "a.pkg", "sub/two.txt"}, 3, "cannot read sub/two.txt of a.pkg: ");
  }
}

TEST_F(Change, ANamedPipeIsReadToItsEnd) {
  makePackage("a.pkg");
  const auto finished =
      shell("mkfifo pipe; (printf 'from '; sleep 0.2; printf there) >pipe & \"$0\" add a.pkg pipe");
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_EQ(contents("a.pkg")["pipe"], "from there");
}

TEST_F(Change, OnePartOfASplitArchiveIsRefusedAsThatAtOnce) {
  makePackage("a.pkg");
  std::string part = "PK\7\b" + folder.read("a.pkg");  // the mark that such an archive begins with
  part[part.size() - 18] = part[part.size() - 16] = 1;
  folder.write("part.zip", part);
  folder.write("f", "f");
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"add", "part.zip", "f"}, {"remove", "part.zip", "one.txt"}, {"compact", "part.zip"}}) {
    expectFailure(arguments, 3, "cannot change part.zip: it is one part of a split archive");
    EXPECT_EQ(folder.read("part.zip"), part);
  }
}

TEST_F(Change, DatesOfUnchangedEntriesStay) {
  folder.write("x", "x");
  ASSERT_EQ(shell("touch -d '2001-02-03 04:05:06' x").status, 0);
  must({"create", "--type", "application/x-test", "a.pkg", "x"});
  const auto before = read("a.pkg");
  must({"add", "a.pkg", "y=x"});
  must({"comment", "a.pkg", "c"});
  must({"type", "a.pkg", "application/x-new"});
  const auto after = read("a.pkg");
  EXPECT_EQ(after[1], before[1]);
}

TEST_F(Change, CompactDropsWhatStandsInFrontWhetherOrNotOffsetsCountIt) {
  auto expected = makePackage("a.pkg");
  folder.write("shifted.pkg", "#!/bin/sh\n" + folder.read("a.pkg"));
  folder.write("counted.pkg", std::string(50, '#'));
  python(
      "import zipfile\n"
      "old, new = zipfile.ZipFile('a.pkg'), zipfile.ZipFile('counted.pkg', 'a')\n"
      "for i in old.infolist():\n"
      "    new.writestr(i, old.read(i))\n"
      "new.close()\n");
  for (const char* const name : {"shifted.pkg", "counted.pkg"}) {
    const auto found = run({"check", name});
    EXPECT_EQ(std::count(found.out.begin(), found.out.end(), '\n'), 1) << found.out;
    EXPECT_NE(found.out.find("leading-bytes"), std::string::npos) << found.out;
    EXPECT_NE(found.out.find("qcfpkg compact PACKAGE"), std::string::npos) << found.out;
    expectFailure({"comment", name, "c"}, 3, "qcfpkg compact drops them");
    must({"--quiet", "compact", name});
    EXPECT_EQ(contents(name), expected) << name;
    expectNoFinding(name);
    expectSound(name);
  }
}

TEST_F(Change, CompactTellsNoDifferenceThatIsNone) {
  makePackage("a.pkg");
  auto entry = zipbytes::storedEntry("big", std::string(100000, 'x'));
  zipbytes::File file;
  file.add(zipbytes::storedEntry("mimetype", "a/b"), "a/b").raw("dead");
  file.add(entry, std::string(100000, 'x'));
  folder.write("b.pkg", file.bytes());
  EXPECT_EQ(run({"compact", "b.pkg"}).err, "qcfpkg: b.pkg is smaller by 4 bytes\n");
}

TEST_F(Change, AllEntriesOfADuplicatedNameAreRemovedOrReplaced) {
  folder.write("x", "x");
  zipbytes::File file;
  file.add(zipbytes::storedEntry("mimetype", "a/b"), "a/b");
  file.add(zipbytes::storedEntry("twice", "first"), "first");
  file.add(zipbytes::storedEntry("once", "once"), "once");
  file.add(zipbytes::storedEntry("twice", "second"), "second");
  folder.write("removed.pkg", file.bytes());
  folder.write("replaced.pkg", file.bytes());
  expectFailure({"comment", "removed.pkg", "c"}, 3, "two entries are named twice");
  expectFailure({"remove", "--in-place", "removed.pkg", "twice"}, 3, "two entries are named twice");
  EXPECT_EQ(folder.read("removed.pkg"), file.bytes());
  must({"remove", "removed.pkg", "twice"});
  EXPECT_EQ(contents("removed.pkg"), (Contents{{"mimetype", "a/b"}, {"once", "once"}}));
  must({"add", "replaced.pkg", "twice=x"});
  EXPECT_EQ(contents("replaced.pkg"),
            (Contents{{"mimetype", "a/b"}, {"once", "once"}, {"twice", "x"}}));
  for (const char* const name : {"removed.pkg", "replaced.pkg"}) {
    expectNoFinding(name);
    expectSound(name);
  }
}

TEST_F(Change, NothingButADuplicatedNameIsNotRemovedAndCanBeReplaced) {
  folder.write("x", "x");
  zipbytes::File file;
  file.add(zipbytes::storedEntry("e", "1"), "1").add(zipbytes::storedEntry("e", "2"), "2");
  folder.write("a.zip", file.bytes());
  expectFailure({"remove", "a.zip", "e"}, 3, "nothing would be left");
  must({"add", "a.zip", "e=x"});
  EXPECT_EQ(contents("a.zip"), (Contents{{"e", "x"}}));
  expectSound("a.zip");
}

}  // namespace
