#include <csignal>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Program.h"
#include "support/FullDisk.h"

// Whatever happens to a run, there is the old package or the new one.

namespace {

class Safety : public Qcfpkg {
protected:
  // A package of some size, with dead bytes in it.
  void makeLarge() const {
    python("import os; open('big', 'wb').write(os.urandom(1 << 20) * 3)");
    folder.write("small", "small");
    must({"create", "--store", "--type", "a/b", "a.pkg", "big", "small"});
    must({"add", "--in-place", "--store", "a.pkg", "dead=big", "x=small"});
    must({"remove", "--in-place", "a.pkg", "dead"});
    std::filesystem::remove(folder / "big");
  }

  // The program as the shell takes it. Root may write everywhere, so it steps back to somebody who
  // owns `owned` and what is in it; empty where it cannot. That one's counters of what is reached
  // (QCF_COVERAGE) go elsewhere: in their place it cannot write them, and would complain.
  std::string withoutRoot(const std::string& owned) const {
    if (geteuid() != 0) return "\"$0\"";
    chmod(counters.path().c_str(), 0777);
    std::string program = "env GCOV_PREFIX=" + counters.path().string() +
                          " setpriv --reuid=65534 --regid=65534 --clear-groups \"$0\"";
    if (!shell(program + " --version && chown -R 65534:65534 " + owned).succeeded())
      program.clear();
    return program;
  }

  support::TempDir counters;
};

TEST_F(Safety, WhatAKilledRunLeftIsClearedWithANote) {
  auto expected = makePackage("a.pkg");
  folder.write(".a.pkg.qcfpkg-Ab12Xy", "half a package");
  folder.write(".b.pkg.qcfpkg-Ab12Xy", "of another package");
  folder.write(".a.pkg.qcfpkg-notours", "a longer name");
  const auto finished = run({"comment", "a.pkg", "c"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_NE(finished.err.find(".a.pkg.qcfpkg-Ab12Xy, which an interrupted run had left"),
            std::string::npos);
  EXPECT_EQ(files(),
            (std::vector<std::string>{".a.pkg.qcfpkg-notours", ".b.pkg.qcfpkg-Ab12Xy", "a.pkg"}));
}

// A folder takes names of 255 bytes, so the scratch file of a long one has a part of it, in whole
// characters.
TEST_F(Safety, WhatAKilledRunLeftBesideALongNameIsCleared) {
  const auto times = [](int count) {
    std::string text = "a";
    for (int i = 0; i < count; ++i)
      text += "\xc3\xa4";
    return text;
  };
  makePackage(times(120));
  const std::string scratch = "." + times(99) + ".qcfpkg-Ab12Xy";
  folder.write(scratch, "half a package");
  const auto finished = run({"comment", times(120), "c"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.err, "qcfpkg: removed ./" + scratch + ", which an interrupted run had left\n");
  EXPECT_EQ(files(), std::vector<std::string>{times(120)});
}

// The fortieth is the last that the system follows.
TEST_F(Safety, AChainOfLinksIsFollowedAsFarAsTheSystemDoes) {
  std::string last = "a.pkg";
  for (int i = 1; i <= 40; ++i) {
    const std::string link = "link" + std::to_string(i);
    std::filesystem::create_symlink(last, folder / link);
    last = link;
  }
  makePackage("link40");
  must({"comment", "link40", "c"});
  EXPECT_EQ(must({"comment", "a.pkg"}), "c\n");
  std::filesystem::create_symlink("link40", folder / "link41");
  expectFailure({"comment", "link41", "c"}, 3,
                "cannot change link41: Too many levels of symbolic links");
}

TEST_F(Safety, WhatAKilledRunOfAnotherUserLeftStaysAndIsTold) {
  makePackage("a.pkg");
  const std::string program = withoutRoot("a.pkg");
  if (geteuid() != 0 || program.empty()) GTEST_SKIP() << "takes two users";
  folder.write(".a.pkg.qcfpkg-Ab12Xy", "half a package");
  chmod(folder.path().c_str(), 01777);
  const auto finished = shell(program + " comment a.pkg c");
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.err,
            "qcfpkg: an interrupted run has left ./.a.pkg.qcfpkg-Ab12Xy: "
            "Operation not permitted\n");
  EXPECT_EQ(files(), (std::vector<std::string>{".a.pkg.qcfpkg-Ab12Xy", "a.pkg"}));
}

TEST_F(Safety, AnInterruptRemovesTheScratchFile) {
  makeLarge();
  mkfifo((folder / "pipe").c_str(), 0600);
  const pid_t child = start({"add", "a.pkg", "x=pipe"});
  const int writer = open((folder / "pipe").c_str(), O_WRONLY);  // waits for the reader
  const auto before = files();
  EXPECT_TRUE(std::any_of(before.begin(), before.end(), [](const std::string& name) {
    return name.find(".a.pkg.qcfpkg-") == 0;
  }));
  kill(child, SIGINT);
  int status = 0;
  waitpid(child, &status, 0);
  close(writer);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(files(), (std::vector<std::string>{"a.pkg", "pipe", "small"}));
}

TEST_F(Safety, TwoRunsNeverChangeAPackageAtOnce) {
  makePackage("a.pkg");
  const int file = open((folder / "a.pkg").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(file, LOCK_EX), 0);
  expectFailure({"comment", "a.pkg", "c"}, 3, "another run is changing it");
  close(file);
  must({"comment", "a.pkg", "c"});
}

TEST_F(Safety, ManyRunsAtOnceLoseNoChange) {
  makePackage("a.pkg");
  folder.write("x", "x");
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([this, i] {
      const std::string name = "t" + std::to_string(i);
      while (run({"add", "a.pkg", name + "=x"}).status != 0)
        usleep(5000);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(contents("a.pkg").size(), 9u);
  expectNoFinding("a.pkg");
}

TEST_F(Safety, AFullDiskLeavesTheOldPackage) {
  makeLarge();
  const std::string before = folder.read("a.pkg");
  for (const char* const change :
       {"add a.pkg y=small", "remove a.pkg small", "compact a.pkg", "comment a.pkg c",
        "type a.pkg c/d", "prop set a.pkg small mac-type x", "create --type a/b n.pkg a.pkg"}) {
    // A limit on the size of files is the disk that fills: 1 MB.
    const auto finished = shell(support::onFullDisk(2000, change));
    EXPECT_EQ(finished.status, 3) << change;
    EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
    EXPECT_EQ(folder.read("a.pkg"), before) << change;
    EXPECT_EQ(files(), (std::vector<std::string>{"a.pkg", "small"})) << change;
  }
}

TEST_F(Safety, AReadOnlyFolderOrPackageIsRefused) {
  makePackage("a.pkg");
  const std::string program = withoutRoot(".");
  if (program.empty()) GTEST_SKIP() << "no setpriv(1) for root";
  const std::string before = folder.read("a.pkg");
  const auto expectRefusal = [&] {
    const auto finished = shell(program + " comment a.pkg c");
    EXPECT_EQ(finished.status, 3);
    EXPECT_NE(finished.err.find("Permission denied\n"), std::string::npos) << finished.err;
    EXPECT_EQ(folder.read("a.pkg"), before);
  };
  chmod((folder / "a.pkg").c_str(), 0444);
  expectRefusal();
  chmod((folder / "a.pkg").c_str(), 0644);
  chmod(folder.path().c_str(), 0555);
  expectRefusal();
  EXPECT_EQ(files(), std::vector<std::string>{"a.pkg"});
  chmod(folder.path().c_str(), 0755);
  EXPECT_EQ(shell(program + " comment a.pkg c").status, 0);
}

TEST_F(Safety, TheFoldersAboveNeedNotBeSearched) {
  std::filesystem::create_directories(folder / "above/here");
  makePackage("above/here/a.pkg");
  std::filesystem::create_symlink("a.pkg", folder / "above/here/link.pkg");
  const std::string program = withoutRoot("above");
  if (program.empty()) GTEST_SKIP() << "no setpriv(1) for root";
  const auto finished =
      shell("cd above/here && chmod 0 .. && exec " + program + " comment link.pkg c");
  chmod((folder / "above").c_str(), 0755);
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "above/here/link.pkg"));
  EXPECT_EQ(must({"comment", "above/here/a.pkg"}), "c\n");
}

TEST_F(Safety, AnInputThatVanishesLeavesTheOldPackage) {
  auto expected = makePackage("a.pkg");
  folder.write("x", "x");
  expectFailure({"add", "a.pkg", "x", "absent"}, 3, "cannot add absent");
  EXPECT_EQ(contents("a.pkg"), expected);
  EXPECT_EQ(files(), (std::vector<std::string>{"a.pkg", "x"}));
}

}  // namespace
