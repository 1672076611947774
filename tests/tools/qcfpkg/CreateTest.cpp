#include <sys/stat.h>

#include "Program.h"

namespace {

using Create = Qcfpkg;

TEST_F(Create, TheTypeComesFirstStoredAtByte38) {
  const auto expected = makePackage("a.pkg");
  EXPECT_EQ(contents("a.pkg"), expected);
  EXPECT_EQ(folder.read("a.pkg").substr(30, 26), "mimetypeapplication/x-test");
  auto entries = read("a.pkg");
  EXPECT_EQ(entries[0]["name"], "mimetype");
  EXPECT_EQ(entries[0]["method"], "0");
  EXPECT_EQ(entries[2]["method"], "8");
  expectSound("a.pkg");
  expectNoFinding("a.pkg");
}

TEST_F(Create, FoldersAreTakenWithAllInThemInOrder) {
  std::filesystem::create_directories(folder / "tree/inner/empty");
  folder.write("tree/b", "b");
  folder.write("tree/a", "a");
  folder.write("tree/inner/c", "");
  must({"create", "--type", "application/x-test", "a.pkg", "tree", "alias=tree/inner"});
  std::vector<std::string> names;
  for (const auto& entry : read("a.pkg"))
    names.push_back(entry.at("name"));
  EXPECT_EQ(names, (std::vector<std::string>{"mimetype", "tree/", "tree/a", "tree/b", "tree/inner/",
                                             "tree/inner/c", "tree/inner/empty/", "alias/",
                                             "alias/c", "alias/empty/"}));
  expectSound("a.pkg");
  expectNoFinding("a.pkg");
}

TEST_F(Create, TheDatesAreThoseOfTheFiles) {
  folder.write("x", "x");
  ASSERT_EQ(shell("TZ=UTC touch -d '2020-02-03 04:05:06' x").status, 0);
  environment = {{"TZ", "UTC"}};
  must({"create", "--type", "application/x-test", "a.pkg", "x"});
  EXPECT_EQ(read("a.pkg")[1].at("date"), "2020-02-03 04:05:06");
}

TEST_F(Create, TheDatesOfFoldersAreKept) {
  environment = {{"TZ", "UTC"}};
  std::filesystem::create_directories(folder / "tree/empty");
  ASSERT_EQ(shell("TZ=UTC touch -d '2020-02-03 04:05:07' tree/empty && "
                  "TZ=UTC touch -d '2021-03-04 05:06:09' tree")
                .status,
            0);
  const auto expectDates = [&](std::vector<Fields> entries, std::size_t at) {
    ASSERT_EQ(entries.size(), at + 2);
    EXPECT_EQ(entries[at]["date"], "2021-03-04 05:06:08");
    EXPECT_EQ(entries[at + 1]["date"], "2020-02-03 04:05:06");
  };
  must({"create", "--type", "application/x-test", "a.pkg", "tree"});
  expectDates(read("a.pkg"), 1);
  expectNoFinding("a.pkg");  // the local headers say the same
  for (const char* const option : {"--store", "--in-place"}) {
    must({"create", "--overwrite", "--type", "application/x-test", "a.pkg"});
    must({"add", option, "a.pkg", "tree"});
    expectDates(read("a.pkg"), 1);
    expectNoFinding("a.pkg");
  }
}

// As often as it takes to meet an odd second.
TEST_F(Create, NoDateLiesInTheFuture) {
  static const char* const kScript = R"(
import calendar, subprocess, sys, time, zipfile
program = sys.argv[1]
while int(time.time()) % 2 == 0: time.sleep(0.02)
def latest():
    now = time.time()
    for entry in zipfile.ZipFile('a.pkg').infolist():
        assert calendar.timegm(entry.date_time + (0, 0, 0)) <= now, (entry, now)
def run(*words): subprocess.check_call((program,) + words); latest()
run('create', '--type', 'a/b', 'a.pkg', 'x')
while int(time.time()) % 2 == 0: time.sleep(0.02)
run('type', 'a.pkg', 'c/d')
while int(time.time()) % 2 == 0: time.sleep(0.02)
run('prop', 'set', 'a.pkg', 'x', 'mac-type', 'TEXT')
)";
  folder.write("x", "x");
  support::mustRun({{"python3", "-c", kScript, QCFPKG}, {}, folder.path(), {{"TZ", "UTC"}}});
  EXPECT_EQ(contents("a.pkg").size(), 3u);
}

TEST_F(Create, StandardInputBecomesAnEntry) {
  must({"create", "--type", "application/x-test", "a.pkg", "in=-"}, "from a pipe");
  EXPECT_EQ(contents("a.pkg")["in"], "from a pipe");
  expectSound("a.pkg");
  expectNoFinding("a.pkg");
}

TEST_F(Create, StoredEntriesAreStored) {
  folder.write("x", std::string(1000, 'x'));
  must({"create", "--store", "--type", "application/x-test", "a.pkg", "x"});
  EXPECT_EQ(read("a.pkg")[1].at("method"), "0");
}

TEST_F(Create, APathNeverLeadsOutOfThePackage) {
  std::filesystem::create_directories(folder / "in");
  folder.write("x", "x");
  must({"create", "--type", "application/x-test", "a.pkg", "in/../x", "y=x"});
  EXPECT_EQ(contents("a.pkg").count("x"), 1u);
  expectFailure({"create", "--type", "application/x-test", "b.pkg", "../x=x"}, 3,
                "the name leads out of the folder");
  expectFailure({"create", "--type", "application/x-test", "b.pkg", "/x=x"}, 3,
                "the name is absolute");
}

TEST_F(Create, ThePackageIsNotPackedIntoItself) {
  std::filesystem::create_directories(folder / "d");
  folder.write("d/x", "x");
  must({"create", "--type", "application/x-test", "d/a.pkg", "d"});
  must({"create", "--overwrite", "--type", "application/x-test", "d/a.pkg", "d"});
  EXPECT_EQ(contents("d/a.pkg").count("d/a.pkg"), 0u);
}

TEST_F(Create, WhatAKilledRunLeftInAFolderIsNotPacked) {
  std::filesystem::create_directories(folder / "d");
  folder.write("d/x", "x");
  folder.write("d/.a.pkg.qcfpkg-Ab12Xy", "half a package");
  EXPECT_EQ(run({"create", "--type", "application/x-test", "d/a.pkg", "d"}).status, 0);
  EXPECT_EQ(contents("d/a.pkg"),
            (Contents{{"mimetype", "application/x-test"}, {"d/", ""}, {"d/x", "x"}}));
}

TEST_F(Create, WhatIsLeftOutIsTold) {
  std::filesystem::create_directories(folder / "d/real");
  folder.write("d/x", "x");
  std::filesystem::create_symlink("x", folder / "d/link");
  std::filesystem::create_directory_symlink("..", folder / "d/up");
  const auto finished = run({"create", "--type", "application/x-test", "a.pkg", "d"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.err, "qcfpkg: left out d/up, a symbolic link to a folder\n");
  EXPECT_EQ(contents("a.pkg").at("d/link"), "x");
  EXPECT_EQ(contents("a.pkg").size(), 5u);
}

TEST_F(Create, APipeInAFolderIsNotWaitedFor) {
  std::filesystem::create_directories(folder / "d");
  mkfifo((folder / "d/pipe").c_str(), 0600);
  expectFailure({"create", "--type", "application/x-test", "a.pkg", "d"}, 3,
                "cannot add d/pipe: it is neither a file nor a folder");
}

TEST_F(Create, AFileNamedLikeStandardInputIsAFile) {
  std::filesystem::create_directories(folder / "d");
  folder.write("d/-", "dash");
  must({"create", "--type", "application/x-test", "a.pkg", "d"}, "from a pipe");
  EXPECT_EQ(contents("a.pkg").at("d/-"), "dash");
}

TEST_F(Create, NamesOf255BytesLeaveRoomForAScratchFile) {
  folder.write("x", "x");
  std::string name;
  while (name.size() < 254)
    name += "\xc3\xbc";
  must({"create", "--type", "application/x-test", name, "x"});
  must({"add", name, "y=x"});
  EXPECT_EQ(files(), (std::vector<std::string>{"x", name}));
}

TEST_F(Create, AnOldFileIsReplacedOnRequestOnlyAndKeepsItsMode) {
  folder.write("x", "x");
  folder.write("a.pkg", "old");
  chmod((folder / "a.pkg").c_str(), 0640);
  expectFailure({"create", "--type", "application/x-test", "a.pkg", "x"}, 3,
                "it exists; --overwrite replaces it");
  EXPECT_EQ(folder.read("a.pkg"), "old");
  must({"create", "--overwrite", "--type", "application/x-test", "a.pkg", "x"});
  struct stat status {};
  stat((folder / "a.pkg").c_str(), &status);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  EXPECT_EQ(contents("a.pkg").at("x"), "x");
}

TEST_F(Create, AFailureLeavesNothing) {
  folder.write("x", "x");
  expectFailure({"create", "--type", "application/x-test", "a.pkg", "x", "absent"}, 3,
                "cannot add absent: No such file or directory");
  expectFailure({"create", "--type", "application/x-test", "no/a.pkg", "x"}, 3,
                "No such file or directory");
  expectFailure({"create", "--type", "application/x-test", "a.pkg", "x", "x"}, 3,
                "two inputs have this name");
  expectFailure({"create", "--type", "application/x-test", "a.pkg", "d/y=x", "d=x"}, 3,
                "cannot add d/y: d is added, too, and one is a folder");
  expectFailure({"create", "--type", "application/x-test", "a.pkg", "d=-", "e=-"}, 2,
                "cannot add e: standard input can be read only once");
  expectFailure({"create", "--type", "application/x-test", "a.pkg", "mimetype=x"}, 3,
                "mimetype is the package's type");
  expectFailure({"create", "--type", "application/x-test", "a.pkg", "META-INF/pkgproperties.xml=x"},
                3, "this entry holds the properties: see prop");
  EXPECT_EQ(files(), std::vector<std::string>{"x"});
}

TEST_F(Create, ANameOfAFolderMayEndWithASlash) {
  std::filesystem::create_directory(folder / "d");
  folder.write("d/x", "x");
  must({"create", "--type", "application/x-test", "a.pkg", "other//=d"});
  EXPECT_EQ(contents("a.pkg"),
            (Contents{{"mimetype", "application/x-test"}, {"other/", ""}, {"other/x", "x"}}));
}

TEST_F(Create, ATypeIsOneWordWithASlash) {
  for (const char* const type : {"", "text", "/x", "x/", "a/b/c", "a b/c", "a/b;c", "a/b\n"}) {
    expectFailure({"create", "--type", type, "a.pkg"}, 2, "a type is like application/x-notes");
  }
  EXPECT_EQ(files(), std::vector<std::string>{});
}

TEST_F(Create, APackageOfNothingButItsTypeIsOne) {
  must({"create", "--type", "application/x-test", "a.pkg"});
  EXPECT_EQ(contents("a.pkg"), (Contents{{"mimetype", "application/x-test"}}));
  expectNoFinding("a.pkg");
}

}  // namespace
