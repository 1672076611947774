#include <fstream>
#include <sstream>

#include "Program.h"

// Nothing is found in what this project writes.

namespace {

namespace fs = std::filesystem;

class OwnPackages : public Qcfpkg {
protected:
  void example(const std::string& name, const std::vector<std::string>& arguments) const {
    std::vector<std::string> command{(fs::path(QCF_EXAMPLES) / name).string()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const auto finished = support::run({command, "first\nsecond\n", folder.path(), {}});
    EXPECT_EQ(finished.status, 0) << finished.err;
    if (name == "pipe") folder.write("a.pkg", finished.out);
    expectNoFinding("a.pkg");
    expectSound("a.pkg");
  }
  static bool hasExample(const std::string& name) {
    return fs::exists(fs::path(QCF_EXAMPLES) / name);
  }
};

TEST_F(OwnPackages, ThatTheExamplesMakeAndChange) {
  if (!hasExample("create")) GTEST_SKIP() << "the examples are not built";
  example("create", {"a.pkg"});
  example("replace", {"a.pkg", "letter/hello.txt", "Good bye"});
  example("replace", {"a.pkg", "letter/hello.txt", ""});
  example("replace", {"a.pkg", "letter/hello.txt", "again"});
  example("compact", {"a.pkg", "letter/dot.raw"});
  if (hasExample("properties")) example("properties", {"a.pkg", "letter/hello.txt", "2001-02-03"});
  example("pipe", {"one.txt", "two.txt"});
}

// Offset, bytes, meaning: the bytes are what stands between the first two columns of blanks.
TEST_F(OwnPackages, ThatThePageOnTheFormatShowsByteForByte) {
  std::ifstream page(fs::path(QCF_SOURCE_DIR) / "docs/package-format.md");
  std::string bytes;
  for (std::string line; std::getline(page, line);) {
    const bool isDump = line.size() > 6 && line.compare(4, 2, "  ") == 0 &&
                        line.find_first_not_of("0123456789abcdef") == 4;
    if (!isDump) continue;
    ASSERT_EQ(std::stoul(line.substr(0, 4), nullptr, 16), bytes.size()) << line;
    std::istringstream cells(line.substr(6, line.find("  ", 6) - 6));
    for (std::string cell; cells >> cell;)
      bytes.push_back(static_cast<char>(std::stoi(cell, nullptr, 16)));
  }
  ASSERT_EQ(bytes.size(), 243u);
  folder.write("a.pkg", bytes);
  expectNoFinding("a.pkg");
  EXPECT_EQ(contents("a.pkg"),
            (Contents{{"mimetype", "application/x-notes"}, {"notes.txt", "la la la la la la"}}));
}

// Every kind of change, one upon the other.
TEST_F(OwnPackages, ThatThisProgramMakesAndChanges) {
  makePackage("a.pkg");
  folder.write("x", std::string(100000, 'x'));
  fs::create_directories(folder / "tree/empty");
  const std::vector<std::vector<std::string>> kChanges{
      {"add", "a.pkg", "x", "tree"},
      {"add", "--store", "a.pkg", "x"},
      {"prop", "set", "a.pkg", "x", "type-creator", "5445585474747874"},
      {"prop", "set", "a.pkg", "x", "modified", "2001-02-03 04:05:06"},
      {"prop", "set", "a.pkg", "x", "datetime", "2001"},
      {"prop", "set", "a.pkg", "sub/two.txt", "mac-type", "TEXT"},
      {"remove", "a.pkg", "sub/two.txt"},
      {"type", "a.pkg", "application/x-new"},
      {"comment", "a.pkg", "a comment"},
      {"remove", "a.pkg", "tree/"},
      {"add", "--in-place", "a.pkg", "y=x"},
      {"comment", "--in-place", "a.pkg", "another"},
      {"--quiet", "compact", "a.pkg"}};
  for (const auto& change : kChanges) {
    must(change);
    // In place, old bytes stay in the file, which is worth a note.
    const bool isInPlace = change[1] == "--in-place";
    if (isInPlace) {
      EXPECT_EQ(run({"check", "a.pkg"}).status, 0);
    } else {
      expectNoFinding("a.pkg");
    }
    expectSound("a.pkg");
  }
}

}  // namespace
