#include <regex>

#include "Program.h"

namespace {

using Usage = Qcfpkg;

const std::vector<std::string> kCommands{"list",   "info",  "create",  "add",
                                         "remove", "cat",   "type",    "comment",
                                         "prop",   "check", "extract", "compact"};

TEST_F(Usage, HelpHasExamplesForEveryCommand) {
  EXPECT_NE(must({"--help"}).find("Examples:"), std::string::npos);
  for (const std::string& command : kCommands) {
    EXPECT_NE(must({command, "--help"}).find("Example"), std::string::npos) << command;
  }
}

TEST_F(Usage, HelpTellsWhatAChangeInPlaceRisks) {
  const std::regex white("\\s+");
  for (const char* const command : {"add", "remove", "comment"}) {
    const std::string help = std::regex_replace(must({command, "--help"}), white, " ");
    const auto option = help.find("--in-place");
    ASSERT_NE(option, std::string::npos) << command;
    EXPECT_NE(help.find("no package", option), std::string::npos) << help;
  }
}

TEST_F(Usage, VersionGoesToStandardOutput) {
  EXPECT_EQ(must({"--version"}), "qcfpkg " QCF_VERSION "\n");
}

TEST_F(Usage, WrongUseIsTwoAndOneLine) {
  expectFailure({"dance"}, 2, "qcfpkg: there is no command dance; see qcfpkg --help");
  expectFailure({"prop", "dance"}, 2, "there is no command dance; see qcfpkg prop --help");
  expectFailure({}, 2, "qcfpkg: a command is required; see qcfpkg --help");
  expectFailure({"--nonsense"}, 2, "qcfpkg: there is no option --nonsense; see qcfpkg --help");
  expectFailure({"-x"}, 2, "qcfpkg: there is no option -x; see qcfpkg --help");
  expectFailure({"prop", "--bogus"}, 2, "there is no option --bogus; see qcfpkg prop --help");
  expectFailure(
      {"list", "-p.pkg"}, 2,
      "there is no option -p.pkg; ./-p.pkg is a file of that name; see qcfpkg list --help");
  expectFailure({"list", "--jsn"}, 2, "there is no option --jsn; see qcfpkg list --help");
  expectFailure({"prop", "get"}, 2, "is required; see qcfpkg prop get --help");
  expectFailure({"list", "a.pkg", "two\nlines"}, 2, "two\\x0alines; see qcfpkg list --help");
  expectFailure({"list", ""}, 3, "cannot open '': ");
  expectFailure({"list", "-"}, 3, "cannot open -: a package is a file");
  expectFailure({"create", "--type", "a/b", "-"}, 3, "cannot create ");
  for (const std::string& command : kCommands) {
    expectFailure({command}, 2, "required");
    expectFailure({command, "a.pkg", "--nonsense"}, 2, "");
  }
  expectFailure({"extract", "a.pkg", "--max-size", "-1"}, 2, "--max-size");
  expectFailure({"extract", "a.pkg", "--max-ratio", "x"}, 2, "--max-ratio");
  expectFailure({"prop", "get", "a.pkg"}, 2, "");
  expectFailure({"compact", "a.pkg", "b.pkg"}, 2, "");
  expectFailure({"extract", "a.pkg", "-C", ""}, 2, "the FOLDER has no name");
  folder.write("f", "f");
  for (const auto& [inputs, words] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"x="}, "there is no FILE behind NAME="},
           {{"=f"}, "there is no NAME in front of ="},
           {{"=-"}, "there is no NAME in front of ="},
           {{"-"}, "standard input needs a NAME="},
           {{"x=-", "y=-"}, "standard input can be read only once"}}) {
    std::vector<std::string> arguments{"create", "--type", "a/b", "new.pkg"};
    arguments.insert(arguments.end(), inputs.begin(), inputs.end());
    expectFailure(arguments, 2, words);
  }
}

TEST_F(Usage, EveryCommandTellsOfAMissingFile) {
  folder.write("x", "x");
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"list", "absent"},
                                             {"info", "absent"},
                                             {"add", "absent", "x"},
                                             {"remove", "absent", "x"},
                                             {"cat", "absent", "x"},
                                             {"extract", "absent"},
                                             {"type", "absent"},
                                             {"type", "absent", "a/b"},
                                             {"comment", "absent"},
                                             {"comment", "absent", "c"},
                                             {"prop", "list", "absent"},
                                             {"prop", "set", "absent", "x", "mac-type", "y"},
                                             {"check", "absent"},
                                             {"compact", "absent"}}) {
    expectFailure(arguments, 3, "absent: No such file or directory");
  }
  EXPECT_EQ(files(), std::vector<std::string>{"x"});
}

TEST_F(Usage, EveryChangingCommandRefusesWhatIsNoPackageAndLeavesIt) {
  folder.write("x", "no package");
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"add", "x", "y=x"},
                                             {"remove", "x", "y"},
                                             {"type", "x", "a/b"},
                                             {"comment", "x", "c"},
                                             {"prop", "set", "x", "x", "mac-type", "y"},
                                             {"compact", "x"}}) {
    expectFailure(arguments, 3, "there is no end record");
  }
  EXPECT_EQ(folder.read("x"), "no package");
  EXPECT_EQ(files(), std::vector<std::string>{"x"});
}

TEST_F(Usage, AFullStandardOutputIsTold) {
  makePackage("a.pkg");
  for (const char* const command :
       {"list a.pkg", "info a.pkg", "cat a.pkg one.txt", "extract --list-only a.pkg", "type a.pkg",
        "check --kinds", "prop list a.pkg"}) {
    const auto finished = shell("\"$0\" " + std::string(command) + " >/dev/full");
    EXPECT_EQ(finished.status, 3) << command;
    EXPECT_EQ(finished.err, "qcfpkg: cannot write standard output: No space left on device\n")
        << command;
  }
}

TEST_F(Usage, ColoursAreForTerminalsThatWantThem) {
  if (shell("command -v script").status != 0) GTEST_SKIP() << "no script(1)";
  const std::string command = "Q=\"$0\"; script -qec \"$Q list absent\" /dev/null";
  environment = {{"TERM", "xterm"}};
  EXPECT_NE(shell(command).out.find("\x1b[1;31m"), std::string::npos);
  environment = {{"TERM", "xterm"}, {"NO_COLOR", "1"}};
  EXPECT_EQ(shell(command).out.find('\x1b'), std::string::npos);
}

}  // namespace
