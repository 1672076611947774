#include "Program.h"

// What bash offers for the entries of a package, whose names are a stranger's.

namespace {

class Completion : public Qcfpkg {
protected:
  void SetUp() override {
    const auto version = support::run({{"bash", "-c", "mapfile -t a </dev/null"}, {}, {}, {}});
    if (!version.succeeded()) GTEST_SKIP() << "needs bash 4 or newer";
    const std::string program = std::filesystem::path(QCFPKG).parent_path().string();
    environment = {{"PATH", program + ":" + std::getenv("PATH")},
                   {"HOME", folder.path().string()},
                   {"LC_ALL", "C.UTF-8"}};
  }
  // A package made by python3, so that no name is refused.
  void makeNamed(const std::string& package, const std::vector<std::string>& names) const {
    static const char* const kScript = R"(
import sys, zipfile
with zipfile.ZipFile(sys.argv[1], 'w') as z:
    z.writestr('mimetype', 'a/b')
    for name in sys.argv[2:]: z.writestr(name, '')
)";
    std::vector<std::string> arguments{package};
    arguments.insert(arguments.end(), names.begin(), names.end());
    support::python(kScript, arguments, folder.path());
  }
  // What is offered for the last of the words, as they stand on the command line after the
  // program's name.
  std::vector<std::string> offered(const std::vector<std::string>& words) const {
    static const char* const kScript = R"(
. "$1" && shift
COMP_WORDS=(qcfpkg "$@") COMP_CWORD=$#
_qcfpkg
[[ ${#COMPREPLY[@]} -eq 0 ]] || printf '%s\0' "${COMPREPLY[@]}"
)";
    std::vector<std::string> arguments{"bash", "-c", kScript, "bash", QCF_COMPLETIONS "/qcfpkg"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    const auto finished = support::run({arguments, {}, folder.path(), environment});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.err, "");
    std::vector<std::string> offers;
    for (std::size_t at = 0; at < finished.out.size();) {
      const auto end = finished.out.find('\0', at);
      offers.push_back(finished.out.substr(at, end - at));
      at = end + 1;
    }
    return offers;
  }
  // The word that the shell makes of a text that has been put on its command line.
  std::string asWord(const std::string& text) const {
    const auto finished =
        support::run({{"bash", "-c", "printf %s " + text}, {}, folder.path(), environment});
    EXPECT_EQ(finished.err, "") << text;
    return finished.out;
  }
};

using Offers = std::vector<std::string>;

TEST_F(Completion, NoNameOfAnEntryIsEvaluated) {
  const Offers names{"$(touch pwned)",
                     "`touch pwned`",
                     "<(touch pwned)",
                     "a[$(touch pwned)]",
                     "${a[$(touch pwned)]}",
                     "x;touch pwned",
                     "$HOME",
                     "*",
                     "~",
                     "!!"};
  makeNamed("evil.pkg", names);
  const auto before = files();
  for (const Offers& command :
       {Offers{"cat"}, Offers{"extract"}, Offers{"remove"}, Offers{"prop", "get"}}) {
    Offers words = command;
    words.insert(words.end(), {"evil.pkg", ""});
    const Offers offers = offered(words);
    ASSERT_EQ(offers.size(), names.size() + 1) << command[0];
    EXPECT_EQ(offers[0], "mimetype");
    for (std::size_t i = 0; i < names.size(); ++i)
      EXPECT_EQ(asWord(offers[i + 1]), names[i]);
  }
  EXPECT_EQ(files(), before);
}

// Readline expands what it takes for file names while it looks whether they are folders.
TEST_F(Completion, EntriesAreNotOfferedAsFileNames) {
  makeNamed("a.pkg", {"one two"});
  EXPECT_EQ(offered({"cat", "a.pkg", "o"}), Offers{"one\\ two"});
}

TEST_F(Completion, NamesWithBlanksAndQuotesAreOfferedQuoted) {
  const Offers names{"two words", "it's", "say \"so\"", "back\\slash", "\\n", "ünï.txt", "a&b"};
  makeNamed("a.pkg", names);
  const Offers offers = offered({"cat", "a.pkg", ""});
  ASSERT_EQ(offers.size(), names.size() + 1);
  for (std::size_t i = 0; i < names.size(); ++i)
    EXPECT_EQ(asWord(offers[i + 1]), names[i]);
}

TEST_F(Completion, NamesWithControlCharactersAreLeftOut) {
  makeNamed("a.pkg", {"tab\tx", "line\nbreak", "esc\x1b[31m", "del\x7f", "back\\\nbreak", "plain"});
  EXPECT_EQ(offered({"cat", "a.pkg", ""}), (Offers{"mimetype", "plain"}));
}

TEST_F(Completion, AWordIsComparedByWhatItsQuotesMean) {
  makeNamed("a.pkg", {"two words", "two$cents", "two'quotes", "three"});
  EXPECT_EQ(offered({"cat", "a.pkg", "two\\ w"}), Offers{"two\\ words"});
  EXPECT_EQ(offered({"cat", "a.pkg", "two\\$"}), Offers{"two\\$cents"});
  // Between quotation marks names stand as they are, and some cannot.
  EXPECT_EQ(offered({"cat", "a.pkg", "\"two"}), (Offers{"two words", "two'quotes"}));
  EXPECT_EQ(offered({"cat", "a.pkg", "'two"}), (Offers{"two words", "two$cents"}));
}

TEST_F(Completion, ThePackageMayBeQuotedOrBeginWithATilde) {
  makeNamed("my pkg.pkg", {"entry"});
  makeNamed("-d$x.pkg", {"entry"});
  for (const char* const word : {"my\\ pkg.pkg", "'my pkg.pkg'", "\"my pkg.pkg\"", "my' 'pkg.pkg",
                                 "~/my\\ pkg.pkg", "./-d\\$x.pkg", "\"./-d\\$x.pkg\""}) {
    EXPECT_EQ(offered({"cat", word, "e"}), Offers{"entry"}) << word;
  }
}

TEST_F(Completion, ThePackageIsNotEvaluated) {
  const auto before = files();
  for (const char* const word : {"$(touch pwned)", "`touch pwned`", "~/$(touch pwned)",
                                 "\"$(touch pwned)\"", "a[$(touch pwned)]"}) {
    EXPECT_EQ(offered({"cat", word, ""}), Offers{}) << word;
  }
  EXPECT_EQ(files(), before);
}

}  // namespace
