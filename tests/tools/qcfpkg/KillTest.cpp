#include <chrono>
#include <csignal>
#include <random>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Program.h"

// Runs that are killed at random moments leave the old package or the new one, whole, and no file
// that the next run does not clear. QCF_LONG_TESTS=1 kills 500 runs of each change of a package of
// 50 MB.

namespace {

using Clock = std::chrono::steady_clock;

bool isLong() {
  const char* const text = std::getenv("QCF_LONG_TESTS");
  return text != nullptr && std::string(text) == "1";
}

struct KilledChange {
  const char* name;
  std::vector<std::string> arguments;
};

void PrintTo(const KilledChange& change, std::ostream* out) {
  *out << change.name;
}

class Kill : public Qcfpkg, public testing::WithParamInterface<KilledChange> {
protected:
  // Random data, with as much of it dead, so that compact has something to do.
  void SetUp() override {
    python("import os\nopen('big', 'wb').write(os.urandom(" + std::string(isLong() ? "50" : "10") +
           " << 20))");
    folder.write("small", "small");
    must({"create", "--store", "--type", "a/b", "a.pkg", "big", "small"});
    if (std::string(GetParam().name) == "compact") {
      must({"add", "--in-place", "--store", "a.pkg", "dead=big", "x=small"});
      must({"remove", "--in-place", "a.pkg", "dead"});
    }
    std::filesystem::remove(folder / "big");
    std::filesystem::rename(folder / "a.pkg", folder / "old");
    std::filesystem::copy_file(folder / "old", folder / "pristine");
    std::filesystem::create_hard_link(folder / "old", folder / "a.pkg");
  }

  // Lets the change run until `moment`, and returns whether the kill ended it.
  bool killAt(Clock::duration moment) const {
    const pid_t child = start(GetParam().arguments);
    const auto micro = std::chrono::duration_cast<std::chrono::microseconds>(moment).count();
    usleep(static_cast<useconds_t>(micro));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status);
  }
  bool same(const std::string& one, const std::string& other) const {
    return support::run({{"cmp", "-s", one, other}, {}, folder.path(), {}}).succeeded();
  }
  // The old package is the very file that was there, so one comparison at the end serves for it.
  bool isOld() const { return std::filesystem::equivalent(folder / "a.pkg", folder / "old"); }
  void putBackOld() const {
    std::filesystem::remove(folder / "a.pkg");
    std::filesystem::create_hard_link(folder / "old", folder / "a.pkg");
  }
  int leftovers() const {
    const auto names = files();
    return static_cast<int>(std::count_if(names.begin(), names.end(), [](const std::string& name) {
      return name.find(".qcfpkg-") != std::string::npos;
    }));
  }
};

TEST_P(Kill, LeavesTheOldPackageOrTheNewAndNothingThatIsNotCleared) {
  const int wanted = isLong() ? 500 : 15;
  auto whole = Clock::now();
  ASSERT_EQ(run(GetParam().arguments).status, 0);
  auto duration = Clock::now() - whole;
  std::filesystem::rename(folder / "a.pkg", folder / "new");
  std::filesystem::create_hard_link(folder / "old", folder / "a.pkg");
  expectSound("new");
  ASSERT_FALSE(same("new", "old"));
  std::mt19937 random(7);
  int killed = 0;
  int finished = 0;
  int foundNew = 0;
  int foundLeftovers = 0;
  while (killed < wanted && finished < 4 * wanted) {
    // A little beyond the end, for the moments around the renaming.
    const auto began = Clock::now();
    const auto moment = duration * 108 / 100 * (random() % 1000) / 1000;
    if (killAt(moment)) {
      ++killed;
      foundNew += isOld() ? 0 : 1;
      foundLeftovers += leftovers();
    } else {
      ++finished;
      duration = std::min(duration, Clock::now() - began);
    }
    ASSERT_LE(leftovers(), 1) << "the leftover of the run before is cleared by the next";
    if (isOld()) continue;
    ASSERT_TRUE(same("a.pkg", "new")) << "after " << killed << " kills";
    putBackOld();
  }
  EXPECT_EQ(killed, wanted);
  EXPECT_TRUE(same("old", "pristine"));
  EXPECT_EQ(run(GetParam().arguments).status, 0);
  EXPECT_EQ(leftovers(), 0);
  std::printf("%s: %d killed, %d of them with the new package in place; %d leftovers seen\n",
              GetParam().name, killed, foundNew, foundLeftovers);
}

INSTANTIATE_TEST_SUITE_P(Changes, Kill,
                         testing::Values(KilledChange{"add", {"add", "a.pkg", "new=small"}},
                                         KilledChange{"remove", {"remove", "a.pkg", "small"}},
                                         KilledChange{"compact", {"--quiet", "compact", "a.pkg"}}),
                         [](const auto& tested) { return tested.param.name; });

// A package that is not there yet cannot be locked: the lock is on what is being written.
TEST_F(Qcfpkg, CreateKilledHalfWayLeavesNothingThatTheNextDoesNotClear) {
  folder.write("small", "small");
  mkfifo((folder / "pipe").c_str(), 0600);
  for (int i = 0; i < 3; ++i) {
    const pid_t child = start({"create", "--type", "a/b", "a.pkg", "small", "x=pipe"});
    const int writer = open((folder / "pipe").c_str(), O_WRONLY);  // waits for the reader
    EXPECT_EQ(files().size(), 3u);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    close(writer);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_FALSE(std::filesystem::exists(folder / "a.pkg"));
  }
  const auto finished = run({"create", "--type", "a/b", "a.pkg", "small"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_NE(finished.err.find("which an interrupted run had left"), std::string::npos);
  EXPECT_EQ(files(), (std::vector<std::string>{"a.pkg", "pipe", "small"}));
}

}  // namespace
