#include <sstream>

#include "Program.h"

// The examples that --help shows are run as they stand.

namespace {

class HelpExamples : public Qcfpkg, public testing::WithParamInterface<const char*> {
protected:
  // The files that the examples speak of. Only a new package does not exist yet.
  void prepare(bool withPackage) const {
    for (const auto& item : std::filesystem::directory_iterator(folder.path()))
      std::filesystem::remove_all(item.path());
    std::filesystem::create_directory(folder / "pictures");
    folder.write("pictures/sun", "sun");
    folder.write("letter.txt", "Dear reader");
    folder.write("draft.txt", "once upon a time");
    ASSERT_TRUE(shell("echo line | gzip >log.gz").succeeded());
    python(
        "import zipfile\n"
        "for name in ('book.epub', 'letter.odt'):\n"
        "    z = zipfile.ZipFile(name, 'w')\n"
        "    z.writestr(zipfile.ZipInfo('mimetype'), 'application/x-other')\n"
        "    z.close()\n");
    if (!withPackage) return;
    must({"create", "--type", "application/x-old", "notes.pkg", "letter.txt", "pictures/"});
    folder.write("dead", "dead");
    must({"add", "notes.pkg", "dead"});
    must({"remove", "--in-place", "notes.pkg", "dead"});
  }

  std::vector<std::string> examples(std::vector<std::string> command) const {
    command.emplace_back("--help");
    std::istringstream help(must(command));
    std::vector<std::string> lines;
    bool here = false;
    for (std::string line; std::getline(help, line);) {
      if (line == "Examples:" || line == "Example:") {
        here = true;
      } else if (here && line.compare(0, 2, "  ") == 0) {
        lines.push_back(line.substr(2));
      } else {
        here = false;
      }
    }
    return lines;
  }

  void expectToRun(const std::string& example) const {
    SCOPED_TRACE(example);
    const std::string path =
        std::filesystem::path(QCFPKG).parent_path().string() + ":" + std::getenv("PATH");
    const auto finished =
        support::run({{"sh", "-c", example}, {}, folder.path(), {{"PATH", path}}});
    EXPECT_EQ(finished.status, 0) << finished.err;
    const bool isNote = finished.err.find("qcfpkg: notes.pkg went from") == 0;
    EXPECT_TRUE(finished.err.empty() || isNote) << finished.err;
    if (std::filesystem::exists(folder / "notes.pkg")) {
      EXPECT_EQ(run({"check", "notes.pkg"}).status, 0);
    }
  }
};

TEST_P(HelpExamples, RunAsTheyStand) {
  const std::string command = GetParam();
  const auto lines = examples({command});
  ASSERT_FALSE(lines.empty());
  for (const std::string& line : lines) {
    EXPECT_NE(line.find("qcfpkg " + command), std::string::npos) << line;
    prepare(command != "create");
    expectToRun(line);
  }
}

INSTANTIATE_TEST_SUITE_P(OfEachCommand, HelpExamples,
                         testing::Values("list", "info", "create", "add", "remove", "cat",
                                         "extract", "type", "comment", "prop", "check", "compact"),
                         [](const auto& tested) { return tested.param; });

TEST_F(HelpExamples, OfTheProgramRunOneAfterTheOther) {
  prepare(false);
  const auto lines = examples({});
  EXPECT_GE(lines.size(), 5u);
  for (const std::string& line : lines)
    expectToRun(line);
  EXPECT_EQ(folder.read("folder/chapter/one.txt"), "once upon a time");
}

// The help of a command inside a command shows those of the outer one, its own among them.
TEST_F(HelpExamples, OfEachPropertyCommandAreThere) {
  for (const std::string command : {"get", "set", "list"}) {
    const auto lines = examples({"prop", command});
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
      return line.find("qcfpkg prop " + command) != std::string::npos;
    })) << command;
  }
}

}  // namespace
