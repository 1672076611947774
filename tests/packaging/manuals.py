"""The manual pages and the completions against what the programs say of themselves, and as their readers see them."""

import os
import pathlib
import re
import shutil
import unittest

import project

MAN = project.SOURCE / "man"
COMPLETIONS = project.SOURCE / "completions"
HERE = pathlib.Path(__file__).parent


def help_of(program, *commands):
    return project.run(project.BUILD / "bin" / program, *commands, "--help")


def listed(text, heading):
    """The first words of the lines below a heading of a help text."""
    found = re.search(rf"^{heading}:\n((?:  .*\n)+)", text, re.M)
    return re.findall(r"^  ([^\s].*?)(?:\s{2,}|\s[A-Z]|$)", found[1], re.M) if found else []


def options_of(text):
    return [name for names in listed(text, "Options") for name in names.split(",")]


def commands_of(program):
    """Each command, as its words, with its options."""
    def walk(words):
        text = help_of(program, *words)
        yield words, options_of(text)
        for name in listed(text, "Subcommands"):
            yield from walk([*words, name])
    return list(walk([]))


def sections(page):
    """What each subsection says, by its heading; what is before the first, under the empty one."""
    parts = re.split(r"^\.Ss (.*)\n", (MAN / page).read_text(encoding="utf-8").split("\n.Sh ENVIRONMENT")[0], flags=re.M)
    return {"": parts[0], **dict(zip(parts[1::2], parts[2::2]))}


def offered(program, *words, path=None):
    environment = {**os.environ, "COMPLETIONS": str(COMPLETIONS),
                   "PATH": f"{project.BUILD / 'bin'}:{os.environ['PATH']}"}
    return project.run("bash", HERE / "completion.sh", program, *words, env=environment, cwd=path).splitlines()


class Pages(unittest.TestCase):
    def pages(self):
        pages = sorted(MAN.iterdir())
        self.assertEqual(["qcfpkg.1", "qcfpkg.5", "qsnd.5", "qsndhost.1"], [page.name for page in pages])
        return pages

    @unittest.skipUnless(shutil.which("mandoc"), "mandoc is missing")
    def test_mandoc_finds_nothing(self):
        for page in self.pages():
            with self.subTest(page.name):
                # Which other pages are installed is this machine's affair.
                found = [line for line in project.attempt("mandoc", "-Tlint", page).stdout.splitlines()
                         if "referenced manual not found" not in line and "outdated mandoc.db" not in line]
                self.assertEqual([], found)

    @unittest.skipUnless(shutil.which("groff") or shutil.which("man"), "man is missing")
    def test_man_shows_them_without_a_warning(self):
        for page in self.pages():
            with self.subTest(page.name):
                done = project.attempt("man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", page,
                                       env={**os.environ, "LC_ALL": "C.UTF-8", "MANPAGER": "cat", "MANWIDTH": "80"})
                self.assertEqual((0, ""), (done.returncode, done.stderr))
                text = re.sub(r".\x08|\x1b\[\d*m", "", done.stdout)
                self.assertIn("DESCRIPTION", text)
                self.assertEqual([], [line for line in text.splitlines() if len(line) > 80])

    def test_pages_refer_to_pages_that_are_here_or_of_the_system(self):
        own = {page.name for page in self.pages()}
        for page in self.pages():
            for name, section in re.findall(r"\.Xr (\S+) (\d)", page.read_text(encoding="utf-8")):
                self.assertIn(f"{name}.{section}", own | {"unzip.1", "zip.1", "file.1"}, page.name)


@unittest.skipUnless(project.HAS_QSNDHOST and project.HAS_QCFPKG, "this build has not both programs")
class Programs(unittest.TestCase):
    PROGRAMS = ("qsndhost", "qcfpkg")

    def test_every_command_and_option_is_in_the_manual(self):
        for program in self.PROGRAMS:
            texts = sections(f"{program}.1")
            every = commands_of(program)
            self.assertGreater(sum(len(options) for _, options in every), 20)
            for words, options in every:
                heading = words[0] if words else ""
                self.assertIn(heading, texts, program)
                for option in options:
                    wanted = texts[""] if option in ("-h", "--help") else texts[heading]
                    with self.subTest(program=program, command=" ".join(words), option=option):
                        self.assertRegex(wanted, rf"(?m)^\.It (?:.* , )?Fl {re.escape(option[1:])}(?: |$)")

    def test_the_manual_has_no_option_that_the_program_does_not_know(self):
        for program in self.PROGRAMS:
            known = {}
            for words, options in commands_of(program):
                known.setdefault(words[0] if words else "", set()).update(options)
            for heading, text in sections(f"{program}.1").items():
                items = re.findall(r"^\.It Fl (.*)$", text, re.M)
                told = {"-" + name for item in items for name in re.findall(r"(?:^|Fl )(-?\w[\w-]*)", item)}
                with self.subTest(program=program, command=heading):
                    self.assertEqual(set(), told - known[heading])

    def test_every_command_and_option_is_completed(self):
        for program in self.PROGRAMS:
            every = commands_of(program)
            general = {option for option in every[0][1] if option.startswith("--")}
            for words, options in every:
                names = [other[-1] for other, _ in every if len(other) == len(words) + 1 and other[:-1] == words]
                long_options = {option for option in options if option.startswith("--")} | general
                with self.subTest(program=program, command=" ".join(words)):
                    self.assertEqual(sorted(long_options), sorted(offered(program, *words, "-")))
                    if names:
                        self.assertEqual(sorted(names), sorted(offered(program, *words, "")))


class Completion(unittest.TestCase):
    def setUp(self):
        self.home = project.scratch("completion")
        for name in ("song.qsnd", "take two.qsnd", "song.wav", "song.png", "notes.txt"):
            (self.home / name).touch()
        (self.home / "folder").mkdir()

    def offered(self, *words):
        return offered(*words, path=self.home)

    def test_documents_and_folders_are_offered_where_documents_go(self):
        self.assertEqual(["folder", "song.qsnd", "take two.qsnd"], self.offered("qsndhost", "info", ""))
        self.assertEqual(["song.png", "song.qsnd"], self.offered("qsndhost", "waveform", "so"))

    def test_values_of_options_are_offered(self):
        self.assertEqual(["16", "24", "float"], self.offered("qsndhost", "export", "--format", ""))
        self.assertEqual(["dark"], self.offered("qsndhost", "waveform", "a.qsnd", "--theme", "d"))
        self.assertEqual(["folder"], self.offered("qsndhost", "export", "-d", ""))
        self.assertEqual(["folder"], self.offered("qcfpkg", "extract", "a.pkg", "-C", "f"))
        self.assertEqual([], self.offered("qsndhost", "export", "--start", ""))

    def test_the_command_is_found_behind_options(self):
        self.assertEqual(["formats"], self.offered("qsndhost", "--bundle", "folder", "--quiet", "f"))
        self.assertEqual(["get", "list", "set"], self.offered("qcfpkg", "-q", "prop", ""))

    def test_begun_words_are_narrowed_down(self):
        self.assertEqual(["comment", "compact"], self.offered("qcfpkg", "com"))
        self.assertEqual([], self.offered("qcfpkg", "x"))
        self.assertEqual(["--max-ratio", "--max-size"], self.offered("qcfpkg", "extract", "--max"))

    @unittest.skipUnless(project.HAS_QCFPKG, "this build has no program qcfpkg")
    def test_entries_of_the_package_are_offered(self):
        project.make_package(self.home / "a.pkg")
        self.assertEqual(["mimetype", "text.txt"], self.offered("qcfpkg", "cat", "a.pkg", ""))
        self.assertEqual(["text.txt"], self.offered("qcfpkg", "extract", "a.pkg", "mimetype", "te"))
        self.assertEqual(["mac-creator", "mac-type", "modified"],
                         self.offered("qcfpkg", "prop", "get", "a.pkg", "text.txt", "m"))
        self.assertEqual([], self.offered("qcfpkg", "cat", "notes.txt", ""))


if __name__ == "__main__":
    unittest.main()
