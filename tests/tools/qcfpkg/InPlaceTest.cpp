#include <csignal>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Program.h"

// A change in the package file itself that does not come to its end is taken back.

namespace {

class InPlace : public Qcfpkg {
protected:
  void makeRandom(const std::string& name, int size) const {
    python("import os; open('" + name + "', 'wb').write(os.urandom(" + std::to_string(size) + "))");
  }
  off_t sizeOf(const std::string& name) const {
    struct stat status {};
    return stat((folder / name).c_str(), &status) == 0 ? status.st_size : -1;
  }
  // Sends the signal as soon as the file changes; returns the status of the run.
  int interruptAdding(int signal) const {
    const off_t before = sizeOf("a.pkg");
    const pid_t child = start({"add", "--in-place", "--store", "a.pkg", "new=big"});
    int status = 0;
    while (sizeOf("a.pkg") == before) {
      if (waitpid(child, &status, WNOHANG) == child) return status;
    }
    kill(child, signal);
    waitpid(child, &status, 0);
    return status;
  }
};

TEST_F(InPlace, AFullDiskLeavesTheOldPackage) {
  static const char* const kScript =
      "mkdir disk && mount -t tmpfs -o size=300k none disk || exit 99\n"
      "cp a.pkg disk && \"$0\" add --in-place disk/a.pkg new=big; status=$?\n"
      "cmp a.pkg disk/a.pkg && ls disk\n"
      "exit $status\n";
  if (!shell("unshare -m mount --bind . .").succeeded()) GTEST_SKIP() << "may not mount a disk";
  makeRandom("big", 200000);
  must({"create", "--type", "a/b", "a.pkg", "big"});
  const auto finished =
      support::run({{"unshare", "-m", "sh", "-c", kScript, QCFPKG}, {}, folder.path(), {}});
  EXPECT_EQ(finished.status, 3);
  EXPECT_EQ(finished.out, "a.pkg\n");
  EXPECT_NE(finished.err.find("is the disk full?\n"), std::string::npos) << finished.err;
  EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
}

TEST_F(InPlace, ALimitOnTheSizeOfFilesLeavesTheOldPackage) {
  makeRandom("big", 500000);
  must({"create", "--type", "a/b", "a.pkg", "big"});
  const std::string before = folder.read("a.pkg");
  // A shell counts in blocks of 512 bytes or of 1024; either limit is met half way.
  const auto finished = shell(
      "trap '' XFSZ; ulimit -f 1300; exec \"$0\" add --in-place --store a.pkg one=big two=big");
  EXPECT_EQ(finished.status, 3);
  EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
  EXPECT_EQ(folder.read("a.pkg"), before);
  expectNoFinding("a.pkg");
}

TEST_F(InPlace, WhatCannotBePutBackIsTold) {
  makeRandom("big", 3000000);
  must({"create", "--type", "a/b", "a.pkg", "big"});
  const auto finished = shell("ulimit -f 1000; exec \"$0\" comment --in-place a.pkg c");
  EXPECT_EQ(finished.status, 3);
  EXPECT_NE(finished.err.find("it has lost its directory\n"), std::string::npos) << finished.err;
  EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
}

TEST_F(InPlace, AnInterruptLeavesTheOldPackageOrTheNew) {
  makeRandom("big", 20 << 20);
  folder.write("small", "small");
  must({"create", "--type", "a/b", "old", "small"});
  std::filesystem::copy_file(folder / "old", folder / "a.pkg");
  const std::string old = folder.read("old");
  must({"add", "--in-place", "--store", "a.pkg", "new=big"});
  const std::string added = folder.read("a.pkg");
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    int restored = 0;
    for (int i = 0; i < 30 && restored == 0; ++i) {  // some come too late
      std::filesystem::copy_file(folder / "old", folder / "a.pkg",
                                 std::filesystem::copy_options::overwrite_existing);
      const int status = interruptAdding(signal);
      const std::string left = folder.read("a.pkg");
      ASSERT_TRUE(left == old || left == added) << left.size();
      if (left != old) continue;
      ++restored;
      EXPECT_TRUE(WIFSIGNALED(status));
      EXPECT_EQ(WTERMSIG(status), signal);
    }
    EXPECT_EQ(restored, 1) << signal;
  }
}

TEST_F(InPlace, AnIgnoredHangUpStopsNothing) {
  makeRandom("big", 5 << 20);
  must({"create", "--type", "a/b", "a.pkg", "big"});
  const auto finished = shell(
      "trap '' HUP; \"$0\" --quiet add --in-place --store a.pkg new=big & "
      "for i in 1 2 3 4 5 6 7 8 9; do kill -HUP $! 2>/dev/null; sleep 0.02; done; wait $!");
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_EQ(contents("a.pkg").size(), 3u);
}

}  // namespace
