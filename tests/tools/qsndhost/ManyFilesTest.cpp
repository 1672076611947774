#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Program.h"

namespace {

class ManyFiles : public Qsndhost {
protected:
  void SetUp() override {
    makeDocument("a.qsnd", 16, 1, 100);
    makeDocument("c.qsnd", 16, 2, 200);
    folder.write("b.qsnd", "damaged");
  }
};

constexpr const char* kDamaged = "not a sound document, or a damaged one";

TEST_F(ManyFiles, EachExportGoesToTheFolder) {
  const auto finished = run({"export", "--folder", "new/waves", "a.qsnd", "c.qsnd"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(finished.err, "qsndhost: all 2 documents done\n");
  EXPECT_EQ(readSound(folder / "new/waves/a.wav").info.frames, 100);
  EXPECT_EQ(readSound(folder / "new/waves/c.wav").info.channels, 2);
}

TEST_F(ManyFiles, OneThatFailsIsToldAndTheOthersAreDone) {
  const auto finished = run({"waveform", "a.qsnd", "b.qsnd", "c.qsnd", "-d", "pictures"});
  EXPECT_EQ(finished.status, 3);
  EXPECT_EQ(finished.err, std::string("qsndhost: cannot draw b.qsnd: ") + kDamaged +
                              "\nqsndhost: 2 of 3 documents done, 1 failed\n");
  EXPECT_TRUE(std::filesystem::exists(folder / "pictures/c.png"));
  EXPECT_FALSE(std::filesystem::exists(folder / "pictures/b.png"));
}

TEST_F(ManyFiles, AWrongStretchOfOneIsAFailureOfTheRun) {
  const auto finished = run({"export", "--start", "150", "--folder", "w", "a.qsnd", "c.qsnd"});
  EXPECT_EQ(finished.status, 3);
  EXPECT_EQ(readSound(folder / "w/c.wav").info.frames, 50);
}

TEST_F(ManyFiles, JSONIsAnArrayOfAll) {
  const auto exported = run({"export", "--json", "-d", "w", "a.qsnd", "b.qsnd"});
  EXPECT_EQ(exported.status, 3);
  const auto json = nlohmann::json::parse(exported.out);
  EXPECT_EQ(json[0], nlohmann::json::parse(R"({"file": "a.qsnd", "output": "w/a.wav", "channels": 1,
      "sampleRate": 8000, "start": 0, "frames": 100})"));
  EXPECT_EQ(json[1]["error"], std::string("cannot export b.qsnd: ") + kDamaged);
  const auto info = nlohmann::json::parse(run({"info", "--json", "b.qsnd", "c.qsnd"}).out);
  EXPECT_EQ(info[1]["channels"], 2);
  EXPECT_EQ(info[0]["file"], "b.qsnd");
}

TEST_F(ManyFiles, OutputsOfOneNameAreRefusedBeforeAnythingIsDone) {
  std::filesystem::create_directory(folder / "sub");
  makeDocument("sub/a.qsnd", 16, 1, 10);
  expectFailure(run({"export", "-d", "w", "a.qsnd", "sub/a.qsnd"}), 2,
                "cannot export sub/a.qsnd: w/a.wav would also be the output of a.qsnd");
  EXPECT_FALSE(std::filesystem::exists(folder / "w"));
}

TEST_F(ManyFiles, AFolderThatCannotBeMadeIsTold) {
  expectFailure(run({"export", "-d", "a.qsnd", "c.qsnd"}), 3,
                "cannot make the folder a.qsnd: Not a directory");
}

TEST_F(ManyFiles, QuietTellsFailuresOnly) {
  const auto finished = run({"-q", "info", "a.qsnd", "b.qsnd"});
  EXPECT_EQ(finished.err, std::string("qsndhost: cannot open b.qsnd: ") + kDamaged + "\n");
}

TEST_F(ManyFiles, AnImporterThatDoesNotLoadIsToldOnce) {
  expectFailure(
      run({"--bundle", "absent.bundle", "info", "a.qsnd", "c.qsnd"}), 3,
      "cannot load absent.bundle: the importer bundle is missing: No such file or directory");
}

TEST_F(ManyFiles, ADocumentNamedTwiceIsDoneTwiceWhereNothingIsWritten) {
  EXPECT_EQ(nlohmann::json::parse(run({"info", "--json", "a.qsnd", "a.qsnd"}).out).size(), 2u);
}

}  // namespace
