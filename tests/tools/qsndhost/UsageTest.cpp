#include <map>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "Program.h"
#include "support/FullDisk.h"

namespace {

class Usage : public Qsndhost {
protected:
  // The lines under "Examples:" of a help.
  std::vector<std::string> examplesOf(const std::vector<std::string>& command) {
    auto arguments = command;
    arguments.push_back("--help");
    const std::string help = must(arguments);
    std::vector<std::string> examples;
    std::size_t at = help.find("Examples:\n");
    if (at == std::string::npos) return examples;
    for (at = help.find('\n', at) + 1; help.compare(at, 2, "  ") == 0;) {
      const std::size_t end = help.find('\n', at);
      examples.push_back(help.substr(at + 2, end - at - 2));
      at = end + 1;
    }
    return examples;
  }
};

TEST_F(Usage, EveryExampleOfTheHelpRunsAsItStands) {
  Wave wave;
  wave.channels = 2;
  wave.data = noise(4 * 50000, 5);
  std::filesystem::create_directory(folder / "bin");
  std::filesystem::create_symlink(QSNDHOST, folder / "bin/qsndhost");
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{}, {"formats"}, {"info"}, {"export"}, {"waveform"}, {"make"}}) {
    const auto examples = examplesOf(command);
    EXPECT_GE(examples.size(), 2u);
    for (const std::string& example : examples) {
      folder.write("song.wav", wave.bytes());
      folder.write("song.qsnd", storedDocument(wave.bytes()));
      const auto finished = shell("set -e; PATH=$PWD/bin:$PATH; " + example);
      EXPECT_EQ(finished.status, 0) << example << "\n" << finished.err;
      EXPECT_EQ(finished.err.find("cannot"), std::string::npos) << example << finished.err;
    }
  }
  EXPECT_GT(std::filesystem::file_size(folder / "song.flac"), 1000u);
  EXPECT_TRUE(std::filesystem::exists(folder / "pictures/song.png"));
}

struct Mistake {
  std::vector<std::string> arguments;
  int status;
  std::string words;
};

TEST_F(Usage, AMistakeIsOneLineAndNothingHalfWritten) {
  makeDocument("a.qsnd", 16, 1, 1000);
  folder.write("no.qsnd", "no package");
  Wave wave;
  wave.data = "abcd";
  wave.dataSize = 100000;
  folder.write("short.qsnd", storedDocument(wave.bytes()));
  folder.write("a.wav", "no audio");
  folder.write("old", "old");
  Wave doubles;
  doubles.tag = 3;
  doubles.bits = 64;
  doubles.data = std::string(800, 'x');
  folder.write("doubles.qsnd", storedDocument(doubles.bytes()));
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  const std::vector<Mistake> mistakes{
      {{"formats", "--bundle", "absent"}, 3, "cannot load absent"},
      {{"formats", "extra"}, 2, "extra"},
      {{"-x"}, 2, "there is no option -x; see qsndhost --help"},
      {{"--bundle", "", "formats"}, 2, "the FOLDER has no name"},
      {{"export", "--folder", "", "a.qsnd"}, 2, "the FOLDER has no name"},
      {{"waveform", "-d", "", "a.qsnd"}, 2, "the FOLDER has no name"},
      {{"formats", "--bundle", "no.qsnd"}, 3, "cannot load no.qsnd: the importer cannot be loaded"},
      {{"info"}, 2, "FILE is required"},
      {{"info", "absent.qsnd"}, 3, "cannot open absent.qsnd: no such file"},
      {{"info", "no.qsnd"}, 3, "cannot open no.qsnd: not a sound document"},
      {{"info", "."}, 3, "cannot open .: it is a folder"},
      {{"info", "pipe"}, 3, "cannot open pipe: it is not a regular file"},
      {{"export", "a.qsnd", ""}, 2, "an output has no name"},
      {{"export", "doubles.qsnd", "old"}, 3, "does not know the format of its samples"},
      {{"export", "a.qsnd"}, 2, "export takes FILE OUT.wav, or FILE... --folder FOLDER"},
      {{"export", "absent.qsnd", "old"}, 3, "cannot export absent.qsnd: no such file"},
      {{"export", "short.qsnd", "old"},
       3,
       "cannot export short.qsnd: the audio data ends too early"},
      {{"export", "a.qsnd", "old", "--format", "17"}, 2, "must be float, 24 or 16"},
      {{"export", "a.qsnd", "no/folder/a.wav"}, 3, "No such file or directory"},
      {{"export", "a.qsnd", "-", "--json"}, 2, "cannot both go to standard output"},
      {{"waveform", "a.qsnd"}, 2, "waveform takes FILE OUT.png|OUT.svg"},
      {{"waveform", "a.qsnd", "a.txt"}, 2, "let it end in .png or .svg"},
      {{"waveform", "a.qsnd", "a.png", "--width", "15"}, 2, "--width"},
      {{"waveform", "a.qsnd", "a.png", "--width", "20000", "--height", "20000"},
       2,
       "--width times --height is more than 100 million pixels"},
      {{"waveform", "doubles.qsnd", "a.png"}, 3, "does not know the format of its samples"},
      {{"waveform", "a.qsnd", "a.png", "--theme", "blue"}, 2, "--theme"},
      {{"waveform", "a.qsnd", "a.png", "--start", "1001"}, 2, "--start 1001 is behind the end"},
      {{"waveform", "short.qsnd", "a.png"},
       3,
       "cannot draw short.qsnd: the audio data ends too early"},
      {{"waveform", "a.qsnd", "-", "--json"}, 2, "cannot both go to standard output"},
      {{"waveform", "a.qsnd", "a.qsnd", "--as", "png"}, 2, "the output is the document itself"},
      {{"make", "a.wav"}, 2, "OUT.qsnd is required"},
      {{"make", "absent.wav", "old"}, 3, "cannot make a document of absent.wav: no such file"},
      {{"make", "a.wav", "old"}, 3, "it is not a WAV file"},
      {{"make", "a.wav", "old", "--type", "x"}, 2, "cannot use the type x"},
      {{"--timeout", "soon", "info", "a.qsnd"}, 2, "--timeout"},
  };
  const auto before = files();
  for (const Mistake& mistake : mistakes) {
    const auto finished = run(mistake.arguments);
    EXPECT_EQ(finished.status, mistake.status) << mistake.words;
    EXPECT_EQ(finished.out, "") << mistake.words;
    EXPECT_EQ(finished.err.find("qsndhost: "), 0u) << finished.err;
    EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
    EXPECT_NE(finished.err.find(mistake.words), std::string::npos) << finished.err;
  }
  EXPECT_EQ(files(), before);
  EXPECT_EQ(folder.read("old"), "old");
}

TEST_F(Usage, AFullDiskIsTold) {
  makeDocument("a.qsnd", 16, 1, 100000);
  for (const char* const command : {"export a.qsnd -", "waveform a.qsnd -",
                                    "waveform a.qsnd --json", "info a.qsnd", "formats"}) {
    expectFailure(shell("\"$0\" " + std::string(command) + " >/dev/full"), 3,
                  "cannot write standard output: No space left on device");
  }
  for (const char* const command : {"export a.qsnd b.wav", "waveform a.qsnd b.svg"}) {
    const auto full = shell(support::onFullDisk(8, command));
    EXPECT_EQ(full.status, 3) << command;
    EXPECT_NE(full.err.find("cannot write b."), std::string::npos) << full.err;
    EXPECT_NE(full.err.find(": File too large"), std::string::npos) << full.err;
    EXPECT_EQ(std::count(full.err.begin(), full.err.end(), '\n'), 1) << full.err;
  }
  EXPECT_EQ(files(), std::vector<std::string>{"a.qsnd"});
}

// Deflated audio goes to a temporary file, which only the importer can remove.
TEST_F(Usage, AFailureLeavesNoInflatedAudioBehind) {
  Wave wave;
  wave.rate = 8000;
  wave.data = noise(200000, 16);
  folder.write("a.wav", wave.bytes());
  must({"make", "--deflate", "a.wav", "a.qsnd"});
  environment = {{"XDG_CACHE_HOME", (folder / "cache").string()}};
  // Room for neither, then for the inflated audio but not for twice as
  // much.
  const std::string inflated =
      "cannot export a.qsnd: its audio cannot be inflated into the cache "
      "folder " +
      (folder / "cache/TemporaryItems").string() + ": File too large";
  for (const auto& [blocks, words] :
       {std::pair<int, std::string>{8, inflated}, {600, "cannot write b.wav: File too large"}}) {
    const auto full = shell(support::onFullDisk(blocks, "export a.qsnd b.wav"));
    EXPECT_EQ(full.status, 3);
    EXPECT_NE(full.err.find(words), std::string::npos) << full.err;
    EXPECT_TRUE(std::filesystem::is_empty(folder / "cache/TemporaryItems")) << words;
  }
  EXPECT_EQ(files(), (std::vector<std::string>{"a.qsnd", "a.wav", "cache"}));
}

TEST_F(Usage, WorkIsDoneWhereNobodyCanBeTold) {
  makeDocument("a.qsnd", 16, 7, 100);  // a note tells that six are delivered
  for (const char* const nowhere : {"2>/dev/full", "2>&-"}) {
    SCOPED_TRACE(nowhere);
    const auto status = [&](const std::string& arguments) {
      return shell("\"$0\" " + arguments + " " + nowhere).status;
    };
    EXPECT_EQ(status("--bogus"), 2);
    EXPECT_EQ(status("info absent.qsnd"), 3);
    EXPECT_EQ(status("export a.qsnd a.wav"), 0);
    EXPECT_EQ(readSound(folder / "a.wav").info.frames, 100);
    EXPECT_EQ(status("info absent.qsnd a.qsnd"), 3);
    std::filesystem::remove(folder / "a.wav");
  }
}

TEST_F(Usage, AClosedStandardOutputIsTold) {
  makeDocument("a.qsnd", 16, 2, 100);
  folder.write("a.wav", Wave{}.bytes());
  for (const char* const command :
       {"info a.qsnd", "formats", "export a.qsnd -", "waveform a.qsnd -", "make a.wav -"}) {
    expectFailure(shell("\"$0\" " + std::string(command) + " >&-"), 3,
                  "cannot write standard output: Bad file descriptor");
  }
}

TEST_F(Usage, AReaderThatStopsEndsTheProgramWithoutAWord) {
  makeDocument("a.qsnd", 16, 2, 1000000);
  for (const char* const command : {"export a.qsnd -", "waveform a.qsnd --json --width 30000"}) {
    for (const char* const trap : {"", "trap '' PIPE; "}) {
      const auto finished =
          shell("(" + std::string(trap) + "\"$0\" " + command + "; echo $? >status) | head -c 10");
      EXPECT_EQ(finished.err, "") << command << trap;
      EXPECT_EQ(finished.out.size(), 10u);
      EXPECT_NE(folder.read("status"), "0\n") << command << trap;
    }
  }
}

}  // namespace
