#include <atomic>
#include <csignal>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Program.h"

// Nothing that is extracted ever lands outside its folder, whatever lies in that folder already.

namespace {

namespace fs = std::filesystem;

// Something that lies in the target folder before a/b/file is extracted into it.
struct Obstacle {
  const char* name;
  const char* place;
  enum { Link, DanglingLink, AbsoluteLink, File, Folder, Pipe } kind;
  bool isReplaceable = false;  // by --overwrite
};

void PrintTo(const Obstacle& obstacle, std::ostream* out) {
  *out << obstacle.name;
}

class ExtractSafety : public Qcfpkg, public testing::WithParamInterface<Obstacle> {
protected:
  void SetUp() override {
    zipbytes::File file;
    file.add(zipbytes::storedEntry("mimetype", "a/b"), "a/b");
    file.add(zipbytes::storedEntry("a/b/file", "new"), "new");
    folder.write("a.pkg", file.bytes());
    fs::create_directories(folder / "outside/b");
    folder.write("outside/file", "precious");
    folder.write("outside/b/file", "precious");
  }
  void put(const Obstacle& obstacle) const {
    const fs::path path = folder / "out" / obstacle.place;
    fs::create_directories(path.parent_path());
    switch (obstacle.kind) {
      case Obstacle::Link: {
        const bool isLeaf = std::string(obstacle.place) == "a/b/file";
        const fs::path target = folder / (isLeaf ? "outside/file" : "outside");
        return fs::create_symlink(fs::relative(target, path.parent_path()), path);
      }
      case Obstacle::DanglingLink:
        return fs::create_symlink("../outside/absent", path);
      case Obstacle::AbsoluteLink:
        return fs::create_symlink(folder / "outside/file", path);
      case Obstacle::File:
        return support::writeFile(path, "mine");
      case Obstacle::Folder:
        return static_cast<void>(fs::create_directories(path));
      case Obstacle::Pipe:
        ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    }
  }
  Contents outside() const {
    Contents all = everything();
    for (auto item = all.begin(); item != all.end();)
      item = item->first.compare(0, 7, "outside") == 0 ? std::next(item) : all.erase(item);
    return all;
  }
  // A package that takes a while to extract: small entries before and behind a big one.
  void makeBig(const std::string& before = "", const std::string& behind = "deep/small") const {
    support::python(
        "import sys, zipfile\n"
        "z = zipfile.ZipFile('big.pkg', 'w', zipfile.ZIP_DEFLATED)\n"
        "for name in sys.argv[1].split(): z.writestr(name, 'small')\n"
        "z.writestr('deep/big', bytes(300000000))\n"
        "for name in sys.argv[2].split(): z.writestr(name, 'small')\n"
        "z.close()\n",
        {before, behind}, folder.path());
  }
  // Some of deep/big has been written, and not all of it.
  bool isHalfWay() const {
    for (const auto& item : fs::recursive_directory_iterator(folder.path())) {
      if (item.path().filename().string().find(".qcfpkg-") != 0) continue;
      std::error_code gone;
      const auto size = fs::file_size(item.path(), gone);
      if (!gone && size > std::strlen("small") && size < 300000000) return true;
    }
    return false;
  }
  bool hasScratch() const {
    for (const auto& item : fs::recursive_directory_iterator(folder.path())) {
      if (item.path().filename().string().find(".qcfpkg-") == 0) return true;
    }
    return false;
  }
  // Stopped while deep/big is being written; begun anew where that was over before anybody looked.
  pid_t stoppedHalfWay(const std::vector<std::string>& arguments) const {
    for (;;) {
      const pid_t child = start(arguments);
      int status = 0;
      while (!isHalfWay() && waitpid(child, &status, WNOHANG) == 0)
        usleep(500);
      if (kill(child, SIGSTOP) == 0 && waitpid(child, &status, WUNTRACED) == child &&
          WIFSTOPPED(status)) {
        if (isHalfWay()) return child;
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
      }
      fs::remove_all(folder / "out");
    }
  }
};

TEST_P(ExtractSafety, WhatIsInTheWayIsNeverFollowed) {
  put(GetParam());
  const Contents before = outside();
  const auto refused = run({"extract", "a.pkg", "a", "-C", "out"});
  EXPECT_EQ(refused.status, 3);
  EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1) << refused.err;
  EXPECT_NE(refused.err.find("cannot write out/a/b/file: "), std::string::npos) << refused.err;
  EXPECT_EQ(outside(), before);
  const auto forced = run({"extract", "--overwrite", "a.pkg", "a", "-C", "out"});
  EXPECT_EQ(forced.status, GetParam().isReplaceable ? 0 : 3) << forced.err;
  EXPECT_EQ(outside(), before);
  EXPECT_FALSE(hasScratch());
  if (!GetParam().isReplaceable) return;
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder / "out/a/b/file")));
  EXPECT_EQ(folder.read("out/a/b/file"), "new");
}

INSTANTIATE_TEST_SUITE_P(
    InTheWay, ExtractSafety,
    testing::Values(
        Obstacle{"linkAtTheFirstStep", "a", Obstacle::Link},
        Obstacle{"linkAtTheSecondStep", "a/b", Obstacle::Link},
        Obstacle{"linkInPlaceOfTheFile", "a/b/file", Obstacle::Link, true},
        Obstacle{"danglingLinkAtTheFirstStep", "a", Obstacle::DanglingLink},
        Obstacle{"danglingLinkAtTheSecondStep", "a/b", Obstacle::DanglingLink},
        Obstacle{"danglingLinkInPlaceOfTheFile", "a/b/file", Obstacle::DanglingLink, true},
        Obstacle{"absoluteLinkAtTheFirstStep", "a", Obstacle::AbsoluteLink},
        Obstacle{"absoluteLinkInPlaceOfTheFile", "a/b/file", Obstacle::AbsoluteLink, true},
        Obstacle{"fileAtTheFirstStep", "a", Obstacle::File},
        Obstacle{"fileAtTheSecondStep", "a/b", Obstacle::File},
        Obstacle{"fileInPlaceOfTheFile", "a/b/file", Obstacle::File, true},
        Obstacle{"folderInPlaceOfTheFile", "a/b/file", Obstacle::Folder},
        Obstacle{"pipeAtTheSecondStep", "a/b", Obstacle::Pipe},
        Obstacle{"pipeInPlaceOfTheFile", "a/b/file", Obstacle::Pipe, true}),
    [](const auto& tested) { return tested.param.name; });

TEST_F(ExtractSafety, TheFolderItselfMayBeALink) {
  fs::create_directory(folder / "real");
  fs::create_directory_symlink("real", folder / "out");
  must({"extract", "a.pkg", "-C", "out"});
  EXPECT_EQ(folder.read("real/a/b/file"), "new");
}

TEST_F(ExtractSafety, AFileInPlaceOfTheFolderIsTold) {
  folder.write("out", "mine");
  expectFailure({"extract", "a.pkg", "-C", "out"}, 3, "cannot write out: Not a directory");
  expectFailure({"extract", "a.pkg", "-C", "out/deeper"}, 3,
                "cannot write out/deeper: Not a directory");
  EXPECT_EQ(folder.read("out"), "mine");
}

// Somebody puts a link in a folder's place, again and again, while extraction runs.
TEST_F(ExtractSafety, ALinkThatAppearsMeanwhileIsNotFollowedEither) {
  zipbytes::File file;
  for (int i = 0; i < 300; ++i)
    file.add(zipbytes::storedEntry("a/b/f" + std::to_string(i), "new"), "new");
  folder.write("many.pkg", file.bytes());
  fs::create_directories(folder / "out/a/b");
  fs::create_directory_symlink("../../outside", folder / "out/a/trap");
  const Contents before = outside();
  std::atomic<bool> isOver{false};
  std::thread attacker([&] {
    const fs::path place = folder / "out/a/b";
    const fs::path trap = folder / "out/a/trap";
    while (!isOver)
      renameat2(AT_FDCWD, place.c_str(), AT_FDCWD, trap.c_str(), RENAME_EXCHANGE);
  });
  for (int i = 0; i < 10; ++i) {
    const auto finished = run({"extract", "--overwrite", "many.pkg", "-C", "out"});
    EXPECT_TRUE(finished.status == 0 || finished.status == 3) << finished.err;
  }
  isOver = true;
  attacker.join();
  EXPECT_EQ(outside(), before);
}

// What was opened stays the folder that it was; what has to be opened anew is a link by then.
TEST_F(ExtractSafety, ALinkInPlaceOfAFolderThatIsOpenIsFollowedNeitherNowNorLater) {
  makeBig("", "deep/small deep/er/small top deep/last");
  const Contents before = outside();
  const pid_t child = stoppedHalfWay({"extract", "big.pkg", "-C", "out"});
  fs::rename(folder / "out/deep", folder / "out/moved");
  fs::create_directory_symlink("../outside", folder / "out/deep");
  kill(child, SIGCONT);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_EQ(outside(), before);
  EXPECT_EQ(fs::file_size(folder / "out/moved/big"), 300000000u);
  EXPECT_EQ(folder.read("out/moved/small"), "small");
  EXPECT_EQ(folder.read("out/moved/er/small"), "small");
  EXPECT_EQ(folder.read("out/top"), "small");
  EXPECT_FALSE(fs::exists(folder / "out/moved/last"));
}

// A file of the package stands where one of its folders has to be.
TEST_F(ExtractSafety, AFileAndAFolderOfOneNameAreRefusedWhereTheyMeet) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("x", "file"), "file").add(zipbytes::storedEntry("x/y", "z"), "z");
  folder.write("b.pkg", file.bytes());
  const auto finished = run({"extract", "b.pkg", "-C", "out"});
  EXPECT_EQ(finished.status, 3);
  EXPECT_EQ(finished.err,
            "qcfpkg: cannot write out/x/y: a file or a symbolic link is in the way\n");
}

TEST_F(ExtractSafety, ListOnlyChecksAllThatExtractingWouldAndShowsNamesHarmlessly) {
  zipbytes::File file;
  file.add(zipbytes::storedEntry("caf\xc3\xa9/x", "x"), "x");
  folder.write("b.pkg", file.bytes());
  EXPECT_EQ(must({"extract", "--list-only", "b.pkg", "-C", "out"}), "caf\xc3\xa9/x\n");
  EXPECT_EQ(must({"extract", "--list-only", "b.pkg", "caf\xc3\xa9"}), "caf\xc3\xa9/x\n");
  expectFailure({"extract", "--list-only", "--max-size", "0", "b.pkg"}, 3,
                "all would have more than 0 bytes");
  expectFailure({"extract", "--list-only", "b.pkg", "absent"}, 3, "no such entry");
  file.add(zipbytes::storedEntry("evil\x1b[2J", "x"), "x");
  folder.write("b.pkg", file.bytes());
  expectFailure({"extract", "--list-only", "b.pkg"}, 3, "evil\\x1b[2J");
  EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST_F(ExtractSafety, TheTotalOfManySmallEntriesCounts) {
  zipbytes::File file;
  for (int i = 0; i < 10; ++i)
    file.add(zipbytes::storedEntry("f" + std::to_string(i), "0123456789"), "0123456789");
  folder.write("b.pkg", file.bytes());
  expectFailure({"extract", "--max-size", "99", "b.pkg", "-C", "out"}, 3,
                "cannot extract f9 of b.pkg: all would have more than 99 bytes");
  EXPECT_FALSE(fs::exists(folder / "out"));
  must({"extract", "--max-size", "100", "b.pkg", "-C", "out"});
  must({"extract", "--max-size", "10", "b.pkg", "f3", "-C", "other"});
}

// Each entry grows little, and all of them are the same few bytes.
TEST_F(ExtractSafety, EntriesThatShareTheirDataAreMeasuredTogether) {
  const std::string data(1000, '0');
  zipbytes::File file;
  file.add(zipbytes::storedEntry("f", data), data);
  zipbytes::Entry again = zipbytes::storedEntry("f", data);
  again.offset = 0;
  for (int i = 0; i < 500; ++i) {
    again.name = "f" + std::to_string(i);
    file.list(again);
  }
  folder.write("b.pkg", file.bytes());
  expectFailure({"extract", "--max-ratio", "10", "b.pkg", "-C", "out"}, 3,
                "cannot extract b.pkg: all would grow more than 10 times");
  EXPECT_FALSE(fs::exists(folder / "out"));
}

// Sizes near the end of 64 bits must not wrap around the limits.
TEST_F(ExtractSafety, SizesBeyondAllMeasureAreRefused) {
  zipbytes::File file;
  zipbytes::Entry entry = zipbytes::storedEntry("f", "x");
  entry.size = 0xFFFFFFFF;
  entry.centralExtra = zipbytes::zip64Block({0x8000000000000000});
  file.add(entry, "x");
  entry.name = "g";
  file.add(entry, "x");
  folder.write("b.pkg", file.bytes());
  expectFailure({"extract", "b.pkg", "-C", "out"}, 3, "--max-ratio allows more");
  expectFailure({"extract", "--max-ratio", "9223372036854775807", "b.pkg", "-C", "out"}, 3,
                "--max-size allows more");
  EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST_F(ExtractSafety, AnInterruptLeavesNoHalfFile) {
  makeBig("deep/first deep/second");
  const pid_t child = stoppedHalfWay({"extract", "big.pkg", "-C", "out"});
  kill(child, SIGTERM);
  kill(child, SIGCONT);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(fs::remove(folder / "out/deep/first"));
  EXPECT_TRUE(fs::remove(folder / "out/deep/second"));
  EXPECT_TRUE(fs::is_empty(folder / "out/deep"));
}

// Whichever folder it stands in, and whichever entries the next run extracts there.
TEST_F(ExtractSafety, WhatAKilledRunLeftIsClearedByTheNextWithANote) {
  makeBig();
  const pid_t child = stoppedHalfWay({"extract", "big.pkg", "-C", "out"});
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));
  ASSERT_TRUE(hasScratch());
  folder.write("out/deep/.qcfpkg-notours", "a longer name");
  folder.write("out/deep/.qcfpkg-not-us", "other characters");
  const auto finished = run({"extract", "big.pkg", "deep/small", "-C", "out"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.err.find("qcfpkg: removed out/deep/.qcfpkg-"), 0u) << finished.err;
  EXPECT_NE(finished.err.find(", which an interrupted run had left\n"), std::string::npos);
  std::vector<std::string> names;
  for (const auto& item : fs::directory_iterator(folder / "out/deep"))
    names.push_back(item.path().filename());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{".qcfpkg-not-us", ".qcfpkg-notours", "small"}));
}

TEST_F(ExtractSafety, AScratchFileOfARunThatLivesStays) {
  makeBig();
  const pid_t child = stoppedHalfWay({"extract", "big.pkg", "deep/big", "-C", "out"});
  must({"extract", "big.pkg", "deep/small", "-C", "out"});
  EXPECT_TRUE(hasScratch());
  kill(child, SIGCONT);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(fs::file_size(folder / "out/deep/big"), 300000000u);
  EXPECT_FALSE(hasScratch());
}

// Each clears away what it takes for leftovers while the others make their scratch files.
TEST_F(ExtractSafety, ManyRunsIntoOneFolderAllComeToTheirEnd) {
  constexpr int kRuns = 24;
  python(
      "import zipfile\n"
      "z = zipfile.ZipFile('many.pkg', 'w')\n"
      "for i in range(24): z.writestr('deep/%d' % i, str(i))\n"
      "z.close()\n");
  for (int round = 0; round < 8; ++round) {
    std::vector<pid_t> children;
    for (int i = 0; i < kRuns; ++i)
      children.push_back(start({"extract", "many.pkg", "deep/" + std::to_string(i), "-C", "out"}));
    for (const pid_t child : children) {
      int status = 0;
      waitpid(child, &status, 0);
      EXPECT_EQ(status, 0);
    }
    for (int i = 0; i < kRuns; ++i)
      EXPECT_EQ(support::readFile(folder / "out/deep" / std::to_string(i)), std::to_string(i));
    EXPECT_FALSE(hasScratch());
    fs::remove_all(folder / "out");
  }
}

}  // namespace
