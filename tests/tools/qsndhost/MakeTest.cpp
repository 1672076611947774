#include <map>
#include <string>
#include <vector>

#include "Program.h"
#include "support/Fixtures.h"
#include "support/FullDisk.h"

namespace {

class Make : public Qsndhost {
protected:
  // The importer delivers of a document what libsndfile reads of the WAV file.
  void expectSameAudio(const std::string& wave, const std::string& document) {
    const Sound source = readSound(folder / wave);
    const bool isFloat = (source.info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_FLOAT;
    ASSERT_EQ(run({"export", document, "back.wav", "--format", isFloat ? "float" : "24"}).status,
              0);
    const Sound back = readSound(folder / "back.wav");
    EXPECT_EQ(back.info.channels, source.info.channels);
    EXPECT_EQ(back.info.samplerate, source.info.samplerate);
    ASSERT_EQ(back.info.frames, source.info.frames);
    EXPECT_TRUE(back.samples == source.samples);
  }
  void refused(const std::string& wave, const std::string& reason) {
    expectFailure(run({"make", wave, "out.qsnd"}), 3,
                  "cannot make a document of " + wave + ": " + reason);
    EXPECT_FALSE(std::filesystem::exists(folder / "out.qsnd"));
  }
  std::string unzip(const std::string& option, const std::string& document,
                    const std::string& entry = {}) {
    std::vector<std::string> arguments{"unzip", option, document};
    if (!entry.empty()) arguments.push_back(entry);
    return support::mustRun({arguments, {}, folder.path()});
  }
};

TEST_F(Make, WhatSoxWritesComesBackThroughTheImporter) {
  const std::map<std::string, std::string> kinds{
      {"a8", "-b 8 -c 1"}, {"a16", "-b 16 -c 2"}, {"a24", "-b 24 -c 2"}, {"six", "-b 24 -c 6"}};
  for (const auto& [name, options] : kinds) {
    ASSERT_EQ(
        shell("sox -R -D -n -r 22050 " + options + " " + name + ".wav synth 0.5 pinknoise gain -3")
            .status,
        0);
    for (const char* const compression : {"", "--deflate"}) {
      const std::string document = name + compression + ".qsnd";
      ASSERT_EQ(shell("\"$0\" make " + name + ".wav ./" + document + " " + compression).err, "");
      unzip("-tq", document);
      EXPECT_EQ(unzip("-p", document, "Mixdown.wav"), folder.read(name + ".wav"));
      expectSameAudio(name + ".wav", document);
    }
  }
}

TEST_F(Make, FloatsComeBackBitForBit) {
  Wave wave;
  wave.tag = 3;
  wave.bits = 32;
  wave.channels = 2;
  wave.data = noise(80000, 4);
  folder.write("a.wav", wave.bytes());
  must({"make", "a.wav", "a.qsnd"});
  must({"export", "a.qsnd", "b.wav"});
  const std::string bytes = folder.read("b.wav");
  EXPECT_EQ(bytes.substr(bytes.size() - 80000), wave.data);
}

TEST_F(Make, TheTypeComesFirstStoredAndAsTold) {
  Wave wave;
  wave.data = std::string(10000, 'a');
  folder.write("a.wav", wave.bytes());
  must({"make", "a.wav", "a.qsnd"});
  EXPECT_EQ(folder.read("a.qsnd").substr(30, 26), "mimetypeapplication/x-qsnd");
  must({"make", "a.wav", "b.qsnd", "--deflate", "--type", "application/x-other"});
  EXPECT_EQ(folder.read("b.qsnd").substr(30, 27), "mimetypeapplication/x-other");
  EXPECT_LT(folder.read("b.qsnd").size(), 2000u);
  EXPECT_EQ(unzip("-Z1", "b.qsnd"), "mimetype\nMixdown.wav\n");
}

// Readers skip a byte behind a chunk of odd size, the importer doesn't.
TEST_F(Make, ChunksThatWouldLeadTheImporterAstrayGoBehindTheAudio) {
  Wave wave;
  wave.data = noise(2000, 8);
  wave.beforeFormat = chunk("note", "odd") + std::string(1, '\0');
  wave.beforeData = chunk("LIST", "INFO") + chunk("x   ", "12345") + std::string(1, '\0');
  folder.write("a.wav", wave.bytes());
  must({"make", "a.wav", "a.qsnd"});
  expectSameAudio("a.wav", "a.qsnd");
  const std::string mixdown = unzip("-p", "a.qsnd", "Mixdown.wav");
  EXPECT_EQ(mixdown.substr(12, 4), "fmt ");
  EXPECT_EQ(mixdown.substr(36, 4), "data");
  for (const char* const kept : {"odd", "INFO", "12345"})
    EXPECT_NE(mixdown.find(kept), std::string::npos);
  EXPECT_EQ(little(mixdown.size() - 8, 4), mixdown.substr(4, 4));
  folder.write("b.wav", mixdown);
  EXPECT_EQ(readSound(folder / "b.wav").samples, readSound(folder / "a.wav").samples);
}

TEST_F(Make, AudioOfOddLengthIsPaddedWhereItMoves) {
  Wave wave;
  wave.bits = 8;
  wave.data = "abc";
  wave.beforeData = chunk("x   ", "1") + std::string(1, '\0');
  folder.write("a.wav", wave.bytes() + std::string(1, '\0'));
  must({"make", "a.wav", "a.qsnd"});
  expectSameAudio("a.wav", "a.qsnd");
}

TEST_F(Make, WhatTheImporterCouldNotReadIsRefused) {
  const auto write = [&](const std::function<void(Wave&)>& change) {
    Wave wave;
    wave.data = noise(480, 1);
    change(wave);
    folder.write("a.wav", wave.bytes());
  };
  refused("absent.wav", "no such file");
  folder.write("text.wav", "no audio");
  refused("text.wav", "it is not a WAV file");
  folder.write("long.wav", "RF64" + little(0, 4) + "WAVE" + std::string(100, '\0'));
  refused("long.wav", "only WAV files of up to 2 GB can be imported, not RF64");
  write([](Wave& wave) { wave.bits = 32; });
  refused("a.wav",
          "32-bit integers would be taken for floats; convert them to 24 bits or to floats");
  write([](Wave& wave) { wave.bits = 12, wave.blockAlign = 2; });
  refused("a.wav", "integers of 12 bits cannot be imported");
  write([](Wave& wave) { wave.tag = 3, wave.bits = 64; });
  refused("a.wav", "floats of 64 bits cannot be imported");
  write([](Wave& wave) { wave.tag = 7, wave.bits = 8; });
  refused("a.wav", "samples of kind 7 cannot be imported, only integers and floats");
  write([](Wave& wave) { wave.channels = 0; });
  refused("a.wav", "it has no channels");
  write([](Wave& wave) { wave.rate = 0; });
  refused("a.wav", "it has no sample rate");
  write([](Wave& wave) { wave.rate = 4294967295; });
  refused("a.wav", "a rate of 4294967295 Hz is too high to be exported again");
  write([](Wave& wave) { wave.blockAlign = 4; });
  refused("a.wav", "its frames have another size than its samples");
  write([](Wave& wave) { wave.channels = 20000; });
  refused("a.wav", "20000 channels are too many to be imported");
  write([](Wave& wave) { wave.dataSize = 10000; });
  refused("a.wav", "its audio ends too early");
  write([](Wave& wave) { wave.dataSize = 0x80000000; });
  std::filesystem::resize_file(folder / "a.wav", 44 + 0x80000000ll);  // a hole, most of it
  refused("a.wav", "only audio of up to 2 GB can be imported");
  folder.write("b.wav", chunk("RIFF", "WAVE" + chunk("fmt ", "abcd") + chunk("data", "abcd")));
  refused("b.wav", "its format chunk is damaged");
  folder.write("b.wav", "RIFF" + little(4, 4) + "WAVE");
  refused("b.wav", "it does not tell the format of its samples");
  Wave wave;
  folder.write("b.wav", chunk("RIFF", "WAVE" + wave.formatChunk()));
  refused("b.wav", "there is no audio in it");
  std::filesystem::create_directory(folder / "folder");
  refused("folder", "it is a folder");
}

TEST_F(Make, TheHighestRateThatIsTakenIsExported) {
  Wave wave;
  wave.data = noise(480, 1);
  std::uint32_t taken = 0;
  for (std::uint32_t rate = 2147483647; taken == 0 && rate > 2147483000; --rate) {
    wave.rate = rate;
    folder.write("a.wav", wave.bytes());
    if (run({"make", "a.wav", "a.qsnd"}).status == 0) taken = rate;
  }
  EXPECT_EQ(taken, 2147483583u);  // what a float still tells from 2^31
  must({"export", "a.qsnd", "b.wav"});
  EXPECT_EQ(readSound(folder / "b.wav").info.samplerate, 2147483520);
}

TEST_F(Make, FilesOfOthersAreTakenOrRefusedButNeverTakenWrong) {
  QCF_REQUIRE_FIXTURE("wav");
  int made = 0;
  for (const auto& item : std::filesystem::directory_iterator(support::fixture("wav"))) {
    if (item.path().extension() != ".wav") continue;
    std::filesystem::copy_file(item.path(), folder / "a.wav",
                               std::filesystem::copy_options::overwrite_existing);
    const auto finished = run({"make", "a.wav", "a.qsnd"});
    if (finished.status == 0) {
      expectSameAudio("a.wav", "a.qsnd");
      ++made;
    } else {
      EXPECT_EQ(finished.status, 3) << item.path();
      EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
    }
  }
  EXPECT_GE(made, 5);
}

TEST_F(Make, AFailureLeavesTheOldFileAndNothingElse) {
  Wave wave;
  wave.data = noise(100000, 1);
  folder.write("a.wav", wave.bytes());
  folder.write("old.qsnd", "old");
  expectFailure(run({"make", "a.wav", "old.qsnd", "--type", "no type"}), 2,
                "cannot use the type no type: a type is like application/x-notes");
  folder.write("bad.wav", "bad");
  EXPECT_EQ(run({"make", "bad.wav", "old.qsnd"}).status, 3);
  expectFailure(run({"make", "a.wav", "./a.wav"}), 2,
                "cannot make a document of a.wav: the output is the file itself");
  const auto full = shell(support::onFullDisk(40, "make a.wav old.qsnd"));
  EXPECT_EQ(full.status, 3);
  EXPECT_EQ(full.err.find("qsndhost: cannot write old.qsnd: "), 0u) << full.err;
  EXPECT_EQ(std::count(full.err.begin(), full.err.end(), '\n'), 1) << full.err;
  EXPECT_EQ(folder.read("old.qsnd"), "old");
  EXPECT_EQ(files(), (std::vector<std::string>{"a.wav", "bad.wav", "old.qsnd"}));
}

TEST_F(Make, StandardOutputGetsTheSameDocument) {
  Wave wave;
  wave.data = noise(1000, 1);
  folder.write("a.wav", wave.bytes());
  const auto piped = shell("\"$0\" make a.wav - >b.qsnd");
  EXPECT_EQ(piped.err, "");
  unzip("-tq", "b.qsnd");
  EXPECT_EQ(unzip("-p", "b.qsnd", "Mixdown.wav"), wave.bytes());
}

TEST_F(Make, MoreChannelsThanAreDeliveredAreNoted) {
  Wave wave;
  wave.channels = 8;
  wave.data = noise(1600, 1);
  folder.write("a.wav", wave.bytes());
  const auto finished = run({"make", "a.wav", "a.qsnd"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.err, "qsndhost: a.qsnd: the importer delivers the first 6 of 8 channels\n");
}

}  // namespace
