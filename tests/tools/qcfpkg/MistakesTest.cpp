#include <sys/stat.h>

#include "Program.h"

// What people do wrong, or their machine does to them, tried with each command: one clear line, the
// right exit status, and nothing half-written.

namespace {

// What a command does with a.pkg, in a folder that also holds the file "input".
enum class Kind { Reads, Examines, Changes, Creates, Extracts };

struct Command {
  const char* name;
  std::vector<std::string> arguments;
  Kind kind;
};

void PrintTo(const Command& command, std::ostream* out) {
  *out << command.name;
}

class Mistakes : public Qcfpkg, public testing::WithParamInterface<Command> {
protected:
  void SetUp() override {
    makePackage("a.pkg");
    folder.write("input", "input");
    folder.write("dead", std::string(3000, 'd'));
    must({"add", "--store", "a.pkg", "dead"});
    must({"remove", "--in-place", "a.pkg", "dead"});  // something for compact to do
    must({"comment", "--in-place", "a.pkg", "a comment"});
    std::filesystem::remove(folder / "dead");
  }
  bool is(Kind kind) const { return GetParam().kind == kind; }

  // The command ends with `status` and one line that holds `words`, and all is as it was.
  void expectRefusal(const std::vector<std::string>& arguments, int status,
                     const std::string& words) const {
    const Contents before = everything();
    expectFailure(arguments, status, words);
    EXPECT_EQ(everything(), before);
  }
  // The same for a file that is no sound package. To tell that is what check is for.
  void expectNoPackage(const std::string& words) const {
    if (!is(Kind::Examines)) return expectRefusal(GetParam().arguments, 3, words);
    const auto finished = run(GetParam().arguments);
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.err, "");
    EXPECT_NE(finished.out.find(words), std::string::npos) << finished.out;
  }
  std::vector<std::string> with(const std::string& from, const std::string& to) const {
    std::vector<std::string> arguments = GetParam().arguments;
    std::replace(arguments.begin(), arguments.end(), from, to);
    return arguments;
  }
  std::string inShell() const {
    std::string line = "\"$0\"";
    for (const std::string& argument : GetParam().arguments)
      line += " '" + argument + "'";
    return line;
  }
};

TEST_P(Mistakes, AMissingFile) {
  if (is(Kind::Creates)) {
    expectRefusal(with("input", "absent"), 3, "cannot add absent: No such file or directory");
    expectRefusal(with("new.pkg", "absent/new.pkg"), 3,
                  "absent/new.pkg: No such file or directory");
  } else {
    expectRefusal(with("a.pkg", "absent"), 3, "absent: No such file or directory");
    expectRefusal(with("a.pkg", ""), 3, "No such file or directory");
  }
}

TEST_P(Mistakes, AFolderInsteadOfAPackage) {
  std::filesystem::create_directory(folder / "d");
  if (is(Kind::Creates)) {
    expectRefusal(with("new.pkg", "d"), 3, "d: it is a folder");
  } else {
    expectRefusal(with("a.pkg", "d"), 3, "d: it is a folder");
  }
}

TEST_P(Mistakes, APackageIsNamedAsItWasGiven) {
  std::filesystem::create_directory(folder / "d");
  if (is(Kind::Creates)) {
    expectRefusal(with("new.pkg", "./d/../d"), 3, "cannot create ./d/../d: ");
    return expectRefusal(with("new.pkg", "./d/../a.pkg"), 3, "cannot create ./d/../a.pkg: ");
  }
  expectRefusal(with("a.pkg", "./d/../absent"), 3, " ./d/../absent: No such file or directory");
  if (is(Kind::Examines)) return;
  folder.write("no.pkg", "no package");
  expectRefusal(with("a.pkg", "./d/../no.pkg"), 3, " ./d/../no.pkg: there is no end record");
}

TEST_P(Mistakes, AFileThatIsNoPackage) {
  if (is(Kind::Creates)) {
    folder.write("new.pkg", "what is here already");
    return expectRefusal(GetParam().arguments, 3, "new.pkg: it exists; --overwrite replaces it");
  }
  for (const std::string& bytes :
       {std::string(), std::string("no package"), std::string(100000, '\0')}) {
    folder.write("a.pkg", bytes);
    expectNoPackage("there is no end record");
  }
}

TEST_P(Mistakes, ADamagedPackage) {
  const std::string whole = folder.read("a.pkg");
  if (is(Kind::Creates)) {  // which is no mistake: it reads none
    folder.write("new.pkg", whole.substr(0, whole.size() / 2));
    must({"create", "--overwrite", "--type", "a/b", "new.pkg", "input"});
    return expectSound("new.pkg");
  }
  folder.write("a.pkg", whole.substr(0, whole.size() / 2));
  expectNoPackage("there is no end record");
  std::string damaged = whole;
  damaged[damaged.rfind("PK\1\2")] ^= 0x20;  // the last record
  folder.write("a.pkg", damaged);
  expectNoPackage("directory");
}

TEST_P(Mistakes, AWrongOption) {
  std::vector<std::string> arguments = GetParam().arguments;
  arguments.emplace_back("--nonsense");
  expectRefusal(arguments, 2, "--nonsense");
  expectRefusal({"--nonsense", GetParam().arguments[0]}, 2, "");
}

class ReadingMistakes : public Mistakes {};

TEST_P(ReadingMistakes, AFullStandardOutput) {
  const std::string more = is(Kind::Examines) ? " --json" : "";
  const auto finished = shell(inShell() + more + " >/dev/full");
  EXPECT_EQ(finished.status, 3);
  EXPECT_EQ(finished.err, "qcfpkg: cannot write standard output: No space left on device\n");
}

// The real thing: a disk of 64 kB that another file fills to the last byte.
TEST_P(Mistakes, AFullDisk) {
  static const char* const kScript =
      "mkdir disk && mount -t tmpfs -o size=64k none disk || exit 99\n"
      "cp a.pkg input disk && cd disk && head -c 1M /dev/zero >filler 2>/dev/null\n"
      "\"$0\" \"$@\" >../out; status=$?\n"
      "cmp a.pkg ../a.pkg && cmp input ../input && find . -type f | sort\n"
      "exit $status\n";
  if (!shell("unshare -m mount --bind . .").succeeded()) GTEST_SKIP() << "may not mount a disk";
  std::vector<std::string> arguments{"unshare", "-m", "sh", "-c", kScript, QCFPKG};
  arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
  const auto finished = support::run({arguments, {}, folder.path(), environment});
  EXPECT_EQ(finished.out, "./a.pkg\n./filler\n./input\n");
  if (is(Kind::Reads) || is(Kind::Examines)) {
    EXPECT_EQ(finished.status, 0) << finished.err;
    EXPECT_EQ(finished.err, "");
    return;
  }
  EXPECT_EQ(finished.status, 3);
  EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
  const bool tells = finished.err.find("No space left on device") != std::string::npos ||
                     finished.err.find("is the disk full?") != std::string::npos;
  EXPECT_TRUE(tells) << finished.err;
}

// Reading needs no room and no rights to write.
TEST_P(Mistakes, AReadOnlyFolder) {
  std::string program;
  // Root may write everywhere, so it steps back. Nobody cannot write the counters of a build that
  // counts what is reached (QCF_COVERAGE), and would complain: they go elsewhere.
  const support::TempDir counters;
  if (geteuid() == 0) {
    constexpr uid_t kNobody = 65534;
    chmod(counters.path().c_str(), 0777);
    program = "GCOV_PREFIX=" + counters.path().string() +
              " setpriv --reuid=65534 --regid=65534 --clear-groups ";
    if (!shell(program + "\"$0\" --version").succeeded()) GTEST_SKIP() << "no setpriv(1) for root";
    for (const std::string& name : {std::string("."), std::string("a.pkg"), std::string("input")})
      ASSERT_EQ(chown((folder / name).c_str(), kNobody, kNobody), 0);
  }
  const Contents before = everything();
  chmod(folder.path().c_str(), 0555);
  const auto finished = shell(program + inShell());
  chmod(folder.path().c_str(), 0755);
  EXPECT_EQ(everything(), before);
  if (is(Kind::Reads) || is(Kind::Examines)) {
    EXPECT_EQ(finished.status, 0) << finished.err;
    return;
  }
  EXPECT_EQ(finished.status, 3);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
  EXPECT_NE(finished.err.find(": Permission denied\n"), std::string::npos) << finished.err;
}

std::string nameOf(const testing::TestParamInfo<Command>& tested) {
  return tested.param.name;
}

const std::vector<Command> kReading{
    {"list", {"list", "a.pkg"}, Kind::Reads},
    {"listJSON", {"list", "--json", "a.pkg"}, Kind::Reads},
    {"info", {"info", "a.pkg"}, Kind::Reads},
    {"cat", {"cat", "a.pkg", "one.txt"}, Kind::Reads},
    {"listOnly", {"extract", "--list-only", "a.pkg"}, Kind::Reads},
    {"type", {"type", "a.pkg"}, Kind::Reads},
    {"comment", {"comment", "a.pkg"}, Kind::Reads},
    {"propList", {"prop", "list", "a.pkg"}, Kind::Reads},
    {"propGet", {"prop", "get", "a.pkg", "one.txt", "modified"}, Kind::Reads},
    {"check", {"check", "a.pkg"}, Kind::Examines}};

const std::vector<Command> kWriting{
    {"create", {"create", "--type", "a/b", "new.pkg", "input"}, Kind::Creates},
    {"add", {"add", "a.pkg", "input"}, Kind::Changes},
    {"remove", {"remove", "a.pkg", "one.txt"}, Kind::Changes},
    {"extract", {"extract", "a.pkg", "-C", "out"}, Kind::Extracts},
    {"setType", {"type", "a.pkg", "c/d"}, Kind::Changes},
    {"setComment", {"comment", "a.pkg", "another"}, Kind::Changes},
    {"propSet", {"prop", "set", "a.pkg", "one.txt", "mac-type", "T"}, Kind::Changes},
    {"compact", {"compact", "a.pkg"}, Kind::Changes}};

INSTANTIATE_TEST_SUITE_P(OfReading, Mistakes, testing::ValuesIn(kReading), nameOf);
INSTANTIATE_TEST_SUITE_P(OfWriting, Mistakes, testing::ValuesIn(kWriting), nameOf);
INSTANTIATE_TEST_SUITE_P(OfReading, ReadingMistakes, testing::ValuesIn(kReading), nameOf);

using DamagedData = Qcfpkg;

TEST_F(DamagedData, IsToldBeforeAnythingGoesOut) {
  makePackage("a.pkg");
  std::string bytes = folder.read("a.pkg");
  bytes[bytes.find("one.txt") + 8] ^= 1;
  folder.write("a.pkg", bytes);
  expectFailure({"cat", "a.pkg", "sub/two.txt", "one.txt"}, 3, "cannot read one.txt of a.pkg");
  expectFailure({"extract", "a.pkg", "one.txt", "-C", "out"}, 3, "cannot extract one.txt of a.pkg");
  EXPECT_EQ(everything(), (Contents{{"a.pkg", bytes}, {"out", ""}}));
  EXPECT_EQ(run({"check", "a.pkg"}).status, 1);
}

TEST_F(DamagedData, IsCarriedAlongAsItIsAndStillFound) {
  makePackage("a.pkg");
  std::string bytes = folder.read("a.pkg");
  bytes[bytes.find("sub/two.txt") + 13] ^= 0x7F;
  folder.write("a.pkg", bytes);
  const auto before = run({"check", "a.pkg"});
  EXPECT_EQ(before.status, 1);
  must({"comment", "a.pkg", "c"});
  EXPECT_EQ(run({"check", "a.pkg"}).out, before.out);
}

}  // namespace
