#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "Program.h"

namespace {

TEST_F(Qsndhost, ListsTheFormats) {
  EXPECT_EQ(run({"formats"}).out, "QSND  Quillon Sound Document (QSND)  .qsnd\n");
  const auto json = nlohmann::json::parse(run({"formats", "--json"}).out);
  EXPECT_EQ(json, nlohmann::json::parse(R"([{"type": "QSND", "name": "Quillon Sound Document",
      "shortName": "QSND", "extensions": ["qsnd"], "flags": 57348}])"));
}

TEST_F(Qsndhost, TellsTheLayoutOfDocuments) {
  makeDocument("a.qsnd", 24, 2, 12000);
  const auto finished = run({"info", "a.qsnd"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.err, "");
  EXPECT_EQ(finished.out,
            "a.qsnd\n  channels  2\n  rate      8000 Hz\n  format    24-bit integer\n"
            "  frames    12000\n  duration  0:00:01.500\n");
  const auto json = nlohmann::json::parse(run({"info", "--json", "a.qsnd"}).out);
  EXPECT_EQ(json, nlohmann::json::parse(R"([{"file": "a.qsnd", "channels": 2, "sampleRate": 8000.0,
      "sampleFormat": "24-bit integer", "frames": 12000, "duration": 1.5}])"));
}

TEST_F(Qsndhost, OneUnreadableDocumentDoesNotHideTheOthers) {
  makeDocument("a.qsnd", 16, 1, 10);
  makeDocument("c.qsnd", 16, 1, 10);
  folder.write("b.qsnd", "damaged");
  const auto finished = run({"info", "a.qsnd", "b.qsnd", "c.qsnd"});
  EXPECT_EQ(finished.status, 3);
  EXPECT_NE(finished.out.find("a.qsnd\n"), std::string::npos);
  EXPECT_NE(finished.out.find("c.qsnd\n"), std::string::npos);
  EXPECT_EQ(finished.err,
            "qsndhost: cannot open b.qsnd: not a sound document, or a damaged one\n"
            "qsndhost: 2 of 3 documents done, 1 failed\n");
  const auto json = nlohmann::json::parse(run({"info", "--json", "a.qsnd", "b.qsnd"}).out);
  EXPECT_EQ(json[1]["error"], "cannot open b.qsnd: not a sound document, or a damaged one");
}

TEST_F(Qsndhost, ExportsTheAudioAsItWasStored) {
  for (const auto& [bits, option, subtype] :
       std::vector<std::tuple<int, std::string, int>>{{16, "16", SF_FORMAT_PCM_16},
                                                      {24, "24", SF_FORMAT_PCM_24},
                                                      {16, "24", SF_FORMAT_PCM_24},
                                                      {8, "16", SF_FORMAT_PCM_16},
                                                      {24, "float", SF_FORMAT_FLOAT}}) {
    Wave wave;
    wave.bits = static_cast<std::uint16_t>(bits);
    wave.channels = 2;
    wave.rate = 22050;
    wave.data = noise(static_cast<std::size_t>(70000 * 2 * bits / 8), 3);
    folder.write("source.wav", wave.bytes());
    folder.write("a.qsnd", storedDocument(wave.bytes()));
    const auto finished = run({"export", "a.qsnd", "out.wav", "--format", option});
    ASSERT_EQ(finished.status, 0) << finished.err;
    EXPECT_EQ(finished.out + finished.err, "");
    const Sound source = readSound(folder / "source.wav");
    const Sound exported = readSound(folder / "out.wav");
    EXPECT_EQ(exported.info.format, SF_FORMAT_WAV | subtype);
    EXPECT_EQ(exported.info.samplerate, 22050);
    EXPECT_EQ(exported.info.channels, 2);
    ASSERT_EQ(exported.info.frames, 70000);
    // Floats come back through another reader's scaling, so they are compared by value.
    EXPECT_TRUE(subtype == SF_FORMAT_FLOAT || exported.samples == source.samples) << bits;
  }
}

TEST_F(Qsndhost, FloatsAreExportedBitForBit) {
  Wave wave;
  wave.tag = 3;
  wave.bits = 32;
  wave.data = noise(40000, 9);
  folder.write("a.qsnd", storedDocument(wave.bytes()));
  ASSERT_EQ(run({"export", "a.qsnd", "out.wav"}).status, 0);
  const std::string bytes = folder.read("out.wav");
  EXPECT_EQ(bytes.substr(bytes.size() - 40000), wave.data);
}

TEST_F(Qsndhost, NoReaderComplainsOfAnExport) {
  for (std::uint16_t channels = 1; channels <= 6; ++channels) {
    Wave wave;
    wave.tag = 3;
    wave.bits = 32;
    wave.channels = channels;
    wave.data = std::string(std::size_t{channels} * 400, '\0');
    folder.write("a.qsnd", storedDocument(wave.bytes()));
    for (const char* const format : {"float", "24", "16"}) {
      SCOPED_TRACE(std::to_string(channels) + " channels, " + format);
      must({"export", "a.qsnd", "out.wav", "--format", format});
      const auto sox = support::run({{"sox", "out.wav", "-n", "stats"}, {}, folder.path(), {}});
      EXPECT_EQ(sox.status, 0);
      EXPECT_EQ(sox.err.find("WARN"), std::string::npos) << sox.err;
      EXPECT_EQ(readSound(folder / "out.wav").info.frames, 100);
      must({"make", "out.wav", "again.qsnd"});
    }
    must({"export", "a.qsnd", "out.wav"});
    const std::string bytes = folder.read("out.wav");
    EXPECT_EQ(bytes.substr(16, 4), std::string("\x12\0\0\0", 4));
    EXPECT_EQ(bytes.substr(36, 2), std::string(2, '\0'));
    EXPECT_EQ(bytes.substr(38, 4), "fact");
  }
}

TEST_F(Qsndhost, IntegersAreRoundedAndClipped) {
  Wave wave;
  wave.tag = 3;
  wave.bits = 32;
  for (const float value : {1.0f, -1.0f, 2.0f, -2.0f, 0.5f, 1.4f / 32768, 1.6f / 32768, NAN}) {
    wave.data.append(reinterpret_cast<const char*>(&value), 4);
  }
  folder.write("a.qsnd", storedDocument(wave.bytes()));
  ASSERT_EQ(run({"export", "a.qsnd", "out.wav", "--format", "16"}).status, 0);
  std::vector<int> values;
  for (const int sample : readSound(folder / "out.wav").samples)
    values.push_back(sample / 65536);
  EXPECT_EQ(values, (std::vector<int>{32767, -32768, 32767, -32768, 16384, 1, 2, 0}));
}

TEST_F(Qsndhost, ExportsAStretch) {
  makeDocument("a.qsnd", 16, 1, 1000);
  ASSERT_EQ(run({"export", "a.qsnd", "whole.wav", "--format", "16"}).status, 0);
  ASSERT_EQ(
      run({"export", "a.qsnd", "part.wav", "--format", "16", "--start", "100", "--frames", "50"})
          .status,
      0);
  const auto whole = readSound(folder / "whole.wav").samples;
  EXPECT_EQ(readSound(folder / "part.wav").samples,
            std::vector<int>(whole.begin() + 100, whole.begin() + 150));
  ASSERT_EQ(run({"export", "a.qsnd", "rest.wav", "--start", "990", "--frames", "50"}).status, 0);
  EXPECT_EQ(readSound(folder / "rest.wav").info.frames, 10);
  ASSERT_EQ(run({"export", "a.qsnd", "none.wav", "--start", "1000"}).status, 0);
  EXPECT_EQ(readSound(folder / "none.wav").info.frames, 0);
  expectFailure(run({"export", "a.qsnd", "x.wav", "--start", "1001"}), 2,
                "cannot export a.qsnd: --start 1001 is behind the end, 1000 frames");
}

TEST_F(Qsndhost, StandardOutputGetsTheSameBytes) {
  makeDocument("a.qsnd", 24, 2, 5000);
  ASSERT_EQ(run({"export", "a.qsnd", "out.wav"}).status, 0);
  const auto finished = shell("\"$0\" export a.qsnd - | cat");
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, folder.read("out.wav"));
}

TEST_F(Qsndhost, MoreThanSixChannelsAreCutWithANote) {
  makeDocument("a.qsnd", 16, 8, 100);
  auto finished = run({"export", "a.qsnd", "out.wav"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.err, "qsndhost: a.qsnd: the importer delivers the first 6 of 8 channels\n");
  EXPECT_EQ(readSound(folder / "out.wav").info.channels, 6);
  finished = run({"--quiet", "export", "a.qsnd", "out.wav"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.err, "");
}

TEST_F(Qsndhost, WhatLiesBehindTwoGigabytesIsRefused) {
  Wave wave;
  wave.data = noise(1000, 1);
  wave.dataSize = 3000000000;
  folder.write("a.qsnd", storedDocument(wave.bytes()));
  const std::string reason = "only the first 1073741824 frames can be read through the importer";
  expectFailure(run({"export", "a.qsnd", "a.wav"}), 3, "cannot export a.qsnd: " + reason);
  expectFailure(run({"waveform", "a.qsnd", "a.png", "--start", "1073741824", "--frames", "1"}), 3,
                "cannot draw a.qsnd: " + reason);
  must({"export", "a.qsnd", "a.wav", "--frames", "500"});
  EXPECT_EQ(readSound(folder / "a.wav").info.frames, 500);
}

TEST_F(Qsndhost, AFailedExportLeavesNoFileAndTheOldOneAsItWas) {
  Wave wave;
  wave.data = "abcd";
  wave.dataSize = 1000;
  folder.write("short.qsnd", storedDocument(wave.bytes()));
  expectFailure(run({"export", "short.qsnd", "new.wav"}), 3,
                "cannot export short.qsnd: the audio data ends too early");
  folder.write("old.wav", "old");
  EXPECT_EQ(run({"export", "short.qsnd", "old.wav"}).status, 3);
  EXPECT_EQ(folder.read("old.wav"), "old");
  EXPECT_EQ(files(), (std::vector<std::string>{"old.wav", "short.qsnd"}));
}

TEST_F(Qsndhost, AnExportKeepsTheModeOfTheFileItReplaces) {
  makeDocument("a.qsnd", 16, 1, 10);
  folder.write("old.wav", "old");
  chmod((folder / "old.wav").c_str(), 0640);
  ASSERT_EQ(run({"export", "a.qsnd", "old.wav"}).status, 0);
  struct stat status {};
  stat((folder / "old.wav").c_str(), &status);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  ASSERT_EQ(shell("umask 027; \"$0\" export a.qsnd new.wav").status, 0);
  stat((folder / "new.wav").c_str(), &status);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST_F(Qsndhost, AnExportWritesThroughSymbolicLinksAndIntoDevices) {
  makeDocument("a.qsnd", 16, 1, 10);
  folder.write("target.wav", "old");
  std::filesystem::create_symlink("target.wav", folder / "link.wav");
  ASSERT_EQ(run({"export", "a.qsnd", "link.wav"}).status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link.wav"));
  EXPECT_EQ(readSound(folder / "target.wav").info.frames, 10);
  ASSERT_EQ(run({"export", "a.qsnd", "/dev/null"}).status, 0);
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(Qsndhost, TheDocumentIsNeverTheOutput) {
  const std::string before =
      folder.read(std::filesystem::path(makeDocument("a.qsnd", 16, 1, 10)).filename());
  std::filesystem::create_hard_link(folder / "a.qsnd", folder / "b.qsnd");
  for (const char* const name : {"a.qsnd", "./a.qsnd", "b.qsnd"}) {
    expectFailure(run({"export", "a.qsnd", name}), 2,
                  "cannot export a.qsnd: the output is the document itself");
  }
  EXPECT_EQ(folder.read("a.qsnd"), before);
}

TEST_F(Qsndhost, WritesThatFailAreTold) {
  makeDocument("a.qsnd", 16, 1, 10);
  expectFailure(run({"export", "a.qsnd", "/dev/full"}), 3,
                "cannot write /dev/full: No space left on device");
  expectFailure(shell("\"$0\" export a.qsnd - >/dev/full"), 3,
                "cannot write standard output: No space left on device");
  expectFailure(shell("\"$0\" info a.qsnd >/dev/full"), 3,
                "cannot write standard output: No space left on device");
  const auto finished = run({"export", "a.qsnd", "no/such/folder/out.wav"});
  EXPECT_EQ(finished.status, 3);
  EXPECT_NE(finished.err.find("No such file or directory\n"), std::string::npos);
}

TEST_F(Qsndhost, WrongUseIsTwoAndOneLine) {
  for (const auto& arguments :
       std::vector<std::vector<std::string>>{{},
                                             {"dance"},
                                             {"info"},
                                             {"export", "a.qsnd"},
                                             {"export", "a.qsnd", "b.wav", "c.wav"},
                                             {"export", "a.qsnd", "b.wav", "--format", "17"},
                                             {"export", "a.qsnd", "b.wav", "--start", "-1"},
                                             {"export", "a.qsnd", "b.wav", "--frames", "x"},
                                             {"info", "--nonsense", "a.qsnd"}}) {
    const auto finished = run(arguments);
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.err.find("qsndhost: "), 0u);
    EXPECT_EQ(finished.err.find('\n'), finished.err.size() - 1) << finished.err;
  }
}

TEST_F(Qsndhost, NamesThatCouldBreakALineAreShownEscaped) {
  expectFailure(run({"info", "two\nlines\x1b[2J.qsnd"}), 3,
                "cannot open two\\x0alines\\x1b[2J.qsnd: no such file");
}

TEST_F(Qsndhost, HelpAndVersionGoToStandardOutput) {
  const auto version = run({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out, "qsndhost " QSND_VERSION "\n");
  const auto help = run({"export", "--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("--start"), std::string::npos);
  EXPECT_EQ(help.err, "");
}

TEST_F(Qsndhost, TakesTheBundleThatItIsTold) {
  std::filesystem::copy(QSND_BUNDLE, folder / "ImporterQSND.bundle",
                        std::filesystem::copy_options::recursive);
  EXPECT_EQ(run({"--bundle", "ImporterQSND.bundle", "formats"}).status, 0);
  expectFailure(
      run({"--bundle", "absent.bundle", "formats"}), 3,
      "cannot load absent.bundle: the importer bundle is missing: No such file or directory");
}

}  // namespace
