#include <regex>

#include "Program.h"

// What is seen of long work on a terminal, and that it is seen nowhere else.

namespace {

class ProgressBar : public Qcfpkg {
protected:
  // Random data, as deflating takes its time.
  void SetUp() override { python("import os\nopen('big', 'wb').write(os.urandom(1 << 20) * 64)"); }
  // Everything that a run draws on a terminal of `columns` columns; standard error goes to a file
  // where `err` names one.
  std::string draw(const std::vector<std::string>& arguments, int columns = 80,
                   const std::string& err = {}) const {
    static const char* const kScript = R"(
import fcntl, os, pty, struct, sys, termios
columns, err, command = int(sys.argv[1]), sys.argv[2], sys.argv[3:]
child, terminal = pty.fork()
if child == 0:
    if err:
        os.dup2(os.open(err, os.O_WRONLY | os.O_CREAT | os.O_TRUNC), 2)
    fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack('HHHH', 24, columns, 0, 0))
    os.execv(command[0], command)
while True:
    try:
        drawn = os.read(terminal, 65536)
    except OSError:
        break
    if not drawn:
        break
    os.write(1, drawn)
sys.exit(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
)";
    support::Command command{{"python3", "-c", kScript, std::to_string(columns), err, QCFPKG},
                             {},
                             folder.path(),
                             environment};
    command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
    const auto finished = support::run(command);
    EXPECT_EQ(finished.status, 0) << finished.out << finished.err;
    return finished.out;
  }
  // The line each time it was drawn.
  static std::vector<std::string> lines(const std::string& drawn) {
    static const std::string kClear = "\r\x1b[K";
    std::vector<std::string> all;
    for (std::size_t at = drawn.find(kClear); at != std::string::npos;) {
      const std::size_t next = drawn.find(kClear, at + 1);
      const std::size_t begin = at + kClear.size();
      all.push_back(drawn.substr(begin, std::min(next, drawn.size()) - begin));
      at = next;
    }
    return all;
  }
  const std::vector<std::string> create{"create", "--overwrite", "--type", "a/b", "a.pkg", "big"};
};

TEST_F(ProgressBar, MovesTellsRateAndTimeLeftAndVanishes) {
  environment = {{"TERM", "xterm"}};
  const auto drawn = lines(draw(create));
  ASSERT_GE(drawn.size(), 3u);
  EXPECT_EQ(drawn.back(), "") << "the line is gone when the work is";
  static const std::regex kLine(R"(writing \[(#*) *\] +(\d+)% \d+\.\d MB/s \d+:\d\d left)");
  int last = -1;
  std::size_t lastLength = 0;
  for (std::size_t i = 0; i + 1 < drawn.size(); ++i) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(drawn[i], match, kLine)) << drawn[i];
    const int percent = std::stoi(match[2]);
    EXPECT_GE(percent, last);
    EXPECT_LE(percent, 100);
    EXPECT_GE(static_cast<std::size_t>(match[1].length()), lastLength);
    last = percent;
    lastLength = static_cast<std::size_t>(match[1].length());
  }
  EXPECT_GT(last, std::stoi(drawn[0].substr(drawn[0].find('%') - 3))) << "it moves";
}

TEST_F(ProgressBar, NeverWrapsANarrowTerminal) {
  environment = {{"TERM", "xterm"}};
  for (const int columns : {40, 12}) {
    const auto drawn = lines(draw(create, columns));
    ASSERT_GE(drawn.size(), 2u);
    EXPECT_EQ(drawn.back(), "");
    for (const std::string& line : drawn)
      EXPECT_LT(line.size(), static_cast<std::size_t>(columns)) << line;
    EXPECT_EQ(drawn[0].find("writing"), 0u);
  }
}

TEST_F(ProgressBar, IsDrawnWithoutColourWhereNoneIsWanted) {
  environment = {{"TERM", "xterm"}, {"NO_COLOR", "1"}};
  const std::string drawn = draw(create);
  EXPECT_GE(lines(drawn).size(), 2u);
  EXPECT_FALSE(std::regex_search(drawn, std::regex("\x1b\\[[0-9;]*m")));
}

TEST_F(ProgressBar, IsNotDrawnWhereItCannotMoveOrIsNotWanted) {
  environment = {{"TERM", "dumb"}};
  EXPECT_EQ(draw(create), "");
  environment = {{"TERM", "xterm"}};
  EXPECT_EQ(draw({"--quiet", "create", "--overwrite", "--type", "a/b", "a.pkg", "big"}), "");
  EXPECT_EQ(draw(create, 80, "errors"), "") << "standard output is a terminal, that is not enough";
  EXPECT_EQ(folder.read("errors"), "");
}

TEST_F(ProgressBar, OfAnInputThatTellsNoSizeCountsWhatWasRead) {
  ASSERT_EQ(shell("mkfifo pipe").status, 0);
  environment = {{"TERM", "xterm"}};
  const pid_t writer = fork();
  if (writer == 0) {
    const std::string command =
        "for i in 1 2 3 4 5 6 7 8 9; do sleep 0.1; head -c 2000000 big; done >pipe";
    if (chdir(folder.path().c_str()) == 0) execlp("sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  const auto drawn = lines(draw({"create", "--store", "--type", "a/b", "a.pkg", "in=pipe"}));
  ASSERT_GE(drawn.size(), 2u);
  EXPECT_EQ(drawn.back(), "");
  EXPECT_TRUE(std::regex_match(drawn[0], std::regex(R"(writing \d+\.\d MB \d+\.\d MB/s)")))
      << drawn[0];
}

}  // namespace
