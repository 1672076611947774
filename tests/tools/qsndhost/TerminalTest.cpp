#include <string>
#include <vector>

#include "Program.h"

namespace {

// The program on a terminal of its own; everything that reached the terminal.
class Terminal : public Qsndhost {
protected:
  static constexpr const char* kScript = R"(
import fcntl, os, pty, struct, sys, termios
columns = int(sys.argv[1])
child, master = pty.fork()
if child == 0:
    fcntl.ioctl(2, termios.TIOCSWINSZ, struct.pack('HHHH', 24, columns, 0, 0))
    os.execv(sys.argv[2], sys.argv[2:])
seen = b''
while True:
    try:
        piece = os.read(master, 65536)
    except OSError:
        break
    if not piece:
        break
    seen += piece
os.waitpid(child, 0)
sys.stdout.buffer.write(seen.replace(b'\r\n', b'\n'))
)";
  std::string seen(int columns, std::vector<std::string> arguments) {
    std::vector<std::string> command{"python3", "-c", kScript, std::to_string(columns), QSNDHOST};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return support::mustRun({command, {}, folder.path(), environment});
  }
  // The pictures of a line that is drawn again and again.
  static std::vector<std::string> drawings(const std::string& text) {
    const std::string again = "\r\x1b[K";
    std::vector<std::string> drawn;
    for (std::size_t at = text.find(again); at != std::string::npos;) {
      const std::size_t next = text.find(again, at + 1);
      drawn.push_back(text.substr(at + again.size(), next - at - again.size()));
      at = next;
    }
    return drawn;
  }
};

TEST_F(Terminal, ABarMovesAndVanishes) {
  folder.write("long.doc", "1 8000 3000000 slow 25");
  const std::vector<std::string> command{"--bundle", FAULTY_BUNDLE, "waveform", "long.doc",
                                         "a.png"};
  environment = {{"TERM", "xterm"}};
  const auto drawn = drawings(seen(80, command));
  ASSERT_GE(drawn.size(), 4u);
  EXPECT_EQ(drawn.back(), "");
  EXPECT_NE(drawn[0], drawn[drawn.size() - 2]);
  EXPECT_EQ(drawn[0].find("long.doc ["), 0u) << drawn[0];
  EXPECT_NE(drawn[0].find('%'), std::string::npos);
  for (const auto& line : drawings(seen(40, command)))
    EXPECT_LT(line.size(), 40u) << line;
  environment = {{"TERM", "dumb"}};
  EXPECT_EQ(seen(80, command), "");
}

TEST_F(Terminal, ThereIsNoBarForAFileNorForQuietRuns) {
  folder.write("long.doc", "1 8000 3000000 slow 25");
  environment = {{"TERM", "xterm"}};
  EXPECT_EQ(seen(80, {"--quiet", "--bundle", FAULTY_BUNDLE, "waveform", "long.doc", "long.png"}),
            "");
  EXPECT_EQ(must({"--bundle", FAULTY_BUNDLE, "waveform", "long.doc", "long.png"}), "");
}

TEST_F(Terminal, EachOfManyDocumentsHasALine) {
  makeDocument("a.qsnd", 16, 1, 10);
  makeDocument("a-document-with-a-very-long-name-indeed.qsnd", 16, 1, 10);
  environment = {{"TERM", "xterm"}};
  const std::vector<std::string> command{"export", "-d", "w", "a.qsnd",
                                         "a-document-with-a-very-long-name-indeed.qsnd"};
  EXPECT_EQ(seen(80, command),
            "[1/2] a.qsnd\n[2/2] a-document-with-a-very-long-name-indeed.qsnd\n"
            "qsndhost: all 2 documents done\n");
  EXPECT_EQ(seen(40, command),
            "[1/2] a.qsnd\n[2/2] a-document-with-a-very-long-na…\n"
            "qsndhost: all 2 documents done\n");
}

TEST_F(Terminal, ColoursAreForTerminalsThatWantThem) {
  environment = {{"TERM", "xterm"}};
  EXPECT_EQ(seen(80, {"info", "absent.qsnd"}),
            "\x1b[1;31mqsndhost:\x1b[0m cannot open absent.qsnd: no such file\n");
  for (const auto& plain : std::vector<std::vector<std::pair<std::string, std::string>>>{
           {{"TERM", "xterm"}, {"NO_COLOR", "1"}}, {{"TERM", "dumb"}}}) {
    environment = plain;
    EXPECT_EQ(seen(80, {"info", "absent.qsnd"}),
              "qsndhost: cannot open absent.qsnd: no such file\n");
  }
}

TEST_F(Terminal, NoAudioGoesToATerminal) {
  makeDocument("a.qsnd", 16, 1, 10);
  environment = {{"TERM", "dumb"}};
  EXPECT_EQ(seen(80, {"export", "a.qsnd", "-"}),
            "qsndhost: standard output is a terminal; name a file, or a pipe behind it\n");
}

}  // namespace
