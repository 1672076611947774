#include <chrono>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "Program.h"
#include "tools/NamesIn.h"

namespace {

constexpr const char* kCrashed = "the importer crashed: Segmentation fault";

class Isolation : public Qsndhost {
protected:
  // The program with the importer that misbehaves, its documents in text.
  support::Finished runFaulty(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--bundle", FAULTY_BUNDLE});
    return run(arguments);
  }
  void document(const std::string& name, const std::string& fault) {
    folder.write(name, "1 8000 1000 " + fault);
  }
};

TEST_F(Isolation, ACrashWhereverItComesIsOneLine) {
  for (const char* const selector : {"39", "37", "25", "9", "1"}) {
    document("a.doc", std::string("crash ") + selector);
    expectFailure(runFaulty({"export", "a.doc", "a.wav"}), 3,
                  std::string("cannot export a.doc: ") + kCrashed);
    EXPECT_EQ(files(), std::vector<std::string>{"a.doc"}) << selector;
  }
}

TEST_F(Isolation, AProgramWithoutItsBundleSaysHowToNameOne) {
  document("a.doc", "");
  expectFailure(shell("cp \"$0\" alone && ./alone info a.doc"), 3,
                "cannot find ImporterQSND.bundle; name it with --bundle");
}

TEST_F(Isolation, TheSignalIsTold) {
  document("a.doc", "divide 37");
  expectFailure(runFaulty({"info", "a.doc"}), 3,
                "cannot open a.doc: the importer crashed: Floating point exception");
}

TEST_F(Isolation, AnImporterThatHangsIsGivenUp) {
  const auto start = std::chrono::steady_clock::now();
  for (const char* const selector : {"39", "25", "9"}) {
    document("a.doc", std::string("hang ") + selector);
    expectFailure(runFaulty({"--timeout", "1", "waveform", "a.doc", "a.png"}), 3,
                  "cannot draw a.doc: the importer gave no answer within 1 second");
  }
  EXPECT_EQ(files(), std::vector<std::string>{"a.doc"});
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

// Where fonts are told of is a pipe that nobody writes to.
TEST_F(Isolation, APictureThatIsNeverDoneIsGivenUp) {
  document("a.doc", "");
  ASSERT_EQ(mkfifo((folder / "fonts").c_str(), 0600), 0);
  environment = {{"FONTCONFIG_FILE", (folder / "fonts").string()}};
  expectFailure(runFaulty({"--timeout", "1", "waveform", "a.doc", "a.png"}), 3,
                "cannot write a.png: drawing gave no answer within 1 second");
  EXPECT_EQ(files(), (std::vector<std::string>{"a.doc", "fonts"}));
}

// Drawing waits for somebody who writes to where fonts are told of, and is hit there.
TEST_F(Isolation, APictureWhoseDrawingCrashesIsOneLine) {
  document("a.doc", "");
  ASSERT_EQ(mkfifo((folder / "fonts").c_str(), 0600), 0);
  environment = {{"FONTCONFIG_FILE", (folder / "fonts").string()},
                 {"FAULTY_BUNDLE", FAULTY_BUNDLE},
                 {"ASAN_OPTIONS", "handle_segv=0"},  // it would tell another story
                 {"TSAN_OPTIONS", "handle_segv=0"}};
  const auto finished = shell(
      "\"$0\" --bundle \"$FAULTY_BUNDLE\" waveform a.doc a.png & program=$!\n"
      "exec 3>fonts\n"
      "kill -SEGV $(cat /proc/$program/task/$program/children)\n"
      "wait $program");
  expectFailure(finished, 3, "cannot write a.png: drawing crashed: Segmentation fault");
  EXPECT_EQ(files(), (std::vector<std::string>{"a.doc", "fonts"}));
}

TEST_F(Isolation, AnImporterThatEndsItsProcessIsTold) {
  document("a.doc", "exit 25");
  expectFailure(runFaulty({"export", "a.doc", "a.wav"}), 3,
                "cannot export a.doc: the importer ended its process with status 7");
}

TEST_F(Isolation, TheOtherDocumentsAreDone) {
  document("a.doc", "");
  document("b.doc", "crash 25");
  document("c.doc", "hang 39");
  document("d.doc", "");
  const auto finished = runFaulty(
      {"--timeout", "1", "export", "a.doc", "b.doc", "c.doc", "d.doc", "--folder", "waves"});
  EXPECT_EQ(finished.status, 3);
  EXPECT_EQ(finished.err,
            std::string("qsndhost: cannot export b.doc: ") + kCrashed +
                "\nqsndhost: cannot export c.doc: the importer gave no answer within 1 second\n"
                "qsndhost: 2 of 4 documents done, 2 failed\n");
  EXPECT_EQ(readSound(folder / "waves/d.wav").info.frames, 1000);
  EXPECT_FALSE(std::filesystem::exists(folder / "waves/b.wav"));
}

TEST_F(Isolation, InfoPrintsNothingTwiceWhenAChildDies) {
  document("a.doc", "");
  document("b.doc", "exit 37");
  const auto finished = runFaulty({"info", "a.doc", "b.doc", "a.doc"});
  std::string once =
      "a.doc\n  channels  1\n  rate      8000 Hz\n  format    32-bit float\n"
      "  frames    1000\n  duration  0:00:00.125\n";
  EXPECT_EQ(finished.out, once + once);
}

TEST_F(Isolation, AnImporterThatFaultsWithoutADocumentIsTold) {
  environment = {{"FAULTY_IMPORTER", "crash 0"}};
  expectFailure(runFaulty({"formats"}), 3,
                std::string("cannot load ") + FAULTY_BUNDLE + ": " + kCrashed);
  environment = {{"FAULTY_IMPORTER", "exit 14"}};
  expectFailure(runFaulty({"formats"}), 3,
                std::string("cannot list the formats of ") + FAULTY_BUNDLE +
                    ": the importer ended its process with status 7");
}

TEST_F(Isolation, WhatAnImporterPrintsDoesNotMixWithTheData) {
  document("a.doc", "print 25");
  const auto finished = runFaulty({"export", "a.doc", "-"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out.substr(0, 4), "RIFF");
  EXPECT_EQ(finished.out.find("chatter"), std::string::npos);
  EXPECT_EQ(finished.err, "chatter\n");
}

TEST_F(Isolation, AudioComesOverAsItWasDelivered) {
  folder.write("a.doc", "2 8000 200000");
  ASSERT_EQ(runFaulty({"export", "a.doc", "apart.wav"}).status, 0);
  ASSERT_EQ(runFaulty({"--no-isolate", "export", "a.doc", "here.wav"}).status, 0);
  EXPECT_EQ(folder.read("apart.wav"), folder.read("here.wav"));
  EXPECT_EQ(readSound(folder / "apart.wav").info.frames, 200000);
}

TEST_F(Isolation, AnImporterThatWritesToTheProgramItselfIsGivenUp) {
  for (const char* const selector : {"39", "25"}) {
    document("a.doc", std::string("spoil ") + selector);
    expectFailure(runFaulty({"export", "a.doc", "a.wav"}), 3,
                  "cannot export a.doc: the importer has damaged its process");
  }
  EXPECT_EQ(files(), std::vector<std::string>{"a.doc"});
}

// With it or without: what the importer returns is told in the same words.
TEST_F(Isolation, AFailureThatAnImporterReturnsIsOneLine) {
  const auto refuse = [&](const std::string& fault, const std::string& reason) {
    document("a.doc", fault);
    for (const char* const here : {"--quiet", "--no-isolate"}) {
      expectFailure(runFaulty({here, "export", "a.doc", "a.wav"}), 3,
                    "cannot export a.doc: " + reason);
    }
  };
  refuse("31 39", "not a sound document, or a damaged one");
  refuse("12 37", "the importer does not tell the layout");
  refuse("1 25", "there is no audio at that position");
  refuse("38 25", "the audio data ends too early");
  refuse("-1 25", "the audio data cannot be read");
  refuse("12 25", "the importer failed with result 12");
  EXPECT_EQ(files(), std::vector<std::string>{"a.doc"});
}

TEST_F(Isolation, ALibraryThatDoesNotTakeTheFirstCallIsNoImporter) {
  environment = {{"FAULTY_IMPORTER", "12 0"}};
  for (const char* const here : {"--quiet", "--no-isolate"}) {
    expectFailure(runFaulty({here, "formats"}), 3,
                  std::string("cannot load ") + FAULTY_BUNDLE + ": the bundle is no importer");
  }
}

TEST_F(Isolation, WithoutItAPipeIsNotWaitedForEither) {
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  expectFailure(runFaulty({"--no-isolate", "info", "pipe"}), 3,
                "cannot open pipe: it is not a regular file");
}

TEST_F(Isolation, ARateThatNoWAVFileCanHaveIsRefusedByExportAlone) {
  for (const char* const rate : {"0", "0.5", "-8000", "4294967296"}) {
    folder.write("a.doc", std::string("1 ") + rate + " 1000");
    expectFailure(
        runFaulty({"export", "a.doc", "a.wav"}), 3,
        std::string("cannot export a.doc: a WAV file cannot have a rate of ") + rate + " Hz");
    EXPECT_EQ(runFaulty({"info", "a.doc"}).status, 0);
    EXPECT_EQ(runFaulty({"waveform", "a.doc", "a.png"}).status, 0);
  }
  EXPECT_EQ(files(), (std::vector<std::string>{"a.doc", "a.png"}));
}

TEST_F(Isolation, WithoutItTheImporterTakesTheProgramDown) {
  document("a.doc", "crash 25");
  EXPECT_EQ(runFaulty({"--no-isolate", "export", "a.doc", "a.wav"}).status, 128 + SIGSEGV);
}

// A real document on which the real importer faults: frames of no bytes.
TEST_F(Isolation, ADocumentThatDividesByZeroIsOneFailureOfMany) {
  Wave wave;
  wave.blockAlign = 0;
  wave.data = "abcd";
  folder.write("bad.qsnd", storedDocument(wave.bytes()));
  makeDocument("good.qsnd", 16, 1, 10);
  const auto finished = run({"info", "--json", "bad.qsnd", "good.qsnd"});
  EXPECT_EQ(finished.status, 3);
  const auto json = nlohmann::json::parse(finished.out);
  EXPECT_EQ(json[0]["error"].get<std::string>().find("cannot open bad.qsnd: the importer"), 0u);
  EXPECT_EQ(json[1]["frames"], 10);
}

// 60 kB of silence that is inflated to 60 MB before its second block can be served.
class Inflation : public Qsndhost {
protected:
  Inflation() {
    Wave wave;
    wave.data = std::string(60 << 20, '\0');
    makeDeflatedDocument(folder / "a.qsnd", wave.bytes());
    environment = {{"XDG_CACHE_HOME", (folder / "cache").string()}};
    std::filesystem::create_directory(folder / "cache");
  }

  // Runs `then` once the importer's process is stopped while it inflates. $program and $importer
  // are the two processes. A run that was over before anybody looked is begun anew.
  support::Finished stoppedHalfWay(const std::string& arguments, const std::string& then) {
    support::Finished finished{99, {}, {}};
    for (int runs = 0; runs < 20 && finished.status == 99; ++runs) {
      finished = shell("rm -f a.wav; \"$0\" " + arguments +
                       " & program=$!\n"
                       "until test -s cache/TemporaryItems/*; do kill -0 $program || break; done\n"
                       "importer=$(cat /proc/$program/task/$program/children)\n"
                       "kill -STOP $importer && test -s cache/TemporaryItems/* ||\n"
                       "  { kill $program; kill -KILL $importer; wait; exit 99; }\n" +
                       then);
    }
    EXPECT_NE(finished.status, 99) << finished.err;
    return finished;
  }
  std::vector<std::string> copies() const { return namesIn(folder / "cache/TemporaryItems"); }
};

TEST_F(Inflation, ThatTakesLongerThanTheTimeForAnAnswerIsGivenUpAndLeavesItsCopy) {
  const auto finished = stoppedHalfWay("--timeout 1 export a.qsnd a.wav", "wait $program");
  expectFailure(finished, 3, "cannot export a.qsnd: the importer gave no answer within 1 second");
  EXPECT_EQ(copies().size(), 1u);
  EXPECT_EQ(files(), (std::vector<std::string>{"a.qsnd", "cache"}));
}

TEST_F(Inflation, BeyondALimitOnTheSizeOfFilesIsToldAndLeavesItsCopy) {
  const auto finished = shell("ulimit -f 1000; exec \"$0\" export a.qsnd a.wav");
  expectFailure(finished, 3,
                "cannot export a.qsnd: the importer crashed: File size limit exceeded");
  EXPECT_EQ(copies().size(), 1u);
}

TEST_F(Inflation, OfARunThatIsInterruptedLeavesItsCopy) {
  stoppedHalfWay("export a.qsnd a.wav", "kill -INT $program $importer; kill -CONT $importer; wait");
  EXPECT_EQ(copies().size(), 1u);
}

TEST_F(Inflation, OfAProgramThatIsKilledAloneIsClearedUpByItsImporter) {
  stoppedHalfWay("export a.qsnd a.wav",
                 "kill -KILL $program; kill -CONT $importer\n"
                 "while test -e cache/TemporaryItems/*; do sleep 0.1; done");
  EXPECT_EQ(copies(), std::vector<std::string>());
}

}  // namespace
