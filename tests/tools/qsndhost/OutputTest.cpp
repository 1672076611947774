#include <algorithm>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Program.h"
#include "support/FullDisk.h"
#include "support/ZipBytes.h"

// Where outputs and temporary files go, and what is told of it.

namespace {

class Output : public Qsndhost {
protected:
  void SetUp() override {
    makeDocument("a.qsnd", 16, 1, 20000);
    Wave wave;
    wave.rate = 8000;
    wave.data = noise(200000, 16);
    folder.write("a.wav", wave.bytes());
  }
};

TEST_F(Output, WhatAKilledRunLeftIsRemovedWhicheverWayTheOutputIsNamed) {
  std::filesystem::create_directory(folder / "d");
  const std::string here = folder.path().string();
  const std::vector<std::vector<std::string>> commands{
      {"export", "a.qsnd", "o"},
      {"waveform", "--as", "svg", "a.qsnd", "o"},
      {"make", "a.wav", "o"},
      {"export", "a.qsnd", "./o"},
      {"export", "a.qsnd", here + "/o"},
      {"export", "a.qsnd", "d/../o"},
  };
  for (const auto& command : commands) {
    SCOPED_TRACE(command.front() + " to " + command.back());
    for (const bool exists : {false, true}) {
      std::filesystem::remove(folder / "o");
      if (exists) folder.write("o", "old");
      folder.write(".o.qsndhost-Ab12Xy", "left");
      const auto finished = run(command);
      EXPECT_EQ(finished.status, 0);
      EXPECT_NE(finished.err.find("/.o.qsndhost-Ab12Xy, which an interrupted run had left\n"),
                std::string::npos)
          << finished.err;
      EXPECT_EQ(files(), (std::vector<std::string>{"a.qsnd", "a.wav", "d", "o"}));
    }
  }
}

TEST_F(Output, AFullTemporaryFolderIsNotTakenForStandardOutput) {
  environment = {{"TMPDIR", (folder / "tmp").string()}};
  std::filesystem::create_directory(folder / "tmp");
  for (const char* const command :
       {"export a.qsnd -", "waveform --as svg a.qsnd -", "make a.wav -"}) {
    const auto full = shell(support::onFullDisk(2, command) + " | cat");
    EXPECT_EQ(full.err.find("qsndhost: cannot write "), 0u) << full.err;
    EXPECT_NE(full.err.find((folder / "tmp").string()), std::string::npos) << full.err;
    EXPECT_EQ(full.err.find("standard output"), std::string::npos) << full.err;
    EXPECT_EQ(std::count(full.err.begin(), full.err.end(), '\n'), 1) << full.err;
  }
}

TEST_F(Output, AMissingTemporaryFolderIsNamed) {
  const std::string absent = (folder / "absent").string();
  environment = {{"TMPDIR", absent}};
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"export", "a.qsnd", "-"}, {"make", "a.wav", "-"}}) {
    const auto finished = run(command);
    EXPECT_EQ(finished.status, 3);
    EXPECT_EQ(finished.err.find("qsndhost: cannot make a temporary file in " + absent + ": "), 0u)
        << finished.err;
  }
}

TEST_F(Output, ACacheFolderThatCannotBeMadeIsNamedWithTheReason) {
  must({"make", "--deflate", "a.wav", "deflated.qsnd"});
  const std::string absent = (folder / "absent/cache").string();
  environment = {{"XDG_CACHE_HOME", absent}};
  const std::string reason = "its audio cannot be inflated into the cache folder " + absent +
                             ": No such file or directory";
  expectFailure(run({"export", "deflated.qsnd", "o.wav"}), 3,
                "cannot export deflated.qsnd: " + reason);
  expectFailure(run({"make", "--deflate", "a.wav", "o.qsnd"}), 3,
                "cannot make a document of a.wav: " + reason);
  folder.write("file", "");
  environment = {{"XDG_CACHE_HOME", (folder / "file").string()}};
  expectFailure(run({"export", "deflated.qsnd", "o.wav"}), 3,
                "cannot export deflated.qsnd: its audio cannot be inflated into the cache folder " +
                    (folder / "file").string() + ": Not a directory");
}

TEST_F(Output, WithoutACacheFolderOfItsOwnThatOfTheHomeFolderIsNamed) {
  must({"make", "--deflate", "a.wav", "deflated.qsnd"});
  const auto finished =
      shell("unset XDG_CACHE_HOME; HOME=\"$PWD/home\" exec \"$0\" export deflated.qsnd o.wav");
  expectFailure(finished, 3,
                "cannot export deflated.qsnd: its audio cannot be inflated into the cache folder " +
                    (folder / "home/.cache").string() + ": No such file or directory");
  std::filesystem::create_directories(folder / "home/.cache");
  EXPECT_TRUE(
      shell("unset XDG_CACHE_HOME; HOME=\"$PWD/home\" exec \"$0\" export deflated.qsnd o.wav")
          .succeeded());
  EXPECT_TRUE(std::filesystem::is_empty(folder / "home/.cache/TemporaryItems"));
}

// Root may write everywhere, so it steps back to somebody whose home folder is no place for a
// cache.
TEST_F(Output, WithoutAHomeFolderInTheEnvironmentThatOfTheUserIsNamed) {
  constexpr uid_t kNobody = 65534;
  const passwd* const nobody = getpwuid(kNobody);
  if (geteuid() != 0 || nobody == nullptr) GTEST_SKIP() << "takes another user";
  const auto home = std::filesystem::path(nobody->pw_dir);
  if (std::filesystem::exists(home)) GTEST_SKIP() << home << " is there";
  must({"make", "--deflate", "a.wav", "deflated.qsnd"});
  // What nobody can write: the temporary file, and the counters of a build that counts what is
  // reached (QCF_COVERAGE).
  const support::TempDir elsewhere;
  chmod(elsewhere.path().c_str(), 0777);
  chmod(folder.path().c_str(), 0755);
  environment = {{"TMPDIR", elsewhere.path().string()}, {"GCOV_PREFIX", elsewhere.path().string()}};
  const auto finished = shell(
      "exec env -u XDG_CACHE_HOME -u HOME setpriv --reuid=65534 --regid=65534 --clear-groups "
      "\"$0\" export deflated.qsnd - | cat");
  EXPECT_EQ(finished.err,
            "qsndhost: cannot export deflated.qsnd: its audio cannot be inflated into "
            "the cache folder " +
                (home / ".cache").string() + ": No such file or directory\n");
}

TEST_F(Output, StoredAudioHasNothingToDoWithTheCacheFolder) {
  environment = {{"XDG_CACHE_HOME", (folder / "absent/cache").string()}};
  must({"export", "a.qsnd", "o.wav"});
  Wave wave;
  wave.data = "abcd";
  wave.dataSize = 1000;
  folder.write("short.qsnd", storedDocument(wave.bytes()));
  expectFailure(run({"export", "short.qsnd", "o.wav"}), 3,
                "cannot export short.qsnd: the audio data ends too early");
}

TEST_F(Output, ADamagedDocumentThatClaimsGigabytesGetsNoRoomForThem) {
  Wave wave;
  wave.data = "abcd";
  wave.dataSize = 1000;
  const std::string packed = zipbytes::storedDeflate(wave.bytes());
  zipbytes::Entry audio = zipbytes::deflatedEntry("Mixdown.wav", wave.bytes(), packed);
  audio.size = 0xF0000000;
  folder.write("claim.qsnd", zipbytes::File().add(audio, packed).bytes());
  expectFailure(shell("ulimit -f 1000; exec \"$0\" export claim.qsnd o.wav"), 3,
                "cannot export claim.qsnd: the audio data ends too early");
}

TEST_F(Output, IsNamedAsItWasGiven) {
  std::filesystem::create_directory(folder / "d");
  for (const char* const name : {"d", "./d", "d/../d", "absent/x"}) {
    const auto finished = run({"export", "a.qsnd", name});
    EXPECT_EQ(finished.status, 3);
    EXPECT_EQ(finished.err.find("qsndhost: cannot write " + std::string(name) + ": "), 0u)
        << finished.err;
  }
  expectFailure(run({"export", "a.qsnd", "./d"}), 3, "cannot write ./d: it is a folder");
}

struct Job {
  const char* name;
  std::vector<std::string> arguments;
  const char* output;
};

void PrintTo(const Job& job, std::ostream* out) {
  *out << job.name;
}

class OutputOnADisk : public Output, public testing::WithParamInterface<Job> {};

// The real thing: a disk of 64 kB that another file fills to the last byte.
TEST_P(OutputOnADisk, ThatIsFullIsToldInOneLineAndLeavesWhatWasThere) {
  static const char* const kScript =
      "mkdir -p disk && mount -t tmpfs -o size=64k none disk && cd disk || exit 99\n"
      "if test $EXISTS = 1; then echo old >$OUTPUT; fi\n"
      "head -c 1M /dev/zero >filler 2>/dev/null\n"
      "\"$0\" \"$@\"; status=$?\n"
      "find . -type f | sort; if test $EXISTS = 1; then cat $OUTPUT; fi\n"
      "exit $status\n";
  if (!shell("unshare -m mount --bind . .").succeeded()) GTEST_SKIP() << "may not mount a disk";
  const std::string output = GetParam().output;
  for (const bool exists : {false, true}) {
    std::vector<std::string> arguments{"unshare", "-m", "sh", "-c", kScript, QSNDHOST};
    arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    const auto finished = support::run(
        {arguments, {}, folder.path(), {{"EXISTS", exists ? "1" : "0"}, {"OUTPUT", output}}});
    EXPECT_EQ(finished.status, 3);
    const std::string file = std::filesystem::path(output).filename().string();
    const bool isFirst = file < "filler";
    const std::string other = "./" + file + "\n";
    EXPECT_EQ(finished.out, !exists   ? "./filler\n"
                            : isFirst ? other + "./filler\nold\n"
                                      : "./filler\n" + other + "old\n");
    EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
    EXPECT_EQ(finished.err.find("qsndhost: cannot write " + output + ": "), 0u) << finished.err;
    const bool tells = finished.err.find("No space left on device") != std::string::npos ||
                       finished.err.find("is the disk full?") != std::string::npos;
    EXPECT_TRUE(tells) << finished.err;
  }
}

const std::vector<Job> kJobs{
    {"export", {"export", "../a.qsnd", "o.wav"}, "o.wav"},
    {"exportInOneProcess", {"--no-isolate", "export", "../a.qsnd", "o.wav"}, "o.wav"},
    {"exportToAFolder", {"export", "--folder", ".", "../a.qsnd"}, "./a.wav"},
    {"waveform", {"waveform", "../a.qsnd", "o.png"}, "o.png"},
    {"waveformInOneProcess", {"--no-isolate", "waveform", "../a.qsnd", "o.png"}, "o.png"},
    {"waveformSVG", {"waveform", "../a.qsnd", "o.svg"}, "o.svg"},
    {"make", {"make", "../a.wav", "o.qsnd"}, "o.qsnd"},
    {"makeDeflated", {"make", "--deflate", "../a.wav", "o.qsnd"}, "o.qsnd"}};

INSTANTIATE_TEST_SUITE_P(Outputs, OutputOnADisk, testing::ValuesIn(kJobs),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace
